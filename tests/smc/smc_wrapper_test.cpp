#include "corvane/smc/smc_wrapper.h"

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/platform/platform.h"
#include "corvane/smc/smc.h"
#include "corvane/util/install_paths.h"
#include "platform/sim/sim_smc_driver.h"
#include "support/test_support.h"

namespace corvane {
namespace {

// Two fans (fan 0 unnamed, fan 1 "Left" among padding and stray bytes), a fan 10 that FNum does not count, and keys of every
// kind the enumeration must keep or drop. Floats are little-endian, as the SMC hands them over.
constexpr const char* kMachine = R"({"name": "Wrapper", "sysctl": {}, "smc": [
  ["FNum", "ui8 ", "02"], ["F0ID", "ch8*", "2020202020"],
  ["F0Ac", "flt ", "00009644"], ["F0Mn", "flt ", "00007a44"], ["F0Mx", "flt ", "00409c45"],
  ["F1ID", "ch8*", "204c65ff66747f00"],
  ["F1Ac", "flt ", "0000e144"], ["F1Mn", "flt ", "00007a44"], ["F1Mx", "flt ", "00409c45"],
  ["FAAc", "flt ", "00401c45"], ["TC0P", "sp78", "2f80"], ["TWAT", "zzzz", "0102"], ["TNAN", "flt ", "0000c07f"],
  ["TBAD", "sp78", "", {"size": 2, "status": "E00002C2"}], ["VP0R", "sp4b", "6000"], ["PSTR", "flt ", "00002041"],
  ["IC0R", "sp87", "0080"], ["VNEG", "si8 ", "ff"], ["MSAL", "ui8 ", "01"], ["THID", "sp78", "3000", {"hidden": true}]]})";

// Records every failure the wrapper reports.
class Recorder : public SMCWrapperDelegate {
 public:
  void smcReadValueFailedWithError(const HWError& error) override { errors.push_back(error); }
  std::vector<HWError> errors;
};

class SMCWrapperTest : public ::testing::Test {
 protected:
  void install(const std::string& json) {
    testing::installMachine(testing::profileFromJson(json), dir_.path());
    wrapper_ = std::make_shared<SMCWrapper>();
    wrapper_->setDelegate(recorder_);
  }
  void SetUp() override { install(kMachine); }
  void TearDown() override {
    wrapper_.reset();
    SMCClose();
  }
  platform::SimSmcDriver& driver() { return dynamic_cast<platform::SimSmcDriver&>(platform::current().smc()); }

  // Installs as the helper tool a shell script that exits with `status`, writing its arguments
  // to a file.
  void installTool(int status) {
    const auto path = std::filesystem::path(*files::smcExePath());
    testing::writeFile(path, "#!/bin/sh\necho \"$@\" > \"" + (dir_.path() / "args").string() + "\"\nexit " +
                                 std::to_string(status) + "\n");
    ::chmod(path.c_str(), 0755);
  }

  testing::TempDir dir_;
  std::shared_ptr<Recorder> recorder_ = std::make_shared<Recorder>();
  std::shared_ptr<SMCWrapper> wrapper_;
};

TEST_F(SMCWrapperTest, FansAreCountedNamedAndRead) {
  EXPECT_EQ(wrapper_->numberOfFans(), 2u);
  EXPECT_EQ(wrapper_->descriptionOfFan(0), "Fan 1");  // only blanks
  EXPECT_EQ(wrapper_->descriptionOfFan(1), "Left");   // blanks, NULs, DEL and 0xFF dropped
  EXPECT_EQ(wrapper_->descriptionOfFan(2), "Fan 3");  // no key at all
  EXPECT_DOUBLE_EQ(wrapper_->safeMaximumSpeedOfFan(1), 5000.0);
  EXPECT_DOUBLE_EQ(wrapper_->speedOfFan(10), 2500.0);  // "FAAc"
  EXPECT_DOUBLE_EQ(wrapper_->speedOfFan(20), 0.0);     // beyond the addressable fans
  EXPECT_DOUBLE_EQ(*wrapper_->getSensorValueByKey("1", SensorType::kFan), 1800.0);
}

