// The calls that show pages, in a program of their own each: its screen lives as long as it does.
#include <gtest/gtest.h>
#include <zorguiprt.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/no_memory.h"
#include "tests/support/platform_root.h"
#include "tests/unit/platform/zorguiprt/listener.h"
#include "tests/unit/platform/zorguiprt/no_threads.h"
#include "tests/unit/platform/zorguiprt/plain_client.h"

namespace {

constexpr int kMoreThanAnyNeeds = 5000;

void preparePages() {
  const std::string pages = platformRoot() + "/pages";
  std::filesystem::create_directories(pages);
  std::ofstream(pages + "/page.html") << "<body><?var number?></body>";
  setenv("JXPLATFORM_PAGES", pages.c_str(), 1);
  setenv("JXPLATFORM_SCREEN", "127.0.0.1:0", 1);
}

// Where a browser finds the screen; 0 where it does not.
int screenPort() {
  std::string url;
  std::ifstream file(platformRoot() + "/screen.url");
  std::getline(file, url);
  return url.empty() ? 0 : std::stoi(url.substr(url.rfind(':') + 1));
}

std::string ask(const std::string& request, const std::string& body) {
  const int port = screenPort();
  if (port == 0) return "";
  return answerOf(port, request + " HTTP/1.1\r\nHost: localhost:" + std::to_string(port) +
                            "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

std::string newestScreen() {
  const std::string answer = ask("GET /api/screen?after=0", "");
  return answer.substr(std::min(answer.size(), answer.find("\r\n\r\n")));
}

bool isShown(const std::string& number) {
  return newestScreen().find(R"("html":"<body>)" + number + "</body>") != std::string::npos;
}

int post(const std::string& body) {
  const std::string screen = newestScreen();
  const std::size_t id = screen.find(':') + 1;
  const std::string path = "/api/screen/" + screen.substr(id, screen.find(',') - id) + "/result";
  return std::stoi(ask("POST " + path, body).substr(std::string("HTTP/1.1 ").size()));
}

void show(const std::string& page, const std::string& number, Listener& listener) {
  zorgui::uiInvokeURLAsync(0, 0, {{"number", number}}, page, Listener::report, &listener);
}

[[noreturn]] void end() { std::exit(testing::Test::HasFailure() ? 1 : 0); }

// Each allocation of the first page fails once. Whether the page is up then or not, it is left once: by the operator,
// or by the library, which then aborts what goes on behind it as well.
void runOutOfMemory() {
  preparePages();
  bool met = true;
  int shown = 0;
  for (int count = 0; met && count < kMoreThanAnyNeeds; ++count) {
    Listener listener;
    listener.results.reserve(3);
    std::vector<int> expected{1, -1};
    const std::string number = std::to_string(count);
    const std::map<std::string, std::string> vars{{"number", number}};
    const std::string page = "page.html";
    noMemory::after(count);
    zorgui::uiInvokeURLAsync(0, 0, vars, page, Listener::report, &listener);
    met = noMemory::met();
    noMemory::after(-1);
    if (isShown(number)) {
      ++shown;
      EXPECT_EQ(listener.begun, 0) << count;
      EXPECT_EQ(post(R"({"result":-1})"), 204) << count;
      expected = {-1};
    }
    EXPECT_EQ(listener.waitForResults(expected.size()), expected) << count;
  }
  EXPECT_FALSE(met);
  EXPECT_GT(shown, 0);
  end();
}

void runOutOfThreads() {
  preparePages();
  Listener listener;
  {
    const NoThreads shortage;
    show("page.html", "1", listener);
    show("missing.html", "2", listener);
  }
  EXPECT_EQ(listener.results, (std::vector<int>{1, -1, 1, -1}));
  show("page.html", "3", listener);
  EXPECT_TRUE(isShown("3"));
  EXPECT_EQ(post(R"({"result":-1})"), 204);
  EXPECT_EQ(listener.waitForResults(5), (std::vector<int>{1, -1, 1, -1, -1}));
  end();
}

class TerminalScreenDeathTest : public testing::Test {
 protected:
  TerminalScreenDeathTest() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

}  // namespace

TEST_F(TerminalScreenDeathTest, NoMemoryForAPage_ItIsGivenUpOnce) {
  EXPECT_EXIT(runOutOfMemory(), testing::ExitedWithCode(0), "");
}

TEST_F(TerminalScreenDeathTest, NoThreadForAPage_ItIsGivenUpOnce) {
  EXPECT_EXIT(runOutOfThreads(), testing::ExitedWithCode(0), "");
}
