#include "corvane/platform/dump_import.h"

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane::platform {
namespace {

using ::testing::HasSubstr;

const std::filesystem::path kDumps = CORVANE_DUMPS_DIR;
const std::filesystem::path kProfiles = std::filesystem::path(CORVANE_SOURCE_DIR) / "profiles";

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << "cannot read " << path;
  return std::string(std::istreambuf_iterator<char>(in), {});
}

const SmcEntry* find(const MachineProfile& profile, std::string_view key) {
  uint32_t packed = 0;
  for (char c : key) packed = (packed << 8) | static_cast<unsigned char>(c);
  for (const auto& entry : profile.smc) {
    if (entry.key == packed) return &entry;
  }
  return nullptr;
}

std::size_t enumerated(const MachineProfile& profile) {
  std::size_t count = 0;
  for (const auto& entry : profile.smc) count += entry.hidden ? 0 : 1;
  return count;
}

uint32_t bigEndian32(const SmcEntry& entry) {
  return (uint32_t{entry.bytes[0]} << 24) | (uint32_t{entry.bytes[1]} << 16) | (uint32_t{entry.bytes[2]} << 8) |
         entry.bytes[3];
}

std::shared_ptr<MachineProfile> importText(const std::string& text, const std::string& fileName,
                                           const DumpImportOptions& options = {}) {
  std::string error;
  auto profile = importDump(text, fileName, options, &error);
  EXPECT_NE(profile, nullptr) << error;
  return profile;
}

constexpr const char* kBracketed =
    "# ====================\n"
    "# Source URL : https://example.invalid/dump.txt\n"
    "# Model id   : MacBookPro99,1 (from the file name)\n"
    "# Class      : Intel with T2 (collector's note)\n"
    "# ====================\n"
    "macOS 10.15.2 (19C57)\n"
    "Public keys (6):\n"
    "[#KEY] type [ui32] 75693332 len [ 4] attr [80] -> 00000006\n"
    "[TC0P] type [sp78] 73703738 len [ 2] attr [C0] -> 2F80\n"
    "[AC-E] type [flag] 666C6167 len [ 1] attr [50] -> NOT READABLE, code 89\n"
    "[KPPW] type [ch8*] 6368382A len [16] attr [50] -> NOT READABLE\n"
    "Unable to read smc value E00002C2\n"
    "[ACKG] type [hex_] 6865785F len [118] attr [54] -> NOT READABLE, code FF\n"
    "[SIP ] type [ui8?] 75693800 len [ 1] attr [D0] -> 01\r\n"
    "\n"
    "Hidden keys (?):\n"
    "[OSK0] type [ch8*] 6368382A len [32] attr [90] -> [value redacted by collector]\n"
    "[MSSN] type [si8 ] 73693820 len [ 1] attr [D0] -> 80\n";

TEST(DumpImport, ReadsTheBracketedFormat) {
  auto profile = importText(kBracketed, "dumps/x__listing.txt");
  ASSERT_NE(profile, nullptr);
  EXPECT_EQ(profile->name, "MacBookPro99,1");
  EXPECT_EQ(profile->sysctl["hw.model"], "MacBookPro99,1");
  EXPECT_EQ(profile->sysctl["machdep.cpu.brand_string"], "Intel");
  EXPECT_FALSE(profile->sysctl.contains("hw.optional.arm64"));
  EXPECT_FALSE(profile->hasHid);
  EXPECT_EQ(profile->provenance["dump"], "x__listing.txt");
  EXPECT_EQ(profile->provenance["source"], "https://example.invalid/dump.txt");
  EXPECT_EQ(profile->provenance["os"], "macOS 10.15.2 (19C57)");
  EXPECT_EQ(profile->provenance["header"].size(), 3u);
  EXPECT_EQ(profile->provenance["header"][0], "Source URL : https://example.invalid/dump.txt");
  EXPECT_THAT(profile->provenance["notes"].dump(), HasSubstr("result 0x85: KPPW"));

  ASSERT_EQ(profile->smc.size(), 8u);
  EXPECT_EQ(enumerated(*profile), 6u);
  const SmcEntry& tc0p = profile->smc[1];
  EXPECT_EQ(tc0p.type, 0x73703738u);
  EXPECT_EQ(tc0p.size, 2u);
  EXPECT_EQ(tc0p.attributes, 0xC0);
  EXPECT_EQ(tc0p.bytes[0], 0x2F);
  EXPECT_EQ(tc0p.bytes[1], 0x80);
  EXPECT_EQ(profile->smc[2].result, 0x89);
  EXPECT_EQ(profile->smc[3].result, 0x85);
  EXPECT_EQ(profile->smc[3].size, 16u);
  const SmcEntry& ackg = profile->smc[4];
  EXPECT_EQ(ackg.status, static_cast<int32_t>(0xE00002C2));
  EXPECT_EQ(ackg.result, 0) << "the failed driver call is the answer, not the printed code";
  EXPECT_EQ(ackg.size, 118u);
  EXPECT_EQ(profile->smc[5].type, 0x75693800u);
  EXPECT_EQ(profile->smc[5].bytes[0], 0x01);
  const SmcEntry& osk0 = profile->smc[6];
  EXPECT_TRUE(osk0.redacted && osk0.hidden);
  EXPECT_EQ(osk0.size, 32u);
  EXPECT_TRUE(profile->smc[7].hidden);
}

constexpr const char* kIndented =
    "# Source URL : https://example.invalid/report.txt\n"
    "# Model id   : not stated (RPlt key = \"j999\")\n"
    "# Chip       : Apple M9 Pro, 4P+4E (per commit message)\n"
    "  #KEY  [ui32]  7 (bytes 00 00 00 07)\n"
    "  FS!   [ui16]  0 (bytes 00 00)\n"
    "  AOPb  [ui64]  (bytes 00 a1 e6 a3 02 00 00 00)\n"
    "  TW0P  [flt ]  odd (bytes 1) text (bytes 00 00 20 42)\n"
    "  BMSN  [ch8*]  (bytes [battery serial number redacted by collector; 21 bytes])\n";

TEST(DumpImport, ReadsTheIndentedFormat) {
  auto profile = importText(std::string("\xEF\xBB\xBF") + kIndented, "m9-pro__report.txt");
  ASSERT_NE(profile, nullptr);
  EXPECT_EQ(profile->name, "m9-pro__report");
  EXPECT_FALSE(profile->sysctl.contains("hw.model")) << "an unstated model is not invented";
  EXPECT_EQ(profile->sysctl["machdep.cpu.brand_string"], "Apple M9 Pro");
  EXPECT_EQ(profile->sysctl["hw.optional.arm64"], 1);
  EXPECT_TRUE(profile->hasHid);
  EXPECT_TRUE(profile->hidTemperature.empty());

  ASSERT_EQ(profile->smc.size(), 5u);
  EXPECT_EQ(bigEndian32(profile->smc[0]), 7u) << "#KEY is kept as recorded";
  EXPECT_EQ(profile->smc[1].key, 0x46532120u);
  EXPECT_EQ(profile->smc[1].attributes, 0);
  EXPECT_EQ(profile->smc[2].size, 8u);
  EXPECT_EQ(profile->smc[2].bytes[1], 0xA1);
  EXPECT_EQ(profile->smc[3].size, 4u);
  EXPECT_EQ(profile->smc[3].bytes[3], 0x42);
  EXPECT_TRUE(profile->smc[4].redacted);
  EXPECT_EQ(profile->smc[4].size, 21u);
  EXPECT_THAT(profile->provenance["notes"].dump(), HasSubstr("#KEY says 7 but the listing has 5 keys"));
}

struct DerivationCase {
  const char* label;
  std::string header;
  std::string fileName;
  DumpImportOptions options;
  std::string name, model, brand;
};

void PrintTo(const DerivationCase& c, std::ostream* os) { *os << c.label; }

class DumpDerivationTest : public ::testing::TestWithParam<DerivationCase> {};

TEST_P(DumpDerivationTest, NamesModelAndBrand) {
  const auto& c = GetParam();
  auto profile = importText(c.header + "  TC0P  [sp78]  47.5 (bytes 2f 80)\n", c.fileName, c.options);
  ASSERT_NE(profile, nullptr);
  EXPECT_EQ(profile->name, c.name);
  EXPECT_EQ(profile->sysctl.value("hw.model", ""), c.model);
  EXPECT_EQ(profile->sysctl.value("machdep.cpu.brand_string", ""), c.brand);
}

INSTANTIATE_TEST_SUITE_P(
    DumpImport, DumpDerivationTest,
    ::testing::Values(DerivationCase{"ModelFromHeader",
                                     "# Model id   : Mac16,12 (commit text)\n# Chip       : Apple M4\n",
                                     "x.txt",
                                     {},
                                     "Mac16,12",
                                     "Mac16,12",
                                     "Apple M4"},
                      DerivationCase{"ModelFromFileName",
                                     "# Model id   : not stated\n",
                                     "Mac16,10-M4__report.txt",
                                     {},
                                     "Mac16,10",
                                     "Mac16,10",
                                     ""},
                      DerivationCase{"FileNameNotAModel", "", "M2-Max__report.txt", {}, "M2-Max__report", "", ""},
                      DerivationCase{"OptionsWin",
                                     "# Model id   : Mac16,12\n# Chip       : Apple M4\n",
                                     "x.txt",
                                     {"Mine", "Mac99,1", "Apple M99"},
                                     "Mine",
                                     "Mac99,1",
                                     "Apple M99"},
                      DerivationCase{"NameOnly",
                                     "# Chip       : Apple M2 Max (PR title)\n",
                                     "M2-Max__report.txt",
                                     {"M2-Max", "", ""},
                                     "M2-Max",
                                     "",
                                     "Apple M2 Max"}),
    [](const auto& info) { return std::string(info.param.label); });

struct ImportErrorCase {
  const char* label;
  std::string text;
  std::string expected;  // after "dump 'test.txt': "
};

void PrintTo(const ImportErrorCase& c, std::ostream* os) { *os << c.label; }

class DumpImportErrorTest : public ::testing::TestWithParam<ImportErrorCase> {};

TEST_P(DumpImportErrorTest, NamesTheFileAndLine) {
  std::string error;
  EXPECT_EQ(importDump(GetParam().text, "test.txt", {}, &error), nullptr);
  EXPECT_THAT(error, HasSubstr("dump 'test.txt': " + GetParam().expected));
}

constexpr const char* kKeyLine = "[TC0P] type [sp78] 73703738 len [ 2] attr [C0] -> 2F80\n";

INSTANTIATE_TEST_SUITE_P(
    DumpImport, DumpImportErrorTest,
    ::testing::Values(
        ImportErrorCase{"GarbageLine", std::string("# header\n") + kKeyLine + "user@mac:~ $\n",
                        "line 3: not a key line: \"user@mac:~ $\""},
        ImportErrorCase{"LenDiffersFromBytes", "[TC0P] type [sp78] 73703738 len [ 3] attr [C0] -> 2F80\n",
                        "line 1: len 3 but the value has 2 bytes"},
        ImportErrorCase{"OddHex", "[TC0P] type [sp78] 73703738 len [ 2] attr [C0] -> 2F8\n",
                        "line 1: value \"2F8\" is not whole bytes in hex"},
        ImportErrorCase{"ReadableOver32",
                        "[BIG!] type [hex_] 6865785F len [33] attr [C0] -> " + std::string(66, 'A') + "\n",
                        "line 1: value of 33 bytes is over 32"},
        ImportErrorCase{"RedactedOver32",
                        "[OSK0] type [ch8*] 6368382A len [40] attr [90] -> [value redacted by collector]\n",
                        "line 1: len 40 is over 32 for a readable key"},
        ImportErrorCase{"TypeDiffersFromCode", "[TC0P] type [sp79] 73703738 len [ 2] attr [C0] -> 2F80\n",
                        "line 1: type [sp79] does not match its code 73703738"},
        ImportErrorCase{"UnableToReadThenValue", std::string("Unable to read smc value E00002C2\n") + kKeyLine,
                        "line 2: key \"TC0P\" has a value after \"Unable to read\""},
        ImportErrorCase{"UnableToReadAtEnd", std::string(kKeyLine) + "Unable to read smc value E00002C2\n",
                        "line 2: \"Unable to read\" is not followed by a key line"},
        ImportErrorCase{"StatedCountDiffers", std::string("Public keys (2):\n") + kKeyLine,
                        "line 1: the section states 2 keys but lists 1"},
        ImportErrorCase{"DuplicateKey", std::string(kKeyLine) + kKeyLine,
                        "line 2: duplicate key \"TC0P\" (first on line 1)"},
        ImportErrorCase{"IndentedBadBytes", "  TC0P  [sp78]  47.5 (bytes 2f 8)\n",
                        "line 1: bytes \"2f 8\" are not two-digit hex bytes"},
        ImportErrorCase{"IndentedMixedWithBracketed", std::string("  TC0P  [sp78]  47.5 (bytes 2f 80)\n") + kKeyLine,
                        "line 2: not a key line"},
        ImportErrorCase{"NoKeys", "# Source URL : x\n\n", "no key lines"}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(DumpImport, TruncatedListingsNeverCrash) {
  for (std::string_view text : {kBracketed, kIndented}) {
    for (std::size_t cut = 0; cut < text.size(); ++cut) {
      std::string error;
      if (importDump(text.substr(0, cut), "cut.txt", {}, &error) == nullptr) {
        EXPECT_THAT(error, HasSubstr("dump 'cut.txt': ")) << cut;
      }
    }
  }
}

TEST(DumpImport, RecordedBracketedListing) {
  auto profile = importText(readFile(kDumps / "MacBookPro16,1__virtualsmc.txt"), "MacBookPro16,1__virtualsmc.txt");
  ASSERT_NE(profile, nullptr);
  const SmcEntry* keyCount = find(*profile, "#KEY");
  ASSERT_NE(keyCount, nullptr);
  EXPECT_EQ(bigEndian32(*keyCount), 897u);
  EXPECT_EQ(enumerated(*profile), 897u);
  EXPECT_EQ(profile->smc.size(), 901u);
  const SmcEntry* fans = find(*profile, "FNum");
  ASSERT_NE(fans, nullptr);
  EXPECT_EQ(fans->size, 1u);
  EXPECT_EQ(fans->bytes[0], 2);
  const SmcEntry* target = find(*profile, "F0Tg");
  ASSERT_NE(target, nullptr);
  EXPECT_EQ(target->size, 4u);
  EXPECT_EQ(bigEndian32(*target), 0x0080E544u);
}

TEST(DumpImport, RecordedIndentedListing) {
  const std::string text = readFile(kDumps / "M2-Max__ismc-pr38-full.txt");
  std::size_t keyLines = 0;
  for (std::size_t at = 0; (at = text.find("\n  ", at)) != std::string::npos; ++at) ++keyLines;
  auto profile = importText(text, "M2-Max__ismc-pr38-full.txt", {"M2-Max", "", ""});
  ASSERT_NE(profile, nullptr);
  EXPECT_EQ(keyLines, 2279u);
  EXPECT_EQ(enumerated(*profile), keyLines);
  EXPECT_EQ(bigEndian32(*find(*profile, "#KEY")), 2409u);
  const SmcEntry* fans = find(*profile, "FNum");
  ASSERT_NE(fans, nullptr);
  EXPECT_EQ(fans->bytes[0], 2);
  EXPECT_FALSE(profile->sysctl.contains("hw.model"));
  EXPECT_TRUE(profile->hasHid);
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
  auto profile = importText(readFile(kDumps / c.dump), (kDumps / c.dump).string(), c.options);
  ASSERT_NE(profile, nullptr);
  EXPECT_EQ(serializeProfile(*profile), readFile(kProfiles / (std::string(c.profile) + ".json")))
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

int runShell(const std::string& command) {
  int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(DumpImport, CommandLineWritesTheCheckedInProfile) {
  if (!std::filesystem::exists(CORVANE_CLI_PATH)) GTEST_SKIP() << "corvane is not built";
  testing::TempDir dir;
  const auto out = dir.path() / "out.json";
  const auto err = dir.path() / "err.txt";
  const std::string cli = std::string("'") + CORVANE_CLI_PATH + "'";
  EXPECT_EQ(runShell(cli + " profile import '" + (kDumps / "MacBookPro16,1__virtualsmc.txt").string() + "' -o '" +
                     out.string() + "'"),
            0);
  EXPECT_EQ(readFile(out), readFile(kProfiles / "MacBookPro16,1.json"));

  const auto garbage = dir.path() / "garbage.txt";
  std::ofstream(garbage) << "# header\nnot a key\n";
  EXPECT_EQ(runShell(cli + " profile import '" + garbage.string() + "' 2>'" + err.string() + "'"), 2);
  EXPECT_EQ(readFile(err), "corvane: dump '" + garbage.string() + "': line 2: not a key line: \"not a key\"\n");

  EXPECT_EQ(runShell(cli + " profile list >'" + out.string() + "'"), 0);
  EXPECT_THAT(readFile(out), HasSubstr("\nMacBookPro16,1 (default)\n"));
}

}  // namespace
}  // namespace corvane::platform
