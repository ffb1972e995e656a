// `corvane db build|show`: fills the store with this machine's sensors, categories and first fan
// set (as the writing process does at start), and prints what a store holds.
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/sensors/value_formatter.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/util/install_paths.h"
#include "corvane/util/json_text.h"

namespace corvane::cli {
namespace {

struct DbOptions {
  std::string store;  // --store FILE; empty for the app-group container's store
  bool json = false;
};

std::filesystem::path storePath(const DbOptions& options) {
  return options.store.empty() ? files::appGroupURL() / "Database.sqlite" : std::filesystem::path(options.store);
}

// Runs what waits on the main queue (the save's announcement), so it leaves before the program ends.
void flushMainQueue() {
  dispatch::mainQueue()->async([] { dispatch::stopMainQueue(); });
  dispatch::runMainQueue();
}

int build(Context& context, const DbOptions& options) {
  if (!context.installPlatform()) return context.exitCode;
  HWDataManager::setAppMode(1);  // the process that reads the hardware and writes the store
  const auto path = storePath(options);
  auto manager = HWDataManager::create(path);
  manager->backwardCompability();
  auto store = manager->sensorDataStore();
  if (!store->coreDataStack()->hasStore() || store->coreDataStack()->isReadOnly()) {
    std::fprintf(stderr, "corvane: the store %s cannot be written\n", path.string().c_str());
    return kExitFailure;
  }
  const bool saved = manager->buildDataSetNow();
  flushMainQueue();
  if (!saved) {
    std::fprintf(stderr, "corvane: the store %s could not be saved\n", path.string().c_str());
    return kExitFailure;
  }
  std::size_t listed = 0;
  for (const auto& category : store->allCategories()) listed += category->sensors().size();
  std::printf("%s: %zu sensors in %zu categories, %zu fan sets\n", path.string().c_str(), listed,
              store->allCategories().size(), store->allFanSets().size());
  return kExitOk;
}

nlohmann::ordered_json sensorJson(const HWSensorEntity& sensor) {
  return {{"key", sensor.key()},
          {"name", sensor.name()},
          {"fullName", sensor.fullName()},
          {"value", sensor.value()},
          {"minValue", sensor.minValue()},
          {"maxValue", sensor.maxValue()},
          {"sourceType", sensor.sourceType()},
          {"statusEnum", sensor.statusEnum()},
          {"graphPoints",
           {{"hour", sensor.graphPointCount(HWTimeRange::kHour)},
            {"day", sensor.graphPointCount(HWTimeRange::kDay)},
            {"week", sensor.graphPointCount(HWTimeRange::kWeek)}}}};
}

int show(Context& context, const DbOptions& options) {
  if (!context.installPlatform()) return context.exitCode;
  const auto path = storePath(options);
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) {
    // Showing never creates a store.
    std::fprintf(stderr, "corvane: there is no store at %s (corvane db build makes one)\n", path.string().c_str());
    return kExitFailure;
  }
  auto manager = HWDataManager::create(path);
  settings::installHooks(manager->settingsDataStore());
  auto store = manager->sensorDataStore();
  if (!store->coreDataStack()->hasStore()) {
    std::fprintf(stderr, "corvane: the store %s cannot be opened\n", path.string().c_str());
    return kExitFailure;
  }

  nlohmann::ordered_json out = {{"store", path.string()}, {"categories", nlohmann::json::array()}};
  for (const auto& category : store->allCategories()) {
    nlohmann::ordered_json sensors = nlohmann::json::array();
    for (const auto& sensor : category->filterSensors()) sensors.push_back(sensorJson(*sensor));
    out["categories"].push_back({{"name", category->name()}, {"type", category->type()}, {"sensors", sensors}});
  }
  out["fanSets"] = nlohmann::json::array();
  for (const auto& set : store->allFanSets()) {
    out["fanSets"].push_back({{"identifier", set->identifier()},
                              {"name", set->name()},
                              {"created", set->created()},
                              {"isManualFanSet", set->isManualFanSet()},
                              {"valueDict", set->valueDict()}});
  }
  out["fanConditions"] = nlohmann::json::array();
  for (const auto& condition : store->allFanConditions()) {
    auto set = condition->fanSet();
    out["fanConditions"].push_back({{"fanSet", set ? nlohmann::json(set->name()) : nlohmann::json()},
                                    {"sensorKey", condition->sensorKey()},
                                    {"threshold", condition->threshold()},
                                    {"batteryState", condition->batteryState()},
                                    {"externalDisplayConnected", condition->externalDisplayConnected()},
                                    {"active", condition->active()}});
  }
  if (options.json) {
    std::printf("%s\n", json_text::dump(out, 2).c_str());
    return kExitOk;
  }

  std::printf("Store: %s\n", path.string().c_str());
  for (const auto& category : store->allCategories()) {
    std::printf("\n%s\n", category->name().c_str());
    for (const auto& sensor : category->filterSensors()) {
      std::printf("  %-12s %-28s %10s   points %lld/%lld/%lld\n", sensor->key().c_str(), sensor->name().c_str(),
                  HWValueConverter::fullStringFromValue(sensor->convertedValue(), sensor->categoryType(), false).c_str(),
                  static_cast<long long>(sensor->graphPointCount(HWTimeRange::kHour)),
                  static_cast<long long>(sensor->graphPointCount(HWTimeRange::kDay)),
                  static_cast<long long>(sensor->graphPointCount(HWTimeRange::kWeek)));
    }
  }
  std::printf("\nFan sets\n");
  for (const auto& set : store->allFanSets()) {
    std::string speeds;
    const nlohmann::json dict = set->valueDict();
    for (const auto& [key, rpm] : dict.items()) {
      speeds += (speeds.empty() ? "" : ", ") + key + ": " + json_text::dump(rpm) + " rpm";
    }
    std::printf("  %s (%s)%s  %s\n", set->name().c_str(), set->identifier().c_str(),
                set->isManualFanSet() ? " [manual]" : "", speeds.c_str());
  }
  std::printf("\nFan conditions\n");
  for (const auto& condition : store->allFanConditions()) {
    auto set = condition->fanSet();
    std::printf("  %s at %g on %s%s\n", set ? set->name().c_str() : "(no fan set)", condition->threshold(),
                condition->sensorKey().c_str(), condition->active() ? "" : " (inactive)");
  }
  return kExitOk;
}

}  // namespace

void registerDbCommands(CLI::App& app, Context& context) {
  CLI::App* group = app.add_subcommand("db", "The store of sensors, fan sets, fan conditions and graph history");
  group->require_subcommand(1);
  group->fallthrough();
  auto options = std::make_shared<DbOptions>();
  group->add_option("--store", options->store, "Use this store file instead of the shared Database.sqlite")
      ->type_name("FILE");

  auto* buildCommand = group->add_subcommand(
      "build", "Discover this machine's sensors and write them, the five categories and a first \"Manual\" "
               "fan set into the store; again, it keeps order, fan sets and history");
  buildCommand->callback([&context, options] { context.exitCode = build(context, *options); });

  auto* showCommand = group->add_subcommand(
      "show", "Categories with their visible sensors, fan sets, fan conditions and graph points per range");
  showCommand->add_flag("--json", options->json, "Print JSON");
  showCommand->callback([&context, options] { context.exitCode = show(context, *options); });
}

}  // namespace corvane::cli
