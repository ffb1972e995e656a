#include "corvane/sysinfo/cpu_info.h"

#include <gtest/gtest.h>

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

TEST(CPUInfoOfMachine, ReadsTheRecordedBrandOrUnknown) {
  testing::TempDir dir;
  struct Case {
    std::shared_ptr<const platform::MachineProfile> machine;
    const char* brand;
    std::uint64_t platform;
  };
  for (const auto& c : {Case{testing::builtinMachine("MacBookPro16,1"), "Intel", 1},
                        Case{testing::builtinMachine("M2-Max"), "Apple M2 Max", 128},
                        Case{testing::profileFromJson(R"({"name": "Laptop", "smc": [],
                               "sysctl": {"machdep.cpu.brand_string": "Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz"}})"),
                             "Intel Core i7-9750H 2.60GHz", 1},
                        Case{testing::profileFromJson(R"({"name": "Bare", "sysctl": {}, "smc": []})"), "Unknown", 0}}) {
    testing::installMachine(c.machine, dir.path());
    HWSystemDevice::reset();
    EXPECT_EQ(cpu::getCPUBrand(), c.brand);
    EXPECT_EQ(HWSystemDevice::device()->cpuInfo().platform(), c.platform) << c.brand;
  }
  HWSystemDevice::reset();
}

}  // namespace
}  // namespace corvane
