#include "corvane/fan/sensor_writer.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "corvane/smc/smc.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/util/install_paths.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using fan_writes::KeyWrite;

TEST(FanWrites, BothSchemesEncodeAsTheHelperExpects) {
  // Speed, fan, automatic mode, T2 scheme; the writes.
  using Case = std::tuple<std::uint64_t, std::uint64_t, bool, bool, std::vector<KeyWrite>>;
  for (const auto& [speed, fan, autoMode, t2, writes] : {
           Case{2000, 0, false, true, {{"F0Md", "01"}, {"F0Tg", "0000fa44"}}},
           Case{2000, 0, true, true, {{"F0Md", "00"}, {"F0Tg", "0000fa44"}}},
           Case{1200, 10, false, true, {{"FAMd", "01"}, {"FATg", "00009644"}}},
           Case{0, 19, true, true, {{"FJMd", "00"}, {"FJTg", "00000000"}}},
           Case{2000, 0, true, false, {{"F0Mn", "1f40"}}},
           Case{20000, 10, false, false, {{"FAMn", "13880"}}},
           Case{(1ull << 30) + 1, 19, false, false, {{"FJMn", "0004"}}},  // speed × 4 wraps at 2^32
           Case{2000, 20, false, true, {}},
           Case{2000, 20, false, false, {}},
       }) {
    EXPECT_EQ(fan_writes::writesFor(speed, fan, autoMode, t2), writes) << speed << " rpm, fan " << fan << " " << t2;
  }
}

// Through the helper tool on a recorded machine: the scheme follows the model, and the last
// write decides the outcome.
class SensorWriterTest : public ::testing::Test {
 protected:
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
  // Model, the key ending that fails, the outcome and the helper's log.
  for (const auto& [model, failing, result, written] : {
           std::tuple{"MacBookPro16,1", "Md", true, "-k F1Md -w 01\n-k F1Tg -w 0000fa44\n"},
           std::tuple{"MacBookPro16,1", "Tg", false, "-k F1Md -w 01\n-k F1Tg -w 0000fa44\n"},
           std::tuple{"MacBookPro14,1", "none", true, "-k F1Mn -w 1f40\n"},
           std::tuple{"MacBookPro14,1", "Mn", false, "-k F1Mn -w 1f40\n"},
       }) {
    SCOPED_TRACE(std::string(model) + " failing " + failing);
    run(model, failing);
    HWSensorWriter writer;
    EXPECT_EQ(writer.setSpeed(2000, 1, false), result);
    EXPECT_FALSE(writer.setSpeed(2000, 20, false));
    EXPECT_EQ(testing::readFile(log()), written) << "nothing more written for fan 20";
    std::filesystem::remove(log());
    HWSystemDevice::reset();
    SMCClose();
  }
}

}  // namespace
}  // namespace corvane
