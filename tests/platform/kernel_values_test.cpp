#include "corvane/platform/kernel_values.h"

#include <cstring>
#include <fstream>

#include <gtest/gtest.h>

#include "corvane/platform/platform.h"
#include "platform/kernel_values_backends.h"
#include "support/test_support.h"

#ifdef __linux__
#include "platform/linux/kernel_values_linux.h"
#endif

namespace corvane::platform {
namespace {

int64_t asInt64(const std::string& bytes) {
  int64_t value = 0;
  EXPECT_EQ(bytes.size(), sizeof value);
  std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
  return value;
}

int32_t asInt32(const std::string& bytes) {
  int32_t value = 0;
  EXPECT_EQ(bytes.size(), sizeof value);
  std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
  return value;
}

// ---- recorded machines ----

struct EncodeCase {
  const char* name;
  const char* json;
  std::optional<std::string> bytes;
};

class SysctlEncodingTest : public ::testing::TestWithParam<EncodeCase> {};

TEST_P(SysctlEncodingTest, EncodesAsTheMacHandsOut) {
  const EncodeCase& c = GetParam();
  EXPECT_EQ(sim::encodeSysctlValue(c.name, nlohmann::json::parse(c.json)), c.bytes) << c.name << " = " << c.json;
}

INSTANTIATE_TEST_SUITE_P(
    Values, SysctlEncodingTest,
    ::testing::Values(EncodeCase{"hw.model", R"("MacBookPro16,1")", std::string("MacBookPro16,1\0", 15)},
                      EncodeCase{"kern.hostname", R"("")", std::string(1, '\0')},
                      EncodeCase{"hw.ncpu", "16", kernel_bytes::fromInt32(16)},
                      EncodeCase{"hw.optional.arm64", "true", kernel_bytes::fromInt32(1)},
                      EncodeCase{"hw.optional.arm64", "false", kernel_bytes::fromInt32(0)},
                      EncodeCase{"hw.memsize", "17179869184", kernel_bytes::fromInt64(17179869184LL)},
                      // 64-bit by name even when small.
                      EncodeCase{"hw.pagesize", "4096", kernel_bytes::fromInt64(4096)},
                      EncodeCase{"hw.cpufrequency", "2.4e9", kernel_bytes::fromInt64(2400000000LL)},
                      // Too wide for 32 bits: widened rather than cut.
                      EncodeCase{"kern.unknown", "5000000000", kernel_bytes::fromInt64(5000000000LL)},
                      EncodeCase{"kern.negative", "-7", kernel_bytes::fromInt32(-7)},
                      EncodeCase{"machdep.cpu.feature_bits", "18446744073709551615", kernel_bytes::fromInt64(-1)},
                      EncodeCase{"hw.ncpu", "1.5", std::nullopt}, EncodeCase{"hw.ncpu", "null", std::nullopt},
                      EncodeCase{"hw.ncpu", "[1]", std::nullopt}));

TEST(SimKernelValues, AnswersFromTheBuiltInMachine) {
  testing::TempDir dir;
  std::string error;
  auto profile = loadBuiltinProfile("MacBookPro16,1", &error);
  ASSERT_NE(profile, nullptr) << error;
  auto platform = simulated(profile, {.root = dir.path(), .announce = false, .source = {}});
  auto values = KernelValues::create(*platform);
  EXPECT_EQ(values->valueByName("hw.model"), std::string("MacBookPro16,1\0", 15));
  EXPECT_EQ(values->valueByName("hw.no.such.value"), std::nullopt);
}

TEST(SimKernelValues, ServiceOfTheInstalledMachineWidensMemorySize) {
  testing::TempDir dir;
  auto profile =
      testing::profileFromJson(R"({"name": "Test", "sysctl": {"hw.memsize": 17179869184, "hw.ncpu": 8}, "smc": []})");
  auto platform = simulated(profile, {.root = dir.path(), .announce = false, .source = {}});
  auto& values = platform->service<KernelValues>();
  EXPECT_EQ(asInt64(values.valueByName("hw.memsize").value_or("")), 17179869184LL);
  EXPECT_EQ(asInt32(values.valueByName("hw.ncpu").value_or("")), 8);
}

#ifdef __linux__
// ---- Linux ----

constexpr const char* kIntelCpuInfo =
    "processor\t: 0\nvendor_id\t: GenuineIntel\ncpu family\t: 6\nmodel\t\t: 158\n"
    "model name\t: Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz\ncpu MHz\t\t: 2400.000\n"
    "physical id\t: 0\nsiblings\t: 4\ncore id\t\t: 0\ncpu cores\t: 2\n\n"
    "processor\t: 1\nmodel name\t: Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz\ncpu MHz\t\t: 800.123\n"
    "physical id\t: 0\ncore id\t\t: 1\n\n"
    "processor\t: 2\nmodel name\t: Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz\nphysical id\t: 0\ncore id\t\t: 0\n\n"
    "processor\t: 3\nmodel name\t: Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz\nphysical id\t: 0\ncore id\t\t: 1\n\n";

constexpr const char* kArmCpuInfo =
    "processor\t: 0\nBogoMIPS\t: 108.00\nFeatures\t: fp asimd evtstrm crc32 cpuid\n"
    "CPU implementer\t: 0x41\nCPU architecture: 8\nCPU variant\t: 0x0\nCPU part\t: 0xd08\nCPU revision\t: 3\n\n"
    "processor\t: 1\nBogoMIPS\t: 108.00\nCPU implementer\t: 0x41\nCPU part\t: 0xd08\n\n"
    "Hardware\t: BCM2835\nRevision\t: c03111\nModel\t\t: Raspberry Pi 4 Model B Rev 1.1\n";

// Two sockets, core ids repeating per socket.
constexpr const char* kTwoSocketCpuInfo =
    "processor : 0\nmodel name : Xeon\nphysical id : 0\ncore id : 0\n\n"
    "processor : 1\nmodel name : Xeon\nphysical id : 1\ncore id : 0\n\n";

struct CpuInfoCase {
  const char* label;
  const char* text;
  std::string brand;
  int logical;
  int physical;
  double megahertz;
};

class CpuInfoTest : public ::testing::TestWithParam<CpuInfoCase> {};

TEST_P(CpuInfoTest, Parses) {
  const CpuInfoCase& c = GetParam();
  const procfs::CpuInfo info = procfs::parseCpuInfo(c.text);
  EXPECT_EQ(info.brand, c.brand);
  EXPECT_EQ(info.logicalCpus, c.logical);
  EXPECT_EQ(info.physicalCpus, c.physical);
  EXPECT_DOUBLE_EQ(info.megahertz, c.megahertz);
}

INSTANTIATE_TEST_SUITE_P(
    Fixtures, CpuInfoTest,
    ::testing::Values(CpuInfoCase{"intel", kIntelCpuInfo, "Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz", 4, 2, 2400.0},
                      CpuInfoCase{"arm", kArmCpuInfo, "ARM Cortex-A72", 2, 2, 0.0},
                      CpuInfoCase{"two_sockets", kTwoSocketCpuInfo, "Xeon", 2, 2, 0.0},
                      CpuInfoCase{"old_arm", "Processor\t: ARMv7 Processor rev 4 (v7l)\nprocessor\t: 0\n", "", 1, 1,
                                  0.0},
                      CpuInfoCase{"empty", "", "", 0, 0, 0.0}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(ProcParsers, MemTotal) {
  EXPECT_EQ(procfs::parseMemTotal("MemTotal:       16777216 kB\nMemFree:  1 kB\n"), 17179869184ULL);
  EXPECT_EQ(procfs::parseMemTotal("MemFree:        1000 kB\nMemTotal: 2048 kB\n"), 2097152ULL);
  EXPECT_EQ(procfs::parseMemTotal("MemFree: 1000 kB\n"), std::nullopt);
  EXPECT_EQ(procfs::parseMemTotal("MemTotal: lots kB\n"), std::nullopt);
  EXPECT_EQ(procfs::parseMemTotal("MemTotal: 12 MB\n"), std::nullopt);
}

TEST(ProcParsers, BootTimeAndBrandFrequency) {
  EXPECT_EQ(procfs::parseBootTime("cpu  1 2 3\nintr 5\nbtime 1700000000\nprocesses 9\n"), 1700000000);
  EXPECT_EQ(procfs::parseBootTime("cpu  1 2 3\n"), std::nullopt);
  EXPECT_EQ(procfs::frequencyFromBrand("Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz"), 2400000000ULL);
  EXPECT_EQ(procfs::frequencyFromBrand("Some CPU @ 800MHz"), 800000000ULL);
  EXPECT_EQ(procfs::frequencyFromBrand("Apple M2 Max"), std::nullopt);
  EXPECT_EQ(procfs::frequencyFromBrand("CPU @ fastGHz"), std::nullopt);
  EXPECT_EQ(procfs::singleValue("Raspberry Pi 4 Model B Rev 1.1\0"), "Raspberry Pi 4 Model B Rev 1.1");
  EXPECT_EQ(procfs::singleValue(std::string_view("Model\n\0\0", 8)), "Model");
  EXPECT_EQ(procfs::singleValue(" \n"), std::nullopt);
}

void writeFile(const std::filesystem::path& path, std::string_view text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << text;
}

class LinuxTreeTest : public ::testing::Test {
 protected:
  LinuxTreeTest() : values_(procfs::makeKernelValues({dir_.path() / "proc", dir_.path() / "sys"})) {}
  std::filesystem::path proc(std::string_view rest) const { return dir_.path() / "proc" / rest; }
  std::filesystem::path sys(std::string_view rest) const { return dir_.path() / "sys" / rest; }
  std::string str(std::string_view name) const { return values_->valueByName(name).value_or("<none>"); }

  testing::TempDir dir_;
  std::shared_ptr<KernelValues> values_;
};

TEST_F(LinuxTreeTest, MapsMacNamesOntoTheFixtureTree) {
  writeFile(proc("cpuinfo"), kIntelCpuInfo);
  writeFile(proc("meminfo"), "MemTotal:       16777216 kB\n");
  writeFile(proc("stat"), "cpu 1 2\nbtime 1700000000\n");
  writeFile(proc("sys/kernel/ostype"), "Linux\n");
  writeFile(proc("sys/kernel/osrelease"), "6.1.0-18-amd64\n");
  writeFile(proc("sys/kernel/hostname"), "builder\n");
  writeFile(sys("class/dmi/id/product_name"), "MacBookPro16,1\n");

  EXPECT_EQ(str("hw.model"), std::string("MacBookPro16,1\0", 15));
  EXPECT_EQ(str("machdep.cpu.brand_string"), std::string("Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz") + '\0');
  EXPECT_EQ(asInt32(str("hw.ncpu")), 4);
  EXPECT_EQ(asInt32(str("hw.logicalcpu")), 4);
  EXPECT_EQ(asInt32(str("hw.physicalcpu")), 2);
  EXPECT_EQ(asInt64(str("hw.memsize")), 17179869184LL);
  EXPECT_EQ(asInt64(str("hw.cpufrequency")), 2400000000LL);
  EXPECT_EQ(str("kern.ostype"), std::string("Linux") + '\0');
  EXPECT_EQ(str("kern.osrelease"), std::string("6.1.0-18-amd64") + '\0');
  EXPECT_EQ(str("kern.hostname"), std::string("builder") + '\0');
  const std::string boot = str("kern.boottime");
  ASSERT_EQ(boot.size(), 16u);
  EXPECT_EQ(asInt64(boot.substr(0, 8)), 1700000000);
  EXPECT_EQ(boot.substr(8), std::string(8, '\0'));
  EXPECT_EQ(str("kern.version"), "<none>");
  EXPECT_EQ(str("hw.optional.arm64"), "<none>");
}

TEST_F(LinuxTreeTest, ArmBoardFallsBackToDeviceTreeAndCpufreq) {
  writeFile(proc("cpuinfo"), kArmCpuInfo);
  writeFile(sys("firmware/devicetree/base/model"), std::string("Raspberry Pi 4 Model B Rev 1.1\0", 31));
  writeFile(sys("devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq"), "1500000\n");

  EXPECT_EQ(str("hw.model"), std::string("Raspberry Pi 4 Model B Rev 1.1") + '\0');
  EXPECT_EQ(str("machdep.cpu.brand_string"), std::string("ARM Cortex-A72") + '\0');
  EXPECT_EQ(asInt64(str("hw.cpufrequency")), 1500000000LL);
  EXPECT_EQ(str("hw.memsize"), "<none>");
}

TEST_F(LinuxTreeTest, EmptyTreeHasNoValues) {
  for (const char* name : {"hw.model", "machdep.cpu.brand_string", "hw.ncpu", "hw.memsize", "hw.cpufrequency",
                           "kern.boottime", "kern.ostype"}) {
    EXPECT_EQ(values_->valueByName(name), std::nullopt) << name;
  }
}

TEST(NativeKernelValues, ReadsThisHost) {
  auto values = nativeKernelValues();
  const auto ostype = values->valueByName("kern.ostype");
  ASSERT_TRUE(ostype.has_value());
  EXPECT_EQ(*ostype, std::string("Linux") + '\0');
  EXPECT_GT(asInt64(values->valueByName("hw.memsize").value_or(std::string(8, '\0'))), 0);
}
#endif

}  // namespace
}  // namespace corvane::platform
