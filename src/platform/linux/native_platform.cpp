// Linux: the product's files follow the XDG base directories. Linux offers no SMC of a Mac here,
// so the SMC is a simulated one: the embedded default machine, or, for the helper tool, the
// machine the calling processes announced.
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "corvane/platform/platform.h"
#include "platform/native_files.h"
#include "platform/posix/system_folders.h"
#include "platform/sim/sim_platform.h"

namespace corvane::platform {
namespace {

// The product's folders on Linux:
//   Documents            XDG_DOCUMENTS_DIR of $XDG_CONFIG_HOME/user-dirs.dirs, else ~/Documents
//   Application Support  $XDG_DATA_HOME (~/.local/share), where per-user program data belongs
//   user Applications    ~/Applications (where self-contained application trees are kept)
//   local Applications   /opt (the FHS home of add-on application trees; /usr/share/applications
//                        holds only launcher entries, not the programs)
//   administrators       "sudo" when /etc/group has it, else "wheel", else "admin"
class XdgFileLocations final : public FileLocations {
 public:
  XdgFileLocations() {
    const char* home = std::getenv("HOME");
    home_ = home != nullptr && home[0] == '/' ? home : "/tmp";
    dataHome_ = absoluteEnv("XDG_DATA_HOME").value_or(home_ / ".local" / "share");
    configHome_ = absoluteEnv("XDG_CONFIG_HOME").value_or(home_ / ".config");
  }
  std::filesystem::path appGroupContainer() const override { return dataHome_ / "Corvane" / "group"; }

  std::filesystem::path documentsDirectory() const override {
    std::ifstream in(configHome_ / "user-dirs.dirs");
    if (in) {
      const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      if (auto folder = posix::parseUserDir(text, "XDG_DOCUMENTS_DIR", home_)) return *folder;
    }
    return home_ / "Documents";
  }
  std::optional<std::filesystem::path> applicationSupportDirectory() const override { return dataHome_; }
  std::vector<std::filesystem::path> userApplicationsDirectories() const override { return {home_ / "Applications"}; }
  std::vector<std::filesystem::path> localApplicationsDirectories() const override { return {"/opt"}; }
  std::filesystem::path mainExecutableDirectory() const override {
    std::error_code error;
    const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::current_path(error) : executable.parent_path();
  }
  std::string rootAccountName() const override { return "root"; }
  std::string adminGroupName() const override { return posix::adminGroupFromFile("/etc/group"); }

 private:
  static std::optional<std::filesystem::path> absoluteEnv(const char* name) {
    const char* value = std::getenv(name);
    if (value != nullptr && value[0] == '/') return std::filesystem::path(value);
    return std::nullopt;
  }

  std::filesystem::path home_;
  std::filesystem::path dataHome_;
  std::filesystem::path configHome_;
};

}  // namespace

std::shared_ptr<FileLocations> nativeFileLocations() { return std::make_shared<XdgFileLocations>(); }

bool hostHasSmc() { return false; }

std::shared_ptr<Platform> native(const NativeOptions& options) {
  std::shared_ptr<FileLocations> files = nativeFileLocations();
  std::string source = options.followAnnouncedMachine ? sim::announcedMachine(*files) : std::string();
  if (source.empty()) source = std::string(kDefaultMachine);

  // A machine that can no longer be loaded leaves this process without an SMC rather than
  // writing to some other machine.
  std::string error;
  std::shared_ptr<const MachineProfile> profile = resolveMachine(source, &error);
  // Nothing is recorded here: a process records its machine before it first runs the helper.
  return sim::makePlatform(std::move(profile), std::move(files), source, /*announce=*/false,
                           /*simulated=*/false);
}

}  // namespace corvane::platform
