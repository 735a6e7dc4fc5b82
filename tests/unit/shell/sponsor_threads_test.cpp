// In a program of its own: what is found stays for the life of the process.
#include <thread>

#include "shell/sponsor.h"
#include "tests/unit/shell/fixture.h"
#include "tests/unit/shell/records.h"

namespace {

using SponsorThreadsTest = ShellTest;

TEST_F(SponsorThreadsTest, LookupsAtOnce_AskOnceAndAgree) {
  constexpr int kThreads = 8;
  terminal.diagnose({0, sponsorRecord("000042", "ALL"), {}});
  std::vector<Sponsor> found(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (Sponsor& sponsor : found) {
    threads.emplace_back([&sponsor] {
      for (int i = 0; i < 100; ++i) sponsor = lookUpSponsor();
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const Sponsor& sponsor : found) {
    EXPECT_EQ(sponsor.number, "000042");
    EXPECT_EQ(sponsor.name, "ALL");
  }
  EXPECT_EQ(terminal.diagnosticCalls(), 1U);
}

}  // namespace
