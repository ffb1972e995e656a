#include "corvane/platform/kernel_values.h"

#include <array>
#include <cstring>
#include <tuple>

#include <gtest/gtest.h>

#include "platform/kernel_values_backends.h"
#include "support/test_support.h"

#ifdef __linux__
#include "platform/linux/kernel_values_linux.h"
#endif

namespace corvane::platform {
namespace {

const std::filesystem::path kData = std::filesystem::path(CORVANE_SOURCE_DIR) / "tests/platform/data";

template <class Int>
Int as(const std::string& bytes) {
  Int value = 0;
  EXPECT_EQ(bytes.size(), sizeof value);
  std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof value));
  return value;
}

// ---- recorded machines ----

TEST(SysctlEncodingTest, EncodesAsTheMacHandsOut) {
  for (const auto& [name, json, bytes] :
       std::initializer_list<std::tuple<const char*, const char*, std::optional<std::string>>>{
           {"hw.model", R"("MacBookPro16,1")", std::string("MacBookPro16,1\0", 15)},
           {"kern.hostname", R"("")", std::string(1, '\0')},
           {"hw.optional.arm64", "true", kernel_bytes::fromInt32(1)},
           {"hw.pagesize", "4096", kernel_bytes::fromInt64(4096)},                 // 64-bit by name even when small
           {"kern.unknown", "5000000000", kernel_bytes::fromInt64(5000000000LL)},  // widened rather than cut
           {"kern.negative", "-7", kernel_bytes::fromInt32(-7)},
           {"machdep.cpu.feature_bits", "18446744073709551615", kernel_bytes::fromInt64(-1)},
           {"hw.ncpu", "1.5", std::nullopt},
           {"hw.ncpu", "[1]", std::nullopt}}) {
    EXPECT_EQ(sim::encodeSysctlValue(name, nlohmann::json::parse(json)), bytes) << name << " = " << json;
  }
}

#ifdef __linux__
// ---- Linux ----

const std::string kIntelCpuInfo = testing::readFile(kData / "cpuinfo-intel.txt");

const std::string kArmCpuInfo = testing::readFile(kData / "cpuinfo-arm.txt");

// Two sockets, core ids repeating per socket.
constexpr const char* kTwoSocketCpuInfo =
    "processor : 0\nmodel name : Xeon\nphysical id : 0\ncore id : 0\n\n"
    "processor : 1\nmodel name : Xeon\nphysical id : 1\ncore id : 0\n\n";

TEST(CpuInfoTest, Parses) {
  struct Case {
    const char* text;
    std::string brand;
    int logical, physical;
    double megahertz;
  };
  for (const auto& c :
       {Case{kIntelCpuInfo.c_str(), "Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz", 4, 2, 2400.0},
        Case{kArmCpuInfo.c_str(), "ARM Cortex-A72", 2, 2, 0.0}, Case{kTwoSocketCpuInfo, "Xeon", 2, 2, 0.0},
        Case{"processor : 0\nCPU implementer : 0x61\nCPU part : 0x022\n", "Apple", 1, 1, 0.0},
        Case{"Processor\t: ARMv7 Processor rev 4 (v7l)\nprocessor\t: 0\n", "", 1, 1, 0.0},
        // Not text, and a terminal escape: shown neither raw nor in JSON.
        Case{"processor : 0\nmodel name : Fast\xff\x1b[2J CPU\n", "Fast\uFFFD[2J CPU", 1, 1, 0.0}}) {
    const procfs::CpuInfo info = procfs::parseCpuInfo(c.text);
    EXPECT_EQ(info.brand, c.brand);
    EXPECT_EQ(info.logicalCpus, c.logical) << c.brand;
    EXPECT_EQ(info.physicalCpus, c.physical) << c.brand;
    EXPECT_DOUBLE_EQ(info.megahertz, c.megahertz);
  }
}

