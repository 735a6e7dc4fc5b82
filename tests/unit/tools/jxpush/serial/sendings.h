// Sendings of the same files under circumstances that differ in their faults alone.
#pragma once

#include <string>
#include <vector>

#include "tests/unit/tools/jxpush/serial/simulated_session.h"
#include "tests/unit/tools/jxpush/test_files.h"

using Contents = std::vector<std::string>;

// What can happen to a byte.
struct Fault {
  const char* name;
  LineFault kind;
  unsigned char value;
};
extern const std::vector<Fault> kFaults;

// A byte of a sending: its direction, and its number there.
struct SentByte {
  bool toHost;
  std::size_t at;
};

struct Place {
  SentByte byte;
  Fault fault;
};

class Sendings {
 public:
  explicit Sendings(Contents contents, const Circumstances& met = {});

  // From now on under these circumstances. `before`: what another host may have made the terminal store before; one of
  // these lists of files stands in front of those sent.
  void meet(const Circumstances& met, const std::vector<Contents>& before);

  // Those of the sending without faults, in their order.
  const std::vector<SentByte>& bytes() const { return bytes_; }
  // Those of the sending with this fault, from the one that meets it on: whatever the line does there as well is a
  // second fault, be the sending longer for the first one.
  std::vector<SentByte> bytesFrom(const Place& first);

  // What is wrong with a sending over faults; empty when nothing is. A terminal that refuses a record and whose NAK
  // arrives as an ACK deceives every sender.
  std::string complaint(const std::vector<Place>& faults);

  int sent = 0;
  int failed = 0;
  int deceived = 0;

 private:
  SessionEnd send(const std::vector<Place>& faults);
  bool isWhole(const SessionEnd& end) const;

  const Contents contents_;
  Circumstances met_;
  TestFiles files_;
  std::vector<Contents> before_;
  std::vector<SentByte> bytes_;
};

// Bytes arrive in small groups, as adapters pass them on.
Circumstances gathered();
// Bytes take no time.
Circumstances instant();
