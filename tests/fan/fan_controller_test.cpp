// The fan controller end to end on the virtual clock: a simulated machine whose temperatures
// follow a scripted load, the sensor monitor writing a real store, and the helper tool's writes
// made in this process on the simulated SMC, so every target is read back from the machine.
#include "corvane/fan/fan_controller.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <utility>
#include <string>
#include <vector>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/displays.h"
#include "corvane/platform/processes.h"
#include "corvane/platform/sim_dynamics.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/smc/fan_keys.h"
#include "corvane/smc/smc.h"
#include "corvane/smc/smc_value.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/util/install_paths.h"
#include "corvane/util/permission_helper.h"
#include "../../tools/corvane-smc/helper_args.h"
#include "platform/displays_backends.h"
#include "platform/power_sources_backends.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Runs the helper tool's write in this process: the same argument check, then the simulated
// SMC. Keeps "KEY=HEX" of every write it made.
class InProcessHelper final : public platform::Processes {
 public:
  std::optional<platform::ProcessResult> run(const std::string&, const std::vector<std::string>& arguments,
                                             std::string*) override {
    helper::WriteRequest request;
    std::string error;
    SMCValue value{};
    if (!helper::parseArguments({arguments.begin(), arguments.end()}, request, error) ||
        !smc::isFanControlKey(request.key)) {
      return platform::ProcessResult{1, 0, {}, {}};
    }
    std::memcpy(value.key, request.key.c_str(), 4);
    value.dataSize = request.size;
    std::memcpy(value.bytes, request.bytes.data(), request.size);
    if (SMCWriteKey(value) != 0) return platform::ProcessResult{1, 0, {}, {}};
    writes.push_back(request.key + "=" + arguments[3]);
    return platform::ProcessResult{0, 0, {}, {}};
  }
  std::vector<std::string> writes;
};

class FanControllerTest : public ::testing::Test {
 protected:
  // A fresh folder for each machine opened.
  void open(const char* machine, std::uint64_t frequency = 0) {
    const auto root = dir.path() / std::to_string(++opened);
    testing::installMachine(testing::builtinMachine(machine), root);
    HWSystemDevice::reset();
    platform::current().provide<platform::Processes>(helper);
    testing::writeFile(*files::smcExePath(), "");
    HWPermissionHelper::setAttributesReader([this](const std::filesystem::path&) {
      return std::optional<platform::FileAttributes>(
          platform::FileAttributes{"root", "admin", granted ? HWPermissionHelper::kRequiredPermissions : 0755u});
    });
    platform::SimDynamicsOptions options;
    options.clock = [] { return dispatch::now(); };
    options.load = [this] { return load; };
    options.codec = smc::simValueCodec();
    ASSERT_TRUE(platform::enableSimDynamics(platform::current(), std::move(options)));
    HWDataManager::setAppMode(1);
    manager = HWDataManager::create(root / "group" / "Database.sqlite");
    settings::installUnitPreferencesHook(manager->prefData());
    manager->settingsDataStore()->setUpdateFrequency(frequency);
    ASSERT_TRUE(manager->buildDataSetNow());
    store = manager->sensorDataStore();
    monitor = HWSensorMonitor::create(manager);
    controller = HWFanController::create(manager, monitor);
    monitor->setup();
    controller->setup();
    announcements = HWNotificationUtils::addObserver(
        kFanControllerAutoBoostActiveNotification,
        [this](const std::string&, const nlohmann::json& info) { announced.push_back(info); });
    clock->runUntilIdle();
  }
  void TearDown() override {
    announcements.reset();
    HWPermissionHelper::setAttributesReader(nullptr);
    settings::uninstallHooks();
    HWDataManager::setAppMode(0);
    SMCClose();
  }
  std::shared_ptr<HWFanSetEntity> fanSet(const std::string& name, const nlohmann::json& speeds) {
    clock->advance(seconds(1));  // identifiers are creation seconds
    auto set = store->createFanSetWithName(name, speeds);
    EXPECT_TRUE(store->save());
    return set;
  }
  std::shared_ptr<HWFanConditionEntity> condition(const std::shared_ptr<HWFanSetEntity>& set, const std::string& key,
                                                  double threshold, std::uint64_t battery = 0, bool display = false) {
    auto sensor = store->getSensorByKey(key == kAnySensorKey ? "TC0P" : key);
    auto made = store->createFanConditionWithFanSet(set, sensor, threshold, battery, display);
    made->setSensorKey(key);
    clock->advance(seconds(1));  // creation times apart
    EXPECT_TRUE(store->save());
    return made;
  }
  std::vector<std::string> takeWrites() { return std::exchange(helper->writes, {}); }

