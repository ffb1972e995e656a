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
  EXPECT_EQ(safeValueForPath(json::parse(R"({"a":{"b":{"c":[1]}}})"), "a.b.c"), json::parse("[1]"));
  EXPECT_EQ(safeDictForPath(json::parse(R"({"a":{"b":{"c":1}}})"), "a.b"), json::parse(R"({"c":1})"));
  EXPECT_EQ(safeArrayForPath(json::parse(R"({"a":{"b":{"c":1}}})"), "a.b"), std::nullopt);
  EXPECT_EQ(safeStringForPath(json::parse(R"({"a":{"b":7}})"), "a.b"), "7");
  EXPECT_EQ(safeIntegerForPath(json::parse(R"({"a":{"b":"12"}})"), "a.b"), 12);
  EXPECT_TRUE(safeBoolForPath(json::parse(R"({"a":{"b":"yes"}})"), "a.b"));
  EXPECT_EQ(safeNumberForPath(json::parse(R"({"a":{"b":"1"}})"), "a.b"), std::nullopt);
}

bool sameNumber(std::optional<double> a, std::optional<double> b) {
  if (a && b && std::isnan(*a)) return std::isnan(*b);
  return a == b;
}

// How one value answers under each read; the settings' typed reads are these conversions too.
TEST(SafeReadTest, ReadsByKind) {
  struct Case {
    const char* value;  // JSON text, or "NaN"
    const char* string;
    long long integer;
    double real;  // doubleValue
    bool boolean;
    std::optional<double> number;
  };
  for (const auto& c :
       {Case{R"("hello")", "hello", 0, 0.0, false, std::nullopt},
        // The platform reads any text starting with 't' or 'y' as true.
        Case{R"("text")", "text", 0, 0.0, true, std::nullopt},
        Case{R"("  42abc")", "  42abc", 42, 42.0, true, std::nullopt},
        Case{R"(" +5 ")", " +5 ", 5, 5.0, true, std::nullopt},
        Case{R"(" -3.5e1x")", " -3.5e1x", -3, -35.0, true, std::nullopt},
        Case{R"("2e")", "2e", 2, 2.0, true, std::nullopt}, Case{R"("1e999")", "1e999", 1, HUGE_VAL, true, std::nullopt},
        Case{R"("0x10")", "0x10", 0, 0.0, false, std::nullopt}, Case{R"("nan")", "nan", 0, 0.0, false, std::nullopt},
        Case{R"("NO")", "NO", 0, 0.0, false, std::nullopt},
        Case{R"("99999999999999999999")", "99999999999999999999", LLONG_MAX, 1e20, true, std::nullopt},
        Case{"18446744073709551615", "18446744073709551615", LLONG_MAX, 18446744073709551615.0, true,
             18446744073709551615.0},
        Case{"-2.75", "-2.75", -2, -2.75, true, -2.75}, Case{"3.0", "3", 3, 3.0, true, 3.0},
        Case{"-1e300", "-1e+300", LLONG_MIN, -1e300, true, -1e300},
        // NaN is not 0, so it is true; as an integer it is 0.
        Case{"NaN", "nan", 0, std::nan(""), true, std::nan("")}, Case{"true", "1", 1, 1.0, true, 1.0},
        Case{"null", "", 0, 0.0, false, std::nullopt}, Case{"[1]", "", 0, 0.0, false, std::nullopt}}) {
    const json dict = {{"k", std::string_view(c.value) == "NaN" ? json(std::nan("")) : json::parse(c.value)}};
    EXPECT_EQ(safeStringForKey(dict, "k"), c.string) << c.value;
    EXPECT_EQ(safeIntegerForKey(dict, "k"), c.integer) << c.value;
    EXPECT_TRUE(sameNumber(doubleValue(dict.at("k")), c.real)) << c.value << " as a double";
    EXPECT_EQ(safeBoolForKey(dict, "k"), c.boolean) << c.value;
    EXPECT_TRUE(sameNumber(safeNumberForKey(dict, "k"), c.number)) << c.value;
    EXPECT_EQ(safeArrayForKey(dict, "k").has_value(), std::string_view(c.value) == "[1]") << c.value;
  }
  EXPECT_TRUE(safeDictForKey(json{{"k", {{"a", 1}}}}, "k").has_value());
}

TEST(DictionariesTest, AMissingKeyOrAReceiverThatIsNoDictionaryGivesDefaults) {
  for (const json& receiver : {json::object(), json(nullptr), json(3), json::array({1, 2}), json("k")}) {
    EXPECT_EQ(safeStringForKey(receiver, "k"), "");
    EXPECT_EQ(safeNumberForKey(receiver, "k"), std::nullopt);
    EXPECT_EQ(safeIntegerForKey(receiver, "k"), 0);
    EXPECT_FALSE(safeBoolForKey(receiver, "k"));
  }
}

}  // namespace
}  // namespace corvane::dictionaries
