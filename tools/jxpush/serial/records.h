// The host's records of the Tessolan protocol, and the terminal's parameter record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace jxpush {

// A file begins. `name` is made fit for the record: control characters become "_", what is too long is cut, and "./"
// goes before the two beginnings that the terminal takes for something else than a file.
std::string openRecord(const std::string& name);
// `size` bytes of the file, at most 1024, at `offset`.
std::string dataRecord(std::uint32_t offset, const void* data, std::size_t size);
// How many of `size` bytes, at least one, may go into one data record so that no whole record lies in it. Where a data
// record loses its first byte, the terminal takes what lies in it for records of the host.
std::size_t safeDataSize(std::uint32_t offset, const void* data, std::size_t size);
std::string closeRecord();
// A message for the operator: `head`, made fit for the record as a name is, and `tail`, for which `head` leaves room.
std::string messageRecord(const std::string& head, const std::string& tail);
// A data record's beginning with a length that no terminal takes: it answers EOT and drops the download.
std::string cancelRecord();

// Finds a parameter record among the bytes that the terminal sends.
class ParameterReader {
 public:
  // Takes one byte; true when it completes a parameter record with a right check value.
  bool take(unsigned char byte);
  // Of the record found: the largest length of a data record that the terminal takes, 1 to 1024.
  std::size_t largestData() const { return largestData_; }
  // Bytes before the record that was found.
  std::size_t skipped() const { return skipped_; }

 private:
  std::string seen_;
  std::size_t largestData_ = 0;
  std::size_t skipped_ = 0;
};

}  // namespace jxpush
