// `corvane alerts list|add|set|remove`: the alert rules the daemon fires, edited through their
// store so that every process of the product shares and hears of each change.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/sensors/value_formatter.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/notification_data_store.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/util/dates.h"
#include "corvane/util/json_text.h"

namespace corvane::cli {
namespace {

struct AlertOptions {
  std::string id;
  std::optional<double> threshold;
  std::optional<int> repeat;
  std::string sensor;
  bool anySensor = false;
  bool enable = false;
  bool disable = false;
  bool json = false;
};

// Runs what waits on the main queue (the announcements just posted), so that they leave before
// the program ends.
void flushMainQueue() {
  dispatch::mainQueue()->async([] { dispatch::stopMainQueue(); });
  dispatch::runMainQueue();
}

// The rules need the machine's sensors (names, units, the main sensor of the default rule), so a
// store that has none yet is filled first. Null after saying why.
std::shared_ptr<HWDataManager> openManager(Context& context, bool changing) {
  if (!context.installPlatform()) return nullptr;
  // Edits are announced on the session bus, where a running daemon hears them.
  if (changing) useSessionBus();
  auto manager = HWDataManager::shared();
  settings::installHooks(manager->settingsDataStore());
  const auto& stack = manager->sensorDataStore()->coreDataStack();
  if (!stack->hasStore() || stack->isReadOnly() ||
      (manager->sensorDataStore()->allSensors().empty() && !manager->buildDataSetNow())) {
    std::fprintf(stderr, "corvane: the store %s cannot be opened\n", stack->storeURL().c_str());
    context.exitCode = kExitFailure;
    return nullptr;
  }
  return manager;
}

SensorType ruleType(const HWNotification& rule, const std::shared_ptr<HWSensorDataStore>& store) {
  const auto sensor = rule.sensor(store);
  return sensor ? sensor->categoryType() : SensorType::kTemperature;
}

std::string thresholdText(const HWNotification& rule, const std::shared_ptr<HWSensorDataStore>& store) {
  return fmt::format("{:g}{}", rule.threshold,
                     HWValueConverter::unitStringFromCategoryType(ruleType(rule, store), true).value_or(""));
}

bool neverFired(const HWNotification& rule) {
  return !rule.lastTimeFired || rule.lastTimeFired->time_since_epoch().count() == 0;
}

int listAlerts(Context& context, bool json) {
  auto manager = openManager(context, false);
  if (!manager) return context.exitCode;
  const auto& store = manager->sensorDataStore();
  const auto& rules = manager->notificationDataStore()->notifications();
  if (json) {
    nlohmann::ordered_json alerts = nlohmann::ordered_json::array();
    for (const auto& rule : rules) {
      nlohmann::ordered_json entry = rule->toDictionary();
      entry["repeatDelays"] = rule->repeatDelays();
      alerts.push_back(std::move(entry));
    }
    nlohmann::ordered_json out = {{"machine", machineJson()}, {"alerts", std::move(alerts)}};
    std::printf("%s\n", json_text::dump(out).c_str());
    return kExitOk;
  }
  printMachineLine();
  if (rules.empty()) std::printf("No alert rules (add one with corvane alerts add SENSOR)\n");
  for (const auto& rule : rules) {
    const std::string repeat =
        rule->repeatDelays() > 0 ? fmt::format("every {} s", rule->repeatDelays()) : std::string("once");
    const std::string fired = neverFired(*rule) ? "never" : dates::dateTimeFormat(*rule->lastTimeFired);
    std::printf("%-12s %-28s at %-8s %-12s %-8s last fired %s\n", rule->identifier.c_str(), rule->name.c_str(),
                thresholdText(*rule, store).c_str(), repeat.c_str(), rule->active ? "enabled" : "disabled",
                fired.c_str());
  }
  return kExitOk;
}

// The sensor named on the command line, or null after saying so.
std::shared_ptr<HWSensorEntity> findSensor(HWDataManager& manager, const std::string& key) {
  auto sensor = manager.sensorDataStore()->getSensorByKey(key);
  if (!sensor) std::fprintf(stderr, "corvane: no sensor %s on this machine (see corvane sensors)\n", key.c_str());
  return sensor;
}

bool validThreshold(const std::optional<double>& threshold) {
  if (!threshold || std::isfinite(*threshold)) return true;
  std::fprintf(stderr, "corvane: the threshold must be a finite number\n");
  return false;
}

int addAlert(Context& context, const AlertOptions& options) {
  if (!validThreshold(options.threshold)) return kExitBadInput;
  auto manager = openManager(context, true);
  if (!manager) return context.exitCode;
  const auto& alerts = manager->notificationDataStore();
  const bool any = options.id == kAnySensorNotificationIdentifier;
  std::shared_ptr<HWSensorEntity> sensor;
  if (!any && !(sensor = findSensor(*manager, options.id))) return kExitBadInput;
  if (alerts->getNotificationBySensorKey(options.id)) {
    std::fprintf(stderr, "corvane: %s has an alert rule already (change it with corvane alerts set %s)\n",
                 options.id.c_str(), options.id.c_str());
    return kExitFailure;
  }
  const double threshold = options.threshold.value_or(
      sensor ? HWNotificationDataStore::newRuleThreshold(*sensor)
             : HWValueConverter::convertedTemp(HWNotificationDataStore::kDefaultThresholdCelsius));
  auto rule = std::make_shared<HWNotification>(options.id, sensor ? sensor->name() : "Any temperature sensor", 0,
                                               HWNotification::repeatModeFromString(options.repeat.value_or(0)), true,
                                               std::nullopt, threshold);
  auto list = alerts->notifications();
  list.push_back(rule);
  alerts->setNotifications(std::move(list));
  flushMainQueue();
  std::printf("Added alert %s (%s) at %s\n", rule->identifier.c_str(), rule->name.c_str(),
              thresholdText(*rule, manager->sensorDataStore()).c_str());
  return kExitOk;
}

// The rule `id`, or null after saying so.
std::shared_ptr<HWNotification> findRule(HWDataManager& manager, const std::string& id) {
  auto rule = manager.notificationDataStore()->getNotificationBySensorKey(id);
  if (!rule) std::fprintf(stderr, "corvane: no alert rule %s (see corvane alerts list)\n", id.c_str());
  return rule;
}

int setAlert(Context& context, const AlertOptions& options) {
  if (!options.threshold && !options.repeat && options.sensor.empty() && !options.anySensor && !options.enable &&
      !options.disable) {
    std::fprintf(stderr, "corvane: nothing to change (see corvane alerts set --help)\n");
    return kExitBadInput;
  }
  if (!validThreshold(options.threshold)) return kExitBadInput;
  auto manager = openManager(context, true);
  if (!manager) return context.exitCode;
  const auto& alerts = manager->notificationDataStore();
  auto rule = findRule(*manager, options.id);
  if (!rule) return kExitBadInput;
  if (!options.sensor.empty() || options.anySensor) {
    std::shared_ptr<HWSensorEntity> sensor;
    if (!options.anySensor && !(sensor = findSensor(*manager, options.sensor))) return kExitBadInput;
    HWError error;
    if (!alerts->updateSensor(sensor, options.anySensor, rule, &error)) {
      std::fprintf(stderr, "corvane: %s\n", error.message.empty() ? "the rule could not be changed" : error.message.c_str());
      return kExitFailure;
    }
  }
  if (options.threshold) rule->threshold = *options.threshold;
  if (options.repeat) rule->repeatMode = HWNotification::repeatModeFromString(*options.repeat);
  if (options.enable || options.disable) rule->active = options.enable;
  alerts->updateNotification(rule);
  flushMainQueue();
  std::printf("Alert %s: at %s, %s, %s\n", rule->identifier.c_str(),
              thresholdText(*rule, manager->sensorDataStore()).c_str(),
              rule->repeatDelays() > 0 ? fmt::format("every {} s", rule->repeatDelays()).c_str() : "once",
              rule->active ? "enabled" : "disabled");
  return kExitOk;
}

int removeAlert(Context& context, const std::string& id) {
  auto manager = openManager(context, true);
  if (!manager) return context.exitCode;
  auto rule = findRule(*manager, id);
  if (!rule) return kExitBadInput;
  manager->notificationDataStore()->removeNotification(rule);
  flushMainQueue();
  std::printf("Removed alert %s\n", id.c_str());
  return kExitOk;
}

void addRuleOptions(CLI::App* command, AlertOptions& options) {
  command->add_option("--threshold", options.threshold, "The limit, in the unit the sensor is shown in (°C or °F for temperatures)")
      ->type_name("N");
  command
      ->add_option("--repeat", options.repeat,
                   "0 fire once until the value falls below; 1-5 repeat every 10, 30, 60, 120 or 300 s while above")
      ->check(CLI::Range(0, 5))
      ->type_name("0-5");
}

}  // namespace

void registerAlertsCommands(CLI::App& app, Context& context) {
  auto options = std::make_shared<AlertOptions>();
  CLI::App* group = app.add_subcommand("alerts", "Alert rules: a desktop notification when a sensor reaches a threshold");
  group->require_subcommand(1);
  group->footer(
      "The daemon (corvane daemon) fires the enabled rules. Exit status: 0 done; 1 the change was refused (a "
      "sensor with a rule already) or the store cannot be opened; 2 for a wrong invocation or an unknown sensor or "
      "rule.");

  auto* list = group->add_subcommand("list", "Every rule: sensor, threshold, repetition, switch and last firing");
  list->add_flag("--json", options->json, "Print a JSON object with \"machine\" and \"alerts\" (the stored form)");
  list->callback([&context, options] { context.exitCode = listAlerts(context, options->json); });

  auto* add = group->add_subcommand("add", "A rule on one sensor, or on every temperature sensor with any-sensor");
  add->add_option("SENSOR", options->id, "The sensor's key (see corvane sensors), or any-sensor")->required();
  addRuleOptions(add, *options);
  add->callback([&context, options] { context.exitCode = addAlert(context, *options); });

  auto* set = group->add_subcommand("set", "Change a rule");
  set->add_option("ID", options->id, "The rule's identifier (its sensor's key, or any-sensor)")->required();
  addRuleOptions(set, *options);
  auto* sensor = set->add_option("--sensor", options->sensor, "Watch this sensor instead")->type_name("KEY");
  auto* any = set->add_flag("--any-sensor", options->anySensor, "Watch every temperature sensor instead");
  sensor->excludes(any);
  auto* enable = set->add_flag("--enable", options->enable, "Arm the rule");
  auto* disable = set->add_flag("--disable", options->disable, "Disarm the rule");
  enable->excludes(disable);
  set->callback([&context, options] { context.exitCode = setAlert(context, *options); });

  auto* remove = group->add_subcommand("remove", "Delete a rule");
  remove->add_option("ID", options->id, "The rule's identifier")->required();
  remove->callback([&context, options] { context.exitCode = removeAlert(context, options->id); });
}

}  // namespace corvane::cli
