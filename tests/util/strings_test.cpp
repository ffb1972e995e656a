#include "corvane/util/strings.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include "corvane/util/error.h"

namespace corvane::strings {
namespace {

using Pairs = std::initializer_list<std::pair<const char*, const char*>>;

TEST(StringsTest, TrimFormattedNameBlankCsvAndReplace) {
  for (const auto& [input, expected] : Pairs{{"  CPU   Core  1 ", "CPU Core 1"},
                                             {" \t\n ", ""},
                                             {"\n\tFan 1\r\n", "Fan 1"},
                                             // Tabs inside are not blanks of the "  " rule.
                                             {"a\t\tb", "a\t\tb"},
                                             // No-break space (U+00A0) and ideographic space at the ends.
                                             {"\xC2\xA0GPU\xE3\x80\x80", "GPU"}}) {
    EXPECT_EQ(trimWhitespace(input), expected) << input;
  }
  for (const auto& [input, expected] : Pairs{{"Fan %@ Speed", "Fan Speed"}, {"%@%@ Fan", "Fan"}, {"100%", "100%"}}) {
    EXPECT_EQ(formattedName(input), expected) << input;
  }
  EXPECT_TRUE(isBlank(" \n "));
  EXPECT_FALSE(isBlank(" x "));
  EXPECT_EQ(formattedForCSVContent("a,,b \"c\""), "a;;b \"c\"");
  EXPECT_EQ(replace("aXbXXc", "X", "--"), "a--b----c");
  EXPECT_EQ(replace("aaa", "aa", "b"), "ba");
  EXPECT_EQ(replace("abc", "", "z"), "abc");
}

// Trimming keeps its own table of white space; ICU's properties are the reference it must match,
// for every code point.
TEST(StringsTest, TrimmingAgreesWithUnicodeWhiteSpaceEverywhere) {
  for (UChar32 c = 0; c <= 0x10FFFF; ++c) {
    if (U_IS_SURROGATE(c)) continue;
    std::string encoded;
    icu::UnicodeString(c).toUTF8String(encoded);
    const bool white = u_isUWhiteSpace(c) || u_charType(c) == U_SPACE_SEPARATOR;
    const std::string expected = white ? "x" : encoded + "x" + encoded;
    ASSERT_EQ(trimWhitespace(encoded + "x" + encoded), expected) << "U+" << std::hex << c;
  }
  // Bytes of no well-formed sequence stop the trimming and stay as they are.
  for (const auto& [input, expected] : Pairs{{" \xFF a \xFF ", "\xFF a \xFF"},
                                             {"\xE3\x80 a", "\xE3\x80 a"},
                                             {"a \xE3\x80", "a \xE3\x80"},
                                             {"\xC0\xA0" "a", "\xC0\xA0" "a"}}) {  // an overlong space
    EXPECT_EQ(trimWhitespace(input), expected) << input;
  }
}

TEST(StringsTest, RegularExpressions) {
  struct Case {
    const char* text;
    const char* pattern;
    const char* expected;
  };
  for (const auto& c : {Case{"Apple M2 Max", "M[0-9]+( Pro| Max| Ultra)?", "M2 Max"},
                        Case{"Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz", "@ *[0-9.]+GHz", "@ 2.40GHz"},
                        Case{"Core", "core", ""},                    // case matters without options
                        Case{"abc", "(", ""},                        // an invalid expression matches nothing
                        Case{"x 温度 y", " \\p{Han}+ ", "温度"}}) {  // classes work on whole code points
    EXPECT_EQ(getPattern(c.text, c.pattern), c.expected) << c.text;
  }
  for (const auto& c :
       {Case{"Fan fan FAN", "(fan)", "<Fan> <fan> <FAN>"}, Case{"abc", "(", "abc"}, Case{"é É", "(é)", "<é> <É>"}}) {
    EXPECT_EQ(removedRegexMatchesWithPattern(c.text, c.pattern, "<$1>"), c.expected) << c.text;
  }
  EXPECT_EQ(trimPattern("CPU (TM) Core (R)", " ?\\([A-Z]+\\)"), "CPU Core");
  EXPECT_EQ(trimPattern("Abc", "a"), "Abc");
  EXPECT_EQ(condenseWhitespace(" lead  b     c"), " lead b c");
}

// Removing fixed words must do what the expression of their alternatives does.
TEST(StringsTest, RemovingWordsMatchesTheExpressionOfAlternatives) {
  for (const char* text : {"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", "intel(r) xeon(tm) cpu", "CPUCPU(R)(R",
                           "(TM(TM))", "Cpu (Tm) @@ cPU", "", "Apple M2 Max"}) {
    EXPECT_EQ(removedOccurrencesIgnoringCase(text, {"(TM)", "(R)", "CPU", "@"}),
              removedRegexMatchesWithPattern(text, R"(\(TM\)|\(R\)|CPU|@)", ""))
        << text;
  }
  // The first part that matches at a place wins, as with alternatives.
  EXPECT_EQ(removedOccurrencesIgnoringCase("abcd", {"ab", "abc"}), removedRegexMatchesWithPattern("abcd", "ab|abc", ""));
}

TEST(StringsTest, NumberFormatting) {
  EXPECT_EQ(formattedStringFromNumber(std::nullopt), "0");
  EXPECT_EQ(formattedStringFromNumber(2.5), "2.50");
  EXPECT_EQ(formattedStringFromNumber(1234567.891), "1234567.89");
}

TEST(ErrorsTest, CodesDescribeThemselvesWithTheirMessage) {
  for (const auto& [code, key] :
       std::initializer_list<std::pair<long, const char*>>{{1, "add-fan-condition-alert-message"},
                                                           {-1, "general-error-alert-message"}}) {
    const HWError error = errors::errorWithCode(code);
    EXPECT_TRUE(error.domain == errors::HWErrorDomain && error.code == code) << code;
    EXPECT_EQ(error.message, *localizedStringForKey(key, "en")) << code;
  }
}

}  // namespace
}  // namespace corvane::strings
