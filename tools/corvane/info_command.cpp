// `corvane info`: who the machine is (model, operating system, host name, boot date, uptime,
// memory, start-up disk and battery).
// Each part of the description is one section, so further parts sit beside the ones here.
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "hardware_json.h"
#include "corvane/settings/pref_data.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/util/dates.h"
#include "corvane/util/json_text.h"

namespace corvane::cli {
namespace {

using Json = nlohmann::ordered_json;

template <class Value>
Json orNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

// A date as ISO 8601 in UTC, whole seconds.
std::string isoDate(std::chrono::system_clock::time_point date) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
  const auto day = std::chrono::floor<std::chrono::days>(seconds);
  const std::chrono::year_month_day ymd(day);
  const std::chrono::hh_mm_ss time(seconds - day);
  char text[32];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(ymd.year()),
                static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                static_cast<int>(time.seconds().count()));
  return text;
}

Json modelSection(HWSystemDevice& device) {
  const auto& model = device.modelInfo();
  return Json{{"modelId", model.modelId},
              {"modelNumber", orNull(model.modelNumber)},
              {"name", orNull(model.name)},
              {"year", model.year},
              {"family", model.family},
              {"familyName", orNull(model.familyName())},
              {"familyIcon", model.familyIcon()},
              {"isT2ChipSupport", model.isT2ChipSupport()},
              {"serial", orNull(model.serial)},
              {"endianness", model.endianness},
              {"displayResolution",
               {{"width", model.displayResolution.width}, {"height", model.displayResolution.height}}}};
}

Json osSection(HWSystemDevice& device) {
  const auto& os = device.osInfo();
  return Json{{"name", os.name()},
              {"versionString", os.versionString()},
              {"version", {{"major", os.version.major}, {"minor", os.version.minor}, {"patch", os.version.patch}}},
              {"build", os.build}};
}

Json diskSection(HWSystemDevice& device) {
  const auto disk = device.diskInfo();
  if (!disk) return Json(nullptr);
  return Json{{"name", disk->name}, {"model", disk->model}, {"size", disk->size}, {"displayName", disk->displayName()}};
}

Json batterySection(HWSystemDevice& device) {
  const auto& battery = device.batteryInfo();
  return Json{{"cycleCount", battery.cycleCount},
              {"maxCapacity", battery.maxCapacity},
              {"designedCapacity", battery.designedCapacity},
              {"health", battery.health()}};
}

// The keys are the device's own property names, after the machine the other listings name.
Json description(HWSystemDevice& device) {
  const auto& boot = device.bootDate();
  return Json{{"machine", machineJson()},
              {"hostName", device.hostName()},
              {"bootDate", boot ? Json(isoDate(*boot)) : Json(nullptr)},
              {"uptimeValue", orNull(device.getUptimeValue())},
              {"modelInfo", modelSection(device)},
              {"osInfo", osSection(device)},
              {"cpuInfo", cpuInfoJson(device.cpuInfo())},
              {"gpuInfos", gpuInfosJson(device.gpuInfos())},
              {"memoryInfo", {{"physicalMemory", device.memoryInfo().physicalMemory}}},
              {"diskInfo", diskSection(device)},
              {"batteryInfo", batterySection(device)}};
}

std::string textOf(const Json& value) {
  if (value.is_null()) return "unknown";
  if (value.is_string()) return value.get<std::string>();
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  return json_text::dump(value);
}

void printText(const Json& info) {
  const auto line = [](const char* label, const std::string& text) { std::printf("%-13s %s\n", label, text.c_str()); };
  const Json& model = info["modelInfo"];
  const Json& os = info["osInfo"];
  const std::string id = model["modelId"].get<std::string>();
  line("Model:", textOf(model["name"]) + (id.empty() ? "" : " (" + id + ")"));
  line("Year:", model["year"].get<std::int64_t>() == 0 ? "unknown" : textOf(model["year"]));
  line("Family:", textOf(model["familyName"]) + " (code " + textOf(model["family"]) + ", icon " +
                      textOf(model["familyIcon"]) + ")");
  line("T2 support:", textOf(model["isT2ChipSupport"]));
  line("System:", textOf(os["name"]) + " " + textOf(os["versionString"]) + " (build " + textOf(os["build"]) + ")");
  line("Host name:", textOf(info["hostName"]));
  line("Boot date:", textOf(info["bootDate"]));
  line("Uptime:", textOf(info["uptimeValue"]));
  const Json& cpu = info["cpuInfo"];
  line("Processor:", textOf(cpu["brand"]) + ", " + textOf(cpu["coreCount"]) + " cores, " + textOf(cpu["threadCount"]) +
                         " threads");
  const Json& gpus = info["gpuInfos"];
  if (gpus.is_null() || gpus.empty()) line("Graphics:", gpus.is_null() ? "unknown" : "none listed");
  for (const auto& gpu : gpus) line("Graphics:", textOf(gpu["modelName"]));
  line("Memory:", textOf(info["memoryInfo"]["physicalMemory"]));
  const Json& disk = info["diskInfo"];
  line("Disk:", disk.is_null() ? "unknown"
                               : textOf(disk["displayName"]) + " (" + textOf(disk["size"]) + " bytes)");
  const Json& battery = info["batteryInfo"];
  line("Battery:", battery["designedCapacity"].get<std::int64_t>() == 0
                       ? "none reported"
                       : "health " + textOf(battery["health"]) + "% (" + textOf(battery["maxCapacity"]) + " of " +
                             textOf(battery["designedCapacity"]) + ", " + textOf(battery["cycleCount"]) + " cycles)");
}

int info(Context& context, bool json) {
  if (!context.installPlatform()) return context.exitCode;
  // The uptime is worded in the language the user chose in the settings.
  auto store = HWSettingsDataStore::create(std::make_shared<HWPrefData>(), nullptr);
  settings::installHooks(store);
  auto device = HWSystemDevice::device();
  const Json described = description(*device);
  if (json) {
    std::printf("%s\n", json_text::dump(described, 1).c_str());
  } else {
    printMachineLine();
    printText(described);
  }
  settings::uninstallHooks();
  return kExitOk;
}

}  // namespace

void registerInfoCommand(CLI::App& app, Context& context) {
  auto json = std::make_shared<bool>(false);
  auto* command = app.add_subcommand(
      "info", "Show who the machine is: model (identifier, name, year, family, T2 support), operating system, "
              "host name, boot date, uptime, processor and graphics processors, memory, start-up disk and battery wear");
  command->footer("With --json: an object with \"machine\" (its name, and whether it is simulated), \"hostName\", "
                  "\"bootDate\" (UTC), \"uptimeValue\", \"modelInfo\", \"osInfo\", \"cpuInfo\" (as corvane cpu prints it), "
                  "\"gpuInfos\" (null when they could not be listed), \"memoryInfo\", \"diskInfo\" (null when no start-up "
                  "disk is known) and \"batteryInfo\" (zeros without a battery).");
  command->add_flag("--json", *json, "Print the description as JSON");
  command->callback([&context, json] { context.exitCode = info(context, *json); });
}

}  // namespace corvane::cli
