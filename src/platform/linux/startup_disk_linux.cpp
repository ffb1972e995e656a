#include "platform/linux/startup_disk_linux.h"

#include <sys/statvfs.h>

#include <charconv>
#include <vector>

#include "corvane/platform/text.h"
#include "platform/posix/file_lock.h"
#include "platform/startup_disk_backends.h"

namespace corvane::platform {
namespace mounts {
namespace {

std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  std::size_t at = 0;
  while (at < line.size()) {
    const auto start = line.find_first_not_of(' ', at);
    if (start == std::string_view::npos) break;
    auto end = line.find(' ', start);
    if (end == std::string_view::npos) end = line.size();
    fields.push_back(line.substr(start, end - start));
    at = end;
  }
  return fields;
}

bool parseNumber(std::string_view text, unsigned& out) {
  const auto* last = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), last, out);
  return ec == std::errc() && ptr == last && !text.empty();
}

// The kernel writes blanks, tabs, newlines and backslashes in paths as three octal digits.
std::string unescaped(std::string_view field) {
  std::string out;
  for (std::size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size()) {
      const auto digits = field.substr(i + 1, 3);
      if (digits.find_first_not_of("01234567") == std::string_view::npos) {
        out.push_back(static_cast<char>((digits[0] - '0') * 64 + (digits[1] - '0') * 8 + (digits[2] - '0')));
        i += 3;
        continue;
      }
    }
    out.push_back(field[i]);
  }
  return out;
}

std::optional<std::string> fileValue(const std::filesystem::path& path) {
  const auto content = posix::readWholeFile(path);
  if (!content) return std::nullopt;
  std::string value(text::trimmed(*content));
  if (value.empty()) return std::nullopt;
  return value;
}

// The DEVNAME of a sysfs uevent file.
std::optional<std::string> deviceNameOf(const std::filesystem::path& blockFolder) {
  const auto uevent = posix::readWholeFile(blockFolder / "uevent");
  if (!uevent) return std::nullopt;
  std::string_view rest = *uevent;
  while (!rest.empty()) {
    const auto end = rest.find('\n');
    const auto line = rest.substr(0, end);
    if (line.substr(0, 8) == "DEVNAME=" && line.size() > 8) return std::string(line.substr(8));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  }
  return std::nullopt;
}

class SysfsStartupDisk final : public StartupDisk {
 public:
  explicit SysfsStartupDisk(Roots roots) : roots_(std::move(roots)) {}
  std::optional<StartupDiskDescription> describe() const override { return describeStartupDisk(roots_); }

 private:
  Roots roots_;
};

}  // namespace

std::optional<MountEntry> rootMountOf(std::string_view mountinfo) {
  std::optional<MountEntry> root;
  while (!mountinfo.empty()) {
    const auto end = mountinfo.find('\n');
    const auto fields = fieldsOf(mountinfo.substr(0, end));
    mountinfo = end == std::string_view::npos ? std::string_view() : mountinfo.substr(end + 1);
    // id, parent, major:minor, root, mount point, options, optional tags..., "-", type, source
    std::size_t dash = 6;
    while (dash < fields.size() && fields[dash] != "-") ++dash;
    if (fields.size() < 6 || dash + 2 >= fields.size()) continue;
    const auto colon = fields[2].find(':');
    MountEntry entry;
    if (colon == std::string_view::npos || !parseNumber(fields[2].substr(0, colon), entry.major) ||
        !parseNumber(fields[2].substr(colon + 1), entry.minor)) {
      continue;
    }
    entry.mountPoint = unescaped(fields[4]);
    if (entry.mountPoint != "/") continue;
    entry.fsType = std::string(fields[dash + 1]);
    entry.source = unescaped(fields[dash + 2]);
    root = std::move(entry);
  }
  return root;
}

std::optional<StartupDiskDescription> describeStartupDisk(const Roots& roots) {
  const auto mountinfo = posix::readWholeFile(roots.proc / "self" / "mountinfo");
  if (!mountinfo) return std::nullopt;
  const auto root = rootMountOf(*mountinfo);
  if (!root) return std::nullopt;

  StartupDiskDescription disk;
  struct statvfs volume {};
  if (statvfs(roots.volume.c_str(), &volume) == 0) {
    disk.mediaSize = static_cast<uint64_t>(volume.f_blocks) * static_cast<uint64_t>(volume.f_frsize);
  }

  // The device numbers find the medium even behind "/dev/root"; a volume with none of its own
  // (btrfs) still names its device as the source.
  std::filesystem::path block;
  if (root->major != 0) {
    block = roots.sys / "dev" / "block" / (std::to_string(root->major) + ":" + std::to_string(root->minor));
  } else if (root->source.rfind("/dev/", 0) == 0 && root->source != "/dev/root") {
    block = roots.sys / "class" / "block" / std::filesystem::path(root->source).filename();
  }
  std::error_code ec;
  if (block.empty() || !std::filesystem::is_directory(block, ec)) return disk;

  disk.mediaName = deviceNameOf(block);
  if (!disk.mediaName) disk.mediaName = block.filename().string();
  // A partition's model and removability belong to the disk that holds it.
  const auto whole = std::filesystem::exists(block / "partition", ec) ? block / ".." : block;
  disk.deviceModel = fileValue(whole / "device" / "model");
  disk.removable = fileValue(whole / "removable") == std::optional<std::string>("1");
  return disk;
}

std::shared_ptr<StartupDisk> makeStartupDisk(Roots roots) { return std::make_shared<SysfsStartupDisk>(std::move(roots)); }

}  // namespace mounts

std::shared_ptr<StartupDisk> nativeStartupDisk() { return mounts::makeStartupDisk(mounts::Roots{}); }

}  // namespace corvane::platform
