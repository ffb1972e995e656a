#include "corvane/sensors/sensor_catalogue.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace corvane {
namespace {

using SensorList = std::vector<std::shared_ptr<HWSensor>>;

// The tables below hold the fixed numbers that JSON, settings and the store write.
constexpr std::uint64_t kTemperature = toNumber(SensorType::kTemperature);
constexpr std::uint64_t kCurrent = toNumber(SensorType::kCurrent);
constexpr std::uint64_t kVoltage = toNumber(SensorType::kVoltage);
constexpr std::uint64_t kPower = toNumber(SensorType::kPower);

// The first entry for `key`, as the sensor reader picks it; null when there is none.
std::shared_ptr<HWSensor> firstWithKey(const SensorList& sensors, const std::string& key) {
  for (const auto& sensor : sensors) {
    if (sensor->key() == key) return sensor;
  }
  return nullptr;
}

// Counted by hand from the catalogue's item lists, one line per type and group.
TEST(SensorCatalogue, CountsPerTypeAndGroup) {
  const std::map<std::pair<std::uint64_t, std::uint64_t>, int> expected = {
      {{kTemperature, 1}, 39}, {{kTemperature, 2}, 15},
      {{kTemperature, 3}, 9},  {{kTemperature, 4}, 27},
      {{kTemperature, 5}, 4},  {{kTemperature, 6}, 6},
      {{kTemperature, 7}, 5},  {{kTemperature, 8}, 4},
      {{kTemperature, 9}, 8},  {{kTemperature, 10}, 1},
      {{kCurrent, 1}, 8},      {{kCurrent, 2}, 3},
      {{kCurrent, 3}, 2},      {{kCurrent, 4}, 6},
      {{kCurrent, 6}, 1},      {{kCurrent, 8}, 3},
      {{kCurrent, 9}, 1},      {{kVoltage, 1}, 4},
      {{kVoltage, 2}, 2},      {{kVoltage, 3}, 1},
      {{kVoltage, 4}, 15},     {{kVoltage, 8}, 2},
      {{kVoltage, 9}, 1},      {{kPower, 1}, 13},
      {{kPower, 2}, 4},        {{kPower, 3}, 2},
      {{kPower, 4}, 11},       {{kPower, 8}, 3},
      {{kPower, 9}, 1},
  };
  const auto templates = catalogue::smcTemplates();
  ASSERT_EQ(templates.size(), 201u);
  std::map<std::pair<std::uint64_t, std::uint64_t>, int> counted;
  std::map<std::uint64_t, int> perMask;
  int averaged = 0;
  for (const auto& sensor : templates) {
    ++counted[{toNumber(sensor->type()), toNumber(sensor->group())}];
    ++perMask[sensor->platform()];
    if (sensor->average()) ++averaged;
    EXPECT_EQ(sensor->name(), sensor->fullName()) << sensor->key();
    EXPECT_EQ(sensor->sourceType(), SourceType::kSMC) << sensor->key();
    EXPECT_EQ(sensor->value(), 0.0) << sensor->key();
    EXPECT_EQ(sensor->key().size(), 4u) << sensor->key();
  }
  EXPECT_EQ(counted, expected);
  const std::map<std::uint64_t, int> expectedMasks = {{511, 170}, {1, 4}, {30, 14}, {32, 10},
                                                      {510, 3}};
  EXPECT_EQ(perMask, expectedMasks);
  EXPECT_EQ(averaged, 26);
}

struct EntryCase {
  std::size_t index;
  const char* key;
  const char* name;
  std::uint64_t type;
  std::uint64_t group;
  std::uint64_t platform;
  bool average;
};

class CatalogueEntry : public ::testing::TestWithParam<EntryCase> {};

TEST_P(CatalogueEntry, MatchesTheListAtItsPosition) {
  const auto& c = GetParam();
  const auto templates = catalogue::smcTemplates();
  ASSERT_LT(c.index, templates.size());
  const auto& sensor = templates[c.index];
  EXPECT_EQ(sensor->key(), c.key);
  EXPECT_EQ(sensor->name(), c.name);
  EXPECT_EQ(toNumber(sensor->type()), c.type);
  EXPECT_EQ(toNumber(sensor->group()), c.group);
  EXPECT_EQ(sensor->platform(), c.platform);
  EXPECT_EQ(sensor->average(), c.average);
}

constexpr auto kT = kTemperature;
constexpr auto kI = kCurrent;
constexpr auto kV = kVoltage;
constexpr auto kP = kPower;

INSTANTIATE_TEST_SUITE_P(
    Sample, CatalogueEntry,
    ::testing::Values(
        EntryCase{0, "TC0P", "CPU Proximity", kT, 1, 511, false},
        EntryCase{10, "TC%C", "CPU Core %", kT, 1, 511, true},
        EntryCase{11, "TC%c", "CPU core %", kT, 1, 511, true},
        EntryCase{21, "Tp09", "CPU Efficiency Core 1", kT, 1, 30, true},
        EntryCase{24, "Tp05", "CPU Performance Core 2", kT, 1, 30, true},
        EntryCase{28, "Tp0P", "CPU Performance Core 6", kT, 1, 30, true},
        EntryCase{31, "Tp05", "CPU Efficiency Core 1", kT, 1, 32, true},
        EntryCase{38, "Tp0n", "CPU Performance Core 4", kT, 1, 32, true},
        EntryCase{41, "TG0P", "GPU {GPU} Proximity", kT, 2, 511, false},
        EntryCase{48, "Tg05", "GPU 1", kT, 2, 30, true},
        EntryCase{53, "Tg0n", "GPU 2", kT, 2, 32, true},
        EntryCase{54, "Ts0S", "Memory Proximity", kT, 3, 511, false},
        EntryCase{71, "Th0H", "Heatpipe 1", kT, 4, 1, false},
        EntryCase{89, "TH0x", "NAND", kT, 4, 510, false},
        EntryCase{92, "TaLP", "Airflow left", kT, 5, 510, false},
        EntryCase{94, "TH%A", "SSD % (A)", kT, 6, 511, false},
        EntryCase{104, "TO0P", "Optical Drive", kT, 7, 511, false},
        EntryCase{109, "Tp0P", "Powerboard Proximity", kT, 9, 1, false},
        EntryCase{117, "TL0P", "LCD Proximity", kT, 10, 511, false},
        EntryCase{118, "IC0C", "CPU Core", kI, 1, 511, false},
        EntryCase{137, "IHDC", "SSD", kI, 6, 511, false},
        EntryCase{141, "ID0R", "DC In", kI, 9, 511, false},
        EntryCase{144, "VC%C", "CPU Core %", kV, 1, 511, false},
        EntryCase{163, "VeES", "PCIe 12V", kV, 4, 511, false},
        EntryCase{166, "VD0R", "DC In", kV, 9, 511, false},
        EntryCase{167, "PCPT", "CPU Package total", kP, 1, 511, false},
        EntryCase{179, "PCAM", "CPU Core (IMON)", kP, 1, 511, false},
        EntryCase{196, "PSTR", "System Total", kP, 4, 511, false},
        EntryCase{200, "PDTR", "DC In Total", kP, 9, 511, false}),
    [](const auto& info) { return "At" + std::to_string(info.param.index); });

struct FilterCase {
  const char* label;
  std::uint64_t platform;
  std::size_t count;
  const char* key;
  const char* firstName;  // null: the key has no entry on this platform
};

class CataloguePlatformFilter : public ::testing::TestWithParam<FilterCase> {};

TEST_P(CataloguePlatformFilter, KeepsEntriesWhoseMaskCoversThePlatform) {
  const auto& c = GetParam();
  const auto sensors = catalogue::getDefaultSMCSensors(c.platform, std::nullopt, std::nullopt);
  EXPECT_EQ(sensors.size(), c.count);
  const auto first = firstWithKey(sensors, c.key);
  if (c.firstName == nullptr) {
    EXPECT_EQ(first, nullptr) << c.key;
  } else {
    ASSERT_NE(first, nullptr) << c.key;
    EXPECT_EQ(first->name(), c.firstName);
  }
  for (const auto& sensor : sensors) {
    EXPECT_EQ(sensor->platform() & c.platform, c.platform) << sensor->key();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Table, CataloguePlatformFilter,
    ::testing::Values(
        FilterCase{"M1ProTp01", 4, 187, "Tp01", "CPU Performance Core 1"},
        FilterCase{"M1ProTp05", 4, 187, "Tp05", "CPU Performance Core 2"},
        FilterCase{"M1ProTp0P", 4, 187, "Tp0P", "CPU Performance Core 6"},
        FilterCase{"M1ProTh0H", 4, 187, "Th0H", nullptr},
        FilterCase{"M2Tp01", 32, 183, "Tp01", "CPU Performance Core 1"},
        FilterCase{"M2Tp05", 32, 183, "Tp05", "CPU Efficiency Core 1"},
        FilterCase{"M2Tg0f", 32, 183, "Tg0f", "GPU 1"},
        FilterCase{"M2Tp0T", 32, 183, "Tp0T", nullptr},
        FilterCase{"IntelTp0P", 1, 174, "Tp0P", "Powerboard Proximity"},
        FilterCase{"IntelTaLP", 1, 174, "TaLP", nullptr},
        FilterCase{"IntelTaRF", 1, 174, "TaRF", nullptr},
        FilterCase{"IntelTH0x", 1, 174, "TH0x", nullptr},
        FilterCase{"IntelTp01", 1, 174, "Tp01", nullptr},
        FilterCase{"M2ProTH0x", 64, 173, "TH0x", "NAND"},
        FilterCase{"M2ProTp01", 64, 173, "Tp01", nullptr},
        FilterCase{"TwoBitsNeedBoth", 3, 170, "TaLP", nullptr},
        FilterCase{"UnknownKeepsAll", 0, 201, "Tp0P", "CPU Performance Core 6"},
        FilterCase{"UnknownTp05", 0, 201, "Tp05", "CPU Performance Core 2"}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(SensorCatalogue, PlatformZeroKeepsEveryEntryInOrder) {
  const auto templates = catalogue::smcTemplates();
  const auto kept = catalogue::getDefaultSMCSensors(0, std::nullopt, std::nullopt);
  ASSERT_EQ(kept.size(), templates.size());
  for (std::size_t i = 0; i < kept.size(); ++i) EXPECT_EQ(kept[i]->key(), templates[i]->key());
}

TEST(SensorCatalogue, EveryCallBuildsFreshRecords) {
  const auto a = catalogue::getDefaultSMCSensors(1, std::nullopt, std::nullopt);
  const auto b = catalogue::getDefaultSMCSensors(1, std::nullopt, std::nullopt);
  ASSERT_FALSE(a.empty());
  EXPECT_NE(a.front(), b.front());
}

HWGPUInfo gpu(const std::string& model, std::optional<std::string> shortName, bool dedicated) {
  HWGPUInfo info;
  info.setModelName(model);
  info.setShortModelName(std::move(shortName));
  info.setIsDedicated(dedicated);
  return info;
}

TEST(SensorCatalogue, GPUPlaceholderWithoutDedicatedGPU) {
  const auto sensors = catalogue::getDefaultSMCSensors(1, std::nullopt, std::nullopt);
  const std::map<std::string, std::string> expected = {
      {"TG0P", "GPU Proximity"}, {"TGVP", "GPU Memory Proximity"}, {"TGDD", "GPU PECI"}};
  for (const auto& [key, name] : expected) {
    const auto sensor = firstWithKey(sensors, key);
    ASSERT_NE(sensor, nullptr) << key;
    EXPECT_EQ(sensor->name(), name);
    EXPECT_EQ(sensor->fullName(), name);
  }
}

TEST(SensorCatalogue, GPUPlaceholderWithDedicatedGPU) {
  const std::vector<HWGPUInfo> gpus = {gpu("Intel UHD Graphics 630", std::nullopt, false),
                                       gpu("AMD Radeon Pro 5500M", "AMD", true)};
  const auto sensors = catalogue::getDefaultSMCSensors(1, catalogue::dedicatedGPUName(gpus),
                                                       catalogue::dedicatedGPUShortName(gpus));
  const auto proximity = firstWithKey(sensors, "TG0P");
  ASSERT_NE(proximity, nullptr);
  EXPECT_EQ(proximity->name(), "GPU AMD Proximity");
  EXPECT_EQ(proximity->fullName(), "GPU AMD Radeon Pro 5500M Proximity");
  const auto memory = firstWithKey(sensors, "TGVP");
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(memory->name(), "GPU AMD Memory Proximity");
  EXPECT_EQ(memory->fullName(), "GPU AMD Radeon Pro 5500M Memory Proximity");
  // Names without the placeholder are left alone.
  EXPECT_EQ(firstWithKey(sensors, "TG0D")->fullName(), "GPU Die Analog");
}

struct DedicatedCase {
  const char* label;
  std::vector<HWGPUInfo> gpus;
  std::optional<std::string> name;
  std::optional<std::string> shortName;
};

class DedicatedGPU : public ::testing::TestWithParam<DedicatedCase> {};

TEST_P(DedicatedGPU, NamesOnlyTheLastDedicatedOfExactlyTwo) {
  const auto& c = GetParam();
  EXPECT_EQ(catalogue::dedicatedGPUName(c.gpus), c.name);
  EXPECT_EQ(catalogue::dedicatedGPUShortName(c.gpus), c.shortName);
}

INSTANTIATE_TEST_SUITE_P(
    Table, DedicatedGPU,
    ::testing::Values(
        DedicatedCase{"None", {}, std::nullopt, std::nullopt},
        DedicatedCase{"OneDedicated", {gpu("AMD Radeon Pro 5500M", "AMD", true)}, std::nullopt,
                      std::nullopt},
        DedicatedCase{"Pair",
                      {gpu("Intel UHD Graphics 630", std::nullopt, false),
                       gpu("AMD Radeon Pro 5500M", "AMD", true)},
                      "AMD Radeon Pro 5500M", "AMD"},
        DedicatedCase{"PairDedicatedFirst",
                      {gpu("NVIDIA GeForce GT 750M", "NVIDIA", true),
                       gpu("Intel Iris Pro", std::nullopt, false)},
                      "NVIDIA GeForce GT 750M", "NVIDIA"},
        DedicatedCase{"BothDedicatedTakesLast",
                      {gpu("NVIDIA GeForce GT 750M", "NVIDIA", true),
                       gpu("AMD Radeon R9 M370X", "AMD", true)},
                      "AMD Radeon R9 M370X", "AMD"},
        DedicatedCase{"PairWithoutDedicated",
                      {gpu("Intel HD Graphics 530", std::nullopt, false),
                       gpu("Intel UHD Graphics 630", std::nullopt, false)},
                      std::nullopt, std::nullopt},
        DedicatedCase{"EmptyNames",
                      {gpu("Intel UHD Graphics 630", std::nullopt, false), gpu("", "", true)},
                      std::nullopt, std::nullopt},
        DedicatedCase{"Three",
                      {gpu("Intel UHD Graphics 630", std::nullopt, false),
                       gpu("AMD Radeon Pro 5500M", "AMD", true),
                       gpu("AMD Radeon Pro W6800X", "AMD", true)},
                      std::nullopt, std::nullopt}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(SensorCatalogue, HIDEntries) {
  struct Expected {
    const char* key;
    const char* name;
    std::uint64_t group;
    bool average;
  };
  const Expected expected[] = {
      {"pACC MTR Temp Sensor%", "CPU Performance Core %", 1, true},
      {"eACC MTR Temp Sensor%", "CPU Efficiency Core %", 1, true},
      {"GPU MTR Temp Sensor%", "GPU Core %", 2, true},
      {"SOC MTR Temp Sensor%", "SOC Core %", 4, false},
      {"ANE MTR Temp Sensor%", "Neural Engine %", 4, false},
      {"ISP MTR Temp Sensor%", "Airport %", 5, false},
      {"NAND CH% temp", "Disk %s", 6, false},
      {"gas gauge battery", "Battery", 8, false},
      {"PMGR SOC Die Temp Sensor%", "Power Manager Die %", 9, false},
      {"PMU tdev%", "Power Management Unit Dev %", 9, false},
      {"PMU tdie%", "Power Management Unit Die %", 9, false},
  };
  const auto sensors = catalogue::getDefaultHIDSensors();
  ASSERT_EQ(sensors.size(), std::size(expected));
  for (std::size_t i = 0; i < sensors.size(); ++i) {
    SCOPED_TRACE(expected[i].key);
    EXPECT_EQ(sensors[i]->key(), expected[i].key);
    EXPECT_EQ(sensors[i]->name(), expected[i].name);
    EXPECT_EQ(sensors[i]->fullName(), expected[i].name);
    EXPECT_EQ(toNumber(sensors[i]->group()), expected[i].group);
    EXPECT_EQ(sensors[i]->average(), expected[i].average);
    EXPECT_EQ(sensors[i]->type(), SensorType::kTemperature);
    EXPECT_EQ(sensors[i]->platform(), kAllPlatforms);
    EXPECT_EQ(sensors[i]->sourceType(), SourceType::kHID);
  }
}

}  // namespace
}  // namespace corvane
