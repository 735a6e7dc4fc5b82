// poll() and the calls of threads of the code under test, which the linker redirects here.
#pragma once

#include <poll.h>
#include <pthread.h>

#include <array>
#include <functional>
#include <vector>

namespace wrapped {

// One call of poll: the entries of the set it was given (both of the listener's, whatever the count), the count and the
// time-out.
struct Poll {
  std::array<pollfd, 2> set;
  unsigned long count;
  int timeoutMs;
};

// What the next poll does: it may fill in the returned events of the set's first entry, sets errno, returns a result.
using PollAnswer = std::function<int(pollfd* set)>;

// Answers each poll of this thread's code under test in turn; when the answers are used up the test has failed and the
// process ends. Without answers poll is the system's.
void answerPolls(std::vector<PollAnswer> answers);
// Goes back to the system's poll; returns the calls since answerPolls.
std::vector<Poll> takePolls();

// Makes pthread_create fail, without a thread, while it is set.
void failThreads(bool fail);
// Makes pthread_attr_init fail while it is set.
void failAttributes(bool fail);

// One call of pthread_create, pthread_attr_destroy or pthread_join.
struct ThreadCall {
  const char* name;                  // "create", "destroy", "join"
  const pthread_attr_t* attributes;  // null where it had none
  bool detached;                     // the attributes say so
  bool ownStack;                     // the attributes ask for another size than the default
  pthread_t thread;                  // that was created or joined
  void* (*start)(void*);             // what a thread was created for, and with
  void* argument;
};

// The calls that this thread has made since the last time it asked, in order.
std::vector<ThreadCall> takeThreadCalls();

}  // namespace wrapped
