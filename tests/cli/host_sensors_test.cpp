// `corvane sensors --host` reading a hwmon tree of the test's own through the real sensors
// library: the tree is bind-mounted over the system's in a private mount namespace, so nothing
// outside the child program sees it.
#include <sys/vfs.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "corvane/sensors/host_sensors.h"
#include "support/test_support.h"

namespace corvane {
namespace {

constexpr long kSysfsMagic = 0x62656572;

// Runs corvane with `args` where /sys/class/hwmon is `tree`/hwmon (the whole class folder is
// replaced when the system has no hwmon folder to mount over).
testing::ProgramResult runOverTree(const std::filesystem::path& tree, std::vector<std::string> args) {
  std::vector<std::string> command = {
      "--mount", "--propagation", "private", "sh", "-c",
      R"(if [ -d /sys/class/hwmon ]; then mount --bind "$0/hwmon" /sys/class/hwmon; else mount --bind "$0" /sys/class; fi && exec "$@")",
      tree.string(), CORVANE_CLI_PATH};
  command.insert(command.end(), args.begin(), args.end());
  return testing::runProgram("unshare", command);
}

class HostSensorsCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    struct statfs sys {};
    if (::geteuid() != 0) GTEST_SKIP() << "a private mount namespace needs root (CI runs as root)";
    if (::statfs("/sys", &sys) != 0 || sys.f_type != kSysfsMagic) GTEST_SKIP() << "no sysfs at /sys";
    if (testing::runProgram("unshare", {"--mount", "--propagation", "private", "true"}).exitCode != 0) {
      GTEST_SKIP() << "unshare cannot make a private mount namespace here";
    }
    // Drivers the stock sensor configuration says nothing about, so only the test's own applies.
    const std::pair<const char*, const char*> files[] = {
        {"hwmon0/name", "coretemp"}, {"hwmon0/temp1_input", "45000"}, {"hwmon0/temp1_label", "Package id 0"},
        {"hwmon0/temp1_crit", "100000"}, {"hwmon0/temp2_input", "52500"},
        {"hwmon1/name", "nct6798"}, {"hwmon1/fan1_input", "1800"}, {"hwmon1/fan1_min", "300"},
        {"hwmon1/fan1_max", "3000"}, {"hwmon1/in0_input", "1200"}, {"hwmon1/curr1_input", "1500"},
        {"hwmon1/power1_average", "12500000"}, {"hwmon1/energy1_input", "7000000"},
        {"hwmon2/name", "acpitz"}, {"hwmon2/temp1_input", "30000"},
        {"hwmon3/name", "acpitz"}, {"hwmon3/temp1_input", "31000"}};
    for (const auto& [file, text] : files) testing::writeFile(tree_.path() / "hwmon" / file, std::string(text) + "\n");
  }
  testing::TempDir tree_;
};

