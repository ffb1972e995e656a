#include "corvane/platform/machine_profile.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::platform {
namespace {

using ::testing::HasSubstr;

// A profile around the given smc entries (and extra top-level members).
std::string profileJson(const std::string& entries, const std::string& extra = "") {
  return R"({"name": "Test1,1", "sysctl": {"hw.model": "Test1,1"}, "smc": [)" + entries + "]" + extra + "}";
}

constexpr const char* kFirst = R"(["#KEY", "ui32", "00000002"], )";

void expectSameProfile(const MachineProfile& a, const MachineProfile& b) {
  EXPECT_EQ(a.name, b.name);
  EXPECT_EQ(a.provenance, b.provenance);
  EXPECT_EQ(a.sysctl, b.sysctl);
  EXPECT_EQ(a.hasHid, b.hasHid);
  ASSERT_EQ(a.smc.size(), b.smc.size());
  for (std::size_t i = 0; i < a.smc.size(); ++i) {
    const SmcEntry& x = a.smc[i];
    const SmcEntry& y = b.smc[i];
    EXPECT_TRUE(x.key == y.key && x.type == y.type && x.size == y.size && x.attributes == y.attributes &&
                x.bytes == y.bytes && x.result == y.result && x.status == y.status && x.hidden == y.hidden &&
                x.redacted == y.redacted)
        << "smc entry " << i;
  }
  auto expectSameReadings = [](const std::vector<HidReading>& x, const std::vector<HidReading>& y) {
    ASSERT_EQ(x.size(), y.size());
    for (std::size_t i = 0; i < x.size(); ++i) {
      EXPECT_EQ(x[i].name, y[i].name);
      EXPECT_EQ(x[i].value, y[i].value);
    }
  };
  expectSameReadings(a.hidTemperature, b.hidTemperature);
  expectSameReadings(a.hidVoltage, b.hidVoltage);
}

struct LoaderErrorCase {
  const char* label;
  std::string json;
  std::vector<std::string> expected;  // parts of the message
};

void PrintTo(const LoaderErrorCase& c, std::ostream* os) { *os << c.label; }

class LoaderErrorTest : public ::testing::TestWithParam<LoaderErrorCase> {};

TEST_P(LoaderErrorTest, RejectsTheWholeProfileNamingOriginAndEntry) {
  std::string error;
  auto profile = parseProfile(GetParam().json, "bad.json", &error);
  EXPECT_EQ(profile, nullptr);
  EXPECT_THAT(error, HasSubstr("profile 'bad.json': "));
  for (const auto& part : GetParam().expected) EXPECT_THAT(error, HasSubstr(part));
}

INSTANTIATE_TEST_SUITE_P(
    MachineProfile, LoaderErrorTest,
    ::testing::Values(
        LoaderErrorCase{"BadHex",
                        profileJson(std::string(kFirst) + R"(["TC0P", "sp78", "2g80"])"),
                        {R"(smc entry 1 ("TC0P"): value "2g80" has a bad hex digit)"}},
        LoaderErrorCase{"OddLength",
                        profileJson(std::string(kFirst) + R"(["TC0P", "sp78", "2f8"])"),
                        {R"(smc entry 1 ("TC0P"): value "2f8" has odd length)"}},
        LoaderErrorCase{"ValueOver32Bytes",
                        profileJson(R"(["TC0P", "sp78", ")" + std::string(66, '0') + "\"]"),
                        {R"(smc entry 0 ("TC0P"): value of 33 bytes is over 32)"}},
        LoaderErrorCase{"TypeNotFourCharacters",
                        profileJson(R"(["TC0P", "ui8", "01"])"),
                        {R"(smc entry 0 ("TC0P"): type "ui8" is not four characters)"}},
        LoaderErrorCase{"TypeAboveAscii", profileJson(R"(["TC0P", "ui8\u007f", "01"])"), {"smc entry 0", "above 0x7E"}},
        LoaderErrorCase{"KeyNotFourCharacters",
                        profileJson(R"(["TC0", "sp78", "2f80"])"),
                        {R"(smc entry 0 ("TC0"): key "TC0" is not four characters)"}},
        LoaderErrorCase{"KeyNotPrintable",
                        profileJson(R"(["TC\u0000P", "sp78", "2f80"])"),
                        {"smc entry 0", "outside printable ASCII"}},
        LoaderErrorCase{"SizeOver32WithoutResultOrStatus",
                        profileJson(R"(["ACKG", "hex_", "", {"size": 40}])"),
                        {R"(smc entry 0 ("ACKG"): size 40 is over 32)"}},
        LoaderErrorCase{"SizeDiffersFromValue",
                        profileJson(R"(["TC0P", "sp78", "2f80", {"size": 3}])"),
                        {R"(smc entry 0 ("TC0P"): size 3 does not match the 2 bytes)"}},
        LoaderErrorCase{
            "NegativeSize", profileJson(R"(["TC0P", "sp78", "", {"size": -1}])"), {"smc entry 0", "\"size\""}},
        LoaderErrorCase{"DuplicateKey",
                        profileJson(std::string(kFirst) + R"(["TC0P", "sp78", "2f80"], ["TC0P", "sp78", "3000"])"),
                        {R"(smc entry 2 ("TC0P"): duplicate key "TC0P" (first at entry 1))"}},
        LoaderErrorCase{"UnknownOption",
                        profileJson(R"(["TC0P", "sp78", "2f80", {"atr": "80"}])"),
                        {R"(smc entry 0 ("TC0P"): unknown option "atr")"}},
        LoaderErrorCase{
            "AttrNotTwoDigits", profileJson(R"(["TC0P", "sp78", "2f80", {"attr": "8"}])"), {"smc entry 0", "\"attr\""}},
        LoaderErrorCase{"ResultZero",
                        profileJson(R"(["TC0P", "sp78", "", {"result": "00"}])"),
                        {"smc entry 0", "\"result\" is zero"}},
        LoaderErrorCase{"StatusTooLong",
                        profileJson(R"(["TC0P", "sp78", "", {"status": "1E00002C2"}])"),
                        {"smc entry 0", "\"status\""}},
        LoaderErrorCase{
            "HiddenNotBool", profileJson(R"(["TC0P", "sp78", "2f80", {"hidden": 1}])"), {"smc entry 0", "\"hidden\""}},
        LoaderErrorCase{"RedactedWithBytes",
                        profileJson(R"(["OSK0", "ch8*", "41", {"redacted": true}])"),
                        {"smc entry 0", "redacted"}},
        LoaderErrorCase{"EntryTooShort", profileJson(std::string(kFirst) + R"(["TC0P", "sp78"])"), {"smc entry 1:"}},
        LoaderErrorCase{"MissingSmc", R"({"name": "X", "sysctl": {}})", {"no \"smc\""}},
        LoaderErrorCase{"MissingName", R"({"sysctl": {}, "smc": []})", {"no \"name\""}},
        LoaderErrorCase{"SysctlValueNotStringOrNumber",
                        R"({"name": "X", "sysctl": {"hw.model": true}, "smc": []})",
                        {R"(sysctl "hw.model": value is not a string or a number)"}},
        LoaderErrorCase{
            "SysctlNotObject", R"({"name": "X", "sysctl": [], "smc": []})", {"\"sysctl\" is not an object"}},
        LoaderErrorCase{"HidPairWithoutValue",
                        profileJson("", R"(, "hid": {"temperature": [["PMU tdie1"]]})"),
                        {R"(hid "temperature" entry 0: not a [name, number] pair)"}},
        LoaderErrorCase{"HidUnknownMember",
                        profileJson("", R"(, "hid": {"temperatures": []})"),
                        {"unknown member \"temperatures\""}},
        LoaderErrorCase{"JsonSyntax", R"({"name": "X",, "smc": []})", {"not valid JSON at byte 14"}},
        LoaderErrorCase{"NotAnObject", "[1, 2]", {"not an object"}}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(MachineProfile, ReadsEveryOption) {
  auto profile = testing::profileFromJson(profileJson(
      R"(["#KEY", "ui32", "00000003", {"attr": "80"}],
         ["zCRS", "ui8\u0000", "", {"size": 1, "attr": "11", "result": "85"}],
         ["ACKG", "hex_", "", {"size": 118, "attr": "54", "status": "E00002C2"}],
         ["TC0P", "sp78", "2F80"],
         ["OSK0", "ch8*", "", {"size": 32, "attr": "90", "redacted": true, "hidden": true}])",
      R"(, "hid": {"temperature": [["PMU tdie1", 45.5]]}, "comment": "ignored")"));
  ASSERT_NE(profile, nullptr);
  ASSERT_EQ(profile->smc.size(), 5u);
  const SmcEntry& crs = profile->smc[1];
  EXPECT_EQ(crs.type, 0x75693800u);
  EXPECT_EQ(crs.size, 1u);
  EXPECT_EQ(crs.attributes, 0x11);
  EXPECT_EQ(crs.result, 0x85);
  const SmcEntry& ackg = profile->smc[2];
  EXPECT_EQ(ackg.size, 118u);
  EXPECT_EQ(ackg.status, static_cast<int32_t>(0xE00002C2));
  EXPECT_EQ(ackg.result, 0);
  const SmcEntry& tc0p = profile->smc[3];
  EXPECT_EQ(tc0p.key, 0x54433050u);
  EXPECT_EQ(tc0p.type, 0x73703738u);
  EXPECT_EQ(tc0p.size, 2u);
  EXPECT_EQ(tc0p.bytes[0], 0x2F);
  EXPECT_EQ(tc0p.bytes[1], 0x80);
  EXPECT_EQ(tc0p.bytes[2], 0);
  const SmcEntry& osk0 = profile->smc[4];
  EXPECT_TRUE(osk0.redacted && osk0.hidden);
  EXPECT_EQ(osk0.size, 32u);
  EXPECT_TRUE(profile->hasHid);
  ASSERT_EQ(profile->hidTemperature.size(), 1u);
  EXPECT_EQ(profile->hidTemperature[0].value, 45.5);
  EXPECT_TRUE(profile->hidVoltage.empty());
}

TEST(MachineProfile, SerializesOneEntryPerLineAndReadsBackTheSame) {
  auto profile = testing::profileFromJson(profileJson(
      R"(["zCRS", "ui8\u0000", "", {"size": 1, "attr": "11", "result": "85"}],
         ["KPST", "ui8 ", "07", {"result": "85"}],
         ["ACKG", "hex_", "", {"size": 118, "status": "E00002C2"}],
         ["FS! ", "ui16", "0000", {"hidden": true}],
         ["OSK0", "ch8*", "", {"size": 32, "redacted": true}])",
      R"(, "provenance": {"dump": "x.txt", "header": ["a", "b"]}, "hid": {"voltage": [["VDD", 0.75]]})"));
  ASSERT_NE(profile, nullptr);
  const std::string text = serializeProfile(*profile);
  EXPECT_THAT(
      text,
      HasSubstr("\n    [\"zCRS\", \"ui8\\u0000\", \"\", {\"size\": 1, \"attr\": \"11\", \"result\": \"85\"}],\n"));
  EXPECT_THAT(text, HasSubstr("\n    [\"KPST\", \"ui8 \", \"07\", {\"result\": \"85\"}],\n"));
  EXPECT_THAT(text, HasSubstr("\n    [\"FS! \", \"ui16\", \"0000\", {\"hidden\": true}],\n"));
  std::string error;
  auto again = parseProfile(text, "serialized", &error);
  ASSERT_NE(again, nullptr) << error;
  expectSameProfile(*profile, *again);
  EXPECT_EQ(serializeProfile(*again), text);
}

