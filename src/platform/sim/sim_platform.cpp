#include "platform/sim/sim_platform.h"

#include <functional>
#include <string>

#include <fmt/format.h>

#include "platform/native_files.h"
#include "platform/posix/file_lock.h"
#include "platform/sim/sim_smc_driver.h"

namespace corvane::platform::sim {
namespace {

// Every folder under one root, laid out like a Mac's, with a Mac's account names: tests and
// simulations never touch the user's real folders.
class RootedFileLocations final : public FileLocations {
 public:
  explicit RootedFileLocations(std::filesystem::path root) : root_(std::move(root)) {}
  std::filesystem::path appGroupContainer() const override { return root_ / "group"; }
  std::filesystem::path documentsDirectory() const override { return root_ / "Documents"; }
  std::optional<std::filesystem::path> applicationSupportDirectory() const override {
    return root_ / "Library" / "Application Support";
  }
  std::vector<std::filesystem::path> userApplicationsDirectories() const override { return {root_ / "Applications"}; }
  std::vector<std::filesystem::path> localApplicationsDirectories() const override {
    return {root_ / "System" / "Applications"};
  }
  std::filesystem::path mainExecutableDirectory() const override {
    return root_ / "Corvane.app" / "Contents" / "MacOS";
  }
  std::string rootAccountName() const override { return "root"; }
  std::string adminGroupName() const override { return "admin"; }

 private:
  std::filesystem::path root_;
};

std::string safeFileName(const std::string& name) {
  std::string safe;
  for (char c : name) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       c == ',' || c == '.' || c == '-' || c == '_';
    safe += plain ? c : '_';
  }
  return safe.empty() ? "machine" : safe;
}

}  // namespace

std::filesystem::path stateFolder(const FileLocations& files) {
  return files.appGroupContainer() / "simulated-machines";
}

std::filesystem::path stateFile(const FileLocations& files, const MachineProfile& profile, const std::string& source) {
  std::string name = safeFileName(profile.name);
  if (!source.empty() && source != profile.name) {
    // Two profile files may carry the same name; their states must not mix.
    name += fmt::format("-{:08x}", std::hash<std::string>{}(source) & 0xFFFFFFFFu);
  }
  return stateFolder(files) / (name + ".json");
}

void announceMachine(const FileLocations& files, const std::string& source) {
  const std::filesystem::path path = stateFolder(files) / "current";
  if (posix::readWholeFile(path) == source + "\n") return;
  std::error_code ec;
  std::filesystem::create_directories(path.parent_path(), ec);
  posix::replaceFileAtomically(path, source + "\n", nullptr);
}

std::string announcedMachine(const FileLocations& files, const posix::OwnedTree* owned) {
  const std::filesystem::path path = stateFolder(files) / "current";
  auto text = owned != nullptr ? owned->read(path) : posix::readWholeFile(path);
  if (!text) return {};
  while (!text->empty() && (text->back() == '\n' || text->back() == '\r')) text->pop_back();
  return *text;
}

std::shared_ptr<FileLocations> rootedFileLocations(std::filesystem::path root) {
  return std::make_shared<RootedFileLocations>(std::move(root));
}

std::shared_ptr<Platform> makePlatform(std::shared_ptr<const MachineProfile> profile,
                                       std::shared_ptr<FileLocations> files, const std::string& source,
                                       bool announce, bool simulated,
                                       std::shared_ptr<const posix::OwnedTree> owned) {
  std::filesystem::path state;
  if (profile) {
    state = stateFile(*files, *profile, source);
    if (announce) announceMachine(*files, source);
  }
  auto driver = std::make_shared<SimSmcDriver>(profile, state, std::move(owned));
  std::string machineSource = profile ? source : std::string();
  return std::make_shared<Platform>(std::move(driver), std::move(files), std::move(profile), simulated,
                                    std::move(machineSource));
}

}  // namespace corvane::platform::sim

namespace corvane::platform {

std::shared_ptr<Platform> simulated(std::shared_ptr<const MachineProfile> profile, const SimulatedOptions& options) {
  std::shared_ptr<FileLocations> files =
      options.root.empty() ? nativeFileLocations() : sim::rootedFileLocations(options.root);
  const std::string source = options.source.empty() && profile ? profile->name : options.source;
  return sim::makePlatform(std::move(profile), std::move(files), source, options.announce, true);
}

}  // namespace corvane::platform