TEST(ProcParsers, MemTotalBootTimeAndBrandFrequency) {
  EXPECT_EQ(procfs::parseMemTotal("MemTotal:       16777216 kB\nMemFree:  1 kB\n"), 17179869184ULL);
  EXPECT_EQ(procfs::parseMemTotal("MemFree:        1000 kB\nMemTotal: 2048 kB\n"), 2097152ULL);
  EXPECT_EQ(procfs::parseMemTotal("MemTotal: lots kB\n"), std::nullopt);
  EXPECT_EQ(procfs::parseMemTotal("MemTotal: 12 MB\n"), std::nullopt);

  EXPECT_EQ(procfs::parseBootTime("cpu  1 2 3\nintr 5\nbtime 1700000000\nprocesses 9\n"), 1700000000);
  EXPECT_EQ(procfs::parseBootTime("cpu  1 2 3\n"), std::nullopt);
  EXPECT_EQ(procfs::frequencyFromBrand("Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz"), 2400000000ULL);
  EXPECT_EQ(procfs::frequencyFromBrand("Some CPU @ 800MHz"), 800000000ULL);
  EXPECT_EQ(procfs::frequencyFromBrand("CPU @ fastGHz"), std::nullopt);
  EXPECT_EQ(procfs::singleValue(std::string_view("Model\n\0\0", 8)), "Model");
  EXPECT_EQ(procfs::singleValue(" \n"), std::nullopt);
  EXPECT_EQ(procfs::singleValue("Mac\x01" "Book\xC0\n"), "MacBook\uFFFD");
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
  testing::writeFile(proc("cpuinfo"), kIntelCpuInfo);
  testing::writeFile(proc("meminfo"), "MemTotal:       16777216 kB\n");
  testing::writeFile(proc("stat"), "cpu 1 2\nbtime 1700000000\n");
  testing::writeFile(proc("sys/kernel/ostype"), "Linux\n");
  testing::writeFile(sys("class/dmi/id/product_name"), "MacBookPro16,1\n");

  EXPECT_EQ(str("hw.model"), std::string("MacBookPro16,1\0", 15));
  EXPECT_EQ(str("machdep.cpu.brand_string"), std::string("Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz") + '\0');
  EXPECT_EQ(as<int32_t>(str("hw.ncpu")), 4);
  EXPECT_EQ(as<int32_t>(str("hw.physicalcpu")), 2);
  EXPECT_EQ(as<int64_t>(str("hw.memsize")), 17179869184LL);
  EXPECT_EQ(as<int64_t>(str("hw.cpufrequency")), 2400000000LL);
  EXPECT_EQ(str("kern.ostype"), std::string("Linux") + '\0');
  const std::string boot = str("kern.boottime");
  ASSERT_EQ(boot.size(), 16u);
  EXPECT_EQ(as<int64_t>(boot.substr(0, 8)), 1700000000);
  EXPECT_EQ(boot.substr(8), std::string(8, '\0'));
  EXPECT_EQ(str("kern.version"), "<none>");
  EXPECT_EQ(str("hw.optional.arm64"), "<none>");
  EXPECT_EQ(str("machdep.cpu.vendor"), std::string("GenuineIntel") + '\0');
  EXPECT_EQ(as<int32_t>(str("hw.packages")), 1);
}

TEST_F(LinuxTreeTest, CachesAreProcessorZerosDataCachesOfEachLevel) {
  // index: level, type, size. Level 2 is split here: its data half counts, not the instructions.
  const std::array<std::array<const char*, 3>, 5> caches = {{{"1", "Data", "32K"},
                                                             {"1", "Instruction", "32K"},
                                                             {"2", "Instruction", "64K"},
                                                             {"2", "Data", "1024K"},
                                                             {"3", "Unified", "16M"}}};
  for (std::size_t i = 0; i < caches.size(); ++i) {
    const auto folder = "devices/system/cpu/cpu0/cache/index" + std::to_string(i) + "/";
    testing::writeFile(sys(folder + "level"), std::string(caches[i][0]) + "\n");
    testing::writeFile(sys(folder + "type"), std::string(caches[i][1]) + "\n");
    testing::writeFile(sys(folder + "size"), std::string(caches[i][2]) + "\n");
  }
  EXPECT_EQ((std::array{as<int64_t>(str("hw.l2cachesize")), as<int64_t>(str("hw.l3cachesize"))}),
            (std::array<int64_t, 2>{1024 * 1024, 16 * 1024 * 1024}));
  const std::pair<const char*, std::optional<uint64_t>> sizes[] = {
      {"512", 512}, {"48K\n", 49152}, {"2M", 2097152}, {"K", std::nullopt}, {"12 K", std::nullopt}, {"-1K", std::nullopt}};
  for (const auto& [text, bytes] : sizes) EXPECT_EQ(procfs::parseCacheSize(text), bytes) << text;
}

TEST_F(LinuxTreeTest, ArmBoardFallsBackToDeviceTreeAndCpufreq) {
  testing::writeFile(proc("cpuinfo"), kArmCpuInfo);
  testing::writeFile(sys("firmware/devicetree/base/model"), std::string("Raspberry Pi 4 Model B Rev 1.1\0", 31));
  testing::writeFile(sys("devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq"), "1500000\n");

  EXPECT_EQ(str("hw.model"), std::string("Raspberry Pi 4 Model B Rev 1.1") + '\0');
  EXPECT_EQ(str("machdep.cpu.brand_string"), std::string("ARM Cortex-A72") + '\0');
  EXPECT_EQ(as<int64_t>(str("hw.cpufrequency")), 1500000000LL);
  EXPECT_EQ(str("hw.memsize"), "<none>");
}

#endif

}  // namespace
}  // namespace corvane::platform
