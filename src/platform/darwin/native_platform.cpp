// macOS: the real SMC, and the product's files in the user's Library.
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "corvane/platform/platform.h"
#include "platform/darwin/iokit_smc_driver.h"
#include "platform/native_files.h"

namespace corvane::platform {
namespace {

// The app group shared by every process of the product.
constexpr const char* kAppGroup = "group.com.corvane.core";

std::filesystem::path homeFolder() {
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') return home;
  const passwd* entry = getpwuid(getuid());
  return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "/tmp";
}

class LibraryFileLocations final : public FileLocations {
 public:
  std::filesystem::path appGroupContainer() const override {
    return homeFolder() / "Library" / "Group Containers" / kAppGroup;
  }
};

}  // namespace

std::shared_ptr<FileLocations> nativeFileLocations() { return std::make_shared<LibraryFileLocations>(); }

std::shared_ptr<Platform> native(const NativeOptions&) {
  return std::make_shared<Platform>(std::make_shared<IOKitSmcDriver>(), nativeFileLocations(), nullptr,
                                    /*simulated=*/false);
}

}  // namespace corvane::platform
