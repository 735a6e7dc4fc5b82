#include "tools/jxpush/fleet/fleet.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/unit/tools/jxpush/test_files.h"
#include "tools/jxpush/common/problem.h"

using namespace jxpush;

namespace {

// How the terminals of a test behave, by name; each call of `send` is counted.
struct Terminals {
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t underWay = 0;
  std::size_t most = 0;
  std::size_t holdUntil = 0;  // a sending ends when so many were under way at once
  std::map<std::string, int> calls;
  std::map<std::string, std::function<void(int call)>> behaviour;
};

class FakeTarget : public Target {
 public:
  FakeTarget(Terminals& terminals, std::string name) : terminals_(terminals), name_(std::move(name)) {}
  void check(const std::vector<InputFile>& /*files*/) override {}
  void send(const std::vector<InputFile>& files, Observer& observer, Outcome& outcome) override {
    std::unique_lock<std::mutex> lock(terminals_.mutex);
    const int call = ++terminals_.calls[name_];
    terminals_.most = std::max(terminals_.most, ++terminals_.underWay);
    terminals_.changed.notify_all();
    terminals_.changed.wait(lock, [this] { return terminals_.most >= terminals_.holdUntil; });
    lock.unlock();
    observer.waiting("nobody");
    observer.fileBegins(files[0]);
    observer.acknowledged(files[0].size());
    observer.installing();
    lock.lock();
    --terminals_.underWay;
    lock.unlock();
    const auto found = terminals_.behaviour.find(name_);
    if (found != terminals_.behaviour.end()) found->second(call);
    outcome.log = {{LogLine::Kind::List, "List of installed applications:"}, {LogLine::Kind::List, "  hello 1.0.0"}};
  }

 private:
  Terminals& terminals_;
  const std::string name_;
};

class FleetTest : public testing::Test {
 protected:
  FleetTest() {
    files_.add("a.zip", "content");
    settings_.json = true;
    settings_.progress = ProgressStyle::kPlain;
  }

  void target(const std::string& name, bool serial = false) {
    targets_.push_back({"http://" + name, name, name, serial});
  }

  // Runs the fleet and reads the objects that it prints.
  ExitCode run() {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const ExitCode code = runFleet(targets_, files_.files(), settings_, [this](const NamedTarget& named) {
      return std::make_unique<FakeTarget>(terminals_, named.name);
    });
    errors_ = testing::internal::GetCapturedStderr();
    std::istringstream stream(testing::internal::GetCapturedStdout());
    for (std::string line; std::getline(stream, line);) {
      const nlohmann::json object = nlohmann::json::parse(line);
      if (object["event"] == "summary") summary_ = object;
      if (object["event"] == "target") results_[object["name"]] = object;
    }
    return code;
  }

  TestFiles files_;
  Terminals terminals_;
  std::vector<NamedTarget> targets_;
  FleetSettings settings_;
  std::map<std::string, nlohmann::json> results_;
  nlohmann::json summary_;
  std::string errors_;
};

}  // namespace

TEST_F(FleetTest, AllSucceed_IsSent) {
  for (int i = 0; i < 50; ++i) target("t" + std::to_string(i));
  EXPECT_EQ(ExitCode::kSent, run());
  EXPECT_EQ(50U, results_.size());
  EXPECT_EQ(nlohmann::json({"hello 1.0.0"}), results_["t49"]["installed"]);
  EXPECT_EQ(50, summary_["succeeded"]);
  EXPECT_NE(std::string::npos, errors_.find("t7: a.zip  100 %  7 of 7 bytes")) << errors_;
  EXPECT_NE(std::string::npos, errors_.find("t7: Installing ...\n")) << errors_;
}

TEST_F(FleetTest, OneFails_TheOthersAreServed) {
  for (const char* name : {"a", "b", "c"}) target(name);
  terminals_.behaviour["b"] = [](int) { throw Problem(ExitCode::kRefused, "no\x1b[2J"); };
  EXPECT_EQ(ExitCode::kSomeFailed, run());
  EXPECT_EQ(34, results_["b"]["code"]);
  EXPECT_EQ(0, results_["c"]["code"]);
  EXPECT_EQ(1, summary_["failed"]);
  EXPECT_EQ(50, summary_["code"]);
  EXPECT_NE(std::string::npos, errors_.find("jxpush: b: no?[2J\n")) << errors_;
}

// Each sending waits until as many as may be are under way.
TEST_F(FleetTest, JobsLimitHttpAndNotSerialLines) {
  settings_.jobs = 3;
  for (int i = 0; i < 9; ++i) target("h" + std::to_string(i));
  for (int i = 0; i < 4; ++i) target("s" + std::to_string(i), true);
  terminals_.holdUntil = 7;
  EXPECT_EQ(ExitCode::kSent, run());
  EXPECT_EQ(7U, terminals_.most);
}

TEST_F(FleetTest, Interrupted_SaysWhoHadNoTurn) {
  int ends[2] = {-1, -1};
  ASSERT_EQ(0, pipe(ends));
  settings_.job.stopFd = ends[0];
  settings_.jobs = 1;
  for (const char* name : {"a", "b"}) target(name);
  terminals_.behaviour["a"] = [&ends](int) { ASSERT_EQ(1, write(ends[1], "", 1)); };
  EXPECT_EQ(ExitCode::kSomeFailed, run());
  EXPECT_EQ(0, results_["a"]["code"]);
  EXPECT_EQ(130, results_["b"]["code"]);
  EXPECT_EQ("interrupted before its turn; nothing was sent to it", results_["b"]["message"]);
  EXPECT_EQ(0, terminals_.calls["b"]);
  close(ends[0]);
  close(ends[1]);
}

TEST_F(FleetTest, WhatMayPass_IsTriedAgain) {
  settings_.job.retries = 1;
  target("a");
  terminals_.behaviour["a"] = [](int call) {
    if (call == 1) throw Problem(ExitCode::kBusy, "busy");
  };
  EXPECT_EQ(ExitCode::kSent, run());
  EXPECT_EQ(2, terminals_.calls["a"]);
  EXPECT_NE(std::string::npos, errors_.find("jxpush: a: busy; trying again in 1 s (1 of 1)\n")) << errors_;
}

TEST_F(FleetTest, WhatDoesNotPass_IsNotTriedAgain) {
  settings_.job.retries = 3;
  const std::vector<Problem> finals = {{ExitCode::kInput, "x"},       {ExitCode::kNoPermission, "x"},
                                       {ExitCode::kRefused, "x"},     {ExitCode::kUnknown, "x"},
                                       {ExitCode::kInterrupted, "x"}, Problem(ExitCode::kGaveUp, "x").forGood()};
  for (std::size_t i = 0; i < finals.size(); ++i) {
    const std::string name = "t" + std::to_string(i);
    target(name);
    const Problem& problem = finals[i];
    terminals_.behaviour[name] = [problem](int) { throw Problem(problem); };
  }
  EXPECT_EQ(ExitCode::kSomeFailed, run());
  for (const auto& [name, calls] : terminals_.calls) EXPECT_EQ(1, calls) << name;
}
