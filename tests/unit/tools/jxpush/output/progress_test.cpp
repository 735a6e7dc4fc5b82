#include "tools/jxpush/output/progress.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/unit/tools/jxpush/test_files.h"

using namespace jxpush;

namespace {

class ProgressTest : public testing::Test {
 protected:
  ProgressTest() {
    files_.add("first.zip", std::string(1000, 'a'));
    files_.add("second\x1b[2J", std::string(3000, 'b'));
  }
  ~ProgressTest() override { std::fclose(stream_); }

  // What a whole sending writes in a style.
  std::string written(ProgressStyle style) {
    const std::unique_ptr<ProgressReporter> reporter = makeReporter(style, stream_);
    reporter->setTotal(4000);
    reporter->waiting("the terminal to answer");
    reporter->fileBegins(files_.files()[0]);
    reporter->acknowledged(1000);
    reporter->fileBegins(files_.files()[1]);
    reporter->sentAgain(1);
    reporter->acknowledged(1500);
    reporter->acknowledged(3000);
    reporter->installing();
    reporter->end();
    std::string text(static_cast<std::size_t>(std::ftell(stream_)), '\0');
    std::rewind(stream_);
    EXPECT_EQ(text.size(), std::fread(text.data(), 1, text.size(), stream_));
    return text;
  }

  static std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
  }

  TestFiles files_;
  std::FILE* stream_ = std::tmpfile();
};

}  // namespace

TEST_F(ProgressTest, Plain_WritesALineForEachBeginningAndEnd) {
  const std::vector<std::string> lines = linesOf(written(ProgressStyle::kPlain));
  ASSERT_EQ(6U, lines.size());
  EXPECT_EQ("Waiting for the terminal to answer ...", lines[0]);
  EXPECT_EQ("first.zip  0 %  0 of 1000 bytes  0.0 KB/s  --:-- left", lines[1]);
  EXPECT_EQ(0U, lines[2].find("first.zip  100 %  1000 of 1000 bytes  "));
  EXPECT_EQ(0U, lines[4].find("second?[2J  100 %  3000 of 3000 bytes  "));
  EXPECT_NE(std::string::npos, lines[4].find("  0:00 left  1 sent again"));
  EXPECT_EQ("Installing ...", lines[5]);
}

TEST_F(ProgressTest, AutoWithoutATerminal_IsPlain) {
  EXPECT_EQ("Waiting for the terminal to answer ...", linesOf(written(ProgressStyle::kAuto)).at(0));
}

TEST_F(ProgressTest, Json_WritesAnObjectALine) {
  const std::vector<std::string> lines = linesOf(written(ProgressStyle::kJson));
  ASSERT_EQ(6U, lines.size());
  EXPECT_EQ((nlohmann::json{{"event", "waiting"}, {"for", "the terminal to answer"}}), nlohmann::json::parse(lines[0]));
  const nlohmann::json last = nlohmann::json::parse(lines[4]);
  EXPECT_EQ("progress", last["event"]);
  EXPECT_EQ("second\x1b[2J", last["file"]);
  EXPECT_EQ(100, last["percent"]);
  EXPECT_EQ(3000, last["acknowledged"]);
  EXPECT_EQ(3000, last["bytes"]);
  EXPECT_EQ(1, last["sent_again"]);
  EXPECT_EQ(0, last["seconds_left"]);
  EXPECT_EQ(R"({"event":"installing"})", lines[5]);
}

TEST_F(ProgressTest, Tty_WritesOverOneLineAndEndsIt) {
  const std::string text = written(ProgressStyle::kTty);
  EXPECT_EQ(0U, text.find("\rWaiting for the terminal to answer ...\033[K"));
  EXPECT_EQ(text.size() - 1, text.find('\n'));
  EXPECT_NE(std::string::npos, text.find("\rInstalling ...\033[K\n"));
  EXPECT_EQ(std::string::npos, text.find("second\x1b"));
}

TEST_F(ProgressTest, None_WritesNothing) { EXPECT_EQ("", written(ProgressStyle::kNone)); }

TEST_F(ProgressTest, BytesSentOnceMore_DoNotGoBack) {
  const std::unique_ptr<ProgressReporter> reporter = makeReporter(ProgressStyle::kPlain, stream_);
  reporter->setTotal(1000);
  reporter->fileBegins(files_.files()[0]);
  reporter->acknowledged(1000);
  reporter->acknowledged(100);
  std::rewind(stream_);
  char line[200];
  std::string last;
  while (std::fgets(line, sizeof line, stream_) != nullptr) last = line;
  EXPECT_EQ(0U, last.find("first.zip  100 %"));
}

TEST_F(ProgressTest, EmptyFile_IsWholeAtOnce) {
  files_.add("empty", "");
  Progress progress;
  progress.file = &files_.files()[2];
  EXPECT_EQ(100U, progress.percent());
  EXPECT_EQ(0, progress.rate());
  EXPECT_GT(0, progress.secondsLeft());
}
