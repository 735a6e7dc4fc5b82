#include <duktape.h>
#include <jsproc.h>

#include <exception>
#include <new>

#include "base/ignore.h"
#include "platform/linux/jsproc/qr_code.h"
#include "platform/linux/jsproc/script_heap.h"
#include "platform/linux/jsproc/utf8.h"
#include "platform/linux/zorhtml/html_escape.h"

namespace {

using Variables = std::map<std::string, std::string>;

constexpr std::size_t kOutputLimit = std::size_t{1} << 20U;  // bytes
constexpr const char* kRunKey =
    "\xFF"
    "run";  // hidden from scripts by its first byte
constexpr const char* kVarsKey =
    "\xFF"
    "vars";  // scripts may hide `vars` behind a variable of their own

// One run of one script. Duktape reports errors with longjmp, which skips destructors: every function that it calls
// hands C++ work to a member function that throws nothing, and itself holds nothing that needs destroying.
class Run {
 public:
  Run(const std::string& script, Variables& vars, jxplatform::ScriptHeap& heap)
      : script_(jxplatform::toCesu8(script)), vars_(vars), heap_(heap) {}

  // Runs the script to its end; true when it succeeded. Then vars() and output() hold what it made, else reason().
  bool execute();

  const Variables& vars() const { return left_; }
  const std::string& output() const { return output_; }
  const std::string& reason() const { return reason_; }
  bool outputOverflowed() const { return outputOverflowed_; }

 private:
  static duk_ret_t runProtected(duk_context* context, void* run);
  static duk_ret_t print(duk_context* context);
  static duk_ret_t escape(duk_context* context);
  static duk_ret_t qr(duk_context* context);
  static Run* of(duk_context* context);

  static void defineGlobals(duk_context* context, Run* run);
  static void defineVars(duk_context* context, Run* run);
  static void collectVars(duk_context* context, Run* run);

  void push(duk_context* context, const std::string& text);

  // Sets `buffer_` and returns whether it could.
  bool convertIn(const std::string& text) noexcept;
  bool convertEscaped(const char* data, std::size_t size) noexcept;
  bool drawQrCode(const char* data, std::size_t size) noexcept;
  bool collect(const char* name, std::size_t nameSize, const char* value, std::size_t valueSize) noexcept;
  bool append(const char* data, std::size_t size) noexcept;

