// The fan controller: puts the user's fan policy into effect. Mode 0 leaves the fans to the
// system, mode 1 runs them at the manual fan set's speeds, mode 2 (auto boost) switches them to
// a fan condition's fan set while a temperature is at or above its threshold and hands them
// back when no condition holds.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "corvane/fan/fan_hand_back.h"
#include "corvane/fan/sensor_writer.h"
#include "corvane/monitors/sensor_monitor.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/settings/data_manager.h"
#include "corvane/store/entities.h"

namespace corvane {

// Announced by whoever changed the fan policy; the controller applies it half a second later.
inline constexpr const char* kFanControllerShouldUpdateNotification = "HWFanControllerShouldUpdateNotification";
// Announced when auto boost puts a condition's fan set in force; user info "fanSetName",
// "sensorName", "sensorValue" ("--" for what is missing) and the sender's "appMode".
inline constexpr const char* kFanControllerAutoBoostActiveNotification = "HWFanControllerAutoBoostActiveNotification";
// The sensor key of a condition that watches every temperature sensor.
inline constexpr const char* kAnySensorKey = "any-sensor";

// The fan number of a fan sensor: its key read as a decimal integer (leading digits; 0 when none).
std::uint64_t fanNumberOfKey(const std::string& key);

// Held by std::shared_ptr. Runs on the main queue: start() is called there, the sensor monitor
// delivers its readings there and the announcement schedules there. Nothing is locked.
class HWFanController : public HWSensorMonitorDelegate, public std::enable_shared_from_this<HWFanController> {
 public:
  // The process's controller over HWDataManager::shared() and HWSensorMonitor::shared().
  static std::shared_ptr<HWFanController> shared();
  // A controller over `dataManager`'s stores, listening to `monitor` once set up (null: the
  // shared ones). Makes its fan speed writer and starts hearing the update announcement.
  static std::shared_ptr<HWFanController> create(std::shared_ptr<HWDataManager> dataManager = nullptr,
                                                 std::shared_ptr<HWSensorMonitor> monitor = nullptr);

  HWSensorWriter& sensorWriter() { return sensorWriter_; }
  // The fans driven, taken once by setup().
  const std::vector<std::shared_ptr<HWSensorEntity>>& fanSensors() const { return fanSensors_; }
  // The sensor that made the active condition hold, and that condition; null when none.
  const std::shared_ptr<HWSensorEntity>& overheatSensor() const { return overheatSensor_; }
  const std::shared_ptr<HWFanConditionEntity>& activeFanCondition() const { return activeFanCondition_; }

  // Where every forced fan is recorded until it is handed back (null: nowhere). The process
  // that runs the controller for good (the daemon) keeps one.
  void setHandBack(std::shared_ptr<HWFanHandBack> handBack) { handBack_ = std::move(handBack); }

  // Takes the fan list from the store, restarts the reading count and listens to the monitor.
  void setup();
  // Takes the fan list alone: for a process that applies the mode once, with no monitor.
  void takeFans();
  // For a process with no monitor: takes the fans and applies the current mode once. Auto boost
  // judges a reading made here and now (not the store's last values, which may be days old) and
  // hands the fans back when no condition holds, since an earlier mode may have left them forced.
  // Nothing without the helper tool's permission.
  void applyOnce();
  // Applies the current mode once; does nothing at all without the helper tool's permission.
  void start();
  // Whether the condition's power-state and external-display requirements hold now.
  bool isMatchAutoBoostCondition(const HWFanConditionEntity& condition) const;
  // Chooses the condition in force (see the rule in the source) and applies it.
  void handleAutoBoostFanController();
  // Applies the active condition's fan set once, or hands the fans back when none is active.
  void checkToFireAutoBoostFanController();
  // In auto boost, every 10 s of readings (10 / update interval, integer division) runs start().
  void sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>& sensors) override;
  // Schedules start() on the main queue half a second from now.
  void fanControllerShouldUpdateNotification();

 private:
  HWFanController(std::shared_ptr<HWDataManager> dataManager, std::shared_ptr<HWSensorMonitor> monitor);
  // Every fan at its minimum, back under the system's control.
  void handFansBack();
  // The fan set's speeds on the fans whose limits allow them; the others are left alone.
  void applyFanSet(const HWFanSetEntity& fanSet);
  // One write through the writer, read back once (a mismatch is logged) and recorded.
  void write(std::uint64_t speed, const HWSensorEntity& fan, bool autoMode);

  std::shared_ptr<HWDataManager> dataManager_;
  std::shared_ptr<HWSensorMonitor> monitor_;
  HWSensorWriter sensorWriter_;
  std::vector<std::shared_ptr<HWSensorEntity>> fanSensors_;
  std::shared_ptr<HWSensorEntity> overheatSensor_;
  std::shared_ptr<HWFanConditionEntity> activeFanCondition_;
  std::shared_ptr<HWFanHandBack> handBack_;
  std::unique_ptr<platform::GlobalNotifications::Token> updateToken_;
};

}  // namespace corvane
