#include "corvane/util/dictionaries.h"

#include <climits>
#include <cmath>
#include <string_view>

#include <gtest/gtest.h>

namespace corvane::dictionaries {
namespace {

using nlohmann::json;

TEST(DictionariesTest, PathWalk) {
  EXPECT_EQ(safeValueForPath(json::parse(R"({"a":{"b":1}})"), "a.b"), json(1));
  EXPECT_EQ(safeValueForPath(json::parse(R"({"a":3})"), "a.b"), std::nullopt);
  EXPECT_EQ(safeValueForPath(json::parse(R"({"a":{"b":null}})"), "a.b"), std::nullopt);
  EXPECT_EQ(safeValueForPath(json::parse(R"({"a":null})"), "a"), std::nullopt);
  EXPECT_EQ(safeValueForPath(json::parse(R"({"a":{"b":1}})"), ""), std::nullopt);
  EXPECT_EQ(safeValueForPath(json::parse(R"({"a":{"b":{"c":[1]}}})"), "a.b.c"), json::parse("[1]"));
  EXPECT_EQ(safeValueForPath(json::parse(R"([1,2])"), "0"), std::nullopt);
  EXPECT_EQ(safeValueForPath(json::parse(R"({"a":{"b":1}})"), "a.x"), std::nullopt);
  EXPECT_EQ(safeDictForPath(json::parse(R"({"a":{"b":{"c":1}}})"), "a.b"), json::parse(R"({"c":1})"));
  EXPECT_EQ(safeArrayForPath(json::parse(R"({"a":{"b":{"c":1}}})"), "a.b"), std::nullopt);
  EXPECT_EQ(safeStringForPath(json::parse(R"({"a":{"b":7}})"), "a.b"), "7");
  EXPECT_EQ(safeIntegerForPath(json::parse(R"({"a":{"b":"12"}})"), "a.b"), 12);
  EXPECT_TRUE(safeBoolForPath(json::parse(R"({"a":{"b":"yes"}})"), "a.b"));
  EXPECT_EQ(safeNumberForPath(json::parse(R"({"a":{"b":"1"}})"), "a.b"), std::nullopt);
}

// How one value answers under each read; the settings' typed reads are these conversions too.
struct ValueCase {
  const char* value;  // JSON text, or "NaN"
  const char* string;
  long long integer;
  double real;  // doubleValue
  bool boolean;
  std::optional<double> number;
  bool dict;
  bool array;
};

json valueOf(const char* text) { return std::string_view(text) == "NaN" ? json(std::nan("")) : json::parse(text); }

bool sameNumber(std::optional<double> a, std::optional<double> b) {
  if (a && b && std::isnan(*a)) return std::isnan(*b);
  return a == b;
}

class SafeReadTest : public ::testing::TestWithParam<ValueCase> {};
TEST_P(SafeReadTest, ReadsByKind) {
  const ValueCase& c = GetParam();
  const json dict = {{"k", valueOf(c.value)}};
  EXPECT_EQ(safeStringForKey(dict, "k"), c.string) << c.value;
  EXPECT_EQ(safeIntegerForKey(dict, "k"), c.integer) << c.value;
  EXPECT_TRUE(sameNumber(doubleValue(dict.at("k")), c.real)) << c.value << " as a double";
  EXPECT_EQ(safeBoolForKey(dict, "k"), c.boolean) << c.value;
  EXPECT_TRUE(sameNumber(safeNumberForKey(dict, "k"), c.number)) << c.value;
  EXPECT_EQ(safeDictForKey(dict, "k").has_value(), c.dict) << c.value;
  EXPECT_EQ(safeArrayForKey(dict, "k").has_value(), c.array) << c.value;
  // A missing key gives every default.
  EXPECT_EQ(safeStringForKey(dict, "missing"), "");
  EXPECT_EQ(safeIntegerForKey(dict, "missing"), 0);
  EXPECT_FALSE(safeBoolForKey(dict, "missing"));
}
INSTANTIATE_TEST_SUITE_P(
    Cases, SafeReadTest,
    ::testing::Values(ValueCase{R"("hello")", "hello", 0, 0.0, false, std::nullopt, false, false},
                      // The platform reads any text starting with 't' or 'y' as true.
                      ValueCase{R"("text")", "text", 0, 0.0, true, std::nullopt, false, false},
                      ValueCase{R"("  42abc")", "  42abc", 42, 42.0, true, std::nullopt, false, false},
                      ValueCase{R"("-17")", "-17", -17, -17.0, true, std::nullopt, false, false},
                      ValueCase{R"(" +5 ")", " +5 ", 5, 5.0, true, std::nullopt, false, false},
                      ValueCase{R"(" -3.5e1x")", " -3.5e1x", -3, -35.0, true, std::nullopt, false, false},
                      ValueCase{R"("2e")", "2e", 2, 2.0, true, std::nullopt, false, false},
                      ValueCase{R"("1e999")", "1e999", 1, HUGE_VAL, true, std::nullopt, false, false},
                      ValueCase{R"("0x10")", "0x10", 0, 0.0, false, std::nullopt, false, false},
                      ValueCase{R"("nan")", "nan", 0, 0.0, false, std::nullopt, false, false},
                      ValueCase{R"("")", "", 0, 0.0, false, std::nullopt, false, false},
                      ValueCase{R"("0")", "0", 0, 0.0, false, std::nullopt, false, false},
                      ValueCase{R"("007")", "007", 7, 7.0, true, std::nullopt, false, false},
                      ValueCase{R"("true")", "true", 0, 0.0, true, std::nullopt, false, false},
                      ValueCase{R"("YES")", "YES", 0, 0.0, true, std::nullopt, false, false},
                      ValueCase{R"("NO")", "NO", 0, 0.0, false, std::nullopt, false, false},
                      ValueCase{R"("99999999999999999999")", "99999999999999999999", LLONG_MAX, 1e20, true,
                                std::nullopt, false, false},
                      ValueCase{"42", "42", 42, 42.0, true, 42.0, false, false},
                      ValueCase{"-3", "-3", -3, -3.0, true, -3.0, false, false},
                      ValueCase{"18446744073709551615", "18446744073709551615", LLONG_MAX, 18446744073709551615.0,
                                true, 18446744073709551615.0, false, false},
                      ValueCase{"2.75", "2.75", 2, 2.75, true, 2.75, false, false},
                      ValueCase{"-2.75", "-2.75", -2, -2.75, true, -2.75, false, false},
                      ValueCase{"0.25", "0.25", 0, 0.25, true, 0.25, false, false},
                      ValueCase{"3.0", "3", 3, 3.0, true, 3.0, false, false},
                      ValueCase{"1e300", "1e+300", LLONG_MAX, 1e300, true, 1e300, false, false},
                      ValueCase{"-1e300", "-1e+300", LLONG_MIN, -1e300, true, -1e300, false, false},
                      // NaN is not 0, so it is true; as an integer it is 0.
                      ValueCase{"NaN", "nan", 0, std::nan(""), true, std::nan(""), false, false},
                      ValueCase{"true", "1", 1, 1.0, true, 1.0, false, false},
                      ValueCase{"false", "0", 0, 0.0, false, 0.0, false, false},
                      ValueCase{"null", "", 0, 0.0, false, std::nullopt, false, false},
                      ValueCase{R"({"a":1})", "", 0, 0.0, false, std::nullopt, true, false},
                      ValueCase{"[1]", "", 0, 0.0, false, std::nullopt, false, true}));

TEST(DictionariesTest, ReceiverThatIsNoDictionaryGivesDefaults) {
  for (const json& receiver : {json(nullptr), json(3), json::array({1, 2}), json("k")}) {
    EXPECT_EQ(safeStringForKey(receiver, "k"), "");
    EXPECT_EQ(safeNumberForKey(receiver, "k"), std::nullopt);
    EXPECT_EQ(safeIntegerForKey(receiver, "k"), 0);
  }
}

}  // namespace
}  // namespace corvane::dictionaries
