#include "corvane/platform/dump_import.h"

#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::platform {
namespace {

using ::testing::HasSubstr;

const std::filesystem::path kDumps = CORVANE_DUMPS_DIR;
const std::filesystem::path kProfiles = std::filesystem::path(CORVANE_SOURCE_DIR) / "profiles";

std::shared_ptr<MachineProfile> importText(const std::string& text, const std::string& fileName,
                                           const DumpImportOptions& options = {}) {
  std::string error;
  auto profile = importDump(text, fileName, options, &error);
  EXPECT_NE(profile, nullptr) << error;
  return profile;
}

TEST(DumpImport, ErrorsNameTheFileAndLine) {
  const std::string key = "[TC0P] type [sp78] 73703738 len [ 2] attr [C0] -> 2F80\n";
  for (const auto& [text, expected] : std::initializer_list<std::pair<std::string, std::string>>{
           {"# header\n" + key + "user@mac:~ $\n", "line 3: not a key line: \"user@mac:~ $\""},
           {"[TC0P] type [sp78] 73703738 len [ 3] attr [C0] -> 2F80\n", "line 1: len 3 but the value has 2 bytes"},
           {"[OSK0] type [ch8*] 6368382A len [40] attr [90] -> [value redacted by collector]\n",
            "line 1: len 40 is over 32 for a readable key"},
           {"[TC0P] type [sp79] 73703738 len [ 2] attr [C0] -> 2F80\n", "line 1: type [sp79] does not match its code"},
           {"Unable to read smc value E00002C2\n" + key, "line 2: key \"TC0P\" has a value after \"Unable to read\""},
           {"Public keys (2):\n" + key, "line 1: the section states 2 keys but lists 1"},
           {key + key, "line 2: duplicate key \"TC0P\" (first on line 1)"},
           {"# Source URL : x\n\n", "no key lines"}}) {
    std::string error;
    EXPECT_EQ(importDump(text, "test.txt", {}, &error), nullptr);
    EXPECT_THAT(error, HasSubstr("dump 'test.txt': " + expected));
  }
}

// The recorded listings print no such type; the code beside it says what the byte is.
TEST(DumpImport, ATypeWithAnUnprintableByteIsTakenFromItsCode) {
  auto profile = importText("[SIP ] type [ui8?] 75693800 len [ 1] attr [D0] -> 01\n", "x.txt");
  ASSERT_NE(profile, nullptr);
  EXPECT_TRUE(profile->smc.at(0).type == 0x75693800u && profile->smc[0].bytes[0] == 0x01);
}

// The checked-in profiles are what the importer makes of the recorded listings today.
struct BuiltinSource {
  const char* profile;
  const char* dump;
  DumpImportOptions options;
};

void PrintTo(const BuiltinSource& c, std::ostream* os) { *os << c.profile; }

class BuiltinSourceTest : public ::testing::TestWithParam<BuiltinSource> {};

TEST_P(BuiltinSourceTest, ProfileFileMatchesAFreshImport) {
  const auto& c = GetParam();
  auto profile = importText(testing::readFile(kDumps / c.dump), (kDumps / c.dump).string(), c.options);
  ASSERT_NE(profile, nullptr);
  EXPECT_EQ(serializeProfile(*profile), testing::readFile(kProfiles / (std::string(c.profile) + ".json")))
      << "regenerate with scripts/make-profiles";
}

INSTANTIATE_TEST_SUITE_P(DumpImport, BuiltinSourceTest,
                         ::testing::Values(BuiltinSource{"MacBookPro16,1", "MacBookPro16,1__virtualsmc.txt", {}},
                                           BuiltinSource{"MacBookPro14,2", "MacBookPro14,2__virtualsmc.txt", {}},
                                           BuiltinSource{"M2-Max", "M2-Max__ismc-pr38-full.txt", {"M2-Max", "", ""}},
                                           BuiltinSource{"Mac16,12", "Mac16,12-M4__ismc-pr40-full.txt", {}},
                                           BuiltinSource{"Mac16,10", "Mac16,10-M4__ismc-pr40-full.txt", {}},
                                           BuiltinSource{"Mac17,5", "Mac17,5-A18Pro__ismc-full.txt", {}}),
                         [](const auto& info) {
                           std::string name = info.param.profile;
                           for (char& c : name) {
                             if (c == ',' || c == '-') c = '_';
                           }
                           return name;
                         });

// The command writes what the importer makes, and a bad listing is a usage error naming its line.
TEST(DumpImport, CommandLineWritesTheProfileOrRefusesABadListing) {
  testing::TempDir dir;
  const auto out = dir.path() / "out.json";
  const auto dump = (kDumps / "MacBookPro16,1__virtualsmc.txt").string();
  auto run = testing::runProgram(CORVANE_CLI_PATH, {"profile", "import", dump, "-o", out.string()});
  EXPECT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(testing::readFile(out), testing::readFile(kProfiles / "MacBookPro16,1.json"));
  testing::writeFile(dir.path() / "garbage.txt", "# header\nnot a key\n");
  run = testing::runProgram(CORVANE_CLI_PATH, {"profile", "import", (dir.path() / "garbage.txt").string()});
  EXPECT_EQ(run.exitCode, 2);
  EXPECT_THAT(run.err, ::testing::StartsWith("corvane: dump '"));
}

}  // namespace
}  // namespace corvane::platform
