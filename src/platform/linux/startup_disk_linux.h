// The start-up disk of a Linux host: the mount table names the root volume's device, statvfs
// gives its size, and /sys/dev/block the medium's name, model and removability. The parsers are
// pure functions over the files' text; the roots are parameters so tests use fixture trees.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "corvane/platform/startup_disk.h"

namespace corvane::platform::mounts {

// One line of /proc/self/mountinfo, the parts that matter here.
struct MountEntry {
  unsigned major = 0;  // 0 for volumes with no block device of their own (overlay, tmpfs, btrfs)
  unsigned minor = 0;
  std::string mountPoint;
  std::string fsType;
  std::string source;  // "/dev/nvme0n1p2", "/dev/root", "overlay", ...
  bool operator==(const MountEntry&) const = default;
};

// The entry mounted on "/" in `mountinfo`; the last one wins, as it hides those before it.
// Malformed lines are skipped; nullopt when none is mounted on "/".
std::optional<MountEntry> rootMountOf(std::string_view mountinfo);

// Where the host's files are; tests point these at fixture trees.
struct Roots {
  std::filesystem::path proc = "/proc";
  std::filesystem::path sys = "/sys";
  std::filesystem::path volume = "/";  // what statvfs measures
};

// The medium under the root volume. A root on a device the kernel lists no block device for
// (overlay, tmpfs, network) has no name and no model, but still its size.
std::optional<StartupDiskDescription> describeStartupDisk(const Roots& roots);

std::shared_ptr<StartupDisk> makeStartupDisk(Roots roots);

}  // namespace corvane::platform::mounts
