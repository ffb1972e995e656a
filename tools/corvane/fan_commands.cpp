// `corvane fans`, `fans mode`, `fansets ...` and `conditions ...`: the fan policy from the
// command line. Every change goes to the store and the settings and is announced, so that a
// running daemon applies it half a second later; with no daemon, `fans mode` and `fansets use`
// apply the mode once themselves, auto boost over a reading made then.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/fan/fan_controller.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/settings/pref_data.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/smc/smc_wrapper.h"
#include "corvane/util/json_text.h"
#include "corvane/util/permission_helper.h"

namespace corvane::cli {
namespace {

constexpr const char* kModeNames[] = {"system", "manual", "auto"};

std::string modeName(std::uint64_t mode) { return mode < 3 ? kModeNames[mode] : fmt::format("unknown ({})", mode); }

// Runs what waits on the main queue (the announcements just posted), so that they leave before
// the program ends.
void flushMainQueue() {
  dispatch::mainQueue()->async([] { dispatch::stopMainQueue(); });
  dispatch::runMainQueue();
}

// The store and settings every fan command works on, opened after the platform is installed.
// The machine's sensors are put in a store that has none yet, so that fan keys can be checked.
struct FanSession {
  std::shared_ptr<HWDataManager> manager;
  std::shared_ptr<HWSensorDataStore> store;
  std::string error;  // why the store cannot be used; empty when it can

