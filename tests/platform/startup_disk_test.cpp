// The Linux start-up disk and battery readers, over fixture trees.
#ifdef __linux__
#include "platform/linux/startup_disk_linux.h"

#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/linux/power_sources_linux.h"
#include "support/test_support.h"

namespace corvane::platform {
namespace {

// Lines as a desktop, a container and a Raspberry Pi write them.
constexpr const char* kDesktop =
    "22 1 259:2 / / rw,relatime shared:1 - ext4 /dev/nvme0n1p2 rw,errors=remount-ro\n"
    "24 22 0:21 / /proc rw,nosuid shared:12 - proc proc rw\n"
    "88 22 259:1 / /boot/efi rw,relatime shared:30 - vfat /dev/nvme0n1p1 rw\n";
constexpr const char* kContainer =
    "612 540 0:52 / / rw,relatime master:1 - overlay overlay rw,lowerdir=/l,upperdir=/u\n"
    "613 612 0:55 / /proc rw - proc proc rw\n";
constexpr const char* kPi = "21 1 179:2 / / rw,noatime - ext4 /dev/root rw\n";

TEST(RootMount, LastEntryOnSlashWinsWhateverItsDevice) {
  struct Case {
    std::string mountinfo;
    std::optional<mounts::MountEntry> root;
  };
  const std::vector<Case> cases = {
      {kDesktop, mounts::MountEntry{259, 2, "/", "ext4", "/dev/nvme0n1p2"}},
      {kContainer, mounts::MountEntry{0, 52, "/", "overlay", "overlay"}},
      {kPi, mounts::MountEntry{179, 2, "/", "ext4", "/dev/root"}},
      // A later mount over "/" hides the first; the octal escapes of the kernel are undone.
      {std::string(kPi) + "30 21 0:30 / / rw - tmpfs my\\040disk rw\n",
       mounts::MountEntry{0, 30, "/", "tmpfs", "my disk"}},
      {"24 22 0:21 / /proc rw - proc proc rw\n", std::nullopt},
      {"22 1 259:2 / / rw,relatime shared:1\n22 1 x:2 / / rw - ext4 /dev/sda rw\n", std::nullopt},  // malformed
      {"", std::nullopt},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(mounts::rootMountOf(cases[i].mountinfo), cases[i].root) << i;
}

// A fixture /sys with the disk nvme0n1 holding partition nvme0n1p2, reached from /sys/dev/block
// through a link as on a real host.
void writeSys(const std::filesystem::path& sys, const std::string& removable) {
  const auto disk = sys / "devices" / "nvme0n1";
  testing::writeFile(disk / "device" / "model", "Samsung SSD 980 PRO 1TB                 \n");
  testing::writeFile(disk / "removable", removable);
  testing::writeFile(disk / "nvme0n1p2" / "partition", "2\n");
  testing::writeFile(disk / "nvme0n1p2" / "uevent", "MAJOR=259\nMINOR=2\nDEVNAME=nvme0n1p2\nDEVTYPE=partition\n");
  std::filesystem::create_directories(sys / "dev" / "block");
  std::filesystem::create_directory_symlink(disk / "nvme0n1p2", sys / "dev" / "block" / "259:2");
}

TEST(StartupDiskOfLinux, PartitionTakesItsDisksModelAndUnusualRootsHaveNoName) {
  struct Case {
    const char* mountinfo;
    const char* removable;
    std::optional<std::string> name;
    std::optional<std::string> model;
    bool isRemovable;
  };
  for (const auto& c : {Case{kDesktop, "0\n", "nvme0n1p2", "Samsung SSD 980 PRO 1TB", false},
                        Case{kDesktop, "1\n", "nvme0n1p2", "Samsung SSD 980 PRO 1TB", true},
                        Case{kContainer, "0\n", std::nullopt, std::nullopt, false},
                        Case{kPi, "0\n", std::nullopt, std::nullopt, false}}) {  // 179:2 not in this /sys
    testing::TempDir root;
    writeSys(root.path() / "sys", c.removable);
    testing::writeFile(root.path() / "proc" / "self" / "mountinfo", c.mountinfo);
    const auto disk = mounts::describeStartupDisk({root.path() / "proc", root.path() / "sys", root.path()});
    ASSERT_TRUE(disk.has_value()) << c.mountinfo;
    EXPECT_EQ(disk->mediaName, c.name) << c.mountinfo;
    EXPECT_EQ(disk->deviceModel, c.model) << c.mountinfo;
    EXPECT_EQ(disk->removable, c.isRemovable) << c.mountinfo;
    EXPECT_GT(disk->mediaSize, 0u) << "the fixture folder's own volume is measured";
  }
  testing::TempDir empty;
  EXPECT_FALSE(mounts::describeStartupDisk({empty.path(), empty.path(), empty.path()}).has_value());
}

TEST(SmartBatteryOfLinux, ChargeOrEnergyInThousandthsFromTheFirstSystemBattery) {
  using power_supply::Supply;
  const auto battery = [](std::string cycles, std::string chargeFull, std::string chargeDesign, std::string energyFull,
                          std::string energyDesign, std::string scope = "") {
    return Supply{"Battery", scope, "", "Full", cycles, chargeFull, chargeDesign, energyFull, energyDesign};
  };
  struct Case {
    std::vector<Supply> supplies;
    SmartBattery expected;
  };
  const std::vector<Case> cases = {
      {{battery("312", "4200000", "5000000", "", "")}, {312, 4200, 4200, 5000}},
      {{battery("0", "", "", "48210000", "57020000")}, {0, 48210, 48210, 57020}},
      // No design charge: the energy pair, never a charge against an energy.
      {{battery("", "4200000", "", "48210000", "57020000")}, {std::nullopt, 48210, 48210, 57020}},
      {{battery("-1", "4200000", "", "", "")}, {std::nullopt, 4200, 4200, std::nullopt}},
      {{battery("5", "1", "2", "", "", "Device"), Supply{"Mains", "", "1", "", "", "", "", "", ""}}, {}},  // a mouse, an adapter
      {{}, {}},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(power_supply::smartBatteryOf(cases[i].supplies), cases[i].expected) << i;
}

}  // namespace
}  // namespace corvane::platform
#endif  // __linux__
