#include "http/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/unit/http/tracer.h"
#include "tests/unit/http/wrapped_calls.h"

namespace {

using zorhtml::Thread;
using zorhtml::ThreadControl;

// What became of a job; outlives it.
struct Fate {
  std::promise<void> allowed;  // the job runs until then
  std::promise<void> deleted;
  std::atomic<int> steps{0};  // 1 onStart, 2 run, 3 destructor: the decimal digits, in their order
  std::atomic<void*> argument{nullptr};
  pthread_t runner{};
  bool detached = false;
};

class Job : public Thread {
 public:
  explicit Job(Fate& fate) : fate_(fate) {}
  ~Job() override {
    fate_.steps = fate_.steps * 10 + 3;
    fate_.deleted.set_value();
  }
  void onStart(void* argument) override {
    fate_.steps = fate_.steps * 10 + 1;
    fate_.argument = argument;
  }
  int run() override {
    fate_.allowed.get_future().wait();
    fate_.steps = fate_.steps * 10 + 2;
    fate_.runner = pthread_self();
    pthread_attr_t attributes;
    int state = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getdetachstate(&attributes, &state);
    pthread_attr_destroy(&attributes);
    fate_.detached = state == PTHREAD_CREATE_DETACHED;
    return 42;
  }

 private:
  Fate& fate_;
};

using Names = std::vector<std::string>;

Names namesOf(const std::vector<wrapped::ThreadCall>& calls) {
  Names names;
  for (const wrapped::ThreadCall& call : calls) names.emplace_back(call.name);
  return names;
}

// Runs the start routine on this thread.
std::intptr_t exitValue(Thread* object) { return reinterpret_cast<std::intptr_t>(zorhtml::threadEntry(object)); }

TEST(ThreadEntry, Job_IsStartedRunAndDeleted) {
  Fate fate;
  fate.allowed.set_value();
  auto* job = new Job(fate);
  EXPECT_EQ(exitValue(job), 42);
  EXPECT_EQ(fate.steps, 123);
  EXPECT_EQ(fate.argument, static_cast<Thread*>(job));
}

TEST(ThreadEntry, NoJob_DoesNothing) { EXPECT_EQ(zorhtml::threadEntry(nullptr), nullptr); }

TEST(ThreadEntry, Exception_DeletesTheJobAlone) {
  struct Throwing : Job {
    using Job::Job;
    int run() override { throw std::runtime_error("out of luck"); }
  };
  struct ThrowingAtItsStart : Job {
    using Job::Job;
    void onStart(void*) override { throw std::runtime_error("out of luck"); }
  };
  Fate fate, other;
  EXPECT_EQ(exitValue(new Throwing(fate)), 0);
  EXPECT_EQ(fate.steps, 13);
  EXPECT_EQ(exitValue(new ThrowingAtItsStart(other)), 0);
  EXPECT_EQ(other.steps, 3);
}

// The exit value of a POSIX thread of its own that runs `object`.
void* exitValueOfThread(Thread* object) {
  pthread_t thread{};
  void* value = nullptr;
  EXPECT_EQ(pthread_create(&thread, nullptr, zorhtml::threadEntry, object), 0);
  EXPECT_EQ(pthread_join(thread, &value), 0);
  return value;
}

TEST(ThreadEntry, ThreadThatExits_DeletesTheJobAndHasTheValueGiven) {
  struct Exiting : Job {
    using Job::Job;
    int run() override { pthread_exit(this); }
  };
  Fate fate;
  auto* job = new Exiting(fate);
  EXPECT_EQ(exitValueOfThread(job), job);
  EXPECT_EQ(fate.steps, 13);
}

TEST(ThreadEntry, ThreadThatIsCancelled_DeletesTheJob) {
  struct Cancelled : Job {
    using Job::Job;
    void onStart(void*) override {
      pthread_cancel(pthread_self());
      pthread_testcancel();
    }
  };
  Fate fate;
  EXPECT_EQ(exitValueOfThread(new Cancelled(fate)), PTHREAD_CANCELED);
  EXPECT_EQ(fate.steps, 3);
}

TEST(ThreadEntry, BaseOnStart_DoesNothing) {
  struct Plain : Thread {
    int run() override { return -1; }
  };
  EXPECT_EQ(exitValue(new Plain), -1);
}

TEST(ThreadControl, JoinableHandle_WaitsForItsThread) {
  Fate fate;
  {
    const ThreadControl control(new Job(fate), false);
    EXPECT_EQ(control.state, 1);
    fate.allowed.set_value();
  }
  EXPECT_EQ(fate.steps, 123);
  EXPECT_FALSE(fate.detached);
}

TEST(ThreadControl, Handle_HoldsTheThread) {
  for (const bool detached : {false, true}) {
    Fate fate;
    pthread_t handle{};
    {
      const ThreadControl control(new Job(fate), detached);
      handle = control.thread;
      fate.allowed.set_value();
    }
    fate.deleted.get_future().wait();
    EXPECT_NE(pthread_equal(handle, fate.runner), 0) << detached;
  }
}

TEST(ThreadControl, Job_IsFreedWhetherItRanOrNot) {
  for (const bool fails : {false, true}) {
    Trace trace;
    Tracer::deletions = 0;
    wrapped::failThreads(fails);
    { const ThreadControl control(new Tracer(trace), false); }
    wrapped::failThreads(false);
    EXPECT_EQ(Tracer::deletions, 1) << fails;
  }
}

TEST(ThreadControl, JoinableThread_HasNoAttributesAndIsJoinedOnce) {
  wrapped::takeThreadCalls();
  Fate fate;
  Thread* const job = new Job(fate);
  pthread_t handle{};
  {
    const ThreadControl control(job, false);
    handle = control.thread;
    fate.allowed.set_value();
  }
  const auto calls = wrapped::takeThreadCalls();
  ASSERT_EQ(namesOf(calls), (Names{"create", "join"}));
  EXPECT_EQ(calls[0].attributes, nullptr);
  EXPECT_EQ(calls[0].start, &zorhtml::threadEntry);
  EXPECT_EQ(calls[0].argument, job);
  EXPECT_NE(pthread_equal(calls[1].thread, handle), 0);
}

TEST(ThreadControl, DetachedThread_HasAttributesThatAreDestroyedAndIsNotJoined) {
  wrapped::takeThreadCalls();
  Fate fate;
  Thread* const job = new Job(fate);
  { const ThreadControl control(job, true); }
  const auto calls = wrapped::takeThreadCalls();
  fate.allowed.set_value();
  fate.deleted.get_future().wait();
  ASSERT_EQ(namesOf(calls), (Names{"create", "destroy"}));
  EXPECT_TRUE(calls[0].detached);
  EXPECT_FALSE(calls[0].ownStack);
  EXPECT_EQ(calls[0].start, &zorhtml::threadEntry);
  EXPECT_EQ(calls[0].argument, job);
  EXPECT_NE(calls[0].attributes, nullptr);
  EXPECT_EQ(calls[1].attributes, calls[0].attributes);
}

TEST(ThreadControl, FailedCreation_DestroysTheAttributesAndJoinsNothing) {
  wrapped::takeThreadCalls();
  wrapped::failThreads(true);
  for (const bool detached : {false, true}) {
    EXPECT_EQ(ThreadControl(nullptr, detached).state, 0);
    EXPECT_EQ(namesOf(wrapped::takeThreadCalls()), (detached ? Names{"create", "destroy"} : Names{"create"}));
  }
  wrapped::failThreads(false);
}

TEST(ThreadControl, DetachedHandle_LeavesItsThreadRunning) {
  Fate fate;
  {
    const ThreadControl control(new Job(fate), true);
    EXPECT_EQ(control.state, 3);
  }
  EXPECT_NE(fate.steps % 10, 3);
  fate.allowed.set_value();
  fate.deleted.get_future().wait();
  EXPECT_EQ(fate.steps, 123);
  EXPECT_TRUE(fate.detached);
}

TEST(ThreadControl, FailedCreation_DeletesTheJobAtOnceWithoutAWord) {
  for (const bool detached : {false, true}) {
    Fate fate;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    wrapped::failThreads(true);
    {
      const ThreadControl control(new Job(fate), detached);
      EXPECT_EQ(control.state, 0);
      EXPECT_EQ(fate.steps, 3);
    }
    wrapped::failThreads(false);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
  }
}

TEST(ThreadControl, AttributesThatCannotBeMade_StartNothing) {
  wrapped::takeThreadCalls();
  Fate fate;
  wrapped::failAttributes(true);
  EXPECT_EQ(ThreadControl(new Job(fate), true).state, 0);
  wrapped::failAttributes(false);
  EXPECT_EQ(fate.steps, 3);
  EXPECT_TRUE(wrapped::takeThreadCalls().empty());
}

TEST(ThreadControl, NoJob_IsStartedAllTheSame) {
  wrapped::takeThreadCalls();
  EXPECT_EQ(ThreadControl(nullptr, false).state, 1);
  EXPECT_EQ(ThreadControl(nullptr, true).state, 3);
  const auto calls = wrapped::takeThreadCalls();
  ASSERT_EQ(namesOf(calls), (Names{"create", "join", "create", "destroy"}));
  EXPECT_EQ(calls[0].argument, nullptr);
  EXPECT_EQ(calls[2].argument, nullptr);
}

}  // namespace
