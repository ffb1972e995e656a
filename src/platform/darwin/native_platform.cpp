// macOS: the real SMC, and the product's files in the user's Library.
#include <mach-o/dyld.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "corvane/platform/platform.h"
#include "platform/darwin/iokit_smc_driver.h"
#include "platform/native_files.h"

namespace corvane::platform {
namespace {

// The app group shared by every process of the product, and the signing team whose identifier
// prefixes its container from macOS 15 on.
constexpr const char* kAppGroup = "group.com.corvane.core";
constexpr const char* kTeamIdentifier = "C0RVANE7QX";

std::filesystem::path homeFolder() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return home;
  const passwd* entry = getpwuid(getuid());
  return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "/tmp";
}

bool containerIsTeamPrefixed() {
  if (__builtin_available(macOS 15.0, *)) return true;
  return false;
}

std::filesystem::path groupContainers() { return homeFolder() / "Library" / "Group Containers"; }

// The user-domain folders of the file manager, and the system's local Applications folder.
class LibraryFileLocations final : public FileLocations {
 public:
  std::filesystem::path appGroupContainer() const override {
    if (containerIsTeamPrefixed()) return groupContainers() / (std::string(kTeamIdentifier) + "." + kAppGroup);
    return groupContainers() / kAppGroup;
  }
  std::optional<std::filesystem::path> legacyAppGroupContainer() const override {
    if (!containerIsTeamPrefixed()) return std::nullopt;
    return groupContainers() / kAppGroup;
  }
  std::filesystem::path documentsDirectory() const override { return homeFolder() / "Documents"; }
  std::optional<std::filesystem::path> applicationSupportDirectory() const override {
    return homeFolder() / "Library" / "Application Support";
  }
  std::vector<std::filesystem::path> userApplicationsDirectories() const override {
    return {homeFolder() / "Applications"};
  }
  std::vector<std::filesystem::path> localApplicationsDirectories() const override { return {"/Applications"}; }
  std::filesystem::path mainExecutableDirectory() const override {
    std::uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string buffer(size, '\0');
    if (size == 0 || _NSGetExecutablePath(buffer.data(), &size) != 0) return {};
    buffer.resize(std::strlen(buffer.c_str()));
    std::error_code error;
    const std::filesystem::path executable = std::filesystem::weakly_canonical(buffer, error);
    return (error ? std::filesystem::path(buffer) : executable).parent_path();
  }
  std::string rootAccountName() const override { return "root"; }
  std::string adminGroupName() const override { return "admin"; }
};

}  // namespace

std::shared_ptr<FileLocations> nativeFileLocations() { return std::make_shared<LibraryFileLocations>(); }

bool hostHasSmc() { return true; }

std::shared_ptr<Platform> native(const NativeOptions&) {
  return std::make_shared<Platform>(std::make_shared<IOKitSmcDriver>(), nativeFileLocations(), nullptr,
                                    /*simulated=*/false);
}

}  // namespace corvane::platform