TEST_F(HostSensorsCommand, ListsEveryInputInItsCategoryWithTheConfigurationApplied) {
  testing::writeFile(tree_.path() / "sensors.conf",
                     "chip \"nct6798-*\"\n  label fan1 \"CPU fan\"\n  compute in0 @*2, @/2\n  ignore curr1\n");
  struct Case {
    const char* label;
    std::vector<std::string> extra;
    // key -> name, value, type, group, min and max limits; every other key must be absent.
    std::map<std::string, std::tuple<std::string, double, int, int, double, double>> expected;
  };
  const Case cases[] = {
      {"the user's configuration",
       {},
       {{"coretemp-virtual-0/temp1", {"Package id 0", 45, 0, 1, 0, 100}},
        {"coretemp-virtual-0/temp2", {"temp2", 52.5, 0, 1, 0, 110}},
        {"nct6798-virtual-0/fan1", {"fan1", 1800, 1, 11, 300, 3000}},
        {"nct6798-virtual-0/in0", {"in0", 1.2, 2, 0, 0, 0}},
        {"nct6798-virtual-0/curr1", {"curr1", 1.5, 3, 0, 0, 0}},
        {"nct6798-virtual-0/power1", {"power1", 12.5, 4, 0, 0, 0}},
        {"acpitz-virtual-0@hwmon2/temp1", {"temp1", 30, 0, 4, 0, 110}},
        {"acpitz-virtual-0@hwmon3/temp1", {"temp1", 31, 0, 4, 0, 110}}}},
      {"a configuration file: label, scaling, ignored input",
       {"--config", (tree_.path() / "sensors.conf").string()},
       {{"coretemp-virtual-0/temp1", {"Package id 0", 45, 0, 1, 0, 100}},
        {"coretemp-virtual-0/temp2", {"temp2", 52.5, 0, 1, 0, 110}},
        {"nct6798-virtual-0/fan1", {"CPU fan", 1800, 1, 11, 300, 3000}},
        {"nct6798-virtual-0/in0", {"in0", 2.4, 2, 0, 0, 0}},
        {"nct6798-virtual-0/power1", {"power1", 12.5, 4, 0, 0, 0}},
        {"acpitz-virtual-0@hwmon2/temp1", {"temp1", 30, 0, 4, 0, 110}},
        {"acpitz-virtual-0@hwmon3/temp1", {"temp1", 31, 0, 4, 0, 110}}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    std::vector<std::string> args = {"sensors", "--host", "--json"};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    const auto result = runOverTree(tree_.path(), args);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto listing = nlohmann::json::parse(result.out, nullptr, false);
    ASSERT_TRUE(listing.is_object() && listing["sensors"].is_array()) << result.out;
    std::map<std::string, std::tuple<std::string, double, int, int, double, double>> seen;
    for (const auto& s : listing["sensors"]) {
      EXPECT_EQ(s["sourceType"], 3);
      seen[s["key"]] = {s["name"], s["value"], s["type"], s["group"], s["minLimitValue"], s["maxLimitValue"]};
    }
    EXPECT_EQ(seen, c.expected);
  }
}

TEST_F(HostSensorsCommand, SaysWhenThereIsNothingAndRefusesABrokenConfiguration) {
  testing::TempDir empty;
  std::filesystem::create_directories(empty.path() / "hwmon");
  testing::writeFile(tree_.path() / "broken.conf", "chip \"nct6798-*\"\n  lable fan1 \"CPU fan\"\n");
  const auto none = runOverTree(empty.path(), {"sensors", "--host"});
  EXPECT_EQ(none.exitCode, 0) << none.err;
  EXPECT_EQ(none.out, "Host sensors: none, this computer has no hwmon chips\n");
  const auto broken = runOverTree(tree_.path(), {"sensors", "--host", "--config", (tree_.path() / "broken.conf").string()});
  EXPECT_EQ(broken.exitCode, 2);
  EXPECT_NE(broken.err.find("broken.conf:2"), std::string::npos) << broken.err;
}

// The group comes from the driver's name, a numbered driver's too; fans are always in the fans' group.
TEST(HostSensorRecords, GroupByDriverAndKeepTheChipsLimits) {
  using platform::HostSensorKind;
  const std::vector<platform::HostSensorReading> readings = {
      {"iwlwifi_1-virtual-0", "temp1", "temp1", HostSensorKind::kTemperature, 40, std::nullopt, std::nullopt},
      {"amdgpu-pci-0300", "fan1", "fan1", HostSensorKind::kFan, 900, 0.0, 3300.0},
      {"BAT0-acpi-0", "in0", "in0", HostSensorKind::kVoltage, 12.6, 10.0, std::nullopt},
      {"corvane-isa-0000", "power1", "PSU", HostSensorKind::kPower, 80, std::nullopt, 450.0}};
  const auto records = hostSensorRecords(readings);
  ASSERT_EQ(records.size(), 4u);
  const std::tuple<SensorGroup, double, double> expected[] = {{SensorGroup::kAirflow, 0, 110},
                                                              {SensorGroup::kFans, 0, 3300},
                                                              {SensorGroup::kBattery, 10, 0},
                                                              {SensorGroup::kUnknown, 0, 450}};
  for (std::size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(std::tuple(records[i]->group(), records[i]->minLimitValue(), records[i]->maxLimitValue()), expected[i])
        << records[i]->key();
  }
}

}  // namespace
}  // namespace corvane
