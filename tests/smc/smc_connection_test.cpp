#include <cstdio>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "corvane/platform/platform.h"
#include "corvane/smc/smc.h"
#include "platform/sim/sim_smc_driver.h"
#include "smc/key_info_cache.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using platform::SimSmcDriver;

// A machine with `temperatures` keys "T000", "T001", ... (sp78, 42.5 each) after a fan target,
// a key the SMC rejects, a key whose read fails in the driver, and a hidden key.
std::string machineJson(int temperatures, bool withKeyCount = true) {
  std::string smc;
  if (withKeyCount) {
    char count[16];
    std::snprintf(count, sizeof count, "%08x", temperatures + 4);
    smc += std::string(R"(["#KEY","ui32",")") + count + R"("],)";
  }
  smc += R"(["F0Tg","flt ","0080e544"],["AC-E","flag","",{"size":1,"result":"85"}],)";
  smc += R"(["ACKG","hex_","",{"size":118,"status":"E00002C2"}],)";
  for (int i = 0; i < temperatures; ++i) {
    char key[16];
    std::snprintf(key, sizeof key, "T%03d", i);
    smc += std::string(R"([")") + key + R"(","sp78","2a80"],)";
  }
  smc += R"(["MSSN","si8 ","80",{"hidden":true}])";
  return R"({"name":"Test","sysctl":{},"smc":[)" + smc + "]}";
}

class SmcConnectionTest : public testing::MachineTest {
 protected:
  SimSmcDriver& driver() { return dynamic_cast<SimSmcDriver&>(platform::current().smc()); }
};

TEST_F(SmcConnectionTest, CachedKeyCostsOneDriverCallAndAColdKeyTwo) {
  install(machineJson(3));
  SMCValue value;
  driver().resetCounts();
  ASSERT_EQ(SMCReadKey("T000", &value), 0);
  EXPECT_EQ(driver().counts().total(), 2u);
  EXPECT_EQ(driver().counts().keyInfo, 1u);
  driver().resetCounts();
  ASSERT_EQ(SMCReadKey("T000", &value), 0);
  ASSERT_EQ(SMCReadKey("T000", &value), 0);
  EXPECT_EQ(driver().counts().total(), 2u);
  EXPECT_EQ(driver().counts().keyInfo, 0u);
  EXPECT_STREQ(value.dataType, "sp78");
  EXPECT_FLOAT_EQ(SMCConvertValueToNumber(value), 42.5f);
  // A failed key is not cached.
  driver().resetCounts();
  EXPECT_NE(SMCReadKey("ZZZZ", &value), 0);
  EXPECT_NE(SMCReadKey("ZZZZ", &value), 0);
  EXPECT_EQ(driver().counts().keyInfo, 2u);
  EXPECT_EQ(driver().counts().read, 0u);
  EXPECT_EQ(smc::keyInfoCacheCount(), 1);
}

TEST_F(SmcConnectionTest, CacheStopsAtOneHundredKeysWithoutEvicting) {
  install(machineJson(120));
  SMCValue value;
  char key[16];
  for (int i = 0; i < 100; ++i) {
    std::snprintf(key, sizeof key, "T%03d", i);
    ASSERT_EQ(SMCReadKey(key, &value), 0) << key;
  }
  EXPECT_EQ(smc::keyInfoCacheCount(), 100);

  // The 101st key reads correctly but is asked of the driver every time.
  driver().resetCounts();
  ASSERT_EQ(SMCReadKey("T100", &value), 0);
  ASSERT_EQ(SMCReadKey("T100", &value), 0);
  EXPECT_FLOAT_EQ(SMCConvertValueToNumber(value), 42.5f);
  EXPECT_EQ(driver().counts().keyInfo, 2u);
  EXPECT_EQ(smc::keyInfoCacheCount(), 100);

  // The first hundred stay cached.
  driver().resetCounts();
  ASSERT_EQ(SMCReadKey("T000", &value), 0);
  EXPECT_EQ(driver().counts().keyInfo, 0u);
}

TEST_F(SmcConnectionTest, RejectedKeysFailingReadsAndNoSmc) {
  install(machineJson(1));
  SMCValue value;
  // The SMC's result byte is not examined: a rejected key reads as success with zero bytes.
  ASSERT_EQ(SMCReadKey("AC-E", &value), 0);
  EXPECT_EQ(value.dataSize, 1u);
  EXPECT_EQ(value.bytes[0], 0);
  // A driver status is passed through unchanged.
  EXPECT_EQ(SMCReadKey("ACKG", &value), static_cast<kern_return_t>(0xE00002C2));
  // Hidden keys are readable by name.
  ASSERT_EQ(SMCReadKey("MSSN", &value), 0);
  EXPECT_FLOAT_EQ(SMCConvertValueToNumber(value), -128.0f);
  // A Mac without an SMC cannot be opened at all.
  platform::install(platform::simulated(nullptr, {dir_.path(), false, ""}));
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(SMCOpen(), 1);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "Error: no SMC found\n");
}

TEST_F(SmcConnectionTest, IndexEnumerationStopsAtTheKeyCount) {
  install(machineJson(2));
  SMCValue value;
  ASSERT_EQ(SMCReadKey("#KEY", &value), 0);
  const auto count = static_cast<uint32_t>(SMCConvertValueToNumber(value));
  EXPECT_EQ(count, 6u);  // the hidden key is not counted
  ASSERT_EQ(SMCReadKeyByIndex(1, &value), 0);
  EXPECT_STREQ(value.key, "F0Tg");
  ASSERT_EQ(SMCReadKeyByIndex(count - 1, &value), 0);
  EXPECT_STREQ(value.key, "T001");
  EXPECT_EQ(SMCReadKeyByIndex(count, &value), kSMCReturnError);
  // A profile without the count is answered from its table.
  install(machineJson(3, /*withKeyCount=*/false));
  ASSERT_EQ(SMCReadKey("#KEY", &value), 0);
  EXPECT_FLOAT_EQ(SMCConvertValueToNumber(value), 6.0f);
}

TEST_F(SmcConnectionTest, WriteOfTheWrongSizeSendsNoWriteCommand) {
  install(machineJson(1));
  SMCValue value;
  std::memset(&value, 0, sizeof value);
  std::memcpy(value.key, "F0Tg", 5);
  value.dataSize = 2;
  driver().resetCounts();
  EXPECT_EQ(SMCWriteKey(value), kSMCReturnError);
  EXPECT_EQ(driver().counts().write, 0u);

  value.dataSize = 4;
  const unsigned char target[] = {0x00, 0x00, 0xFA, 0x44};
  std::memcpy(value.bytes, target, 4);
  ASSERT_EQ(SMCWriteKey(value), 0);
  EXPECT_EQ(driver().counts().write, 1u);
  SMCValue read;
  ASSERT_EQ(SMCReadKey("F0Tg", &read), 0);
  EXPECT_FLOAT_EQ(SMCConvertValueToNumber(read), 2000.0f);
  std::memcpy(value.key, "F9Tg", 5);  // an unknown key fails with the driver's status
  EXPECT_NE(SMCWriteKey(value), 0);
}

}  // namespace
}  // namespace corvane
