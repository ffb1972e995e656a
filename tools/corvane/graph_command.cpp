// `corvane graph KEY --range hour|day|week --out FILE.png|FILE.svg`: one sensor's stored history
// as a picture.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "commands.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/util/install_paths.h"
#include "graph_data.h"
#include "graph_image.h"

namespace corvane::cli {
namespace {

struct GraphOptions {
  std::string key;
  std::string range = "hour";
  std::string out;
  std::string store;  // empty for the app-group container's store
};

int graph(Context& context, const GraphOptions& options) {
  const auto range = timeRangeNamed(options.range);
  if (!range) {
    std::fprintf(stderr, "corvane: unknown range '%s' (hour, day or week)\n", options.range.c_str());
    return kExitBadInput;
  }
  const std::filesystem::path out(options.out);
  const auto format = imageFormatForPath(out);
  if (!format) {
    std::fprintf(stderr, "corvane: cannot tell the picture format of '%s' (name it .png or .svg)\n",
                 options.out.c_str());
    return kExitBadInput;
  }
  if (!context.installPlatform()) return context.exitCode;
  const std::filesystem::path path =
      options.store.empty() ? files::appGroupURL() / "Database.sqlite" : std::filesystem::path(options.store);
  std::error_code ec;
  if (!std::filesystem::exists(path, ec)) {
    std::fprintf(stderr, "corvane: there is no store at %s (corvane db build makes one)\n", path.string().c_str());
    return kExitFailure;
  }
  auto manager = HWDataManager::create(path);
  settings::installHooks(manager->settingsDataStore());  // the user's units
  auto store = manager->sensorDataStore();
  if (!store->coreDataStack()->hasStore()) {
    std::fprintf(stderr, "corvane: the store %s cannot be opened\n", path.string().c_str());
    return kExitFailure;
  }
  const auto sensor = store->getSensorByKey(options.key);
  if (!sensor) {
    std::fprintf(stderr, "corvane: there is no sensor %s in the store %s (corvane db show lists them)\n",
                 options.key.c_str(), path.string().c_str());
    return kExitFailure;
  }
  const GraphData data = graphDataForSensor(*sensor, *range, std::chrono::system_clock::now());
  if (data.samples.empty()) {
    std::fprintf(stderr, "corvane: no graph points yet for %s in the %s range\n", options.key.c_str(),
                 timeRangeName(*range));
    return kExitFailure;
  }
  std::string error;
  if (!writeGraphImage(data, out, *format, &error)) {
    std::fprintf(stderr, "corvane: cannot write %s: %s\n", options.out.c_str(), error.c_str());
    return kExitFailure;
  }
  std::printf("%s: %zu points of %s over the last %s\n", options.out.c_str(), data.samples.size(), data.key.c_str(),
              timeRangeName(*range));
  return kExitOk;
}

}  // namespace

void registerGraphCommand(CLI::App& app, Context& context) {
  auto options = std::make_shared<GraphOptions>();
  auto* command = app.add_subcommand(
      "graph", "Draw one sensor's stored history (the last hour, day or week) as a PNG or SVG picture, with "
               "its lowest and highest value marked");
  command->add_option("KEY", options->key, "The sensor's key, as `corvane db show` lists it")->required();
  command->add_option("--range", options->range, "hour (default), day or week")->type_name("RANGE");
  command->add_option("--out", options->out, "The picture to write; its extension (.png or .svg) picks the format")
      ->type_name("FILE")
      ->required();
  command->add_option("--store", options->store, "Use this store file instead of the shared Database.sqlite")
      ->type_name("FILE");
  command->callback([&context, options] { context.exitCode = graph(context, *options); });
}

}  // namespace corvane::cli
