#include "corvane/sysinfo/cpu_info.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

TEST(PlatformFromBrand, DecidesBySubstringsInOrder) {
  for (const auto& [brand, platform] :
       std::initializer_list<std::pair<const char*, std::uint64_t>>{{"Apple M1", 2},
                                                                    {"Apple M1 Pro", 4},
                                                                    {"M1 Max", 8},
                                                                    {"Apple M1 Ultra", 16},
                                                                    {"Apple M2", 32},
                                                                    {"Apple M2 Pro", 64},
                                                                    {"M2 Max", 128},
                                                                    {"Apple M2 Ultra", 256},
                                                                    {"Apple M3 Max", 0},
                                                                    {"INTEL CORE I9", 1},
                                                                    {"apple m1 pro", 4},
                                                                    {"", 0}}) {
    EXPECT_EQ(cpu::getCPUPlatformFromBrand(brand), platform) << brand;
  }
}

TEST(BrandCleaning, DropsMarksAndFillerWords) {
  for (const auto& [raw, cleaned] : std::initializer_list<std::pair<const char*, const char*>>{
           {"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", "Intel Core i7-9750H 2.60GHz"},
           {"Intel(R) Xeon(R) W-3245 CPU @ 3.20GHz", "Intel Xeon W-3245 3.20GHz"},
           {"  Apple   M1  ", "Apple M1"},
           {"CPU @ (TM)(R)", "Unknown"}}) {
    EXPECT_EQ(cpu::cleanedBrand(raw), cleaned) << raw;
  }
  HWCPUInfo info;
  info.setBrand("Apple M1 Pro");
  EXPECT_EQ(info.shortBrand(), "M1 Pro");
  info.setBrand("Intel Core i7-9750H 2.60GHz");
  EXPECT_EQ(info.shortBrand(), "Intel Core i7-9750H 2.60GHz");
}

// The brand as recorded, cleaned, and the chip's clusters where the registry lists its processors.
TEST(CPUInfoOfMachine, BrandPlatformAndClusters) {
  testing::TempDir dir;
  struct Case {
    std::shared_ptr<const platform::MachineProfile> machine;
    std::string brand;
    std::uint64_t platform, eCores, pCores;
    std::string cores;  // name:type of each core, in order
  };
  const auto typesOf = [](const HWCPUInfo& info) {
    std::string text;
    for (const auto& core : info.coreList()) text += core.name + ":" + std::to_string(core.type) + " ";
    return text;
  };
  for (const auto& c :
       {Case{testing::builtinMachine("M2-Max"), "Apple M2 Max", 128, 4, 8,
             "cpu0:1 cpu1:1 cpu2:1 cpu3:1 cpu4:2 cpu5:2 cpu6:2 cpu7:2 cpu8:2 cpu9:2 cpu10:2 cpu11:2 "},
        Case{testing::builtinMachine("Mac16,10"), "Apple M4", 0, 6, 4,
             "cpu0:1 cpu1:1 cpu2:1 cpu3:1 cpu4:1 cpu5:1 cpu6:2 cpu7:2 cpu8:2 cpu9:2 "},
        // An Intel Mac's registry has no processor nodes: no list, counts not known.
        Case{testing::profileFromJson(R"({"name": "Laptop", "smc": [],
               "sysctl": {"machdep.cpu.brand_string": "Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz"}})"),
             "Intel Core i7-9750H 2.60GHz", 1, kUnknownCount, kUnknownCount, ""},
        // No brand; entries without a name or whole id are skipped; an unknown cluster is no kind.
        Case{testing::profileFromJson(R"({"name": "Odd", "sysctl": {}, "smc": [], "ioreg": {"cpus": [
               {"name": "cpu0", "cpu-id": 0, "cluster-type": "E"}, {"name": "cpu1", "cpu-id": -1, "cluster-type": "P"},
               {"cpu-id": 2, "cluster-type": "P"}, {"name": "cpu3", "cpu-id": 3, "cluster-type": "X"}, 5]}})"),
             "Unknown", 0, 1, 0, "cpu0:1 cpu3:0 "}}) {
    testing::installMachine(c.machine, dir.path());
    HWSystemDevice::reset();
    const HWCPUInfo info = HWSystemDevice::device()->cpuInfo();
    EXPECT_EQ(cpu::getCPUBrand(), c.brand);
    EXPECT_EQ((std::tuple{info.platform(), info.eCoreCount(), info.pCoreCount(), typesOf(info)}),
              (std::tuple{c.platform, c.eCores, c.pCores, c.cores}))
        << c.machine->name;
  }
  HWSystemDevice::reset();
}

}  // namespace
}  // namespace corvane