TEST(MachineProfile, EveryBuiltinProfileLoadsAndSurvivesARoundTrip) {
  const auto names = builtinProfileNames();
  EXPECT_GE(names.size(), 6u);
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  EXPECT_NE(std::find(names.begin(), names.end(), kDefaultMachine), names.end());
  for (const auto& name : names) {
    SCOPED_TRACE(name);
    std::string error;
    auto profile = loadBuiltinProfile(name, &error);
    ASSERT_NE(profile, nullptr) << error;
    EXPECT_EQ(profile->name, name);
    EXPECT_FALSE(profile->smc.empty());
    EXPECT_EQ(loadBuiltinProfile(name, &error), profile) << "parsed once and shared";
    const std::string text = serializeProfile(*profile);
    auto again = parseProfile(text, name, &error);
    ASSERT_NE(again, nullptr) << error;
    expectSameProfile(*profile, *again);
    // The checked-in file is exactly what the serializer writes, so hand edits show up here.
    std::ifstream file(std::filesystem::path(CORVANE_SOURCE_DIR) / "profiles" / (name + ".json"), std::ios::binary);
    ASSERT_TRUE(file) << "no profile file for " << name;
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), text);
  }
}

TEST(MachineProfile, BuiltinProfilesAreSharedAcrossThreads) {
  const std::string name(kDefaultMachine);
  std::vector<std::shared_ptr<const MachineProfile>> seen(4);
  std::vector<std::thread> threads;
  for (auto& slot : seen) {
    threads.emplace_back([&slot, &name] { slot = loadBuiltinProfile(name, nullptr); });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& profile : seen) EXPECT_EQ(profile, seen.front());
  EXPECT_NE(seen.front(), nullptr);
}

