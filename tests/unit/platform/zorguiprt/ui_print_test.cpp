#include <gtest/gtest.h>
#include <zorguiprt.h>

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

using zorgui::uiPrint;

namespace {

// What the C library itself makes of it.
std::string reference(const char* format, ...) {
  char buffer[1000];
  va_list args;
  va_start(args, format);
  // The analyzer takes the list of a function that is called from many places for one that was not begun.
  vsnprintf(buffer, sizeof buffer, format, args);  // NOLINT(clang-analyzer-valist.Uninitialized)
  va_end(args);
  return buffer;
}

std::string throughList(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string text = zorgui::uiPrintV(format, args);
  va_end(args);
  return text;
}

}  // namespace

#define EXPECT_AS_C(...) EXPECT_EQ(uiPrint(__VA_ARGS__), reference(__VA_ARGS__))

TEST(UiPrint, PlainText_IsCopied) {
  EXPECT_EQ(uiPrint(""), "");
  EXPECT_EQ(uiPrint("a\n<b> 'c'"), "a\n<b> 'c'");
  EXPECT_EQ(uiPrint("100%%"), "100%");
}

TEST(UiPrint, Integers_OfEveryConversion) {
  EXPECT_AS_C("%d %i %u %o %x %X", -42, INT_MIN, UINT_MAX, 8U, 0xBEEFU, 0xBEEFU);
  EXPECT_AS_C("%hhd %hd %ld %lld", 300, 70000, LONG_MIN, LLONG_MIN);
  EXPECT_AS_C("%hhu %hu %lu %llu", 300U, 70000U, ULONG_MAX, ULLONG_MAX);
  EXPECT_AS_C("%lo %llx %lX", 8UL, ULLONG_MAX, 255UL);
  EXPECT_AS_C("%jd %ju %zu %zd %td %tx", INTMAX_MIN, UINTMAX_MAX, SIZE_MAX, SIZE_MAX, PTRDIFF_MIN, PTRDIFF_MAX);
}

TEST(UiPrint, Integers_WithFlagsWidthAndPrecision) {
  EXPECT_AS_C("[%5d][%-5d][%05d][%+d][% d]", 42, 42, 42, 42, 42);
  EXPECT_AS_C("[%.3d][%8.3d][%-8.3d][%.0d][%.d]", 5, 5, 5, 0, 0);
  EXPECT_AS_C("[%#x][%#o][%#X]", 255U, 8U, 255U);
  EXPECT_AS_C("[%06d]", 123);
}

TEST(UiPrint, Stars_TakeWidthAndPrecisionFromTheArguments) {
  EXPECT_AS_C("[%*d][%-*d][%*d]", 6, 1, 6, 2, -6, 3);
  EXPECT_AS_C("[%.*f][%*.*f][%.*s]", 2, 1.005, 8, 3, 3.14159, 2, "abc");
  EXPECT_AS_C("[%.*d][%.*s]", -1, 7, -5, "all of it");
}

TEST(UiPrint, FloatingNumbers_OfEveryConversion) {
  EXPECT_AS_C("%f %F %e %E %g %G %a %A", 1.5, 2.5, 12345.678, 0.00012, 1e10, 1e-10, 1.0, 0.5);
  EXPECT_AS_C("[%8.2f][%-8.2f][%08.2f][%+.1f][%.0f][%#.0f]", 3.14159, 3.14159, 3.14159, 2.0, 2.5, 2.0);
  EXPECT_AS_C("%Lf %Le %Lg", 1.5L, 2.5L, 3.5L);
}

TEST(UiPrint, CharactersAndText) {
  EXPECT_AS_C("%c%c[%3c][%-3c]", 'a', '<', 'b', 'c');
  EXPECT_AS_C("%s[%5s][%-5s][%.2s][%6.2s]", "text", "ab", "ab", "abcdef", "abcdef");
  EXPECT_AS_C("[%ls][%lc]", L"wide", static_cast<wint_t>(L'w'));
  int somewhere = 0;
  EXPECT_AS_C("%p %p", static_cast<void*>(&somewhere), static_cast<void*>(nullptr));
}

TEST(UiPrint, ZeroCharacter_StaysInTheText) { EXPECT_EQ(uiPrint("a%cb", 0), std::string("a\0b", 3)); }

TEST(UiPrint, NullText_IsShownAsTheCLibraryShowsIt) {
  const char* volatile nothing = nullptr;
  EXPECT_EQ(uiPrint("[%s][%S]", nothing, nothing), "[(null)][(null)]");
}

