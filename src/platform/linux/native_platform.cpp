// Linux: the product's files follow the XDG base directories. On a Mac running Linux the SMC is
// the real one, through the applesmc driver; elsewhere it is a simulated one: the embedded default
// machine, or, for the helper tool, the machine the calling processes announced.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "corvane/platform/platform.h"
#include "platform/linux/applesmc_driver.h"
#include "platform/native_files.h"
#include "platform/posix/owned_files.h"
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
  // The folders every account has by default under `home`, whatever the environment says.
  explicit XdgFileLocations(std::filesystem::path home)
      : home_(std::move(home)), dataHome_(home_ / ".local" / "share"), configHome_(home_ / ".config") {}
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

// The home folder of the account that started this process, as the account database has it; a
// path that names no folder when the account has no entry, so that nothing is found there.
std::filesystem::path accountHome() {
  const passwd* entry = ::getpwuid(::getuid());
  if (entry == nullptr || entry->pw_dir == nullptr || entry->pw_dir[0] != '/') return "/nonexistent";
  return entry->pw_dir;
}

}  // namespace

std::shared_ptr<FileLocations> nativeFileLocations() { return std::make_shared<XdgFileLocations>(); }

bool hostHasSmc() { return applesmcPresent(kApplesmcRoot); }

std::shared_ptr<Platform> native(const NativeOptions& options) {
  std::shared_ptr<FileLocations> files;
  std::shared_ptr<const posix::OwnedTree> owned;
  if (options.untrustedCaller) {
    const std::filesystem::path home = accountHome();
    files = std::make_shared<XdgFileLocations>(home);
    owned = std::make_shared<posix::OwnedTree>(home, ::getuid());
  } else {
    files = nativeFileLocations();
  }
  // Someone not trusted does not get to name the driver's folder: only the driver's own place.
  const std::filesystem::path smcRoot =
      options.applesmcRoot.empty() || options.untrustedCaller ? std::filesystem::path(kApplesmcRoot) : options.applesmcRoot;
  if (applesmcPresent(smcRoot)) {
    return std::make_shared<Platform>(std::make_shared<ApplesmcDriver>(applesmcFolder(smcRoot)), std::move(files),
                                      nullptr, /*simulated=*/false);
  }
  std::string source = options.followAnnouncedMachine ? sim::announcedMachine(*files, owned.get()) : std::string();
  if (source.empty()) source = std::string(kDefaultMachine);
  if (owned && isProfileFileName(source)) {
    // The caller names the profile file; it is read with the caller's own rights, and only when
    // it is a plain file of a profile's size (not a device or a pipe that never ends).
    struct stat st;
    if (::stat(source.c_str(), &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<unsigned long long>(st.st_size) > posix::OwnedTree::kMaxFileSize) {
      return sim::makePlatform(nullptr, std::move(files), {}, false, false, std::move(owned));
    }
  }

  // A machine that can no longer be loaded leaves this process without an SMC rather than
  // writing to some other machine.
  std::string error;
  std::shared_ptr<const MachineProfile> profile = resolveMachine(source, &error);
  // Nothing is recorded here: a process records its machine before it first runs the helper.
  return sim::makePlatform(std::move(profile), std::move(files), source, /*announce=*/false,
                           /*simulated=*/false, std::move(owned));
}

}  // namespace corvane::platform
