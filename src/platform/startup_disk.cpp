#include "corvane/platform/startup_disk.h"

#include "corvane/platform/platform.h"
#include "platform/startup_disk_backends.h"

namespace corvane::platform {
namespace {

class RecordedStartupDisk final : public StartupDisk {
 public:
  explicit RecordedStartupDisk(std::optional<StartupDiskDescription> disk) : disk_(std::move(disk)) {}
  std::optional<StartupDiskDescription> describe() const override { return disk_; }

 private:
  std::optional<StartupDiskDescription> disk_;
};

}  // namespace

namespace sim {

std::optional<StartupDiskDescription> startupDiskOfMachine(const nlohmann::json& recorded) {
  if (!recorded.is_object()) return std::nullopt;
  const auto text = [&](const char* name) -> std::optional<std::string> {
    auto found = recorded.find(name);
    if (found == recorded.end() || !found->is_string()) return std::nullopt;
    return found->get<std::string>();
  };
  StartupDiskDescription disk;
  disk.mediaName = text("mediaName");
  disk.deviceModel = text("deviceModel");
  if (auto size = recorded.find("mediaSize"); size != recorded.end() && size->is_number_unsigned()) {
    disk.mediaSize = size->get<uint64_t>();
  }
  if (auto removable = recorded.find("removable"); removable != recorded.end() && removable->is_boolean()) {
    disk.removable = removable->get<bool>();
  }
  return disk;
}

}  // namespace sim

std::shared_ptr<StartupDisk> StartupDisk::create(const Platform& platform) {
  if (platform.simulated()) {
    const auto& machine = platform.machine();
    return std::make_shared<RecordedStartupDisk>(
        sim::startupDiskOfMachine(machine != nullptr ? machine->startupDisk : nlohmann::json()));
  }
  return nativeStartupDisk();
}

}  // namespace corvane::platform
