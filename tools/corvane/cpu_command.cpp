// `corvane cpu`: the processor as the machine describes it, and how busy it was over one update
// interval: the machine's shares, each core, the load averages and the busiest processes.
#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "hardware_json.h"
#include "stop_on_signal.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/cpu_load_reader.h"
#include "corvane/monitors/cpu_output_parsers.h"
#include "corvane/monitors/cpu_readers.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/processor_load.h"
#include "corvane/settings/cpu_data_store.h"
#include "corvane/settings/pref_data.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/util/json_text.h"
#include "corvane/util/system_utils.h"

namespace corvane::cli {
namespace {

using Json = nlohmann::ordered_json;

struct CpuOptions {
  bool json = false;
  bool watch = false;
  int interval = 0;  // seconds; 0: the settings' update interval
};

// A mean over no core of its kind is NaN, which JSON cannot hold.
Json shareJson(const std::optional<double>& value) {
  return value && std::isfinite(*value) ? Json(*value) : Json(nullptr);
}


// What `corvane cpu --json` prints for one interval; the load figures are null when the machine
// records no processor ticks (a simulated one), so that nothing passes for a reading.
Json cpuJson(const HWCPUInfo& info, const std::optional<HWCPULoadInfo>& load,
             const std::optional<std::array<double, 3>>& averages, const std::vector<HWCPUProcess>& top) {
  Json loadInfo = nullptr;
  if (load) {
    Json perCore = Json::array();
    for (double usage : load->perCoreUsages()) perCore.push_back(usage);
    loadInfo = {{"totalUsage", load->totalUsage}, {"userLoad", load->userLoad},
                {"systemLoad", load->systemLoad}, {"idleLoad", load->idleLoad},
                {"usagePerCore", std::move(perCore)}, {"usageECores", shareJson(load->usageECores)},
                {"usagePCores", shareJson(load->usagePCores)}};
  }
  Json processes = nullptr;
  if (load) {
    processes = Json::array();
    for (const auto& process : top) {
      processes.push_back({{"pid", process.pid}, {"usage", process.usage}, {"command", process.command}});
    }
  }
  return {{"cpuInfo", cpuInfoJson(info)},
          {"loadInfo", std::move(loadInfo)},
          {"loadValues", averages ? Json(*averages) : Json(nullptr)},
          {"topProcesses", std::move(processes)}};
}

std::string numberText(const Json& value, const char* format) {
  if (value.is_null()) return "unknown";
  char text[64];
  std::snprintf(text, sizeof text, format, value.get<double>());
  return text;
}

std::string percentText(const Json& share) {
  return share.is_null() ? "n/a" : numberText(share.get<double>() * 100.0, "%.1f%%");
}

void printText(const Json& data, int interval) {
  const Json& info = data["cpuInfo"];
  std::printf("Processor: %s (%s)\n", info["brand"].get<std::string>().c_str(),
              info["vendor"].get<std::string>().c_str());
  std::printf("Counts: %s physical, %s logical, %s active, %s package(s)\n",
              numberText(info["coreCount"], "%.0f").c_str(), numberText(info["threadCount"], "%.0f").c_str(),
              numberText(info["activeCount"], "%.0f").c_str(), numberText(info["cpuCount"], "%.0f").c_str());
  std::printf("Frequency: %s GHz; caches: L2 %s MiB, L3 %s MiB\n", numberText(info["frequency"], "%.2f").c_str(),
              numberText(info["l2Cache"], "%.2f").c_str(), numberText(info["l3Cache"], "%.2f").c_str());
  std::printf("Platform bits: %llu; hyper-threading: %s\n",
              static_cast<unsigned long long>(info["platform"].get<std::uint64_t>()),
              info["hasHyperthreadingCores"].get<bool>() ? "yes" : "no");
  std::printf("Cores:");
  for (const auto& core : info["coreList"]) {
    const auto type = core["type"].get<std::uint64_t>();
    std::printf(" %s(%s)", core["name"].get<std::string>().c_str(),
                type == 1 ? "efficiency" : type == 2 ? "performance" : "kind not told");
  }
  std::printf("%s\n", info["coreList"].empty() ? " not described by this machine" : "");

  const Json& load = data["loadInfo"];
  if (load.is_null()) {
    std::printf("no processor load recorded for this machine\n");
    return;
  }
  std::printf("Load over %d s: total %s, user %s, system %s, idle %s\n", interval,
              percentText(load["totalUsage"]).c_str(), percentText(load["userLoad"]).c_str(),
              percentText(load["systemLoad"]).c_str(), percentText(load["idleLoad"]).c_str());
  std::printf("Per core:");
  for (const auto& usage : load["usagePerCore"]) std::printf(" %s", percentText(usage).c_str());
  std::printf("\nEfficiency cores %s, performance cores %s\n", percentText(load["usageECores"]).c_str(),
              percentText(load["usagePCores"]).c_str());
  const Json& averages = data["loadValues"];
  if (averages.is_null()) {
    std::printf("Load averages: unknown\n");
  } else {
    std::printf("Load averages: %.2f %.2f %.2f\n", averages[0].get<double>(), averages[1].get<double>(),
                averages[2].get<double>());
  }
  std::printf("%8s %7s  %s\n", "PID", "%CPU", "COMMAND");
  for (const auto& process : data["topProcesses"]) {
    std::printf("%8lld %7.1f  %s\n", static_cast<long long>(process["pid"].get<std::int64_t>()),
                process["usage"].get<double>(), process["command"].get<std::string>().c_str());
  }
}

int runCpu(Context& context, const CpuOptions& options) {
  StopOnSignal stop;  // before any thread starts
  if (!context.installPlatform()) return context.exitCode;
  auto prefData = std::make_shared<HWPrefData>();
  const int interval = options.interval > 0
                           ? options.interval
                           : static_cast<int>(HWSettingsDataStore::create(prefData, nullptr)->updateInterval());
  const std::int64_t topCount = HWCPUDataStore::create(prefData)->numOfTopProcesses();

  platform::ProcessorTickSample probe;
  const bool recorded = platform::ProcessorLoad::create(platform::current())->sample(probe);
  const HWCPUInfo info = HWSystemDevice::device()->cpuInfo();
  auto reader = std::make_shared<HWCPULoadReader>();
  // The processes, like the load, are measured over the interval from here.
  const auto busiest = cpu_sources::hostProcesses();
  reader->read();  // the start of the first interval
  if (recorded) busiest(0);

  auto timer = dispatch::makeTimer(dispatch::mainQueue());
  timer->setHandler([&] {
    std::optional<HWCPULoadInfo> load;
    std::optional<std::array<double, 3>> averages;
    std::vector<HWCPUProcess> top;
    if (recorded) {
      reader->read();
      load = reader->response();
      averages = cpu_sources::hostLoadAverages();
      top = busiest(topCount).value_or(std::vector<HWCPUProcess>());
    }
    const Json data = cpuJson(info, load, averages, top);
    if (options.json) {
      std::printf("%s\n", json_text::dump(data, options.watch ? -1 : 1).c_str());
    } else {
      printText(data, interval);
      if (options.watch) std::printf("\n");
    }
    std::fflush(stdout);
    if (!options.watch) dispatch::stopMainQueue();
  });
  const std::chrono::nanoseconds period = std::chrono::seconds(interval);
  // Without ticks there is nothing to wait for: the description comes at once.
  timer->schedule(recorded ? period : std::chrono::nanoseconds(0), period, std::chrono::milliseconds(10));
  timer->resume();
  dispatch::runMainQueue();
  timer->cancel();
  return kExitOk;
}

}  // namespace

void registerCpuCommand(CLI::App& app, Context& context) {
  auto options = std::make_shared<CpuOptions>();
  CLI::App* cpu = app.add_subcommand(
      "cpu", "The processor (brand, counts, frequency, caches, cores and their kinds) and its load over one "
             "update interval: machine-wide shares, each core, efficiency and performance means, load "
             "averages and the busiest processes");
  cpu->footer(
      "The busiest processes number as the shared setting num_of_top_processes (12 unless set); their usage "
      "is percent of one core (on Linux over the same interval, on a Mac as ps prints it). With --json: \"cpuInfo\", \"loadInfo\" (shares from 0 to 1; "
      "a mean over no core of its kind is null), \"loadValues\" (1, 5 and 15 minutes) and \"topProcesses\"; "
      "the load fields are null for a machine that records no processor load.");
  cpu->add_flag("--json", options->json, "Print JSON (one document per line with --watch)");
  cpu->add_flag("--watch", options->watch, "Repeat at the interval until Ctrl-C");
  cpu->add_option("--interval", options->interval,
                  "Measure over SECONDS instead of the settings' update interval")
      ->type_name("SECONDS")
      ->check(CLI::Range(1, 10));
  cpu->callback([&context, options] { context.exitCode = runCpu(context, *options); });
}

}  // namespace corvane::cli
