#include "corvane/fan/fan_controller.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <unordered_map>

#include <fmt/format.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/power_monitor.h"
#include "corvane/sensors/sensor_reader.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/smc/smc.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/util/hw_utils.h"
#include "corvane/util/permission_helper.h"
#include "platform/log.h"

namespace corvane {
namespace {

// Readings since the last auto-boost evaluation, for every controller of the process: the
// monitor delivers one reading at a time on the main queue, so a plain integer does.
std::int32_t readingCounter = 0;

// A fan's limit as the writer takes it: whole rpm, truncated.
std::uint64_t wholeRpm(double speed) { return static_cast<std::uint64_t>(speed); }

// What `key` holds now, as the helper tool writes values: two lowercase digits per byte.
std::string readBack(const std::string& key) {
  SMCValue value{};
  if (SMCReadKey(key.c_str(), &value) != 0) return "(unreadable)";
  std::string hex;
  for (std::uint32_t i = 0; i < value.dataSize && i < sizeof value.bytes; ++i) hex += fmt::format("{:02x}", value.bytes[i]);
  return hex;
}

}  // namespace

std::uint64_t fanNumberOfKey(const std::string& key) {
  std::uint64_t number = 0;
  for (char c : key) {
    if (c < '0' || c > '9') break;
    number = number * 10 + static_cast<std::uint64_t>(c - '0');
  }
  return number;
}

std::shared_ptr<HWFanController> HWFanController::shared() {
  static std::mutex lock;
  static std::shared_ptr<HWFanController> instance;
  std::lock_guard guard(lock);
  if (!instance) instance = create();
  return instance;
}

std::shared_ptr<HWFanController> HWFanController::create(std::shared_ptr<HWDataManager> dataManager,
                                                         std::shared_ptr<HWSensorMonitor> monitor) {
  std::shared_ptr<HWFanController> controller(new HWFanController(
      dataManager ? std::move(dataManager) : HWDataManager::shared(), std::move(monitor)));
  std::weak_ptr<HWFanController> weak = controller;
  controller->updateToken_ = HWNotificationUtils::addObserver(
      kFanControllerShouldUpdateNotification, [weak](const std::string&, const nlohmann::json&) {
        if (auto self = weak.lock()) self->fanControllerShouldUpdateNotification();
      });
  return controller;
}

HWFanController::HWFanController(std::shared_ptr<HWDataManager> dataManager, std::shared_ptr<HWSensorMonitor> monitor)
    : dataManager_(std::move(dataManager)), monitor_(std::move(monitor)) {}

void HWFanController::takeFans() { fanSensors_ = dataManager_->sensorDataStore()->fanSensors(); }

void HWFanController::setup() {
  takeFans();
  readingCounter = 0;
  (monitor_ ? monitor_ : HWSensorMonitor::shared())->addDelegate(shared_from_this());
}

void HWFanController::applyOnce() {
  if (!HWPermissionHelper::isSMCPermissionGranted()) return;
  takeFans();
  const auto& store = dataManager_->sensorDataStore();
  if (store->fanControlMode() == 2) {
    // The stored sensors take the reading in memory only: the readings in the file stay the
    // monitor's. The switches are the monitor's too, so a hidden sensor keeps its last value.
    const auto reader = HWSensorReader::create();
    reader->setShowHIDSensors(store->showHIDSensors());
    reader->setShowComputedSensors(store->showComputedSensors());
    reader->setShowUnknownSensors(store->showUnknownSensors());
    reader->refreshValues();
    std::unordered_map<std::string, std::shared_ptr<HWSensorEntity>> stored;
    for (const auto& sensor : store->allSensors()) stored.emplace(sensor->key(), sensor);
    for (const auto& reading : reader->getAllSensors()) {
      const auto found = stored.find(reading->key());
      if (found != stored.end() && reader->shouldRefresh(*reading)) found->second->setValue(reading->value());
    }
    // Taken as boosted, so that the rule hands the fans back when nothing holds; a condition
    // that holds is new to this controller, which clears the flag and applies its fan set.
    store->setDidAutoBoost(true);
  }
  start();
}

void HWFanController::start() {
  if (!HWPermissionHelper::isSMCPermissionGranted()) return;
  const auto& store = dataManager_->sensorDataStore();
  switch (store->fanControlMode()) {
    case 0:
      handFansBack();
      break;
    case 1:
      if (const auto fanSet = store->manualFanSet()) applyFanSet(*fanSet);
      break;
    default:
      handleAutoBoostFanController();
      break;
  }
}

bool HWFanController::isMatchAutoBoostCondition(const HWFanConditionEntity& condition) const {
  // States are compared exactly: a condition for charging does not hold with a full battery on
  // the mains. An unknown state (a desktop) satisfies every condition.
  const std::uint64_t power = HWPowerMonitor::shared()->powerSourceState();
  const auto wanted = static_cast<std::uint64_t>(condition.batteryState());
  if (power != 0 && wanted != 0 && power != wanted) return false;
  return !condition.externalDisplayConnected() || HWUtils::isExternalDisplayConnected();
}

void HWFanController::handleAutoBoostFanController() {
  const auto& store = dataManager_->sensorDataStore();
  auto conditions = store->allFanConditions();
  // Highest threshold first; equal thresholds keep their creation order.
  std::stable_sort(conditions.begin(), conditions.end(),
                   [](const auto& a, const auto& b) { return b->threshold() < a->threshold(); });

  std::shared_ptr<HWFanConditionEntity> chosen;
  std::shared_ptr<HWSensorEntity> sensor;
  std::vector<std::shared_ptr<HWSensorEntity>> temperatures;
  bool temperaturesRead = false;
  for (const auto& condition : conditions) {
    if (!isMatchAutoBoostCondition(*condition)) continue;
    if (condition->sensorKey() != kAnySensorKey) {
      // A condition on one sensor that holds wins outright.
      const auto watched = condition->sensor();
      if (watched && std::round(watched->convertedValue()) >= condition->threshold()) {
        chosen = condition;
        sensor = watched;
        break;
      }
      continue;
    }
    // An any-sensor condition is only a provisional choice: a later condition that holds, of
    // either kind, takes its place. The asymmetry is deliberate: a user who names a sensor
    // means it more than one who watches them all.
    if (!temperaturesRead) {
      temperatures = store->tempSensors();
      temperaturesRead = true;
    }
    for (const auto& temperature : temperatures) {
      if (std::round(temperature->convertedValue()) >= condition->threshold()) {
        chosen = condition;
        sensor = temperature;
        break;
      }
    }
  }

  if (chosen && chosen != activeFanCondition_) store->setDidAutoBoost(false);
  activeFanCondition_ = chosen;
  overheatSensor_ = sensor;
  checkToFireAutoBoostFanController();
}

void HWFanController::checkToFireAutoBoostFanController() {
  const auto& store = dataManager_->sensorDataStore();
  if (!activeFanCondition_) {
    if (store->didAutoBoost()) {
      store->setDidAutoBoost(false);
      handFansBack();
    }
    return;
  }
  if (store->didAutoBoost()) return;  // the fan set is in force already
  store->setDidAutoBoost(true);
  const auto fanSet = activeFanCondition_->fanSet();
  if (fanSet) applyFanSet(*fanSet);
  nlohmann::json userInfo = {
      {"fanSetName", fanSet ? fanSet->name() : "--"},
      {"sensorName", overheatSensor_ ? overheatSensor_->name() : "--"},
      {"sensorValue", overheatSensor_ ? HWSensorFormatter::tidyStringValueFromSensor(*overheatSensor_) : "--"},
  };
  HWNotificationUtils::postGlobalNotification(kFanControllerAutoBoostActiveNotification, userInfo);
}

void HWFanController::sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>& /*sensors*/) {
  if (dataManager_->sensorDataStore()->fanControlMode() != 2) return;
  ++readingCounter;
  // Above 10 s the quotient is 0, which the count never equals: auto boost then waits for
  // start() from elsewhere.
  if (readingCounter == 10 / dataManager_->settingsDataStore()->updateInterval()) {
    readingCounter = 0;
    start();
  }
}

