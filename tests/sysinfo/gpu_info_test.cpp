#include "corvane/sysinfo/gpu_info.h"

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/sensors/sensor_catalogue.h"
#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

struct ModelCase {
  const char* model;
  std::optional<std::string> shortName;
  bool dedicated;
};

class GPUModelName : public ::testing::TestWithParam<ModelCase> {};

TEST_P(GPUModelName, ShortNameAndDedication) {
  const auto& c = GetParam();
  EXPECT_EQ(gpu::shortModelNameFrom(c.model), c.shortName) << c.model;
  EXPECT_EQ(gpu::isDedicatedFrom(c.model), c.dedicated) << c.model;
}

INSTANTIATE_TEST_SUITE_P(
    Table, GPUModelName,
    ::testing::Values(ModelCase{"AMD Radeon Pro 5500M", "AMD", true},
                      ModelCase{"Intel UHD Graphics 630", std::nullopt, false},
                      ModelCase{"NVIDIA GeForce GT 750M", "NVIDIA", true},
                      // "NVIDIA" is tested before "AMD" whatever the position in the name.
                      ModelCase{"AMD board with NVIDIA chip", "NVIDIA", true},
                      ModelCase{"Radeon HD 6750M", "Radeon", true},
                      ModelCase{"ATI Radeon HD 5770", "Radeon", true},
                      ModelCase{"amd radeon pro", std::nullopt, false},
                      ModelCase{"", std::nullopt, false}));

// A machine with the given brand and "ioreg" member (JSON text, or empty for none).
std::shared_ptr<const platform::MachineProfile> machine(const std::string& brand,
                                                        const std::string& ioreg) {
  std::string json = R"({"name": "Test", "smc": [], "sysctl": {"machdep.cpu.brand_string": ")" +
                     brand + "\"}";
  if (!ioreg.empty()) json += R"(, "ioreg": )" + ioreg;
  return testing::profileFromJson(json + "}");
}

class GPUInfoOfMachine : public ::testing::Test {
 protected:
  void install(const std::string& brand, const std::string& ioreg) {
    testing::installMachine(machine(brand, ioreg), dir_.path());
    HWSystemDevice::reset();
  }
  void TearDown() override { HWSystemDevice::reset(); }
  testing::TempDir dir_;
};

constexpr const char* kTwoGPUs =
    R"({"pci": [{"name": "bridge"}, {"model": "Intel UHD Graphics 630"},
                {"model": "AMD Radeon Pro 5500M"}, {"model": ""}]})";

TEST_F(GPUInfoOfMachine, IntelMachineListsPCIDevicesWithModels) {
  install("Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", kTwoGPUs);
  const auto gpus = gpu::getGPUInfo(cpu_platform::kIntel);
  ASSERT_TRUE(gpus.has_value());
  ASSERT_EQ(gpus->size(), 2u);
  EXPECT_EQ((*gpus)[0].modelName(), "Intel UHD Graphics 630");
  EXPECT_EQ((*gpus)[0].shortModelName(), std::nullopt);
  EXPECT_FALSE((*gpus)[0].isDedicated());
  EXPECT_EQ((*gpus)[1].modelName(), "AMD Radeon Pro 5500M");
  EXPECT_EQ((*gpus)[1].shortModelName(), "AMD");
  EXPECT_TRUE((*gpus)[1].isDedicated());
}

TEST_F(GPUInfoOfMachine, UnrecognisedChipTakesTheRegistryPath) {
  install("Apple M3 Max", R"({"pci": [{"model": "Apple M3 Max GPU"}]})");
  const auto& gpus = HWSystemDevice::device()->gpuInfos();
  ASSERT_TRUE(gpus.has_value());
  ASSERT_EQ(gpus->size(), 1u);
  EXPECT_EQ((*gpus)[0].modelName(), "Apple M3 Max GPU");
}

TEST_F(GPUInfoOfMachine, RecognisedAppleSiliconListsNothingYet) {
  install("Apple M1 Pro", R"({"pci": [{"model": "AMD Radeon Pro 5500M"}]})");
  const auto& gpus = HWSystemDevice::device()->gpuInfos();
  ASSERT_TRUE(gpus.has_value());
  EXPECT_TRUE(gpus->empty());
}

TEST_F(GPUInfoOfMachine, RecordedMachinesWithoutRegistryDataHaveNoGPUs) {
  install("Intel", "");
  const auto gpus = gpu::getGPUInfo(cpu_platform::kIntel);
  ASSERT_TRUE(gpus.has_value());
  EXPECT_TRUE(gpus->empty());
}

// From the recorded machine to the catalogue's GPU names, as the sensor reader joins them.
TEST_F(GPUInfoOfMachine, CatalogueNamesTheDedicatedGPU) {
  install("Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", kTwoGPUs);
  auto device = HWSystemDevice::device();
  const auto gpus = device->gpuInfos().value_or(std::vector<HWGPUInfo>());
  const auto sensors = catalogue::getDefaultSMCSensors(device->cpuInfo().platform(),
                                                       catalogue::dedicatedGPUName(gpus),
                                                       catalogue::dedicatedGPUShortName(gpus));
  EXPECT_EQ(sensors.size(), 174u);
  const auto proximity = std::find_if(sensors.begin(), sensors.end(),
                                      [](const auto& s) { return s->key() == "TG0P"; });
  ASSERT_NE(proximity, sensors.end());
  EXPECT_EQ((*proximity)->name(), "GPU AMD Proximity");
  EXPECT_EQ((*proximity)->fullName(), "GPU AMD Radeon Pro 5500M Proximity");
}

TEST_F(GPUInfoOfMachine, DeviceKeepsWhatItGatheredUntilReset) {
  install("Intel", kTwoGPUs);
  auto first = HWSystemDevice::device();
  EXPECT_EQ(first->gpuInfos()->size(), 2u);
  EXPECT_EQ(HWSystemDevice::device(), first);

  testing::TempDir other;
  testing::installMachine(machine("Apple M2", ""), other.path());
  // Still the machine gathered first, until a test resets the description.
  EXPECT_EQ(HWSystemDevice::device()->cpuInfo().platform(), cpu_platform::kIntel);
  HWSystemDevice::reset();
  auto second = HWSystemDevice::device();
  EXPECT_NE(second, first);
  EXPECT_EQ(second->cpuInfo().platform(), cpu_platform::kM2);
  EXPECT_EQ(first->gpuInfos()->size(), 2u);
}

TEST_F(GPUInfoOfMachine, ConcurrentFirstAccessGathersOnce) {
  install("Intel", kTwoGPUs);
  auto device = HWSystemDevice::device();
  std::vector<const std::optional<std::vector<HWGPUInfo>>*> seen(4, nullptr);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&, i] { seen[i] = &device->gpuInfos(); });
  }
  for (auto& thread : threads) thread.join();
  for (const auto* list : seen) {
    ASSERT_EQ(list, seen[0]);
    EXPECT_EQ((*list)->size(), 2u);
  }
}

}  // namespace
}  // namespace corvane
