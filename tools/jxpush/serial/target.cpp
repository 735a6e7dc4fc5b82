#include "tools/jxpush/serial/target.h"

#include <cstdint>
#include <utility>

#include "tools/jxpush/common/problem.h"
#include "tools/jxpush/serial/port.h"
#include "tools/jxpush/serial/sender.h"

namespace jxpush {

namespace {

constexpr std::uint64_t kLargestFile = UINT32_MAX;  // offsets in data records have 32 bits

}  // namespace

SerialTarget::SerialTarget(std::string device, const TargetOptions& options)
    : device_(std::move(device)), options_(options) {}

void SerialTarget::check(const std::vector<InputFile>& files) {
  for (const InputFile& file : files) {
    if (file.size() > kLargestFile) {
      throw Problem(ExitCode::kInput,
                    file.path() + ": larger than a serial line can carry (" + std::to_string(kLargestFile) + " bytes)");
    }
  }
  SerialPort::check(device_);
}

void SerialTarget::send(const std::vector<InputFile>& files, Observer& observer, Outcome& outcome) {
  check(files);
  outcome.onScreenAlone = true;
  SerialPort port(device_, options_.stopFd);
  SerialSender(port, observer, outcome).send(files, options_.waitSeconds);
}

}  // namespace jxpush
