// The daemon's alert loop: after each reading, fires the armed alert rules whose sensor has
// reached its threshold, as a desktop notification.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "corvane/monitors/sensor_monitor.h"
#include "corvane/platform/desktop_notifications.h"
#include "corvane/settings/data_manager.h"

namespace corvane::cli {

class SensorAlerts final : public HWSensorMonitorDelegate {
 public:
  // Watches `manager`'s rules and shows what fires on `desktop`; `program` begins its messages.
  SensorAlerts(std::shared_ptr<HWDataManager> manager, std::shared_ptr<platform::DesktopNotifications> desktop,
               std::string program);

  // The notifications sent (whether or not the desktop took them).
  long fired() const { return fired_; }

  void sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>& sensors) override;
  // Compares every armed rule with the stored sensors now, fires what is due, and saves the
  // firing times.
  void check();

 private:
  void fire(const HWNotification& rule, const HWSensorEntity& sensor);

  std::shared_ptr<HWDataManager> manager_;
  std::shared_ptr<platform::DesktopNotifications> desktop_;
  std::string program_;
  // Rules that do not repeat and have fired: they wait for their value to fall below.
  std::set<std::string> waitingToFall_;
  bool desktopUnreachable_ = false;
  long fired_ = 0;
};

}  // namespace corvane::cli
