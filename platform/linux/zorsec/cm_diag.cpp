#include <zorsec.h>

#include <algorithm>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/linux/support/root.h"
#include "platform/linux/zorsec/diagnostic_record.h"

namespace {

using jxplatform::DiagnosticRecord;

enum Result : int { kDone = 0, kNoFurtherRecord = -1, kUnknownQuery = -2, kNoRoom = -3, kFailed = -4 };

// A security module holds more than the sponsor's record: readers must pick theirs.
std::vector<DiagnosticRecord> readRecords() {
  const std::vector<unsigned char> keyIdentifier{0x00, 0x00, 0x00, 0x01};
  const std::vector<unsigned char> vendorIdentifier{0x02, 0x03, 0x00, 0x00, 0x00, 0x01};
  std::vector<DiagnosticRecord> records{jxplatform::makeDiagnosticRecord(keyIdentifier, 1, "KEY"),
                                        jxplatform::makeDiagnosticRecord(vendorIdentifier, 900001, "VENDOR")};
  const auto settings = jxplatform::readTerminalSettings(jxplatform::root());
  if (auto sponsor = jxplatform::makeSponsorRecord(settings.sponsor)) records.push_back(std::move(*sponsor));
  return records;
}

// The records are read when a walk begins: a change of the settings is seen by the next one. Who has found what it
// wants in the last record does not ask for the end of the walk: the next one may begin there, and does with other
// records.
class Walk {
 public:
  Result next(unsigned char* buffer, unsigned short* length) {
    if (position_ == 0) records_ = readRecords();
    if (position_ == records_.size()) {
      std::vector<DiagnosticRecord> records = readRecords();
      position_ = 0;
      if (records == records_) return kNoFurtherRecord;
      records_ = std::move(records);
    }
    const DiagnosticRecord& record = records_[position_++];
    if (record.size() > *length) return kNoRoom;
    std::copy(record.begin(), record.end(), buffer);
    *length = static_cast<unsigned short>(record.size());
    return kDone;
  }

 private:
  std::vector<DiagnosticRecord> records_;
  std::size_t position_ = 0;
};

}  // namespace

extern "C" int CMDiag(int query, unsigned char* buffer, unsigned short* length) {
  if (query != kCMDiagRecords || buffer == nullptr || length == nullptr) return kUnknownQuery;
  static std::mutex mutex;
  try {
    const std::lock_guard<std::mutex> lock(mutex);
    static auto* const walk = new Walk;  // never destroyed: a thread may ask while the program ends
    return walk->next(buffer, length);
  } catch (const std::exception&) {
    return kFailed;
  }
}
