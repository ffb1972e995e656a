#include "daemon_alerts.h"

#include <chrono>
#include <cstdio>
#include <optional>
#include <utility>

#include "corvane/dispatch/dispatch.h"
#include "corvane/sensors/value_formatter.h"

namespace corvane::cli {

namespace {

dates::Date dateFromSeconds(double seconds) {
  return dates::Date(std::chrono::duration_cast<dates::Date::duration>(std::chrono::duration<double>(seconds)));
}

double secondsSince1970(const std::optional<dates::Date>& date) {
  return date ? std::chrono::duration<double>(date->time_since_epoch()).count() : 0.0;
}

}  // namespace

SensorAlerts::SensorAlerts(std::shared_ptr<HWDataManager> manager,
                           std::shared_ptr<platform::DesktopNotifications> desktop, std::string program)
    : manager_(std::move(manager)), desktop_(std::move(desktop)), program_(std::move(program)) {}

void SensorAlerts::sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>& /*sensors*/) { check(); }

void SensorAlerts::check() {
  const auto& alerts = manager_->notificationDataStore();
  const auto& store = manager_->sensorDataStore();
  const double now = dispatch::now();
  // Firing saves the list, which may replace the store's; walk a copy of the shared rules.
  const HWNotificationList rules = alerts->notifications();
  std::optional<std::vector<std::shared_ptr<HWSensorEntity>>> temperatures;
  bool firedAny = false;
  for (const auto& rule : rules) {
    // CPU rules belong to a CPU monitor, which the daemon does not run.
    if (!rule->active || rule->sourceType != 0) {
      waitingToFall_.erase(rule->identifier);
      continue;
    }
    std::shared_ptr<HWSensorEntity> reached;
    if (rule->identifier == kAnySensorNotificationIdentifier) {
      // "Any sensor" means any temperature the user sees: a threshold has one unit, and the
      // temperatures are what overheats; hidden sensors stay quiet as they do everywhere else.
      // The hottest one is named.
      if (!temperatures) temperatures = store->tempSensors();
      for (const auto& sensor : *temperatures) {
        if (sensor->convertedValue() >= rule->threshold &&
            (!reached || sensor->convertedValue() > reached->convertedValue())) {
          reached = sensor;
        }
      }
    } else if (auto sensor = rule->sensor(store); sensor && sensor->convertedValue() >= rule->threshold) {
      reached = std::move(sensor);
    }
    if (!reached) {
      waitingToFall_.erase(rule->identifier);
      continue;
    }
    if (rule->repeatDelays() == 0) {
      if (!waitingToFall_.insert(rule->identifier).second) continue;
    } else if (now - secondsSince1970(rule->lastTimeFired) < static_cast<double>(rule->repeatDelays())) {
      continue;
    }
    fire(*rule, *reached);
    rule->lastTimeFired = dateFromSeconds(now);
    firedAny = true;
  }
  // One save for the whole reading: the firing times are shared with the other processes.
  if (firedAny) alerts->setNotifications(rules);
}

void SensorAlerts::fire(const HWNotification& rule, const HWSensorEntity& sensor) {
  ++fired_;
  const auto type = sensor.categoryType();
  const std::string summary = sensor.name() + " is at " + HWSensorFormatter::tidyStringValueFromSensor(sensor);
  const std::string body = "Alert threshold: " + HWValueConverter::fullStringFromValue(rule.threshold, type, true);
  std::string error;
  if (desktop_->notify(summary, body, &error)) {
    desktopUnreachable_ = false;
    return;
  }
  // Said once until the desktop takes one again: a daemon runs for weeks without anyone reading
  // its log, and a line per firing would bury everything else.
  if (desktopUnreachable_) return;
  desktopUnreachable_ = true;
  std::fprintf(stderr, "%s: cannot show alerts on the desktop (%s); the daemon goes on\n", program_.c_str(),
               error.c_str());
  std::fflush(stderr);
}

}  // namespace corvane::cli
