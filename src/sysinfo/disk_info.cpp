#include "corvane/sysinfo/disk_info.h"

#include "corvane/platform/platform.h"
#include "corvane/platform/startup_disk.h"
#include "corvane/util/strings.h"
#include "platform/log.h"

namespace corvane {

std::string HWDiskInfo::displayName() const {
  if (!model.empty()) return model;
  if (!name.empty()) return name;
  return "Unknown";
}

namespace disk {

std::optional<HWDiskInfo> diskInfoFrom(const platform::StartupDiskDescription& description) {
  if (description.removable) return std::nullopt;
  HWDiskInfo info;
  info.name = description.mediaName.value_or("");
  info.model = strings::trimWhitespace(description.deviceModel.value_or(""));
  info.size = description.mediaSize;
  return info;
}

std::optional<HWDiskInfo> getDiskInfo() {
  const auto description = platform::current().service<platform::StartupDisk>().describe();
  if (!description) {
    platform::log("empty disk after fetching list");
    return std::nullopt;
  }
  return diskInfoFrom(*description);
}

}  // namespace disk
}  // namespace corvane
