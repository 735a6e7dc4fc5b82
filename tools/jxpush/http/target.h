// A terminal whose upload server listens.
#pragma once

#include <vector>

#include "tools/jxpush/common/target.h"
#include "tools/jxpush/http/address.h"
#include "tools/jxpush/http/exchange.h"

namespace jxpush {

class HttpTarget : public Target {
 public:
  HttpTarget(HttpAddress address, const TargetOptions& options);
  void check(const std::vector<InputFile>& files) override;
  // Sends the files in one form and keeps the installer's log, whatever its verdict. Throws Problem: kNoPort when
  // nothing can have been installed, kUnknown when something may have been, kGaveUp when the upload was refused or this
  // is no terminal, kInput, kInterrupted.
  void send(const std::vector<InputFile>& files, Observer& observer, Outcome& outcome) override;

 private:
  const HttpConnection connection_;
};

}  // namespace jxpush
