#include "http/next_param.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Step {
  int kind;
  std::string name;
  std::string value;
  bool operator==(const Step& other) const { return kind == other.kind && name == other.name && value == other.value; }
};

void PrintTo(const Step& step, std::ostream* out) {
  *out << step.kind << " [" << step.name << "]=[" << step.value << "]";
}

using Steps = std::vector<Step>;

Steps stepsOf(const std::string& text) {
  Steps steps;
  std::size_t pos = 0;
  Step step;
  do {
    step.name = "left over";
    step.value = "left over";
    step.kind = nextParam(text, pos, step.name, step.value);
    steps.push_back(step);
  } while (step.kind != 0 && steps.size() < 100);
  EXPECT_LE(pos, text.size());
  return steps;
}

const Step kEnd{0, "", ""};

TEST(NextParam, NoToken_IsTheEnd) {
  for (const char* text : {"", " ", "\t ;,", "===", "\"\"", "{}[]()<>@:\\?"})
    EXPECT_EQ(stepsOf(text), Steps{kEnd}) << text;
}

TEST(NextParam, BareTokens_HaveNoValue) {
  EXPECT_EQ(stepsOf("form-data"), (Steps{{1, "form-data", ""}, kEnd}));
  EXPECT_EQ(stepsOf("  a ;b,c"), (Steps{{1, "a", ""}, {1, "b", ""}, {1, "c", ""}, kEnd}));
}

TEST(NextParam, MediaType_IsOneToken) {
  EXPECT_EQ(stepsOf("multipart/form-data; boundary=x"),
            (Steps{{1, "multipart/form-data", ""}, {2, "boundary", "x"}, kEnd}));
}

TEST(NextParam, Disposition_GivesItsParameters) {
  EXPECT_EQ(stepsOf(" form-data; name=\"upload\"; filename=\"a b.zip\""),
            (Steps{{1, "form-data", ""}, {2, "name", "upload"}, {2, "filename", "a b.zip"}, kEnd}));
}

TEST(NextParam, PlainValue_EndsAtASeparator) {
  EXPECT_EQ(stepsOf("a=b;c=d e=f"), (Steps{{2, "a", "b"}, {2, "c", "d"}, {2, "e", "f"}, kEnd}));
  EXPECT_EQ(stepsOf("a=b=c"), (Steps{{2, "a", "b"}, {1, "c", ""}, kEnd}));
}

TEST(NextParam, ValueMayBeEmpty) {
  EXPECT_EQ(stepsOf("a="), (Steps{{2, "a", ""}, kEnd}));
  EXPECT_EQ(stepsOf("a=;b"), (Steps{{2, "a", ""}, {1, "b", ""}, kEnd}));
  EXPECT_EQ(stepsOf("a=\"\";b"), (Steps{{2, "a", ""}, {1, "b", ""}, kEnd}));
  EXPECT_EQ(stepsOf("a= b"), (Steps{{2, "a", ""}, {1, "b", ""}, kEnd}));
}

TEST(NextParam, BlankBeforeTheEqualsSign_MakesTwoTokens) {
  EXPECT_EQ(stepsOf("a =b"), (Steps{{1, "a", ""}, {1, "b", ""}, kEnd}));
}

TEST(NextParam, QuotedValue_KeepsSeparators) {
  EXPECT_EQ(stepsOf("a=\"b;c=d, \t(e)\"f"), (Steps{{2, "a", "b;c=d, \t(e)"}, {1, "f", ""}, kEnd}));
}

TEST(NextParam, BackslashInQuotes_TakesTheNextCharacter) {
  EXPECT_EQ(stepsOf("a=\"b\\\"c\\\\d\\e\""), (Steps{{2, "a", "b\"c\\de"}, kEnd}));
}

TEST(NextParam, BackslashOutsideQuotes_IsASeparator) {
  EXPECT_EQ(stepsOf("a=b\\c"), (Steps{{2, "a", "b"}, {1, "c", ""}, kEnd}));
}

TEST(NextParam, UnterminatedQuote_EndsWithTheText) {
  EXPECT_EQ(stepsOf("a=\"bc"), (Steps{{2, "a", "bc"}, kEnd}));
  EXPECT_EQ(stepsOf("a=\"bc\\"), (Steps{{2, "a", "bc"}, kEnd}));
  EXPECT_EQ(stepsOf("a=\"bc\\\""), (Steps{{2, "a", "bc\""}, kEnd}));
  EXPECT_EQ(stepsOf("a=\""), (Steps{{2, "a", ""}, kEnd}));
}

TEST(NextParam, QuoteInsideAPlainValue_EndsIt) {
  EXPECT_EQ(stepsOf("a=b\"c\""), (Steps{{2, "a", "b"}, {1, "c", ""}, kEnd}));
}

TEST(NextParam, Position_StaysOnWhatEndedTheToken) {
  const std::string text = "ab;c=\"d\";";
  std::string name;
  std::string value;
  std::size_t pos = 0;
  EXPECT_EQ(nextParam(text, pos, name, value), 1);
  EXPECT_EQ(pos, 2U);
  EXPECT_EQ(nextParam(text, pos, name, value), 2);
  EXPECT_EQ(pos, 8U);
  EXPECT_EQ(nextParam(text, pos, name, value), 0);
  EXPECT_EQ(pos, 9U);
  EXPECT_EQ(nextParam(text, pos, name, value), 0);
}

TEST(NextParam, PositionBeyondTheText_IsTheEnd) {
  std::string name;
  std::string value;
  std::size_t pos = 7;
  EXPECT_EQ(nextParam("abc", pos, name, value), 0);
}

TEST(NextParam, ExactlyTheseCharacters_Separate) {
  const std::string separators = "\t \"(),:;<=>?@[\\]{}";
  for (int c = 0; c < 256; ++c) {
    const auto character = static_cast<char>(c);
    std::string name;
    std::string value;
    std::size_t pos = 0;
    nextParam(std::string("x") + character + "y", pos, name, value);
    const bool separates = name == "x";
    EXPECT_EQ(separates, separators.find(character) != std::string::npos) << c;
    if (!separates) {
      EXPECT_EQ(name, std::string("x") + character + "y") << c;
    }
  }
}

}  // namespace
