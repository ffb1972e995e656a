#include "corvane/sensors/sensor_catalogue.h"

#include <string>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using SensorList = std::vector<std::shared_ptr<HWSensor>>;

// The first entry for `key`, as the sensor reader picks it; null when there is none.
std::shared_ptr<HWSensor> firstWithKey(const SensorList& sensors, const std::string& key) {
  for (const auto& sensor : sensors) {
    if (sensor->key() == key) return sensor;
  }
  return nullptr;
}

TEST(CataloguePlatformFilter, KeepsEntriesWhoseMaskCoversThePlatform) {
  struct Case {
    std::uint64_t platform;
    std::size_t count;
    const char* key;
    const char* firstName;  // null: the key has no entry on this platform
  };
  for (const auto& c :
       {Case{4, 187, "Tp01", "CPU Performance Core 1"}, Case{4, 187, "Tp0P", "CPU Performance Core 6"},
        Case{32, 183, "Tp05", "CPU Efficiency Core 1"}, Case{32, 183, "Tp0T", nullptr},
        Case{1, 174, "Tp0P", "Powerboard Proximity"}, Case{1, 174, "TaLP", nullptr}, Case{1, 174, "Tp01", nullptr},
        Case{64, 173, "TH0x", "NAND"}, Case{3, 170, "TaLP", nullptr},  // two bits need both
        Case{0, 201, "Tp0P", "CPU Performance Core 6"}}) {             // unknown keeps all
    SCOPED_TRACE(std::to_string(c.platform) + " " + c.key);
    const auto sensors = catalogue::getDefaultSMCSensors(c.platform, std::nullopt, std::nullopt);
    EXPECT_EQ(sensors.size(), c.count);
    const auto first = firstWithKey(sensors, c.key);
    EXPECT_EQ(first ? first->name().c_str() : "(none)", std::string(c.firstName ? c.firstName : "(none)"));
    for (const auto& sensor : sensors) EXPECT_EQ(sensor->platform() & c.platform, c.platform) << sensor->key();
  }
  // Fresh records on every call: readers change their values.
  EXPECT_NE(catalogue::smcTemplates().front(), catalogue::smcTemplates().front());
}

HWGPUInfo gpu(const std::string& model, std::optional<std::string> shortName, bool dedicated) {
  HWGPUInfo info;
  info.setModelName(model);
  info.setShortModelName(std::move(shortName));
  info.setIsDedicated(dedicated);
  return info;
}

TEST(SensorCatalogue, GPUPlaceholderNamesTheDedicatedGPUOrNothing) {
  EXPECT_EQ(firstWithKey(catalogue::getDefaultSMCSensors(1, std::nullopt, std::nullopt), "TGVP")->fullName(),
            "GPU Memory Proximity");
  const std::vector<HWGPUInfo> gpus = {gpu("Intel UHD Graphics 630", std::nullopt, false),
                                       gpu("AMD Radeon Pro 5500M", "AMD", true)};
  const auto sensors =
      catalogue::getDefaultSMCSensors(1, catalogue::dedicatedGPUName(gpus), catalogue::dedicatedGPUShortName(gpus));
  const auto memory = firstWithKey(sensors, "TGVP");
  EXPECT_EQ(memory->name(), "GPU AMD Memory Proximity");
  EXPECT_EQ(memory->fullName(), "GPU AMD Radeon Pro 5500M Memory Proximity");
  // Names without the placeholder are left alone.
  EXPECT_EQ(firstWithKey(sensors, "TG0D")->fullName(), "GPU Die Analog");
}

TEST(DedicatedGPU, NamesOnlyTheLastDedicatedOfExactlyTwo) {
  const HWGPUInfo intel = gpu("Intel UHD Graphics 630", std::nullopt, false);
  const HWGPUInfo amd = gpu("AMD Radeon Pro 5500M", "AMD", true);
  const HWGPUInfo nvidia = gpu("NVIDIA GeForce GT 750M", "NVIDIA", true);
  struct Case {
    std::vector<HWGPUInfo> gpus;
    std::optional<std::string> name, shortName;
  };
  for (const auto& c :
       {Case{{amd}, std::nullopt, std::nullopt}, Case{{intel, amd}, "AMD Radeon Pro 5500M", "AMD"},
        Case{{nvidia, intel}, "NVIDIA GeForce GT 750M", "NVIDIA"}, Case{{nvidia, amd}, "AMD Radeon Pro 5500M", "AMD"},
        Case{{intel, gpu("", "", true)}, std::nullopt, std::nullopt},
        Case{{intel, amd, nvidia}, std::nullopt, std::nullopt}}) {
    EXPECT_EQ(catalogue::dedicatedGPUName(c.gpus), c.name) << c.gpus.size();
    EXPECT_EQ(catalogue::dedicatedGPUShortName(c.gpus), c.shortName) << c.gpus.size();
  }
}

}  // namespace
}  // namespace corvane
