// Any bytes as a form, cut anywhere: each file that is whole stands in the form between its headers and a delimiter,
// and what is cut off takes nothing away from the files before it.
#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/input.h"
#include "upload/form_decoder.h"

namespace {

// In the input: the byte before is repeated sixteen times the number that follows; doubled it is a byte like any other.
// The decoder is shown 4096 bytes at a time, and so a short input can have any of its places at their end.
constexpr char kStretch = '\xFC';
constexpr std::size_t kLongEnough = std::size_t{64} * 1024;
constexpr std::size_t kBufferSize = 4096;

const std::string kDelimiter = "\r\n--x";

// The form, behind the line break that its user puts before it.
std::string readForm(const char* data, std::size_t size) {
  std::string form = "\r\n";
  for (std::size_t i = 0; i < size; ++i) {
    const bool last = i + 1 == size;
    if (data[i] != kStretch) {
      form += data[i];
    } else if (!last && data[i + 1] == kStretch) {
      form += data[++i];
    } else if (!last && form.size() < kLongEnough) {
      form.append(std::size_t{16} * static_cast<std::uint8_t>(data[++i]), form.back());
    }
  }
  return form;
}

struct File {
  std::string content;
  std::size_t at;  // where its content begins in the form
};

// The whole files of the form's first `size` bytes.
std::vector<File> decode(const std::string& form, std::size_t size) {
  FormDecoder decoder(kDelimiter, "upload");
  std::vector<File> files;
  File file;
  bool isOpen = false;
  for (std::size_t at = 0;;) {
    const std::size_t shown = std::min(size - at, kBufferSize);
    const FormDecoder::Step step = decoder.decode(form.data() + at, shown);
    require(step.content <= step.used && step.used <= shown);
    require(step.content == 0 || isOpen);
    file.content.append(form, at, step.content);
    at += step.used;
    switch (step.event) {
      case FormDecoder::Event::kFileBegins:
        require(!isOpen);
        isOpen = true;
        file = {"", at};
        break;
      case FormDecoder::Event::kFileEnds:
        require(isOpen);
        isOpen = false;
        files.push_back(file);
        break;
      case FormDecoder::Event::kEnd:
        return files;
      default:
        require(step.used > 0);  // it moves on
    }
  }
}

// Each stands where it was found, behind its headers, and before a delimiter of which it has none itself.
void requireSent(const std::vector<File>& files, const std::string& form, std::size_t size) {
  for (const File& file : files) {
    const std::size_t end = file.at + file.content.size();
    require(end + kDelimiter.size() <= size);
    require(form.compare(file.at - 4, 4, "\r\n\r\n") == 0);
    require(form.compare(file.at, file.content.size(), file.content) == 0);
    require(form.find(kDelimiter, file.at) == end);
  }
}

}  // namespace

// The first two bytes say where the form is cut, in parts of 65536.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string form = readForm(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::vector<File> whole = decode(form, form.size());
  requireSent(whole, form, form.size());

  const std::size_t end = form.size() * (data[0] * std::size_t{256} + data[1]) / 65536;
  const std::vector<File> before = decode(form, end);
  requireSent(before, form, end);
  require(before.size() <= whole.size());
  require(std::equal(before.begin(), before.end(), whole.begin(),
                     [](const File& one, const File& other) { return one.at == other.at; }));
  return 0;
}
