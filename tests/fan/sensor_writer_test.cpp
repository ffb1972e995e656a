#include "corvane/fan/sensor_writer.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "corvane/smc/smc.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/util/install_paths.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using fan_writes::KeyWrite;

TEST(FanWrites, BothSchemesEncodeAsTheHelperExpects) {
  struct Case {
    std::uint64_t speed, fan;
    bool autoMode, t2;
    std::vector<KeyWrite> writes;
  };
  for (const auto& c : std::initializer_list<Case>{
           {2000, 0, false, true, {{"F0Md", "01"}, {"F0Tg", "0000fa44"}}},
           {2000, 0, true, true, {{"F0Md", "00"}, {"F0Tg", "0000fa44"}}},
           {1200, 10, false, true, {{"FAMd", "01"}, {"FATg", "00009644"}}},
           {0, 19, true, true, {{"FJMd", "00"}, {"FJTg", "00000000"}}},
           {2000, 0, true, false, {{"F0Mn", "1f40"}}},
           {0, 1, false, false, {{"F1Mn", "0000"}}},
           {20000, 10, false, false, {{"FAMn", "13880"}}},
           {(1ull << 30) + 1, 19, false, false, {{"FJMn", "0004"}}},  // speed × 4 wraps at 2^32
           {2000, 20, false, true, {}},
           {2000, 20, false, false, {}},
       }) {
    EXPECT_EQ(fan_writes::writesFor(c.speed, c.fan, c.autoMode, c.t2), c.writes)
        << c.speed << " rpm, fan " << c.fan << (c.t2 ? " (T2)" : "");
  }
}

// Through the helper tool on a recorded machine: the scheme follows the model, and the last
// write decides the outcome.
class SensorWriterTest : public ::testing::Test {
 protected:
  // Each case installs its own machine; this undoes one installation.
  void finish() {
    HWSystemDevice::reset();
    SMCClose();
  }
  // A helper that logs its arguments and fails for keys ending in `failing`.
  void run(const std::string& model, const std::string& failing) {
    testing::installMachine(testing::profileFromJson(R"({"name": "W", "sysctl": {"hw.model": ")" + model +
                                                     R"("}, "smc": [["FNum", "ui8 ", "01"]]})"),
                            dir_.path());
    HWSystemDevice::reset();
    const std::filesystem::path tool(*files::smcExePath());
    testing::writeFile(tool, "#!/bin/sh\necho \"$@\" >> \"" + log().string() + "\"\ncase \"$2\" in *" + failing +
                                 ") exit 1;; esac\nexit 0\n");
    ::chmod(tool.c_str(), 0755);
  }
  std::filesystem::path log() const { return dir_.path() / "writes"; }
  testing::TempDir dir_;
};

TEST_F(SensorWriterTest, WritesThroughTheHelperByModel) {
  struct Case {
    const char* model;
    const char* failing;
    bool result;
    const char* log;
  };
  for (const auto& c : std::initializer_list<Case>{
           {"MacBookPro16,1", "Md", true, "-k F1Md -w 01\n-k F1Tg -w 0000fa44\n"},
           {"MacBookPro16,1", "Tg", false, "-k F1Md -w 01\n-k F1Tg -w 0000fa44\n"},
           {"MacBookPro14,1", "none", true, "-k F1Mn -w 1f40\n"},
           {"MacBookPro14,1", "Mn", false, "-k F1Mn -w 1f40\n"},
       }) {
    SCOPED_TRACE(std::string(c.model) + " failing " + c.failing);
    run(c.model, c.failing);
    HWSensorWriter writer;
    EXPECT_EQ(writer.setSpeed(2000, 1, false), c.result);
    EXPECT_EQ(testing::readFile(log()), c.log);
    EXPECT_FALSE(writer.setSpeed(2000, 20, false));
    EXPECT_EQ(testing::readFile(log()), c.log) << "nothing written for fan 20";
    std::filesystem::remove(log());
    finish();
  }
}

}  // namespace
}  // namespace corvane
