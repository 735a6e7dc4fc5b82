#include "shell/startup.h"

#include <gtest/gtest.h>
#include <jsproc.h>
#include <pthread.h>
#include <sys/stat.h>
#include <zorhtml.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/in_child.h"

// The modes of directories are tested with the program itself, where the paths can be made.

namespace {

struct Registration {
  std::string name;
  zorhtml::ScriptProcessor processor;
  void* userData;
};

std::vector<Registration> registrations;

}  // namespace

namespace zorhtml {

void htmlSetScriptProcessor(const char* name, ScriptProcessor processor, void* userData) {
  registrations.push_back({name, processor, userData});
}

}  // namespace zorhtml

namespace {

TEST(PrepareProcess, SetsMaskProcessorAndName) {
  umask(0);
  setenv("GUIPRT_APPNAME", "another", 1);
  registrations.clear();
  prepareProcess();
  EXPECT_EQ(umask(0), 022U);
  ASSERT_EQ(registrations.size(), 1U);
  EXPECT_EQ(registrations[0].name, "js");
  EXPECT_EQ(registrations[0].processor, js::jsProcessorExt);
  EXPECT_EQ(registrations[0].userData, nullptr);
  EXPECT_STREQ(std::getenv("GUIPRT_APPNAME"), "jxdownloader");
}

TEST(LimitThreadStacks, LaterThreadsHaveAMebibyte) {
  EXPECT_EQ(inChild([] {
              limitThreadStacks();
              std::size_t size = 0;
              std::thread([&size] {
                pthread_attr_t attributes;
                pthread_getattr_np(pthread_self(), &attributes);
                pthread_attr_getstacksize(&attributes, &size);
                pthread_attr_destroy(&attributes);
              }).join();
              return std::to_string(size);
            }),
            std::to_string(1 << 20));
}

}  // namespace