  testing::TempDir dir;
  int opened = 0;
  std::shared_ptr<dispatch::VirtualTime> clock = dispatch::installVirtualTime(1'700'000'000);
  std::shared_ptr<InProcessHelper> helper = std::make_shared<InProcessHelper>();
  bool granted = true;
  double load = 0;
  std::shared_ptr<HWDataManager> manager;
  std::shared_ptr<HWSensorDataStore> store;
  std::shared_ptr<HWSensorMonitor> monitor;
  std::shared_ptr<HWFanController> controller;
  std::unique_ptr<platform::GlobalNotifications::Token> announcements;
  std::vector<nlohmann::json> announced;
};

// Idle, boost, the same condition again, cool down. The condition watches the CPU proximity
// sensor 15 degrees above its idle reading.
TEST_F(FanControllerTest, BoostsWhileHotAndHandsBackWhenCool) {
  open("MacBookPro16,1");
  store->setFanControlMode(2);
  const double idle = store->getSensorByKey("TC0P")->value();
  condition(fanSet("Boost", {{"0", 3000}, {"1", 2800}}), "TC0P", std::round(idle) + 15);
  monitor->start();
  controller->start();
  clock->advance(seconds(60));
  EXPECT_EQ(takeWrites(), std::vector<std::string>{}) << "idle";

  load = 1;
  clock->advance(seconds(60));
  EXPECT_EQ(takeWrites(), (std::vector<std::string>{"F0Md=01", "F0Tg=00803b45", "F1Md=01", "F1Tg=00002f45"}));
  ASSERT_EQ(announced.size(), 1u);
  EXPECT_EQ(announced[0]["fanSetName"], "Boost");
  EXPECT_EQ(announced[0]["sensorName"], controller->overheatSensor()->name());

  clock->advance(seconds(60));
  EXPECT_EQ(takeWrites(), std::vector<std::string>{}) << "the same condition again";
  load = 0;
  clock->advance(seconds(180));
  EXPECT_EQ(takeWrites(), (std::vector<std::string>{"F0Md=00", "F0Tg=0080e544", "F1Md=00", "F1Tg=0080d444"}))
      << "cooled down";
  EXPECT_EQ(announced.size(), 1u);
}

// Leaving auto boost while boosted does not clear the flag, so coming back to it while the same
// condition holds writes nothing; a new controller (a restart) applies the fan set again.
TEST_F(FanControllerTest, ModeChangesWhileBoosted) {
  open("MacBookPro14,1");
  const auto set = fanSet("Boost", {{"0", 3000}});
  condition(set, "TC0P", 40);
  store->setManualFanSetId(fanSet("Quiet", {{"0", 2000}})->identifier());
  // The mode, then the writes start() makes.
  const std::vector<std::pair<std::uint64_t, std::vector<std::string>>> steps = {
      {2, {"F0Mn=2ee0"}}, {0, {"F0Mn=12c0"}}, {1, {"F0Mn=1f40"}}, {2, {}}};
  for (const auto& [mode, writes] : steps) {
    store->setFanControlMode(mode);
    controller->start();
    EXPECT_EQ(takeWrites(), writes) << "mode " << mode;
  }
  EXPECT_TRUE(store->didAutoBoost());
  auto restarted = HWFanController::create(manager, monitor);
  restarted->setup();
  restarted->start();
  EXPECT_EQ(takeWrites(), std::vector<std::string>{"F0Mn=2ee0"});
}

// Which condition is chosen, from sensor values set in the store (the unit, the power state and
// the displays as given).
TEST_F(FanControllerTest, ChoiceRule) {
  struct Cond {
    const char* key;
    double threshold;
    std::uint64_t battery = 0;
    bool display = false;
  };
  struct Case {
    const char* what;
    double tc0p, tg0p;        // degrees Celsius
    std::vector<Cond> conditions;
    int chosen;               // index into conditions, -1 for none
    bool celsius = true;
    std::uint64_t power = 3;  // 0 none listed, 1 charging, 2 battery, 3 full on the mains
    bool external = false;
  };
  const std::vector<Case> cases = {
      {"highest threshold first", 85, 30, {{"TC0P", 70}, {"TC0P", 80}}, 1},
      {"a named sensor beats any-sensor", 85, 30, {{kAnySensorKey, 80}, {"TC0P", 60}}, 1},
      {"the last any-sensor that held", 85, 30, {{kAnySensorKey, 80}, {kAnySensorKey, 50}, {"TG0P", 60}}, 1},
      {"69.5 rounds to 70", 69.5, 30, {{"TC0P", 70}}, 0},
      {"69.49 does not", 69.49, 30, {{"TC0P", 70}}, -1},
      {"Fahrenheit: 30 C is 86 F", 30, 20, {{"TC0P", 87}, {"TC0P", 86}}, 1, false},
      {"charging wanted, battery full", 85, 30, {{"TC0P", 60, 1}, {"TC0P", 50, 3}}, 1},
      {"battery wanted on battery", 85, 30, {{"TC0P", 60, 2}}, 0, true, 2},
      {"any state on battery", 85, 30, {{"TC0P", 60, 0}}, 0, true, 2},
      {"no power source: every state", 85, 30, {{"TC0P", 60, 2}}, 0, true, 0},
      {"display wanted, none", 85, 30, {{"TC0P", 60, 0, true}}, -1},
      {"display wanted, one", 85, 30, {{"TC0P", 60, 0, true}}, 0, true, 3, true},
  };
  open("MacBookPro16,1");
  store->setFanControlMode(2);
  const auto set = fanSet("Boost", {{"0", 3000}});
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    for (const auto& old : store->allFanConditions()) store->deleteObject(old);
    std::vector<std::shared_ptr<HWFanConditionEntity>> made;
    for (const auto& cond : c.conditions) made.push_back(condition(set, cond.key, cond.threshold, cond.battery, cond.display));
    store->getSensorByKey("TC0P")->setValue(c.tc0p);
    store->getSensorByKey("TG0P")->setValue(c.tg0p);
    store->setTempUnitCelsius(c.celsius);
    std::vector<platform::PowerSourceDescription> sources;
    if (c.power != 0) sources.push_back({c.power == 2 ? "Battery Power" : "AC Power", c.power == 1});
    platform::current().provide<platform::PowerSources>(platform::sim::fixedPowerSources(sources));
    std::vector<platform::Display> displays = {{1, true, "Built-in"}};
    if (c.external) displays.push_back({2, false, "Studio"});
    platform::current().provide<platform::Displays>(platform::sim::fixedDisplays(displays));
    controller->handleAutoBoostFanController();
    EXPECT_EQ(controller->activeFanCondition(), c.chosen < 0 ? nullptr : made[static_cast<std::size_t>(c.chosen)]);
  }
}

