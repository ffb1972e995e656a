#include "corvane/platform/io_registry.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "platform/io_registry_backends.h"
#include "support/test_support.h"
#if defined(__linux__)
#include "platform/linux/io_registry_linux.h"
#endif

namespace corvane::platform {
namespace {

std::vector<std::optional<std::string>> models(const std::vector<PciDevice>& devices) {
  std::vector<std::optional<std::string>> out;
  for (const auto& device : devices) out.push_back(device.model);
  return out;
}

struct IoregCase {
  const char* label;
  const char* json;
  std::vector<std::optional<std::string>> models;
};

class RecordedIoreg : public ::testing::TestWithParam<IoregCase> {};

TEST_P(RecordedIoreg, ListsTheRecordedDevices) {
  const auto& c = GetParam();
  EXPECT_EQ(models(sim::pciDevicesFromIoreg(nlohmann::json::parse(c.json))), c.models);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RecordedIoreg,
    ::testing::Values(
        IoregCase{"Absent", "null", {}},
        IoregCase{"NoPci", R"({"battery": {}})", {}},
        IoregCase{"PciNotAList", R"({"pci": {"model": "x"}})", {}},
        IoregCase{"Two",
                  R"({"pci": [{"model": "Intel UHD Graphics 630"}, {"model": "AMD Radeon Pro 5500M"}]})",
                  {"Intel UHD Graphics 630", "AMD Radeon Pro 5500M"}},
        IoregCase{"WithoutModel", R"({"pci": [{"name": "bridge"}, {"model": 7}, "odd"]})",
                  {std::nullopt, std::nullopt, std::nullopt}}),
    [](const auto& info) { return std::string(info.param.label); });

TEST(IORegistry, SimulatedMachineAnswersFromItsProfile) {
  testing::TempDir dir;
  auto profile = testing::profileFromJson(
      R"({"name": "Test", "sysctl": {}, "smc": [], "ioreg": {"pci": [{"model": "AMD Radeon Pro 5500M"}]}})");
  testing::installMachine(profile, dir.path());
  const auto devices = current().service<IORegistry>().pciDevices();
  ASSERT_TRUE(devices.has_value());
  EXPECT_EQ(models(*devices), (std::vector<std::optional<std::string>>{"AMD Radeon Pro 5500M"}));
}

TEST(IORegistry, BuiltinMachinesHaveNoRegistryData) {
  testing::TempDir dir;
  std::string error;
  auto profile = loadBuiltinProfile("MacBookPro16,1", &error);
  ASSERT_NE(profile, nullptr) << error;
  testing::installMachine(profile, dir.path());
  const auto devices = current().service<IORegistry>().pciDevices();
  ASSERT_TRUE(devices.has_value());
  EXPECT_TRUE(devices->empty());
}

TEST(IORegistry, ProfileKeepsItsRegistryMemberThroughSerialisation) {
  auto profile = testing::profileFromJson(
      R"({"name": "Test", "sysctl": {}, "smc": [], "ioreg": {"pci": [{"model": "NVIDIA GeForce GT 750M"}]}})");
  std::string error;
  auto again = parseProfile(serializeProfile(*profile), "again", &error);
  ASSERT_NE(again, nullptr) << error;
  EXPECT_EQ(again->ioreg, profile->ioreg);
  EXPECT_EQ(parseProfile(R"({"name": "Bad", "sysctl": {}, "smc": [], "ioreg": []})", "bad", &error),
            nullptr);
  EXPECT_NE(error.find("ioreg"), std::string::npos) << error;
}

#if defined(__linux__)

struct ClassCase {
  const char* text;
  bool display;
};

class PciClass : public ::testing::TestWithParam<ClassCase> {};

TEST_P(PciClass, DisplayControllersHaveBaseClass03) {
  EXPECT_EQ(pcisys::isDisplayControllerClass(GetParam().text), GetParam().display)
      << GetParam().text;
}

INSTANTIATE_TEST_SUITE_P(Table, PciClass,
                         ::testing::Values(ClassCase{"0x030000\n", true},
                                           ClassCase{"0x038000", true},
                                           ClassCase{"0x030200\n", true},
                                           ClassCase{"0x060000\n", false},
                                           ClassCase{"0x003000\n", false},
                                           ClassCase{"", false}, ClassCase{"0x03", true},
                                           ClassCase{"030000", false}));

struct IdCase {
  const char* text;
  std::optional<uint16_t> id;
};

class PciId : public ::testing::TestWithParam<IdCase> {};

TEST_P(PciId, ParsesSysfsHexIds) { EXPECT_EQ(pcisys::parsePciId(GetParam().text), GetParam().id); }

INSTANTIATE_TEST_SUITE_P(Table, PciId,
                         ::testing::Values(IdCase{"0x1002\n", 0x1002}, IdCase{"0x10de", 0x10de},
                                           IdCase{"8086", 0x8086}, IdCase{"0xFFFF", 0xffff},
                                           IdCase{"", std::nullopt}, IdCase{"0x", std::nullopt},
                                           IdCase{"0x12345", std::nullopt},
                                           IdCase{"0x10zz", std::nullopt}));

constexpr const char* kPciIds =
    "# pci.ids excerpt\n"
    "#\tcomment with a tab\n"
    "1002  Advanced Micro Devices, Inc. [AMD/ATI]\n"
    "\t7340  Navi 14 [Radeon RX 5500/5500M / Pro 5500M]\n"
    "\t\t106b 0210  Radeon Pro 5500M\n"
    "\t7341  Navi 14 [Radeon Pro W5500]\n"
    "10de  NVIDIA Corporation\n"
    "\t0fe9  GK107M [GeForce GT 750M Mac Edition]\n"
    "8086  Intel Corporation\n"
    "\t3e9b  CoffeeLake-H GT2 [UHD Graphics 630]\n"
    "\n"
    "C 03  Display controller\n"
    "\t00  VGA compatible controller\n";

struct LookupCase {
  const char* label;
  uint16_t vendor;
  uint16_t device;
  const char* model;
};

class PciIdsLookup : public ::testing::TestWithParam<LookupCase> {};

TEST_P(PciIdsLookup, NamesVendorAndDevice) {
  const auto& c = GetParam();
  const auto names = pcisys::lookupPciIds(kPciIds, c.vendor, c.device);
  EXPECT_EQ(pcisys::pciModelText(names, c.vendor, c.device), c.model);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PciIdsLookup,
    ::testing::Values(
        LookupCase{"Amd", 0x1002, 0x7340,
                   "Advanced Micro Devices, Inc. [AMD/ATI] Navi 14 [Radeon RX 5500/5500M / Pro "
                   "5500M]"},
        LookupCase{"AmdSecond", 0x1002, 0x7341,
                   "Advanced Micro Devices, Inc. [AMD/ATI] Navi 14 [Radeon Pro W5500]"},
        LookupCase{"Intel", 0x8086, 0x3e9b, "Intel Corporation CoffeeLake-H GT2 [UHD Graphics 630]"},
        // A device of another vendor with the same number is not taken.
        LookupCase{"DeviceOfOtherVendor", 0x10de, 0x7340, "NVIDIA Corporation device 0x7340"},
        // Subsystem ids and the class section are not devices.
        LookupCase{"SubsystemNotADevice", 0x1002, 0x106b,
                   "Advanced Micro Devices, Inc. [AMD/ATI] device 0x106b"},
        LookupCase{"UnknownVendor", 0x1af4, 0x1050, "0x1af4 device 0x1050"},
        LookupCase{"ClassNotAVendor", 0x0003, 0x0000, "0x0003 device 0x0000"}),
    [](const auto& info) { return std::string(info.param.label); });

void write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path) << text;
}

