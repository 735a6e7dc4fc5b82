// Notes which code a test reaches: the places of the instrumented objects (-fsanitize-coverage=trace-pc) go, each once,
// to the file that JX_REACH names, as 32-bit offsets into the program or library that this object is linked into.
// System calls are made by number, and that function is looked up, since the tests wrap functions.
#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" {
extern const char __ehdr_start __attribute__((visibility("hidden")));
extern char** environ;
__attribute__((no_sanitize_coverage)) void __sanitizer_cov_trace_pc();
}

namespace {

constexpr std::size_t kMost = std::size_t{1} << 26U;
unsigned char reached[kMost];

__attribute__((no_sanitize_coverage)) const char* fileName() {
  static const char kName[] = "JX_REACH=";
  for (char** at = environ; at != nullptr && *at != nullptr; ++at) {
    std::size_t length = 0;
    while (kName[length] != '\0' && (*at)[length] == kName[length]) ++length;
    if (kName[length] == '\0') return *at + length;
  }
  return nullptr;
}

using Call = long (*)(long, ...);

__attribute__((no_sanitize_coverage)) Call systemCall() {
  static const Call found = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "syscall"));
  return found;
}

}  // namespace

void __sanitizer_cov_trace_pc() {
  const auto place =
      reinterpret_cast<std::uintptr_t>(__builtin_return_address(0)) - reinterpret_cast<std::uintptr_t>(&__ehdr_start);
  if (place >= kMost || __atomic_exchange_n(&reached[place], 1, __ATOMIC_RELAXED) != 0) return;
  const int before = errno;
  const char* name = fileName();
  const auto offset = static_cast<std::uint32_t>(place);
  if (name != nullptr) {
    const Call call = systemCall();
    const long file = call(SYS_openat, AT_FDCWD, name, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (file >= 0) {
      static_cast<void>(call(SYS_write, file, &offset, sizeof offset));
      static_cast<void>(call(SYS_close, file));
    } else {
      reached[place] = 0;
    }
  }
  errno = before;
}
