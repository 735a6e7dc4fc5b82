// Takes a form apart, from bytes in a buffer to the files of one of its fields. It touches no stream and no disk.
#pragma once

#include <cstddef>
#include <string>

// The delimiter of a form's parts, as its content type names it; empty where that is no multipart/form-data, or names
// no boundary.
[[nodiscard]] std::string delimiterOf(const std::string& contentType);

// One form. Its user shows it the front of what is left of the body, as much as the buffer holds or all that is left,
// and drops what was used each time. Before the body's first byte stands a line break, so that its first delimiter is
// like all others. Whatever is looked for is found only where it is in view as a whole: a part's headers, the rest of a
// boundary line.
class FormDecoder {
 public:
  enum class Event {
    kNone,        // go on
    kFileBegins,  // a file of the field; its content follows
    kFileEnds,    // and is whole
    kEnd  // nothing more is to be had: the form has ended, or is broken or cut. A file that had begun is not whole
  };

  struct Step {
    Event event;
    std::size_t content = 0;  // so many bytes at the front belong to the file that has begun
    std::size_t used = 0;     // so many bytes are done with, the content among them
  };

  // The files are those of the form field `field`.
  FormDecoder(std::string delimiter, std::string field);

  // Looks at the `size` bytes of `data`; none when the body could not be read on.
  [[nodiscard]] Step decode(const char* data, std::size_t size);

 private:
  enum class State { kPreamble, kBoundaryLine, kHeaders, kOtherPart, kFile };

  [[nodiscard]] Step toDelimiter(const char* data, std::size_t size);
  [[nodiscard]] Step boundaryLine(const char* data, std::size_t size);
  [[nodiscard]] Step headers(const char* data, std::size_t size);

  const std::string delimiter_;
  const std::string field_;
  State state_ = State::kPreamble;
};