TEST_F(SMCWrapperTest, FailuresReachTheDelegateAsOneCodeOneErrors) {
  for (const auto& [key, message] : std::initializer_list<std::pair<const char*, const char*>>{
           {"TWAT", "[SMCWrapper] Convert (TWAT) failed: val:zzzz size-2"},
           {"TBAD", "[SMCWrapper] Read (TBAD) failed"},
           {"NONE", "[SMCWrapper] Read (NONE) failed"}}) {
    recorder_->errors.clear();
    EXPECT_EQ(wrapper_->rawValueByKey(key), std::nullopt);
    ASSERT_EQ(recorder_->errors.size(), 1u);
    EXPECT_EQ(recorder_->errors[0].domain, "com.HWKit");
    EXPECT_EQ(recorder_->errors[0].code, 1);
    EXPECT_EQ(recorder_->errors[0].message, message);
  }
  EXPECT_EQ(wrapper_->rawStringValueByKey("F5ID"), std::nullopt);
  EXPECT_EQ(recorder_->errors.back().message, "[SMCWrapper] Read (F5ID) failed");
  wrapper_->setDelegate(nullptr);  // without a delegate failures are silent
  EXPECT_EQ(wrapper_->rawValueByKey("TWAT"), std::nullopt);
  EXPECT_EQ(recorder_->errors.size(), 2u);
}

TEST_F(SMCWrapperTest, KeysAreEnumeratedOnceKeepingNaNDroppingMinusOneAndUnknownTypesAndAnUnreadableCountIsTriedAgain) {
  const std::vector<std::string> expected = {"TC0P", "TNAN", "VP0R", "PSTR", "IC0R"};
  EXPECT_EQ(wrapper_->getAllSensorKeys(), expected);
  EXPECT_TRUE(recorder_->errors.empty());
  EXPECT_EQ(wrapper_->rawValueByKey("VNEG"), std::nullopt);
  ASSERT_EQ(recorder_->errors.size(), 1u);
  EXPECT_EQ(recorder_->errors[0].message.rfind("[SMCWrapper] Convert (VNEG) failed", 0), 0u);
  driver().resetCounts();
  EXPECT_EQ(wrapper_->getAllSensorKeys(), expected);
  EXPECT_EQ(driver().counts().total(), 0u);

  install(R"({"name": "NoCount", "sysctl": {}, "smc": [
    ["#KEY", "ui32", "", {"size": 4, "status": "E00002C2"}], ["TC0P", "sp78", "2f80"]]})");
  EXPECT_TRUE(wrapper_->getAllSensorKeys().empty());
  driver().resetCounts();
  EXPECT_TRUE(wrapper_->getAllSensorKeys().empty());
  EXPECT_GE(driver().counts().read, 1u);  // enumerated again, not answered from a cache
  EXPECT_EQ(recorder_->errors.back().message, "[SMCWrapper] Read (#KEY) failed");
}

TEST_F(SMCWrapperTest, ExternalValueIsTrueExactlyOnExitStatusZero) {
  ASSERT_EQ(files::smcExePath()->rfind(dir_.path().string(), 0), 0u);  // the test's own folder
  EXPECT_FALSE(wrapper_->setExternalValue("00c0a944", "F0Tg")) << "no tool installed yet";
  for (const auto& [status, written] : {std::pair{0, true}, std::pair{3, false}}) {
    installTool(status);
    EXPECT_EQ(wrapper_->setExternalValue("00c0a944", "F0Tg"), written);
    EXPECT_EQ(testing::readFile(dir_.path() / "args"), "-k F0Tg -w 00c0a944\n");
  }
}

}  // namespace
}  // namespace corvane
