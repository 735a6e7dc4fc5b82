// A terminal at a serial line.
#pragma once

#include <string>
#include <vector>

#include "tools/jxpush/common/target.h"

namespace jxpush {

class SerialTarget : public Target {
 public:
  SerialTarget(std::string device, const TargetOptions& options);
  void check(const std::vector<InputFile>& files) override;
  void send(const std::vector<InputFile>& files, Observer& observer, Outcome& outcome) override;

 private:
  const std::string device_;
  const TargetOptions options_;
};

}  // namespace jxpush
