// Linux keeps the suite as the SQLite key-value file in the app-group container, the same file
// format the simulated platforms use.
#include "corvane/platform/platform.h"
#include "platform/defaults_suite_backends.h"

namespace corvane::platform {

std::shared_ptr<DefaultsSuite> nativeDefaultsSuite(const Platform& platform) {
  return DefaultsSuite::sqliteFile(platform.files().appGroupContainer() / kDefaultsFileName);
}

}  // namespace corvane::platform
