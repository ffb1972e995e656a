#include "corvane/sysinfo/cpu_info.h"

#include <cctype>
#include <string>

#include <gtest/gtest.h>

#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

struct PlatformCase {
  const char* brand;
  std::uint64_t platform;
};

class PlatformFromBrand : public ::testing::TestWithParam<PlatformCase> {};

TEST_P(PlatformFromBrand, DecidesBySubstringsInOrder) {
  EXPECT_EQ(cpu::getCPUPlatformFromBrand(GetParam().brand), GetParam().platform)
      << GetParam().brand;
}

INSTANTIATE_TEST_SUITE_P(
    Table, PlatformFromBrand,
    ::testing::Values(PlatformCase{"Apple M1", 2}, PlatformCase{"Apple M1 Pro", 4},
                      PlatformCase{"Apple M1 Max", 8}, PlatformCase{"Apple M1 Ultra", 16},
                      PlatformCase{"M1 Ultra", 16}, PlatformCase{"M1 Max", 8},
                      PlatformCase{"Apple M2", 32}, PlatformCase{"Apple M2 Pro", 64},
                      PlatformCase{"Apple M2 Max", 128}, PlatformCase{"M2 Max", 128},
                      PlatformCase{"Apple M2 Ultra", 256}, PlatformCase{"Apple M3 Max", 0},
                      PlatformCase{"Apple M4", 0}, PlatformCase{"Apple A18 Pro", 0},
                      PlatformCase{"Intel", 1}, PlatformCase{"Intel Core i7-9750H 2.60GHz", 1},
                      PlatformCase{"INTEL CORE I9", 1}, PlatformCase{"apple m1 pro", 4},
                      PlatformCase{"Unknown", 0}, PlatformCase{"", 0}));

struct BrandCase {
  const char* raw;
  const char* cleaned;
};

class BrandCleaning : public ::testing::TestWithParam<BrandCase> {};

TEST_P(BrandCleaning, DropsMarksAndFillerWords) {
  EXPECT_EQ(cpu::cleanedBrand(GetParam().raw), GetParam().cleaned);
}

INSTANTIATE_TEST_SUITE_P(
    Table, BrandCleaning,
    ::testing::Values(
        BrandCase{"Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz", "Intel Core i7-9750H 2.60GHz"},
        BrandCase{"Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz", "Intel Core i9-9980HK 2.40GHz"},
        BrandCase{"Intel(R) Xeon(R) W-3245 CPU @ 3.20GHz", "Intel Xeon W-3245 3.20GHz"},
        BrandCase{"Apple M2 Max", "Apple M2 Max"}, BrandCase{"  Apple   M1  ", "Apple M1"},
        BrandCase{"", "Unknown"}, BrandCase{"CPU @ (TM)(R)", "Unknown"},
        BrandCase{"   ", "Unknown"}));

TEST(HWCPUInfo, ShortBrandDropsApple) {
  HWCPUInfo info;
  info.setBrand("Apple M1 Pro");
  EXPECT_EQ(info.shortBrand(), "M1 Pro");
  info.setBrand("Intel Core i7-9750H 2.60GHz");
  EXPECT_EQ(info.shortBrand(), "Intel Core i7-9750H 2.60GHz");
}

TEST(HWCPUInfo, DefaultsAreTheUnavailableValues) {
  const HWCPUInfo info;
  EXPECT_EQ(info.brand(), "Unknown");
  EXPECT_EQ(info.platform(), cpu_platform::kUnknown);
  EXPECT_EQ(info.cpuCount(), 1u);
  EXPECT_EQ(info.coreCount(), kUnknownCount);
  EXPECT_EQ(info.eCoreCount(), kUnknownCount);
  EXPECT_TRUE(info.coreList().empty());
  EXPECT_DOUBLE_EQ(info.frequency(), -0.000000001);
  EXPECT_DOUBLE_EQ(info.l2Cache(), -0.00000095367431640625);
  EXPECT_FALSE(info.hasEPCores());
}

struct MachineCase {
  const char* machine;
  const char* brand;
  std::uint64_t platform;
  const char* shortBrand;
};

class CPUInfoOfMachine : public ::testing::TestWithParam<MachineCase> {
 protected:
  void TearDown() override { HWSystemDevice::reset(); }
  testing::TempDir dir_;
};

TEST_P(CPUInfoOfMachine, ReadsTheRecordedBrand) {
  const auto& c = GetParam();
  std::string error;
  auto profile = platform::loadBuiltinProfile(c.machine, &error);
  ASSERT_NE(profile, nullptr) << error;
  testing::installMachine(profile, dir_.path());
  HWSystemDevice::reset();
  EXPECT_EQ(cpu::getCPUBrand(), c.brand);
  const auto& info = HWSystemDevice::device()->cpuInfo();
  EXPECT_EQ(info.brand(), c.brand);
  EXPECT_EQ(info.platform(), c.platform);
  EXPECT_EQ(info.shortBrand(), c.shortBrand);
}

INSTANTIATE_TEST_SUITE_P(
    Builtin, CPUInfoOfMachine,
    ::testing::Values(MachineCase{"MacBookPro16,1", "Intel", 1, "Intel"},
                      MachineCase{"M2-Max", "Apple M2 Max", 128, "M2 Max"},
                      MachineCase{"Mac16,10", "Apple M4", 0, "M4"}),
    [](const auto& info) {
      std::string name = info.param.machine;
      for (auto& ch : name) {
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
      }
      return name;
    });

TEST(CPUInfoOfTestMachine, MissingBrandIsUnknown) {
  testing::TempDir dir;
  testing::installMachine(testing::profileFromJson(R"({"name": "Bare", "sysctl": {}, "smc": []})"),
                          dir.path());
  HWSystemDevice::reset();
  EXPECT_EQ(cpu::getCPUBrand(), "Unknown");
  EXPECT_EQ(HWSystemDevice::device()->cpuInfo().platform(), cpu_platform::kUnknown);
  HWSystemDevice::reset();
}

TEST(CPUInfoOfTestMachine, IntelBrandIsCleaned) {
  testing::TempDir dir;
  testing::installMachine(
      testing::profileFromJson(R"({"name": "Laptop", "smc": [],
          "sysctl": {"machdep.cpu.brand_string": "Intel(R) Core(TM) i7-9750H CPU @ 2.60GHz"}})"),
      dir.path());
  EXPECT_EQ(cpu::getCPUBrand(), "Intel Core i7-9750H 2.60GHz");
  EXPECT_EQ(cpu::getCPUInfo().platform(), cpu_platform::kIntel);
}

}  // namespace
}  // namespace corvane