struct NameCase {
  const char* asked;
  const char* loads;       // the machine it finds, or nullptr
  const char* errorPart;   // for a name it does not find
};

void PrintTo(const NameCase& c, std::ostream* os) { *os << c.asked; }

class BuiltinNameTest : public ::testing::TestWithParam<NameCase> {};

TEST_P(BuiltinNameTest, IgnoresCaseAndSuggestsOnlyCloseNames) {
  std::string error;
  auto profile = resolveMachine(GetParam().asked, &error);
  if (GetParam().loads != nullptr) {
    ASSERT_NE(profile, nullptr) << error;
    EXPECT_EQ(profile->name, GetParam().loads);
    return;
  }
  EXPECT_EQ(profile, nullptr);
  EXPECT_THAT(error, HasSubstr(GetParam().errorPart));
  EXPECT_LE(std::count(error.begin(), error.end(), ','), 6) << "a few names, not the whole list: " << error;
}

INSTANTIATE_TEST_SUITE_P(
    MachineProfile, BuiltinNameTest,
    ::testing::Values(NameCase{"macbookpro16,1", "MacBookPro16,1", nullptr}, NameCase{"m2-max", "M2-Max", nullptr},
                      NameCase{"iMac19,3", nullptr, "'iMac19,3'; did you mean iMac19,2"},
                      NameCase{"MacBookPro99,9", nullptr, "did you mean MacBookPro9,2, "},
                      NameCase{"Raspberry", nullptr, "no built-in machine named 'Raspberry' ("},
                      NameCase{"", nullptr, "no built-in machine named ''"}));

