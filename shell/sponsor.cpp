#include "shell/sponsor.h"

#include <zorsec.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "shell/pages.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Identifier = std::array<unsigned char, 6>;

constexpr std::size_t kSmallestRecord = 4;
constexpr std::size_t kNumberAt = 4;
constexpr std::size_t kDistanceAt = 10;
constexpr std::size_t kIdentifierAt = 14;
constexpr std::size_t kIdentifierEnd = kIdentifierAt + sizeof(Identifier);
constexpr std::size_t kLongestName = 127;
constexpr std::size_t kLongestRecord = 65535;  // what the 16-bit length can tell

constexpr std::array<Identifier, 4> kAccepted{{
    {0x02, 0x03, 0x20, 0x08, 0x21, 0xC5},
    {0x02, 0x03, 0x01, 0x02, 0x36, 0x51},
    {0x02, 0x03, 0x20, 0x87, 0x16, 0x77},
    {0x02, 0x03, 0x20, 0x87, 0x20, 0x19},
}};

// Both are written once, under the mutex, and never freed: a reader that sees both needs no lock.
std::atomic<const char*> cachedNumber{nullptr};
std::atomic<const char*> cachedName{nullptr};
std::mutex lookupMutex;

bool readCache(Sponsor& sponsor) {
  const char* const number = cachedNumber.load(std::memory_order_acquire);
  const char* const name = cachedName.load(std::memory_order_acquire);
  if (number == nullptr || name == nullptr) return false;
  sponsor = {number, name};
  return true;
}

std::unique_ptr<char[]> heapCopy(const std::string& text) {
  std::unique_ptr<char[]> copy(new char[text.size() + 1]);
  std::memcpy(copy.get(), text.c_str(), text.size() + 1);
  return copy;
}

void writeCache(const Sponsor& sponsor) {
  std::unique_ptr<char[]> number = heapCopy(sponsor.number);
  std::unique_ptr<char[]> name = heapCopy(sponsor.name);
  cachedName.store(name.release(), std::memory_order_release);
  cachedNumber.store(number.release(), std::memory_order_release);
}

std::uint32_t wordAt(const Bytes& record, std::size_t at) {
  std::uint32_t word = 0;
  for (std::size_t i = 4; i-- > 0;) word = word << 8 | record[at + i];
  return word;
}

// Where the name field starts; 64 bits, so that no distance wraps around.
std::uint64_t nameStart(const Bytes& record) { return std::uint64_t{kIdentifierAt} + wordAt(record, kDistanceAt); }

bool isSponsorRecord(const Bytes& record) {
  if (wordAt(record, 0) != sizeof(Identifier)) return false;
  // A cut identifier is none of the accepted ones.
  if (record.size() < kIdentifierEnd || nameStart(record) > record.size()) return false;
  return std::any_of(kAccepted.begin(), kAccepted.end(), [&record](const Identifier& accepted) {
    return std::equal(accepted.begin(), accepted.end(), record.begin() + kIdentifierAt);
  });
}

// The walk through the records, with one retry for all of its calls.
class RecordWalk {
 public:
  // Gets the next record; false at the end of the walk.
  bool next(Bytes& record) {
    record.resize(kLongestRecord);
    auto length = static_cast<unsigned short>(record.size());
    int result = CMDiag(kCMDiagRecords, record.data(), &length);
    if (result == kCMDiagRetry && !retried_) {
      retried_ = true;
      length = static_cast<unsigned short>(record.size());
      result = CMDiag(kCMDiagRecords, record.data(), &length);
    }
    record.resize(length);
    return result == 0 && length >= kSmallestRecord;
  }

 private:
  bool retried_ = false;
};

bool findSponsorRecord(Bytes& record) {
  RecordWalk walk;
  while (walk.next(record)) {
    if (isSponsorRecord(record)) return true;
  }
  return false;
}

std::string nameOf(const Bytes& record) {
  const auto start = static_cast<std::size_t>(nameStart(record));
  if (record.size() - start < 4) return "";
  const std::size_t length = wordAt(record, start);
  const std::size_t textAt = start + 4;
  if (length > record.size() - textAt) return "";
  return {reinterpret_cast<const char*>(record.data()) + textAt, std::min(length, kLongestName)};
}

int numberOf(const Bytes& record) {
  int number = 0;
  for (std::size_t i = sizeof(Identifier); i-- > 0;) number = number * 10 + (record[kNumberAt + i] & 0x0F);
  return number;
}

}  // namespace

Sponsor lookUpSponsor() {
  Sponsor sponsor;
  if (readCache(sponsor)) return sponsor;
  const std::lock_guard<std::mutex> lock(lookupMutex);
  if (readCache(sponsor)) return sponsor;
  Bytes record;
  if (!findSponsorRecord(record)) return {};
  const int number = numberOf(record);
  sponsor.name = nameOf(record);
  if (number == 0 || sponsor.name.empty()) return {};
  formatText(sponsor.number, "%06d", number);
  writeCache(sponsor);
  readCache(sponsor);  // so that a name with a zero byte in it reads the same from now on
  return sponsor;
}
