// The Mac answers kernel values by name itself.
#include <sys/sysctl.h>
#include <sys/types.h>

#include <string>

#include "platform/kernel_values_backends.h"

namespace corvane::platform {
namespace {

class SysctlKernelValues final : public KernelValues {
 public:
  std::optional<std::string> valueByName(std::string_view name) const override {
    const std::string key(name);
    size_t size = 0;
    if (sysctlbyname(key.c_str(), nullptr, &size, nullptr, 0) != 0) return std::nullopt;
    std::string bytes(size, '\0');
    if (size > 0 && sysctlbyname(key.c_str(), bytes.data(), &size, nullptr, 0) != 0) return std::nullopt;
    // The value may have shrunk between the two calls.
    bytes.resize(size);
    return bytes;
  }
};

}  // namespace

std::shared_ptr<KernelValues> nativeKernelValues() { return std::make_shared<SysctlKernelValues>(); }

}  // namespace corvane::platform