TEST(UiPrint, EscapingConversion_ReplacesEachCharacterOfItsTable) {
  EXPECT_EQ(uiPrint("%S", "&<>\"'\n\t\r"), "&amp;&lt;&gt;&quot;&apos;<br>  ");
  EXPECT_EQ(uiPrint("%S", "a < b && c > 'd'"), "a &lt; b &amp;&amp; c &gt; &apos;d&apos;");
  EXPECT_EQ(uiPrint("%S", "&amp;<br>"), "&amp;amp;&lt;br&gt;");
}

TEST(UiPrint, EscapingConversion_PassesAllOtherBytes) {
  for (int value = 1; value < 256; ++value) {
    const char c = static_cast<char>(value);
    if (std::string("&<>\"'\n\t\r").find(c) != std::string::npos) continue;
    const std::string text(1, c);
    EXPECT_EQ(uiPrint("%S", text.c_str()), text) << value;
  }
}

TEST(UiPrint, EscapingConversion_LeavesTheRestOfTheFormatAlone) {
  EXPECT_EQ(uiPrint("<b>%S</b>\n%s%d", "<", "<", 5), "<b>&lt;</b>\n<5");
}

TEST(UiPrint, EscapingConversion_CountsWidthAndPrecisionBeforeEscaping) {
  EXPECT_EQ(uiPrint("[%4S][%-4S][%.2S][%*.*S]", "<>", "<>", "<>&", 3, 1, "&&"),
            "[  &lt;&gt;][&lt;&gt;  ][&lt;&gt;][  &amp;]");
  EXPECT_EQ(uiPrint("[%lS]", L"<w>"), "[&lt;w&gt;]");
}

TEST(UiPrint, LongTexts_AreWhole) {
  const std::string text(3'000'000, '<');
  EXPECT_EQ(uiPrint("%s", text.c_str()), text);
  EXPECT_EQ(uiPrint("%S", text.c_str()).size(), 4 * text.size());
}

TEST(UiPrint, UnknownConversion_StandsAsItIsAndTakesNoArgument) {
  EXPECT_EQ(uiPrint("%y %d", 5), "%y 5");
  EXPECT_EQ(uiPrint("%-08.3ly|%s", "x"), "%-08.3ly|x");
  EXPECT_EQ(uiPrint("%\n%d", 5), "%\n5");
  EXPECT_EQ(uiPrint("%\xC3\xA4"), "%\xC3\xA4");
}

TEST(UiPrint, FormatThatEndsInAConversion_StandsAsItIs) {
  for (const char* const format : {"%", "a%", "%%%", "%5", "%-", "%.", "%5.3", "%l", "%ll", "%#0- +"}) {
    const std::string expected = std::string(format) == "%%%" ? "%%" : format;
    EXPECT_EQ(uiPrint(format), expected) << format;
  }
}

TEST(UiPrint, LengthThatDoesNotExist_LeavesTheRestAsItIs) {
  EXPECT_EQ(uiPrint("%d %lllld %s", 1, 2LL, "x"), "1 %lllld %s");
  EXPECT_EQ(uiPrint("%hld %s", 2L, "x"), "%hld %s");
}

TEST(UiPrint, HugeWidthAndPrecision_AreCutDown) {
  EXPECT_EQ(uiPrint("%2147483647d", 1).size(), 100'000U);
  EXPECT_EQ(uiPrint("%99999999999999999999d", 1).size(), 100'000U);
  EXPECT_EQ(uiPrint("%*d", INT_MIN, 1).size(), 100'000U);
  EXPECT_EQ(uiPrint("%.2147483647d", 1).size(), 100'000U);
  EXPECT_EQ(uiPrint("%.99999999999s", "text"), "text");
}

TEST(UiPrint, StoringConversion_TakesItsArgumentAndStoresNothing) {
  int untouched = 77;
  EXPECT_EQ(uiPrint("ab%n%d", &untouched, 5), "ab5");
  EXPECT_EQ(untouched, 77);
}

TEST(UiPrint, NullFormat_IsEmpty) {
  const char* volatile nothing = nullptr;
  EXPECT_EQ(uiPrint(nothing), "");
}

TEST(UiPrintV, ArgumentList_GivesTheSame) {
  EXPECT_EQ(throughList("%d %s %S %.1f %lld", 1, "two", "<3>", 4.0, 5LL), "1 two &lt;3&gt; 4.0 5");
}

TEST(UiPrintV, FormatCutAtEveryByte_GivesTextAndNoHarm) {
  const std::string format = "%-08.3lld %#x %5.1Lf %hhd %S %%";
  for (std::size_t size = 0; size <= format.size(); ++size) {
    const std::string text = uiPrint(format.substr(0, size).c_str(), 1LL, 2U, 3.0L, 4, "<");
    EXPECT_EQ(text.empty(), size == 0) << size;
  }
}