  static FanSession open(bool writing) {
    FanSession session;
    session.manager = HWDataManager::shared();
    settings::installHooks(session.manager->settingsDataStore());
    session.store = session.manager->sensorDataStore();
    const auto& stack = session.store->coreDataStack();
    std::error_code ec;
    if (!writing && !std::filesystem::exists(stack->storeURL(), ec)) {
      // Reading never creates a store.
      session.error = "there is no store at " + stack->storeURL().string() + " yet (the daemon makes one)";
    } else if (!stack->hasStore() || (writing && stack->isReadOnly())) {
      session.error = "the store " + stack->storeURL().string() + " cannot be " + (writing ? "written" : "opened");
    } else if (writing && session.store->fanSensors().empty() && !session.manager->buildDataSetNow()) {
      session.error = "the store " + stack->storeURL().string() + " could not be filled with this machine's sensors";
    }
    return session;
  }
};

// The permission check every fan command makes first: false, after saying why and how to fix
// it, when the helper tool cannot change a fan.
bool permitted() {
  if (HWPermissionHelper::isSMCPermissionGranted()) return true;
  std::fprintf(stderr, "corvane: %s\n", HWPermissionHelper::smcPermissionMessage().c_str());
  return false;
}

// What every fan command does first: the platform and a store. A command that changes the fan
// policy also needs the helper's permission and the session bus (so that the daemon and every
// other process hear of the change); a listing needs neither and never creates a store. Empty
// after saying why, with the status to end with in `status`.
std::optional<FanSession> openSession(Context& context, int& status, bool changing) {
  if (!context.installPlatform()) {
    status = context.exitCode;
    return std::nullopt;
  }
  status = kExitFailure;
  if (changing) {
    if (!permitted()) return std::nullopt;
    useSessionBus();
  }
  auto session = FanSession::open(changing);
  if (!session.error.empty()) {
    std::fprintf(stderr, "corvane: %s\n", session.error.c_str());
    return std::nullopt;
  }
  return session;
}

// Tells a running daemon to apply the policy again; with none, applies the fan control mode
// once here and says what only the daemon does. Returns the line to print.
std::string applyPolicy(const FanSession& session) {
  HWNotificationUtils::postGlobalNotification(kFanControllerShouldUpdateNotification);
  flushMainQueue();
  if (daemonIsRunning()) return "the daemon applies it";
  auto controller = HWFanController::create(session.manager);
  controller->applyOnce();
  flushMainQueue();  // a boost's announcement
  if (session.store->fanControlMode() != 2) return "applied once; auto boost needs the daemon (corvane daemon)";
  const auto& condition = controller->activeFanCondition();
  const auto fanSet = condition ? condition->fanSet() : nullptr;
  const auto& sensor = controller->overheatSensor();
  const std::string applied =
      !condition ? "no condition holds, the fans are with the system"
                 : fmt::format("{} reads {}: fan set {} applied once", sensor ? sensor->name() : "a sensor",
                               sensor ? HWSensorFormatter::tidyStringValueFromSensor(*sensor) : "--",
                               fanSet ? fanSet->name() : "--");
  return applied + "; auto boost needs the daemon (corvane daemon) to keep following the sensors";
}

std::optional<std::uint64_t> parseMode(const std::string& text) {
  for (std::uint64_t mode = 0; mode < 3; ++mode) {
    if (text == kModeNames[mode]) return mode;
  }
  return std::nullopt;
}

// ---- fans ----

int listFans(Context& context, bool json) {
  if (!context.installPlatform()) return context.exitCode;
  SMCWrapper smc;
  // The mode is a setting: no store is needed (nor made) to show it.
  const auto stored = HWPrefData().objectForKey("HWFanControllerModeKey");
  const std::uint64_t mode = stored && stored->is_number_unsigned() ? stored->get<std::uint64_t>() : 0;
  nlohmann::ordered_json fans = nlohmann::json::array();
  for (std::uint64_t fan = 0, count = smc.numberOfFans(); fan < count && fan <= fan_writes::kMaxFanIndex; ++fan) {
    nlohmann::ordered_json entry = {{"number", fan},
                                    {"name", smc.descriptionOfFan(fan)},
                                    {"speed", smc.speedOfFan(fan)},
                                    {"minValue", smc.safeMinimumSpeedOfFan(fan)},
                                    {"maxValue", smc.safeMaximumSpeedOfFan(fan)}};
    // Machines with a mode key say whether the fan is forced; the others do not tell.
    const auto forced = smc.rawValueByKey(fmt::format("F{}Md", *fan_writes::fanCharacter(fan)));
    entry["mode"] = forced ? nlohmann::json(*forced != 0 ? "forced" : "system") : nlohmann::json();
    fans.push_back(std::move(entry));
  }
  if (json) {
    nlohmann::ordered_json out = {{"machine", machineJson()}, {"fanControlMode", modeName(mode)}, {"fans", fans}};
    std::printf("%s\n", json_text::dump(out, 2).c_str());
  } else {
    printMachineLine();
    std::printf("Fan control mode: %s\n", modeName(mode).c_str());
    for (const auto& fan : fans) {
      const std::string state = fan["mode"].is_null() ? "" : "  " + fan["mode"].get<std::string>();
      std::printf("%2llu  %-16s %6.0f rpm  (%.0f - %.0f)%s\n",
                  static_cast<unsigned long long>(fan["number"].get<std::uint64_t>()),
                  fan["name"].get<std::string>().c_str(), fan["speed"].get<double>(), fan["minValue"].get<double>(),
                  fan["maxValue"].get<double>(), state.c_str());
    }
  }
  if (!HWPermissionHelper::isSMCPermissionGranted()) {
    std::fprintf(stderr, "corvane: %s\n", HWPermissionHelper::smcPermissionMessage().c_str());
  }
  return kExitOk;
}

int setMode(Context& context, const std::string& text) {
  const auto mode = parseMode(text);
  if (!mode) {
    std::fprintf(stderr, "corvane: '%s' is not a fan control mode (system, manual or auto)\n", text.c_str());
    return kExitBadInput;
  }
  int status = kExitFailure;
  const auto session = openSession(context, status, true);
  if (!session) return status;
  session->store->setFanControlMode(*mode);
  std::printf("Fan control mode: %s; %s\n", text.c_str(), applyPolicy(*session).c_str());
  return kExitOk;
}

// ---- fan sets ----

// "FAN=RPM" pairs keyed by fan key; nothing (after a message) when one is malformed or names no
// fan of this machine.
std::optional<nlohmann::json> parseSpeeds(const std::vector<std::string>& pairs,
                                          const std::vector<std::shared_ptr<HWSensorEntity>>& fans) {
  nlohmann::json speeds = nlohmann::json::object();
  for (const auto& pair : pairs) {
    const auto equals = pair.find('=');
    const std::string fan = pair.substr(0, equals);
    bool known = false;
    for (const auto& sensor : fans) known = known || sensor->key() == fan;
    double rpm = -1;
    if (equals != std::string::npos) {
      try {
        std::size_t used = 0;
        rpm = std::stod(pair.substr(equals + 1), &used);
        if (used != pair.size() - equals - 1) rpm = -1;
      } catch (const std::exception&) {
        rpm = -1;
      }
    }
    if (!known || !std::isfinite(rpm) || rpm < 0) {
      std::fprintf(stderr, "corvane: '%s' is not FAN=RPM with a fan number of this machine and a speed\n", pair.c_str());
      return std::nullopt;
    }
    speeds[fan] = rpm;
  }
  return speeds;
}

int listFanSets(Context& context) {
  int status = kExitFailure;
  const auto session = openSession(context, status, false);
  if (!session) return status;
  for (const auto& set : session->store->allFanSets()) {
    std::string speeds;
    // Held here: a range-for over items() of the returned value would outlive it.
    const auto dict = set->valueDict();
    for (const auto& [fan, rpm] : dict.items()) {
      speeds += fmt::format(" {}={:.0f}", fan, rpm.is_number() ? rpm.get<double>() : 0.0);
    }
    std::printf("%-12s %-16s%s%s\n", set->identifier().c_str(), set->name().c_str(), speeds.c_str(),
                set->isManualFanSet() ? "  (manual)" : "");
  }
  if (!HWPermissionHelper::isSMCPermissionGranted()) {
    std::fprintf(stderr, "corvane: %s\n", HWPermissionHelper::smcPermissionMessage().c_str());
  }
  return kExitOk;
}

int createFanSet(Context& context, const std::string& name, const std::vector<std::string>& pairs) {
  if (name.empty()) {
    std::fprintf(stderr, "corvane: a fan set needs a name\n");
    return kExitBadInput;
  }
  int status = kExitFailure;
  const auto session = openSession(context, status, true);
  if (!session) return status;
  const auto speeds = parseSpeeds(pairs, session->store->fanSensors());
  if (!speeds) return kExitBadInput;
  auto set = session->store->createFanSetWithName(name, *speeds);
  // Identifiers are creation seconds: a second set made within the same second takes the next
  // free one.
  for (long long id = std::stoll(set->identifier()); true; ++id) {
    const auto existing = session->store->getFanSetById(std::to_string(id));
    if (!existing || existing == set) {
      set->setIdentifier(std::to_string(id));
      break;
    }
  }
  if (!session->store->save()) {
    std::fprintf(stderr, "corvane: the store could not save the fan set\n");
    return kExitFailure;
  }
  std::printf("%s\n", set->identifier().c_str());
  return kExitOk;
}

// The fan set `id`, or null after a message.
std::shared_ptr<HWFanSetEntity> fanSetById(const FanSession& session, const std::string& id) {
  auto set = session.store->getFanSetById(id);
  if (!set) std::fprintf(stderr, "corvane: there is no fan set %s (see corvane fansets list)\n", id.c_str());
  return set;
}

int useFanSet(Context& context, const std::string& id) {
  int status = kExitFailure;
  const auto session = openSession(context, status, true);
  if (!session) return status;
  const auto set = fanSetById(*session, id);
  if (!set) return kExitFailure;
  session->store->setManualFanSetId(set->identifier());
  session->store->setFanControlMode(1);
  std::printf("Manual fan set: %s; %s\n", set->name().c_str(), applyPolicy(*session).c_str());
  return kExitOk;
}

int deleteFanSet(Context& context, const std::string& id) {
  int status = kExitFailure;
  const auto session = openSession(context, status, true);
  if (!session) return status;
  const auto set = fanSetById(*session, id);
  if (!set) return kExitFailure;
  const bool wasManual = set->isManualFanSet();
  session->store->deleteObject(set);  // its conditions go with it
  if (!session->store->save()) {
    std::fprintf(stderr, "corvane: the store could not delete the fan set\n");
    return kExitFailure;
  }
  if (wasManual) session->store->setManualFanSetId(std::nullopt);
  HWNotificationUtils::postGlobalNotification(kFanControllerShouldUpdateNotification);
  flushMainQueue();
  return kExitOk;
}

// ---- conditions ----

struct ConditionOptions {
  std::string fanSet;
  std::string sensor;
  bool anySensor = false;
  double threshold = 0;
  std::uint64_t batteryState = 0;
  bool externalDisplay = false;
};

int listConditions(Context& context) {
  int status = kExitFailure;
  const auto session = openSession(context, status, false);
  if (!session) return status;
  static constexpr const char* kPower[] = {"any power", "charging", "on battery", "on the charger, full"};
  for (const auto& condition : session->store->allFanConditions()) {
    const auto set = condition->fanSet();
    const auto power = static_cast<std::size_t>(condition->batteryState());
    std::printf("%-6lld %-16s at %g on %s, %s%s\n", static_cast<long long>(condition->objectID()),
                set ? set->name().c_str() : "--", condition->threshold(), condition->sensorKey().c_str(),
                power < 4 ? kPower[power] : "unknown power state",
                condition->externalDisplayConnected() ? ", with an external display" : "");
  }
  if (!HWPermissionHelper::isSMCPermissionGranted()) {
    std::fprintf(stderr, "corvane: %s\n", HWPermissionHelper::smcPermissionMessage().c_str());
  }
  return kExitOk;
}

int addCondition(Context& context, const ConditionOptions& options) {
  if (options.anySensor == !options.sensor.empty()) {
    std::fprintf(stderr, "corvane: give either --sensor KEY or --any-sensor\n");
    return kExitBadInput;
  }
  int status = kExitFailure;
  const auto session = openSession(context, status, true);
  if (!session) return status;
  const auto set = fanSetById(*session, options.fanSet);
  if (!set) return kExitFailure;
  std::shared_ptr<HWSensorEntity> sensor;
  if (!options.anySensor) {
    sensor = session->store->getSensorByKey(options.sensor);
    if (!sensor) {
      std::fprintf(stderr, "corvane: there is no sensor %s (see corvane sensors)\n", options.sensor.c_str());
      return kExitFailure;
    }
  }
  auto condition = std::static_pointer_cast<HWFanConditionEntity>(
      session->store->coreDataStack()->insertNewObjectOf(HWEntity::kFanCondition));
  condition->setFanSet(set);
  condition->setSensorKey(options.anySensor ? kAnySensorKey : options.sensor);
  condition->setThreshold(options.threshold);
  condition->setBatteryState(static_cast<std::int16_t>(options.batteryState));
  condition->setExternalDisplayConnected(options.externalDisplay);
  condition->setActive(true);
  condition->setCreated(dispatch::now());
  if (!session->store->save()) {
    std::fprintf(stderr, "corvane: the store could not save the condition\n");
    return kExitFailure;
  }
  HWNotificationUtils::postGlobalNotification(kFanControllerShouldUpdateNotification);
  flushMainQueue();
  std::printf("%lld\n", static_cast<long long>(condition->objectID()));
  return kExitOk;
}

int deleteCondition(Context& context, long long id) {
  int status = kExitFailure;
  const auto session = openSession(context, status, true);
  if (!session) return status;
  for (const auto& condition : session->store->allFanConditions()) {
    if (condition->objectID() != id) continue;
    session->store->deleteObject(condition);
    if (!session->store->save()) {
      std::fprintf(stderr, "corvane: the store could not delete the condition\n");
      return kExitFailure;
    }
    HWNotificationUtils::postGlobalNotification(kFanControllerShouldUpdateNotification);
    flushMainQueue();
    return kExitOk;
  }
  std::fprintf(stderr, "corvane: there is no condition %lld (see corvane conditions list)\n", id);
  return kExitFailure;
}

constexpr const char* kPermissionFooter =
    "Fan commands need the helper tool installed with its rights (corvane helper install); without them "
    "they say what is missing and change nothing (exit status 1). Exit status 2 for a wrong invocation.";

}  // namespace

void registerFanCommands(CLI::App& app, Context& context) {
  auto* fans = app.add_subcommand("fans", "The fans: number, name, speed, limits and whether each is forced, with "
                                          "the fan control mode");
  fans->footer(kPermissionFooter);
  auto fansJson = std::make_shared<bool>(false);
  fans->add_flag("--json", *fansJson, "Print a JSON object with \"machine\", \"fanControlMode\" and \"fans\"");
  fans->callback([&context, fans, fansJson] {
    if (fans->get_subcommands().empty()) context.exitCode = listFans(context, *fansJson);
  });
  auto* mode = fans->add_subcommand("mode", "Leave the fans to the system, run the manual fan set, or boost them "
                                            "while a fan condition holds (auto; needs the daemon)");
  auto modeName = std::make_shared<std::string>();
  mode->add_option("MODE", *modeName, "system, manual or auto")->required();
  mode->callback([&context, modeName] { context.exitCode = setMode(context, *modeName); });

  auto* sets = app.add_subcommand("fansets", "The fan sets: one speed per fan, in rpm");
  sets->footer(kPermissionFooter);
  sets->require_subcommand(1);
  sets->add_subcommand("list", "Every fan set: identifier, name, speeds; the manual one marked")
      ->callback([&context] { context.exitCode = listFanSets(context); });
  auto* create = sets->add_subcommand("create", "A new fan set; prints its identifier");
  auto setName = std::make_shared<std::string>();
  auto speeds = std::make_shared<std::vector<std::string>>();
  create->add_option("NAME", *setName, "The fan set's name")->required();
  create->add_option("FAN=RPM", *speeds, "A fan's number and its speed, e.g. 0=3000 1=2800")->required();
  create->callback([&context, setName, speeds] { context.exitCode = createFanSet(context, *setName, *speeds); });
  auto* use = sets->add_subcommand("use", "Make the fan set the manual one and switch the fans to manual");
  auto useId = std::make_shared<std::string>();
  use->add_option("ID", *useId, "The fan set's identifier")->required();
  use->callback([&context, useId] { context.exitCode = useFanSet(context, *useId); });
  auto* remove = sets->add_subcommand("delete", "Delete a fan set and the conditions that use it");
  auto deleteId = std::make_shared<std::string>();
  remove->add_option("ID", *deleteId, "The fan set's identifier")->required();
  remove->callback([&context, deleteId] { context.exitCode = deleteFanSet(context, *deleteId); });

  auto* conditions = app.add_subcommand("conditions", "The fan conditions auto boost watches");
  conditions->footer(kPermissionFooter);
  conditions->require_subcommand(1);
  conditions->add_subcommand("list", "Every condition: identifier, fan set, threshold, sensor, power, display")
      ->callback([&context] { context.exitCode = listConditions(context); });
  auto* add = conditions->add_subcommand("add", "A condition: while the sensor reads at least the threshold (in "
                                                "the display unit), auto boost runs the fan set; prints its identifier");
  auto options = std::make_shared<ConditionOptions>();
  add->add_option("--fanset", options->fanSet, "The fan set's identifier")->required();
  add->add_option("--sensor", options->sensor, "The sensor's key, e.g. TC0P");
  add->add_flag("--any-sensor", options->anySensor, "Whichever temperature sensor reaches the threshold");
  add->add_option("--threshold", options->threshold, "The value the sensor must reach, e.g. 80")->required();
  add->add_option("--battery-state", options->batteryState,
                  "0 any power state, 1 charging, 2 on battery, 3 on the charger with a full battery")
      ->check(CLI::Range(0, 3));
  add->add_flag("--external-display", options->externalDisplay, "Only while an external display is connected");
  add->callback([&context, options] { context.exitCode = addCondition(context, *options); });
  auto* drop = conditions->add_subcommand("delete", "Delete a condition");
  auto conditionId = std::make_shared<long long>(0);
  drop->add_option("ID", *conditionId, "The condition's identifier")->required();
  drop->callback([&context, conditionId] { context.exitCode = deleteCondition(context, *conditionId); });
}

}  // namespace corvane::cli