void HWFanController::fanControllerShouldUpdateNotification() {
  std::weak_ptr<HWFanController> weak = shared_from_this();
  dispatch::mainQueue()->asyncAfter(std::chrono::milliseconds(500), [weak] {
    if (auto self = weak.lock()) self->start();
  });
}

void HWFanController::handFansBack() {
  for (const auto& fan : fanSensors_) {
    if (fan->minValue() >= 0) write(wholeRpm(fan->minValue()), *fan, true);
  }
}

void HWFanController::applyFanSet(const HWFanSetEntity& fanSet) {
  const auto speeds = fanSet.valueDict();
  for (const auto& fan : fanSensors_) {
    double speed = 0;
    if (auto found = speeds.find(fan->key()); found != speeds.end() && found->is_number()) {
      speed = found->get<double>();
    }
    // A speed beyond the fan's limits is skipped silently: the fan keeps what it has.
    if (speed >= fan->minValue() && speed <= fan->maxValue()) write(wholeRpm(speed), *fan, false);
  }
}

void HWFanController::write(std::uint64_t speed, const HWSensorEntity& fan, bool autoMode) {
  const std::uint64_t number = fanNumberOfKey(fan.key());
  const std::uint64_t handBackSpeed = wholeRpm(std::max(0.0, fan.minValue()));
  // A fan is recorded before it is forced (a half-done write may have forced it all the same)
  // and forgotten only once it is back with the system.
  if (handBack_ && !autoMode) handBack_->noteWrite(number, handBackSpeed, false);
  if (!sensorWriter_.setSpeed(speed, number, autoMode)) return;  // not the controller's to report
  if (handBack_ && autoMode) handBack_->noteWrite(number, handBackSpeed, true);
  const bool t2 = HWSystemDevice::device()->modelInfo().isT2ChipSupport();
  for (const auto& written : fan_writes::writesFor(speed, number, autoMode, t2)) {
    const auto read = readBack(written.key);
    if (read != written.value) {
      platform::log(fmt::format("Fan {}: wrote {} to {}, read back {}", number, written.value, written.key, read));
    }
  }
}

}  // namespace corvane
