// Runs a call on a stack that is unmapped when it has ended, so that whoever still points into it crashes.
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cstddef>
#include <functional>

inline void onVanishingStack(std::function<void()> call) {
  constexpr std::size_t kSize = std::size_t{4} << 20;
  void* const stack = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(stack, MAP_FAILED);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, kSize);
  pthread_t thread{};
  const auto entry = [](void* data) -> void* {
    (*static_cast<std::function<void()>*>(data))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, entry, &call), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  munmap(stack, kSize);
}
