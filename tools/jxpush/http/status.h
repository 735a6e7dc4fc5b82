// Whether a terminal's upload server answers, and the certificates it offers.
#pragma once

#include <vector>

#include "tools/jxpush/common/options.h"
#include "tools/jxpush/http/certificate_archive.h"
#include "tools/jxpush/http/exchange.h"

namespace jxpush {

// Asks the terminal. Throws Problem: kNoPort when it is unreachable, kGaveUp when what answers is no terminal or its
// archive cannot be read, kInterrupted. Blocks.
[[nodiscard]] std::vector<Certificate> readTerminalCertificates(const HttpConnection& connection);

// The command "status": asks the first of the targets, a full address, and prints, as text or JSON. Returns the exit
// code. Throws Problem(kUsage).
[[nodiscard]] int showStatus(const Options& options);

}  // namespace jxpush
