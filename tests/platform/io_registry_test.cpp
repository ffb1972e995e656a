#include "corvane/platform/io_registry.h"

#include <string>

#include <gtest/gtest.h>

#include "platform/io_registry_backends.h"
#include "support/test_support.h"
#if defined(__linux__)
#include "platform/linux/io_registry_linux.h"
#endif

namespace corvane::platform {
namespace {

const std::filesystem::path kData = std::filesystem::path(CORVANE_SOURCE_DIR) / "tests/platform/data";

std::vector<std::optional<std::string>> models(const std::vector<PciDevice>& devices) {
  std::vector<std::optional<std::string>> out;
  for (const auto& device : devices) out.push_back(device.model);
  return out;
}

#if defined(__linux__)

TEST(PciClass, DisplayControllersHaveBaseClass03AndIdsAreSysfsHex) {
  for (const auto& [text, display] : {std::pair{"0x030000\n", true},
                                      {"0x038000", true},
                                      {"0x060000\n", false},
                                      {"0x003000\n", false},
                                      {"", false},
                                      {"030000", false}}) {
    EXPECT_EQ(pcisys::isDisplayControllerClass(text), display) << text;
  }
  EXPECT_EQ(pcisys::parsePciId("0x1002\n"), 0x1002);
  EXPECT_EQ(pcisys::parsePciId("8086"), 0x8086);
  for (const char* bad : {"0x", "0x12345", "0x10zz"}) EXPECT_EQ(pcisys::parsePciId(bad), std::nullopt) << bad;
}

const std::string kPciIds = testing::readFile(kData / "pci.ids");

void device(const std::filesystem::path& sys, const std::string& address, const std::string& cls,
            const std::string& vendor, const std::string& id) {
  const auto folder = sys / "bus" / "pci" / "devices" / address;
  testing::writeFile(folder / "class", cls + "\n");
  testing::writeFile(folder / "vendor", vendor + "\n");
  testing::writeFile(folder / "device", id + "\n");
}

TEST(LinuxPci, ListsDisplayControllersInAddressOrder) {
  testing::TempDir dir;
  const auto sys = dir.path() / "sys";
  device(sys, "0000:01:00.0", "0x030000", "0x1002", "0x7340");
  device(sys, "0000:00:02.0", "0x030000", "0x8086", "0x3e9b");
  device(sys, "0000:00:1f.3", "0x040300", "0x8086", "0xa348");
  device(sys, "0000:02:00.0", "0x030200", "0x1234", "0x1111");
  testing::writeFile(dir.path() / "ids" / "pci.ids", kPciIds);

  pcisys::Roots roots{sys, {dir.path() / "missing.ids", dir.path() / "ids" / "pci.ids"}};
  const auto devices = pcisys::readDisplayControllers(roots);
  ASSERT_TRUE(devices.has_value());
  EXPECT_EQ(models(*devices), (std::vector<std::optional<std::string>>{
                                  "Intel Corporation CoffeeLake-H GT2 [UHD Graphics 630]",
                                  "Advanced Micro Devices, Inc. [AMD/ATI] Navi 14 [Radeon RX 5500/5500M / Pro 5500M]",
                                  "0x1234 device 0x1111"}));

  // A device of another vendor with the same number, or a subsystem id, is not taken.
  const auto names = pcisys::lookupPciIds(kPciIds, 0x10de, 0x7340);
  EXPECT_EQ(pcisys::pciModelText(names, 0x10de, 0x7340), "NVIDIA Corporation device 0x7340");
  EXPECT_EQ(pcisys::pciModelText(pcisys::lookupPciIds(kPciIds, 0x1002, 0x106b), 0x1002, 0x106b),
            "Advanced Micro Devices, Inc. [AMD/ATI] device 0x106b");
}

TEST(LinuxPci, NoBusIsNoDevicesAndAnUnlistableFolderAFailedSearch) {
  testing::TempDir dir;
  const auto devices = pcisys::readDisplayControllers(pcisys::Roots{dir.path() / "sys", {}});
  ASSERT_TRUE(devices.has_value());
  EXPECT_TRUE(devices->empty());
  testing::writeFile(dir.path() / "sys" / "bus" / "pci" / "devices", "not a folder");
  EXPECT_EQ(pcisys::readDisplayControllers(pcisys::Roots{dir.path() / "sys", {}}), std::nullopt);
}

#endif

}  // namespace
}  // namespace corvane::platform
