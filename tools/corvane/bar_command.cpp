// `corvane bar`: the menu-bar strips as a line of text for the status bars Linux users run, one
// line per update interval. While a daemon writes the store the values are its readings (each
// save announced); otherwise this program reads the machine itself.
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "bar_model.h"
#include "commands.h"
#include "stop_on_signal.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/processor_load.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/menu_data_store.h"
#include "corvane/settings/settings_data_store.h"

namespace corvane::cli {
namespace {

// The menu bar is a process of its own kind: edits that `corvane menu` (app mode 0) announces
// then reach its stores as another process's, and it rereads the lists.
constexpr std::uint64_t kMenuBarAppMode = 2;

struct BarOptions {
  bool waybar = false;
  bool once = false;
  std::string only;  // "sensors", "cpu" or empty for both
};

class Bar final : public HWSensorDataStoreDelegate, public std::enable_shared_from_this<Bar> {
 public:
  Bar(std::shared_ptr<HWDataManager> manager, BarOptions options)
      : manager_(std::move(manager)), options_(std::move(options)),
        interval_(std::max<std::int64_t>(1, manager_->settingsDataStore()->updateInterval())) {
    static constexpr const char* kNames[] = {"Temperature", "Fan", "Voltage", "Current", "Power"};
    for (std::int16_t type = 0; type < 5; ++type) {
      categories_[type] = std::make_shared<HWSensorCategoryEntity>();
      categories_[type]->setName(kNames[type]);
      categories_[type]->setType(type);
    }
    platform::ProcessorTickSample probe;
    cpuRecorded_ = platform::ProcessorLoad::create(platform::current())->sample(probe);
    // The first reading measures since boot, so even a single line has a figure.
    if (cpuRecorded_) loadReader_ = std::make_shared<HWCPULoadReader>();
    // A running daemon has saved a reading within the interval: follow it from the start.
    following_ = daemonIsRunning();
    lastAnnouncement_ = dispatch::now();
  }

  void start() {
    manager_->sensorDataStore()->addDelegate(shared_from_this());
    timer_ = dispatch::makeTimer(dispatch::mainQueue());
    std::weak_ptr<Bar> weak = shared_from_this();
    timer_->setHandler([weak] {
      if (auto self = weak.lock()) self->tick();
    });
    timer_->schedule(std::chrono::nanoseconds(0), std::chrono::seconds(interval_), std::chrono::milliseconds(100));
    timer_->resume();
  }

  void stop() {
    if (timer_) timer_->cancel();
  }

  void sensorDataStoreSensorsDidChanged(const std::vector<std::shared_ptr<HWSensorEntity>>&) override {
    following_ = true;
    lastAnnouncement_ = dispatch::now();
  }

 private:
  void tick() {
    // A daemon silent for three intervals has stopped: read the machine again.
    if (following_ && dispatch::now() - lastAnnouncement_ > 3.0 * static_cast<double>(interval_)) following_ = false;
    std::vector<bar::Strip> strips;
    if (options_.only != "cpu") strips.push_back(stripOf(*manager_->sensorMenuDataStore()));
    if (options_.only != "sensors") strips.push_back(stripOf(*manager_->cpuMenuDataStore()));
    const auto line = bar::buildLine(strips, figures(strips));
    std::printf("%s\n", options_.waybar ? bar::waybarLine(line).c_str() : line.text.c_str());
    std::fflush(stdout);
    if (options_.once) dispatch::stopMainQueue();
  }

  static bar::Strip stripOf(HWMenuDataStore& store) { return {store.menuEnabled(), store.activeItems()}; }

  bar::Figures figures(const std::vector<bar::Strip>& strips) {
    bar::Figures figures;
    std::vector<std::string> keys;
    for (const auto& strip : strips) {
      for (const auto& item : strip.items) {
        if (item.sourceType() == 0) keys.push_back(item.identifier());
      }
    }
    if (following_) {
      for (const auto& key : keys) {
        if (auto sensor = manager_->sensorDataStore()->getSensorByKey(key)) figures.sensors[key] = sensor;
      }
    } else if (!keys.empty()) {
      readMachine(keys, figures);
    }
    if (loadReader_) {
      loadReader_->read();
      figures.load = loadReader_->response();
      figures.averages = cpu_sources::hostLoadAverages();
    }
    return figures;
  }

  // This program's own reading of the sensors the strips show, in unsaved sensors of its own so
  // that statuses and units follow the same rules as the stored ones.
  void readMachine(const std::vector<std::string>& keys, bar::Figures& figures) {
    const auto& reader = manager_->sensorReader();
    const auto& store = manager_->sensorDataStore();
    reader->setShowUnknownSensors(store->showUnknownSensors());
    reader->setShowHIDSensors(store->showHIDSensors());
    reader->setShowComputedSensors(store->showComputedSensors());
    reader->refreshValues();
    std::map<std::string, std::shared_ptr<HWSensor>> records;
    for (const auto& record : *reader->allSensors()) records[record->key()] = record;
    for (const auto& key : keys) {
      const auto found = records.find(key);
      if (found == records.end()) continue;
      const auto type = static_cast<std::int16_t>(toNumber(found->second->type()));
      if (type < 0 || type > 4) continue;
      auto& own = own_[key];
      if (!own) {
        own = std::make_shared<HWSensorEntity>();
        own->setKey(key);
        own->setCategory(categories_[type]);
      }
      own->updateFromSensor(*found->second, type == 1);
      figures.sensors[key] = own;
    }
  }

  std::shared_ptr<HWDataManager> manager_;
  BarOptions options_;
  std::int64_t interval_;
  std::shared_ptr<HWSensorCategoryEntity> categories_[5];
  std::map<std::string, std::shared_ptr<HWSensorEntity>> own_;
  bool cpuRecorded_ = false;
  std::shared_ptr<HWCPULoadReader> loadReader_;
  std::shared_ptr<dispatch::TimerSource> timer_;
  bool following_ = false;
  double lastAnnouncement_ = 0;
};

int runBar(Context& context, const BarOptions& options) {
  StopOnSignal stop;  // before any other thread starts
  if (!context.installPlatform()) return context.exitCode;
  // The daemon's saves and the menu edits arrive over the session bus.
  useSessionBus();
  HWDataManager::setAppMode(kMenuBarAppMode);
  auto manager = openMenuManager(options.only != "cpu");
  if (!manager) return kExitFailure;
  auto bar = std::make_shared<Bar>(manager, options);
  bar->start();
  dispatch::runMainQueue();
  bar->stop();
  return kExitOk;
}

}  // namespace

void registerBarCommand(CLI::App& app, Context& context) {
  auto options = std::make_shared<BarOptions>();
  CLI::App* command = app.add_subcommand(
      "bar", "The menu-bar strips as one line of text per update interval, for status bars (i3bar, tmux, waybar)");
  command->footer(
      "The active items of each shown strip in order (corvane menu edits them), values in the user's units; "
      "strips apart by \" | \". While a daemon runs the values are its readings, otherwise this program "
      "reads the machine. CPU shares are measured between two lines (the first since boot). With --waybar "
      "each line is {\"text\", \"tooltip\", \"class\"}: class is \"critical\" or \"warning\" for a hot sensor or a "
      "fast fan, else \"normal\".");
  command->add_flag("--waybar", options->waybar, "Print one JSON object per line, as a waybar custom module reads");
  command->add_flag("--once", options->once, "Print one line and exit");
  command->add_option("--only", options->only, "Show one strip")->check(CLI::IsMember({"sensors", "cpu"}));
  command->callback([&context, options] { context.exitCode = runBar(context, *options); });
}

}  // namespace corvane::cli
