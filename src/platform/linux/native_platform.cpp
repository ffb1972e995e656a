// Linux: the product's files follow the XDG base directories. Linux offers no SMC of a Mac here,
// so the SMC is a simulated one: the embedded default machine, or, for the helper tool, the
// machine the calling processes announced.
#include <cstdlib>
#include <string>

#include "corvane/platform/platform.h"
#include "platform/native_files.h"
#include "platform/sim/sim_platform.h"

namespace corvane::platform {
namespace {

class XdgFileLocations final : public FileLocations {
 public:
  XdgFileLocations() {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome != nullptr && dataHome[0] == '/') {
      dataHome_ = dataHome;
    } else {
      const char* home = std::getenv("HOME");
      dataHome_ = std::filesystem::path(home != nullptr && home[0] != '\0' ? home : "/tmp") / ".local" / "share";
    }
  }
  std::filesystem::path appGroupContainer() const override { return dataHome_ / "corvane" / "group"; }

 private:
  std::filesystem::path dataHome_;
};

}  // namespace

std::shared_ptr<FileLocations> nativeFileLocations() { return std::make_shared<XdgFileLocations>(); }

std::shared_ptr<Platform> native(const NativeOptions& options) {
  std::shared_ptr<FileLocations> files = nativeFileLocations();
  std::string source = options.followAnnouncedMachine ? sim::announcedMachine(*files) : std::string();
  if (source.empty()) source = std::string(kDefaultMachine);

  // A machine that can no longer be loaded leaves this process without an SMC rather than
  // writing to some other machine.
  std::string error;
  std::shared_ptr<const MachineProfile> profile = resolveMachine(source, &error);
  return sim::makePlatform(std::move(profile), std::move(files), source, !options.followAnnouncedMachine,
                           /*simulated=*/false);
}

}  // namespace corvane::platform
