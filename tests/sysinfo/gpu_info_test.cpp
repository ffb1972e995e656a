#include "corvane/sysinfo/gpu_info.h"

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

TEST(GPUModelName, ShortNameAndDedication) {
  struct Case {
    const char* model;
    std::optional<std::string> shortName;
    bool dedicated;
  };
  for (const auto& c : {Case{"AMD Radeon Pro 5500M", "AMD", true}, Case{"Intel UHD Graphics 630", std::nullopt, false},
                        // "NVIDIA" is tested before "AMD" whatever the position in the name.
                        Case{"AMD board with NVIDIA chip", "NVIDIA", true}, Case{"ATI Radeon HD 5770", "Radeon", true},
                        Case{"amd radeon pro", std::nullopt, false}}) {
    EXPECT_EQ(gpu::shortModelNameFrom(c.model), c.shortName) << c.model;
    EXPECT_EQ(gpu::isDedicatedFrom(c.model), c.dedicated) << c.model;
  }
}

class GPUInfoOfMachine : public ::testing::Test {
 protected:
  void install(const std::string& brand, const std::string& ioreg) {
    std::string json = R"({"name": "Test", "smc": [], "sysctl": {"machdep.cpu.brand_string": ")" + brand + "\"}";
    if (!ioreg.empty()) json += R"(, "ioreg": )" + ioreg;
    testing::installMachine(testing::profileFromJson(json + "}"), dir_.path());
    HWSystemDevice::reset();
  }
  void TearDown() override { HWSystemDevice::reset(); }
  testing::TempDir dir_;
};

constexpr const char* kTwoGPUs =
    R"({"pci": [{"name": "bridge"}, {"model": "Intel UHD Graphics 630"},
                {"model": "AMD Radeon Pro 5500M"}, {"model": ""}]})";

TEST_F(GPUInfoOfMachine, IntelAndUnrecognisedChipsListPCIDevicesWithModelsRecognisedAppleSiliconNothing) {
  install("Intel(R) Core(TM) i9-9880H CPU @ 2.30GHz", kTwoGPUs);
  const auto gpus = gpu::getGPUInfo(cpu_platform::kIntel);
  ASSERT_TRUE(gpus.has_value() && gpus->size() == 2u);
  EXPECT_TRUE((*gpus)[0].modelName() == "Intel UHD Graphics 630" && !(*gpus)[0].isDedicated());
  EXPECT_TRUE((*gpus)[1].shortModelName() == "AMD" && (*gpus)[1].isDedicated());
  install("Intel", "");  // recorded machines without registry data have no GPUs
  EXPECT_TRUE(gpu::getGPUInfo(cpu_platform::kIntel)->empty());
  install("Apple M3 Max", R"({"pci": [{"model": "Apple M3 Max GPU"}]})");
  EXPECT_EQ(HWSystemDevice::device()->gpuInfos()->at(0).modelName(), "Apple M3 Max GPU");
  // Apple silicon's graphics come from the profiler, never from PCI, and a recorded machine has
  // no profiler to run.
  install("Apple M1 Pro", R"({"pci": [{"model": "AMD Radeon Pro 5500M"}]})");
  EXPECT_FALSE(HWSystemDevice::device()->gpuInfos().has_value());
}

TEST(GPUInfoFromProfiler, ReadsEachDisplaysEntry) {
  // Output; model, vendor, cores, memory of each entry ("" for a list of none, "-" for no list).
  const std::pair<const char*, std::string> cases[] = {
      {R"({"SPDisplaysDataType": [{"sppci_model": "Apple M1 Pro", "spdisplays_vendor": "sppci_vendor_Apple",
           "sppci_cores": "16", "spdisplays_vram_shared": "16 GB", "spdisplays_vram": "x"}]})",
       "Apple M1 Pro|sppci_vendor_Apple|16|16 GB;"},
      {R"({"SPDisplaysDataType": [{"sppci_model": "GPU", "sppci_cores": 10, "spdisplays_vram": "1536 MB"}, 7,
           {"sppci_model": 5, "sppci_cores": "many"}]})",
       "GPU||10|1536 MB;||0|;"},
      {R"({"SPDisplaysDataType": []})", ""},
      {R"({"SPDisplaysDataType": {"sppci_model": "GPU"}})", "-"},
      {R"({"SPOther": []})", "-"},
      {"not json", "-"}};
  for (const auto& [output, expected] : cases) {
    const auto gpus = gpu::gpuInfosFromProfiler(output);
    std::string seen = gpus ? "" : "-";
    for (const auto& g : gpus.value_or(std::vector<HWGPUInfo>())) {
      seen += g.modelName() + "|" + g.vendor() + "|" + std::to_string(g.cores()) + "|" + g.vram() + ";";
      EXPECT_EQ(g.shortModelName(), g.modelName());
    }
    EXPECT_EQ(seen, expected) << output;
  }
}

TEST_F(GPUInfoOfMachine, DeviceKeepsWhatItGatheredUntilResetAndGathersOnceUnderConcurrency) {
  install("Intel", kTwoGPUs);
  auto device = HWSystemDevice::device();
  std::vector<const std::optional<std::vector<HWGPUInfo>>*> seen(4, nullptr);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < seen.size(); ++i) threads.emplace_back([&, i] { seen[i] = &device->gpuInfos(); });
  for (auto& thread : threads) thread.join();
  for (const auto* list : seen) EXPECT_TRUE(list == seen[0] && (*list)->size() == 2u);

  testing::TempDir other;
  testing::installMachine(
      testing::profileFromJson(R"({"name": "M2", "smc": [], "sysctl": {"machdep.cpu.brand_string": "Apple M2"}})"),
      other.path());
  EXPECT_EQ(HWSystemDevice::device(), device) << "still the machine gathered first, until a reset";
  HWSystemDevice::reset();
  EXPECT_EQ(HWSystemDevice::device()->cpuInfo().platform(), cpu_platform::kM2);
}

}  // namespace
}  // namespace corvane
