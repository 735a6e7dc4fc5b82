// Lets the calling thread get no new threads.
#pragma once

// While it lives, each thread that the calling thread begins fails, as where the system has no more.
class NoThreads {
 public:
  NoThreads();
  ~NoThreads();
  NoThreads(const NoThreads&) = delete;
  NoThreads& operator=(const NoThreads&) = delete;
};