TEST(MachineProfile, ResolvesNamesFilesAndReportsMissingOnes) {
  std::string error;
  auto builtin = resolveMachine(kDefaultMachine, &error);
  ASSERT_NE(builtin, nullptr) << error;
  EXPECT_EQ(builtin, loadBuiltinProfile(kDefaultMachine, &error));

  testing::TempDir dir;
  const auto good = (dir.path() / "mine.json").string();
  std::ofstream(good) << profileJson(R"(["TC0P", "sp78", "2f80"])");
  auto fromFile = resolveMachine(good, &error);
  ASSERT_NE(fromFile, nullptr) << error;
  EXPECT_EQ(fromFile->name, "Test1,1");

  const auto bad = (dir.path() / "bad.json").string();
  std::ofstream(bad) << profileJson(R"(["TC0P", "sp78", "2f8"])");
  EXPECT_EQ(resolveMachine(bad, &error), nullptr);
  EXPECT_THAT(error, HasSubstr("profile '" + bad + "': smc entry 0"));

  EXPECT_EQ(resolveMachine(dir.path().string(), &error), nullptr);
  EXPECT_THAT(error, HasSubstr("cannot read profile"));

  const auto unnamed = (dir.path() / "bench.json").string();
  std::ofstream(unnamed) << R"({"sysctl": {}, "smc": []})";
  auto fromStem = resolveMachine(unnamed, &error);
  ASSERT_NE(fromStem, nullptr) << error;
  EXPECT_EQ(fromStem->name, "bench");

  EXPECT_EQ(resolveMachine((dir.path() / "gone.json").string(), &error), nullptr);
  EXPECT_THAT(error, HasSubstr("gone.json': no such file"));
}

TEST(MachineProfile, DamagedTextNeverCrashesTheLoader) {
  const std::string text =
      profileJson(R"(["zCRS", "ui8\u0000", "", {"size": 1, "result": "85"}], ["TC0P", "sp78", "2f80", {"attr": "C0"}])",
                  R"(, "hid": {"temperature": [["A", 1.5]]})");
  std::string error;
  ASSERT_NE(parseProfile(text, "whole", &error), nullptr) << error;
  for (std::size_t cut = 0; cut < text.size(); ++cut) {
    error.clear();
    EXPECT_EQ(parseProfile(text.substr(0, cut), "cut", &error), nullptr);
    EXPECT_FALSE(error.empty());
    std::string flipped = text;
    flipped[cut] = static_cast<char>(flipped[cut] ^ 0x20);
    error.clear();
    if (parseProfile(flipped, "flipped", &error) == nullptr) {
      EXPECT_FALSE(error.empty()) << cut;
    }
  }
}

}  // namespace
}  // namespace corvane::platform
