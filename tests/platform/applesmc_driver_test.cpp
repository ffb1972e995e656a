#include "platform/linux/applesmc_driver.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "platform/sim/sim_smc_driver.h"
#include "support/applesmc_fixture.h"
#include "support/test_support.h"

namespace corvane::platform {
namespace {

using testing::ApplesmcFixture;
using testing::TempDir;

// One driver command: its status, and the record that came back.
std::pair<kern_return_t, SMCKeyData> call(SmcDriver& driver, uint8_t which, std::string_view key, uint32_t size = 0,
                                          uint32_t index = 0, std::vector<uint8_t> bytes = {}) {
  SMCKeyData input{}, output{};
  input.data8 = which;
  input.key = text::packFourCc(key);
  input.keyInfo.dataSize = size;
  input.data32 = index;
  std::copy(bytes.begin(), bytes.end(), input.bytes);
  const kern_return_t status = driver.call(kSMCUserClientSelector, input, output);
  return {status, output};
}

// Every listed key tells the same index, type, size and bytes through the driver's files as on
// the recorded machine; a key it does not list answers as one the machine lacks. Another process
// selecting between this one's selection and its read costs one more try, never wrong bytes.
TEST(ApplesmcDriver, ReadsEveryListedKeyAsTheRecordedMachine) {
  for (const char* name : {"MacBookPro16,1", "MacBookPro9,2", "Mac16,10"}) {
    SCOPED_TRACE(name);
    const auto profile = testing::builtinMachine(name);
    TempDir dir;
    SimSmcDriver recorded(profile, {});
    auto fixture = std::make_shared<ApplesmcFixture>(*profile, dir.path());
    ApplesmcDriver driver(fixture);
    ASSERT_EQ(recorded.open().stage, SmcDriver::OpenResult::Stage::ok);
    ASSERT_EQ(driver.open().stage, SmcDriver::OpenResult::Stage::ok);
    uint32_t index = 0, compared = 0;
    for (const SmcEntry& entry : profile->smc) {
      const std::string key = text::unpackFourCc(entry.key);
      SCOPED_TRACE(key);
      if (!entry.hidden) {
        EXPECT_EQ(call(driver, kSMCCmdGetKeyFromIndex, "", 0, index++).second.key, entry.key);
      }
      const auto [status, got] = call(driver, kSMCCmdReadKey, key, entry.size);
      if (entry.hidden || entry.result != 0 || entry.status != 0) {
        EXPECT_NE(status, 0);
        continue;
      }
      const auto info = call(driver, kSMCCmdGetKeyInfo, key).second.keyInfo;
      EXPECT_EQ(std::tie(info.dataType, info.dataSize), std::tie(entry.type, entry.size));
      ASSERT_EQ(status, 0);
      EXPECT_EQ(std::memcmp(got.bytes, call(recorded, kSMCCmdReadKey, key, entry.size).second.bytes, 32), 0);
      ++compared;
    }
    EXPECT_GT(compared, 100u);
    for (const char* key : {"#KEY", "ZZZZ"}) {
      const auto [wanted, want] = call(recorded, kSMCCmdReadKey, key, 4);
      const auto [status, got] = call(driver, kSMCCmdReadKey, key, 4);
      EXPECT_EQ(std::tie(status, got.result), std::tie(wanted, want.result)) << key;
      EXPECT_EQ(std::memcmp(got.bytes, want.bytes, sizeof got.bytes), 0) << key;
    }
    const uint32_t size = call(driver, kSMCCmdGetKeyInfo, "F0Ac").second.keyInfo.dataSize;
    for (const int times : {1, 2}) {
      fixture->interfere(times, 3);
      const auto [status, got] = call(driver, kSMCCmdReadKey, "F0Ac", size);
      EXPECT_EQ(status, times == 1 ? 0 : kIOReturnBusy);
      EXPECT_EQ(std::memcmp(got.bytes, call(recorded, kSMCCmdReadKey, "F0Ac", size).second.bytes, 32) == 0, times == 1);
    }
  }
}

// A write reaches the fan attribute that stands for its key, as decimal text; nothing else is written.
TEST(ApplesmcDriver, WritesOnlyFansAsDecimalText) {
  const auto profile = testing::profileFromJson(R"({"name": "two fans", "sysctl": {}, "smc": [
    ["F0Ac", "flt ", "00c0a944"], ["F0Tg", "flt ", "00c0a944"], ["F0Md", "ui8 ", "01"],
    ["F1Ac", "fpe2", "1518"], ["F1Mn", "fpe2", "1518"], ["FS! ", "ui16", "0001"], ["TC0P", "sp78", "2f80"]]})");
  struct Case {
    const char* key;
    std::vector<uint8_t> bytes;
    kern_return_t status;
    std::map<std::string, std::string> files;  // as they read afterwards
  };
  const Case cases[] = {
      {"F0Tg", {0x00, 0x80, 0xbb, 0x44}, 0, {{"fan1_output", "1500\n"}, {"fan1_manual", "1\n"}}},
      {"F1Mn", {0x1f, 0x40}, 0, {{"fan2_min", "2000\n"}, {"fan1_output", "1358\n"}}},
      {"F0Md", {0x00}, 0, {{"fan1_manual", "0\n"}}},
      {"FS! ", {0x00, 0x02}, 0, {{"fan1_manual", "0\n"}, {"fan2_manual", "1\n"}}},
      {"TC0P", {0x30, 0x00}, kIOReturnNotWritable, {{"fan1_output", "1358\n"}}},
      {"F1Ac", {0x1f, 0x40}, kIOReturnNotWritable, {{"fan2_input", "1350\n"}}},
      {"F0Tg", {0x1f, 0x40}, kIOReturnBadArgument, {{"fan1_output", "1358\n"}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    TempDir dir;
    ApplesmcDriver driver(std::make_shared<ApplesmcFixture>(*profile, dir.path()));
    ASSERT_EQ(driver.open().stage, SmcDriver::OpenResult::Stage::ok);
    const auto size = static_cast<uint32_t>(c.bytes.size());
    EXPECT_EQ(call(driver, kSMCCmdWriteKey, c.key, size, 0, c.bytes).first, c.status);
    for (const auto& [file, text] : c.files) EXPECT_EQ(testing::readFile(dir.path() / file), text) << file;
  }
}

// The driver's files decide the SMC only where they are, and only at their own place for a caller
// not trusted; the program reads them as it reads the recorded machine.
TEST(ApplesmcDriver, NativeChoosesTheDriverOnlyWhereItIs) {
  TempDir dir;
  auto oneKey = std::make_shared<MachineProfile>(*testing::builtinMachine());
  std::erase_if(oneKey->smc, [](const SmcEntry& entry) { return entry.key != text::packFourCc("F0Tg"); });
  ApplesmcFixture fixture(*oneKey, dir.path() / "applesmc");
  for (const auto& [root, untrusted, real] : {std::tuple{dir.path() / "missing", false, false},
                                              {dir.path() / "applesmc", true, false},
                                              {dir.path() / "applesmc", false, true}}) {
    const auto platform = native({.followAnnouncedMachine = false, .untrustedCaller = untrusted, .applesmcRoot = root});
    EXPECT_EQ(platform->machine() ? platform->machine()->name : "", real ? "" : kDefaultMachine) << root;
  }
  const auto read = [&](std::vector<std::string> args) {
    auto result = testing::runProgram(CORVANE_CLI_PATH, args, dir.path());
    EXPECT_EQ(result.exitCode, 0) << result.err;
    return result.out.substr(std::min(result.out.size(), result.out.find("F0Tg")));
  };
  EXPECT_EQ(read({"smc", "read", "F0Tg", "--applesmc", (dir.path() / "applesmc").string()}),
            read({"smc", "read", "F0Tg"}));
  const auto missing = testing::runProgram(CORVANE_CLI_PATH, {"--applesmc", dir.path().string(), "smc", "list"});
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_EQ(missing.err.rfind("corvane: no applesmc driver files", 0), 0u) << missing.err;
}

}  // namespace
}  // namespace corvane::platform
