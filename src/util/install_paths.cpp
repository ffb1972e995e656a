#include "corvane/util/install_paths.h"

#include <system_error>

#include "corvane/platform/platform.h"

namespace corvane::files {

namespace {

const platform::FileLocations& locations() { return platform::current().files(); }

std::optional<std::string> appendedTo(const std::optional<std::string>& folder, const char* suffix) {
  if (!folder) return std::nullopt;
  return *folder + suffix;
}

std::string executableFolder() { return locations().mainExecutableDirectory().string(); }

// The path with symbolic links resolved as far as it exists, else as given.
std::string resolved(const std::filesystem::path& path) {
  std::error_code error;
  std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
  return (error ? path : real).string();
}

bool holdsApplication(const std::filesystem::path& folder) {
  std::error_code error;
  if (!std::filesystem::is_directory(folder, error)) return false;
  std::filesystem::directory_iterator it(folder, error);
  for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
    if (it->path().extension() == ".app") return true;
  }
  return false;
}

}  // namespace

std::string documentsPath() { return locations().documentsDirectory().string(); }

std::optional<std::string> applicationSupportPath() {
  auto support = locations().applicationSupportDirectory();
  if (!support) return std::nullopt;
  const std::filesystem::path folder = *support / "Corvane";
  std::error_code ignored;
  std::filesystem::create_directories(folder, ignored);
  return folder.string();
}

std::optional<std::string> oldApplicationSupportPath() {
  auto support = locations().applicationSupportDirectory();
  if (!support) return std::nullopt;
  return (*support / "Heat Warden").string();
}

std::filesystem::path appGroupURL() { return locations().appGroupContainer(); }
std::optional<std::filesystem::path> legacyAppGroupURL() { return locations().legacyAppGroupContainer(); }

std::string smcExeSrcPath() { return executableFolder() + "/Corvane SMC"; }
std::optional<std::string> smcExePath() { return appendedTo(applicationSupportPath(), "/Corvane SMC"); }
std::string menuAppSrcPath() { return executableFolder() + "/Corvane Menu.app"; }
std::optional<std::string> menuAppPath() { return appendedTo(applicationSupportPath(), "/Corvane Menu.app"); }
std::string helperAppSrcPath() { return executableFolder() + "/Corvane Helper.app"; }
std::optional<std::string> helperAppPath() { return appendedTo(applicationSupportPath(), "/Corvane Helper.app"); }

std::string preferredInstallLocation(bool* inUserFolder) {
  const auto userFolders = locations().userApplicationsDirectories();
  if (!userFolders.empty() && holdsApplication(userFolders.front())) {
    if (inUserFolder) *inUserFolder = true;
    return resolved(userFolders.front());
  }
  if (inUserFolder) *inUserFolder = false;
  const auto localFolders = locations().localApplicationsDirectories();
  return localFolders.empty() ? std::string() : resolved(localFolders.back());
}

}  // namespace corvane::files
