#include "corvane/util/strings.h"

#include <gtest/gtest.h>

#include "corvane/util/error.h"
#include "util/resources.h"

namespace corvane::strings {
namespace {

struct TextCase {
  const char* input;
  const char* expected;
};

class TrimWhitespaceTest : public ::testing::TestWithParam<TextCase> {};
TEST_P(TrimWhitespaceTest, Trims) { EXPECT_EQ(trimWhitespace(GetParam().input), GetParam().expected); }
INSTANTIATE_TEST_SUITE_P(Cases, TrimWhitespaceTest,
                         ::testing::Values(TextCase{"  CPU   Core  1 ", "CPU Core 1"}, TextCase{"", ""},
                                           TextCase{" \t\n ", ""}, TextCase{"\n\tFan 1\r\n", "Fan 1"},
                                           TextCase{"a    b", "a b"},
                                           // Tabs inside are not blanks of the "  " rule.
                                           TextCase{"a\t\tb", "a\t\tb"},
                                           // No-break space (U+00A0) and ideographic space at the ends.
                                           TextCase{"\xC2\xA0GPU\xE3\x80\x80", "GPU"},
                                           TextCase{"Température  °C", "Température °C"}));

class FormattedNameTest : public ::testing::TestWithParam<TextCase> {};
TEST_P(FormattedNameTest, RemovesPlaceholders) { EXPECT_EQ(formattedName(GetParam().input), GetParam().expected); }
INSTANTIATE_TEST_SUITE_P(Cases, FormattedNameTest,
                         ::testing::Values(TextCase{"Fan %@ Speed", "Fan Speed"}, TextCase{"%@", ""},
                                           TextCase{"CPU Core %@", "CPU Core"}, TextCase{"%@%@ Fan", "Fan"},
                                           TextCase{"100%", "100%"}));

TEST(StringsTest, BlankAndCsv) {
  EXPECT_TRUE(isBlank(" \n "));
  EXPECT_FALSE(isBlank(" x "));
  EXPECT_EQ(formattedForCSVContent("1,5"), "1;5");
  EXPECT_EQ(formattedForCSVContent("a,,b \"c\""), "a;;b \"c\"");
}

TEST(StringsTest, ReplaceEveryOccurrence) {
  EXPECT_EQ(replace("aXbXXc", "X", "--"), "a--b----c");
  EXPECT_EQ(replace("aaa", "aa", "b"), "ba");
  EXPECT_EQ(replace("abc", "", "z"), "abc");
  EXPECT_EQ(replace("abc", "b", ""), "ac");
}

struct RegexCase {
  const char* text;
  const char* pattern;
  const char* expected;
};

class GetPatternTest : public ::testing::TestWithParam<RegexCase> {};
TEST_P(GetPatternTest, FirstMatchTrimmed) {
  EXPECT_EQ(getPattern(GetParam().text, GetParam().pattern), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Cases, GetPatternTest,
                         ::testing::Values(RegexCase{"Apple M2 Max", "M[0-9]+( Pro| Max| Ultra)?", "M2 Max"},
                                           RegexCase{"Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz", "@ *[0-9.]+GHz",
                                                     "@ 2.40GHz"},
                                           RegexCase{"no digits", "[0-9]+", ""},
                                           // Case matters without options.
                                           RegexCase{"Core", "core", ""},
                                           // An invalid expression matches nothing.
                                           RegexCase{"abc", "(", ""},
                                           // ICU's \p classes work on whole code points.
                                           RegexCase{"x 温度 y", " \\p{Han}+ ", "温度"}));

class ReplaceRegexTest : public ::testing::TestWithParam<RegexCase> {};
TEST_P(ReplaceRegexTest, CaseInsensitiveTemplate) {
  EXPECT_EQ(removedRegexMatchesWithPattern(GetParam().text, GetParam().pattern, "<$1>"), GetParam().expected);
}
INSTANTIATE_TEST_SUITE_P(Cases, ReplaceRegexTest,
                         ::testing::Values(RegexCase{"Fan fan FAN", "(fan)", "<Fan> <fan> <FAN>"},
                                           RegexCase{"CPU 1", "(gpu)", "CPU 1"}, RegexCase{"abc", "(", "abc"},
                                           RegexCase{"é É", "(é)", "<é> <É>"}));

TEST(StringsTest, TrimPatternAndCondense) {
  EXPECT_EQ(trimPattern("CPU (TM) Core (R)", " ?\\([A-Z]+\\)"), "CPU Core");
  EXPECT_EQ(trimPattern("Abc", "a"), "Abc");
  EXPECT_EQ(condenseWhitespace("a  b     c d"), "a b c d");
  EXPECT_EQ(condenseWhitespace(" lead  "), " lead ");
}

TEST(StringsTest, NumberFormatting) {
  EXPECT_EQ(formattedStringFromNumber(std::nullopt), "0");
  EXPECT_EQ(formattedStringFromNumber(0.0), "0.00");
  EXPECT_EQ(formattedStringFromNumber(3.14159), "3.14");
  EXPECT_EQ(formattedStringFromNumber(2.5), "2.50");
  EXPECT_EQ(formattedStringFromNumber(-7.005), "-7.00");
  EXPECT_EQ(formattedStringFromNumber(1234567.891), "1234567.89");
}

TEST(StringsTest, EnglishTableIsEmbeddedAndComplete) {
  ASSERT_TRUE(resources::find("en.strings.json").has_value());
  EXPECT_FALSE(resources::find("xx.strings.json").has_value());
  for (const char* key : {"general-error-alert-message", "add-fan-condition-alert-message",
                          "invalid-sensor-key-alert-message", "duplicated-sensor-alert-message",
                          "cannot-remove-default-sensor-alert-message", "invalid-input-data-alert-message"}) {
    auto text = localizedStringForKey(key, "en");
    ASSERT_TRUE(text.has_value()) << key;
    EXPECT_NE(*text, key);
    EXPECT_FALSE(text->empty()) << key;
  }
}

class LanguageProviderTest : public ::testing::Test {
 protected:
  void TearDown() override { setCurrentLanguageProvider(nullptr); }
};

TEST_F(LanguageProviderTest, LookupFollowsTheCurrentLanguage) {
  const std::string english = *localizedStringForKey("general-error-alert-message", "en");
  EXPECT_EQ(localizedStringForKey("general-error-alert-message"), english);
  // A key the table lacks reads as itself, as with the platform's bundles.
  EXPECT_EQ(localizedStringForKey("TC0P"), "TC0P");
  EXPECT_EQ(localizedStringForKey("TC0P", "en"), "TC0P");
  // A language without a table is nil, and the one-argument lookup then gives "".
  EXPECT_EQ(localizedStringForKey("general-error-alert-message", "xx"), std::nullopt);
  setCurrentLanguageProvider([] { return std::string("xx"); });
  EXPECT_EQ(localizedStringForKey("general-error-alert-message"), "");
  setCurrentLanguageProvider([] { return std::string("en"); });
  EXPECT_EQ(localizedStringForKey("general-error-alert-message"), english);
  setCurrentLanguageProvider([] { return std::string(); });
  EXPECT_EQ(localizedStringForKey("general-error-alert-message"), english);
}

struct ErrorCodeCase {
  long code;
  const char* key;
};

class ErrorWithCodeTest : public ::testing::TestWithParam<ErrorCodeCase> {};
TEST_P(ErrorWithCodeTest, DescribesWithTheCodesMessage) {
  const HWError error = errors::errorWithCode(GetParam().code);
  EXPECT_EQ(error.domain, errors::HWErrorDomain);
  EXPECT_EQ(error.code, GetParam().code);
  EXPECT_EQ(error.message, *localizedStringForKey(GetParam().key, "en"));
}
INSTANTIATE_TEST_SUITE_P(Cases, ErrorWithCodeTest,
                         ::testing::Values(ErrorCodeCase{1, "add-fan-condition-alert-message"},
                                           ErrorCodeCase{2, "invalid-sensor-key-alert-message"},
                                           ErrorCodeCase{3, "duplicated-sensor-alert-message"},
                                           ErrorCodeCase{4, "cannot-remove-default-sensor-alert-message"},
                                           ErrorCodeCase{5, "invalid-input-data-alert-message"},
                                           ErrorCodeCase{6, "general-error-alert-message"},
                                           ErrorCodeCase{0, "general-error-alert-message"},
                                           ErrorCodeCase{-1, "general-error-alert-message"}));

TEST(ErrorsTest, TheTwoDomainsAndTheirDefaults) {
  const HWError kit = errors::kitError(1, "launch failed");
  EXPECT_EQ(kit.domain, "com.HWKit");
  EXPECT_EQ(kit.code, 1);
  EXPECT_EQ(kit.message, "launch failed");

  const HWError general = errors::errorWithCode(7, std::nullopt);
  EXPECT_EQ(general.domain, errors::HWErrorDomain);
  EXPECT_EQ(general.message, *localizedStringForKey("general-error-alert-message", "en"));
  EXPECT_EQ(errors::errorWithCode(7, std::string("x")).message, "x");

  const HWError message = errors::errorWithMessage("bad value");
  EXPECT_EQ(message.domain, errors::HWErrorDomain);
  EXPECT_EQ(message.code, 0);
  EXPECT_EQ(message.message, "bad value");
  EXPECT_NE(std::string(errors::HWErrorDomain), "com.HWKit");
}

}  // namespace
}  // namespace corvane::strings