  const std::string script_;
  const Variables& vars_;
  jxplatform::ScriptHeap& heap_;
  Variables left_;
  std::string output_;
  std::string reason_;
  std::string buffer_;
  bool outputOverflowed_ = false;
};

template <typename Work>
bool withoutThrowing(const Work& work) noexcept {
  try {
    work();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

bool Run::convertIn(const std::string& text) noexcept {
  const jxplatform::ScriptHeap::TimeOut timeOut(heap_);
  return withoutThrowing([&] { buffer_ = jxplatform::toCesu8(text); });
}

bool Run::convertEscaped(const char* data, std::size_t size) noexcept {
  return withoutThrowing([&] { buffer_ = jxplatform::escapeHtml(std::string(data, size)); });
}

bool Run::drawQrCode(const char* data, std::size_t size) noexcept {
  return withoutThrowing(
      [&] { buffer_ = jxplatform::toCesu8(jxplatform::qrCodeSvg(jxplatform::fromCesu8(data, size))); });
}

bool Run::collect(const char* name, std::size_t nameSize, const char* value, std::size_t valueSize) noexcept {
  const jxplatform::ScriptHeap::TimeOut timeOut(heap_);
  return withoutThrowing([&] {
    const std::string nameText = jxplatform::fromCesu8(name, nameSize);
    const auto before = vars_.find(nameText);
    const bool untouched =
        before != vars_.end() && jxplatform::toCesu8(before->second) == std::string(value, valueSize);
    // What is not valid UTF-8 stays as it was, unless the script changed it.
    left_[nameText] = untouched ? before->second : jxplatform::fromCesu8(value, valueSize);
  });
}

bool Run::append(const char* data, std::size_t size) noexcept {
  return withoutThrowing([&] {
    if (size > kOutputLimit - output_.size()) {
      outputOverflowed_ = true;
      throw std::bad_alloc();
    }
    output_.append(data, size);
  });
}

Run* Run::of(duk_context* context) {
  duk_push_global_stash(context);
  duk_get_prop_string(context, -1, kRunKey);
  auto* const run = static_cast<Run*>(duk_require_pointer(context, -1));
  duk_pop_2(context);
  return run;
}

// print(text, …): the texts one after the other, without anything between or after them.
duk_ret_t Run::print(duk_context* context) {
  Run* const run = of(context);
  for (duk_idx_t i = 0; i < duk_get_top(context); ++i) {
    duk_size_t size = 0;
    const char* const text = duk_safe_to_lstring(context, i, &size);
    if (!run->append(text, size)) return duk_range_error(context, "print: more than the page can hold");
  }
  return 0;
}

// escape(text): as <?var?> escapes.
duk_ret_t Run::escape(duk_context* context) {
  Run* const run = of(context);
  duk_size_t size = 0;
  const char* const text = duk_safe_to_lstring(context, 0, &size);
  if (!run->convertEscaped(text, size)) return duk_range_error(context, "escape: out of memory");
  duk_push_lstring(context, run->buffer_.data(), run->buffer_.size());
  return 1;
}

// qr(text): the text as a QR code's markup; nothing when it does not fit one.
duk_ret_t Run::qr(duk_context* context) {
  Run* const run = of(context);
  duk_size_t size = 0;
  const char* const text = duk_safe_to_lstring(context, 0, &size);
  if (!run->drawQrCode(text, size)) return duk_range_error(context, "qr: out of memory");
  duk_push_lstring(context, run->buffer_.data(), run->buffer_.size());
  return 1;
}

// Pushes a variable's name or value. The script has its own memory beside it, however long that is.
void Run::push(duk_context* context, const std::string& text) {
  if (!convertIn(text)) base::ignore(duk_range_error(context, "out of memory"));
  heap_.allowMemory(buffer_.size());
  duk_push_lstring(context, buffer_.data(), buffer_.size());
}

void Run::defineVars(duk_context* context, Run* run) {
  duk_push_bare_object(context);
  for (const auto& variable : run->vars_) {
    run->push(context, variable.first);
    run->push(context, variable.second);
    duk_put_prop(context, -3);
  }
}

void Run::defineGlobals(duk_context* context, Run* run) {
  duk_push_global_stash(context);
  duk_push_pointer(context, run);
  duk_put_prop_string(context, -2, kRunKey);
  defineVars(context, run);
  duk_dup_top(context);
  duk_put_prop_string(context, -3, kVarsKey);
  duk_put_global_string(context, "vars");
  duk_pop(context);
  duk_push_c_function(context, print, DUK_VARARGS);
  duk_put_global_string(context, "print");
  duk_push_c_function(context, escape, 1);
  duk_put_global_string(context, "escape");
  duk_push_c_function(context, qr, 1);
  duk_put_global_string(context, "qr");
  duk_push_global_object(context);
  duk_del_prop_string(context, -1, "Duktape");  // the engine's own interface: nothing a page needs
  duk_pop(context);
}

// What the script left in `vars`, as text; a variable that is undefined or null is gone.
void Run::collectVars(duk_context* context, Run* run) {
  duk_push_global_stash(context);
  duk_get_prop_string(context, -1, kVarsKey);
  duk_enum(context, -1, DUK_ENUM_OWN_PROPERTIES_ONLY);
  while (duk_next(context, -1, 1)) {
    if (!duk_is_null_or_undefined(context, -1)) {
      duk_size_t nameSize = 0;
      duk_size_t valueSize = 0;
      const char* const value = duk_to_lstring(context, -1, &valueSize);
      const char* const name = duk_get_lstring(context, -2, &nameSize);
      if (!run->collect(name, nameSize, value, valueSize)) base::ignore(duk_range_error(context, "out of memory"));
    }
    duk_pop_2(context);
  }
}

duk_ret_t Run::runProtected(duk_context* context, void* run) {
  auto* const self = static_cast<Run*>(run);
  defineGlobals(context, self);
  duk_push_string(context, "script");
  duk_compile_lstring_filename(context, 0, self->script_.data(), self->script_.size());
  duk_call(context, 0);
  duk_pop(context);
  collectVars(context, self);
  return 0;
}

bool Run::execute() {
  duk_context* const context = heap_.context();
  const bool good = duk_safe_call(context, runProtected, this, 0, 1) == DUK_EXEC_SUCCESS;
  if (!good) {
    duk_size_t size = 0;
    const char* const text = duk_safe_to_lstring(context, -1, &size);
    reason_ = jxplatform::fromCesu8(text, size);
  } else {
    output_ = jxplatform::fromCesu8(output_.data(), output_.size());
  }
  return good;
}

bool process(const std::string& script, Variables& vars, std::string& output) {
  jxplatform::ScriptHeap heap;
  if (heap.context() == nullptr) {
    output += "out of memory";
    return false;
  }
  Run run(script, vars, heap);
  const bool good = run.execute() && !heap.timeIsOver();
  if (good) {
    output += run.output();
    vars = run.vars();
  } else if (heap.timeIsOver()) {
    output += "the script ran longer than a second";
  } else if (run.outputOverflowed()) {
    output += "the script printed more than 1 MiB";
  } else if (heap.memoryRanOut()) {
    output += "the script needed more than 8 MiB of memory (" + run.reason() + ")";
  } else {
    output += run.reason();
  }
  return good;
}

}  // namespace

namespace js {

bool jsProcessorExt(void* /*userData*/, const std::string& script, std::map<std::string, std::string>& vars,
                    std::string& output) {
  const std::size_t before = output.size();
  try {
    return process(script, vars, output);
  } catch (const std::exception& error) {
    output.resize(before);
    output.append(error.what());
    return false;
  }
}

}  // namespace js