// Applied once with no monitor running: auto boost reads the machine afresh (the store's last
// value does not count) and hands the fans back when nothing holds, whatever was forced before.
TEST_F(FanControllerTest, AppliedOnceJudgesAFreshReading) {
  struct Case { const char* what; double load, stored; std::vector<std::string> writes; };  // stored: stale TC0P
  open("MacBookPro14,1");
  monitor.reset();  // no reading but the one applyOnce makes
  controller.reset();
  store->setFanControlMode(2);
  condition(fanSet("Boost", {{"0", 3000}}), "TC0P", std::round(store->getSensorByKey("TC0P")->value()) + 15);
  for (const auto& c : {Case{"idle machine, hot store", 0, 99, {"F0Mn=12c0"}},
                        Case{"hot machine, cold store", 1, 20, {"F0Mn=2ee0"}}}) {
    load = c.load;
    clock->advance(seconds(300));
    store->getSensorByKey("TC0P")->setValue(c.stored);
    HWFanController::create(manager)->applyOnce();
    EXPECT_EQ(takeWrites(), c.writes) << c.what;
  }
}

// Manual speeds within the fans' limits only; no manual fan set, or no permission, writes nothing.
TEST_F(FanControllerTest, ManualSpeedsWithinLimitsAndThePermissionGate) {
  open("MacBookPro16,1");
  store->getSensorByKey("0")->setMaxValue(6000);
  store->setFanControlMode(1);
  controller->start();
  EXPECT_EQ(takeWrites(), std::vector<std::string>{}) << "no manual fan set";
  store->setManualFanSetId(fanSet("Loud", {{"0", 6500}, {"1", 2000}})->identifier());
  controller->start();
  EXPECT_EQ(takeWrites(), (std::vector<std::string>{"F1Md=01", "F1Tg=0000fa44"})) << "6500 rpm is above fan 0's 6000";
  granted = false;
  for (std::uint64_t mode : {0, 1, 2}) {
    store->setFanControlMode(mode);
    controller->start();
  }
  EXPECT_EQ(takeWrites(), std::vector<std::string>{}) << "without the helper's permission";
}

// Auto boost is evaluated every 10 s of readings; an announcement starts the controller half a
// second later.
TEST_F(FanControllerTest, ReevaluatesEveryTenSecondsAndHalfASecondAfterTheAnnouncement) {
  // At update frequency 1 (5 s) the second reading evaluates.
  open("MacBookPro14,1", 1);
  store->setFanControlMode(2);
  condition(fanSet("Boost", {{"0", 3000}}), "TC0P", 40);
  controller->setup();  // the count starts over
  int evaluated = 0;
  for (int reading = 1; reading <= 10 && evaluated == 0; ++reading) {
    controller->sensorMonitorDidReadSensors({});
    if (!takeWrites().empty()) evaluated = reading;
  }
  EXPECT_EQ(evaluated, 2);
  store->setFanControlMode(0);  // the announced start hands the fan back
  HWNotificationUtils::postGlobalNotification(kFanControllerShouldUpdateNotification);
  clock->advance(milliseconds(499));
  EXPECT_EQ(takeWrites(), std::vector<std::string>{});
  clock->advance(milliseconds(1));
  EXPECT_EQ(takeWrites(), std::vector<std::string>{"F0Mn=12c0"});
}

}  // namespace
}  // namespace corvane
