#include "tools/jxpush/common/display_text.h"

#include <gtest/gtest.h>

#include <string>

using namespace jxpush;

TEST(DisplayText, WhatATerminalMayObey_IsReplaced) {
  EXPECT_EQ("a?[2J?b", displayText("a\x1b[2J\x7f"
                                   "b"));
  EXPECT_EQ("?31m", displayText("\xC2\x9B"
                                "31m"))
      << "CSI of the second set of controls";
  EXPECT_EQ("?gpj.exe", displayText(std::string("\xE2\x80") + "\xAE" + "gpj.exe")) << "turns the direction";
  EXPECT_EQ("a?b", displayText("a\xE2\x80\xA8"
                               "b"))
      << "ends a line";
}

TEST(DisplayText, WhatIsNoUtf8_IsReplacedByteByByte) {
  EXPECT_EQ("?31m", displayText("\x9B"
                                "31m"));
  EXPECT_EQ("??", displayText("\xC0\x9B")) << "longer than need be";
  EXPECT_EQ("???", displayText("\xE0\x82\x9B")) << "longer than need be";
  EXPECT_EQ("???", displayText("\xED\xA0\x80")) << "a surrogate";
  EXPECT_EQ("????", displayText("\xF4\x90\x80\x80")) << "beyond Unicode";
  EXPECT_EQ("a?", displayText("a\xE4")) << "cut";
}

TEST(DisplayText, LettersOfAllScripts_Stay) {
  const std::string text = "ü 文件 ملف e\xCC\x81 😀";
  EXPECT_EQ(text, displayText(text));
  EXPECT_EQ("? a", displayText("ü a", true));
}

TEST(Columns, AreThoseOnTheScreen) {
  EXPECT_EQ(3U, columnsOf("abc"));
  EXPECT_EQ(4U, columnsOf("文件"));
  EXPECT_EQ(1U, columnsOf("e\xCC\x81"));
}

TEST(CutToColumns, KeepsCharactersWhole) {
  EXPECT_EQ("文", cutToColumns("文件", 3));
  EXPECT_EQ("e\xCC\x81", cutToColumns("e\xCC\x81x", 1));
  EXPECT_EQ("abc", cutToColumns("abc", 3));
  EXPECT_EQ("", cutToColumns("文", 1));
}