void device(const std::filesystem::path& sys, const std::string& address, const std::string& cls,
            const std::string& vendor, const std::string& id) {
  const auto folder = sys / "bus" / "pci" / "devices" / address;
  write(folder / "class", cls + "\n");
  write(folder / "vendor", vendor + "\n");
  write(folder / "device", id + "\n");
}

TEST(LinuxPci, ListsDisplayControllersInAddressOrder) {
  testing::TempDir dir;
  const auto sys = dir.path() / "sys";
  device(sys, "0000:01:00.0", "0x030000", "0x1002", "0x7340");
  device(sys, "0000:00:02.0", "0x030000", "0x8086", "0x3e9b");
  device(sys, "0000:00:1f.3", "0x040300", "0x8086", "0xa348");
  device(sys, "0000:02:00.0", "0x030200", "0x1234", "0x1111");
  write(dir.path() / "ids" / "pci.ids", kPciIds);

  pcisys::Roots roots{sys, {dir.path() / "missing.ids", dir.path() / "ids" / "pci.ids"}};
  const auto devices = pcisys::readDisplayControllers(roots);
  ASSERT_TRUE(devices.has_value());
  EXPECT_EQ(models(*devices),
            (std::vector<std::optional<std::string>>{
                "Intel Corporation CoffeeLake-H GT2 [UHD Graphics 630]",
                "Advanced Micro Devices, Inc. [AMD/ATI] Navi 14 [Radeon RX 5500/5500M / Pro 5500M]",
                "0x1234 device 0x1111"}));

  // Without a database the numbers stand in for the names.
  const auto bare = pcisys::readDisplayControllers(pcisys::Roots{sys, {dir.path() / "missing"}});
  ASSERT_TRUE(bare.has_value());
  EXPECT_EQ(models(*bare), (std::vector<std::optional<std::string>>{
                               "0x8086 device 0x3e9b", "0x1002 device 0x7340",
                               "0x1234 device 0x1111"}));
}

TEST(LinuxPci, HostWithoutPciBusHasNoDevices) {
  testing::TempDir dir;
  const auto devices = pcisys::readDisplayControllers(pcisys::Roots{dir.path() / "sys", {}});
  ASSERT_TRUE(devices.has_value());
  EXPECT_TRUE(devices->empty());
}

TEST(LinuxPci, UnlistableDeviceFolderIsAFailedSearch) {
  testing::TempDir dir;
  // A file where the folder should be cannot be listed.
  write(dir.path() / "sys" / "bus" / "pci" / "devices", "not a folder");
  EXPECT_EQ(pcisys::readDisplayControllers(pcisys::Roots{dir.path() / "sys", {}}), std::nullopt);
}

#endif

}  // namespace
}  // namespace corvane::platform
