#include "corvane/util/system_utils.h"

#include <cstdint>
#include <cstring>

#include "corvane/platform/kernel_values.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/processes.h"
#include "corvane/platform/text.h"

namespace corvane {
namespace {

std::optional<std::string> kernelValue(std::string_view name) {
  return platform::current().service<platform::KernelValues>().valueByName(name);
}

// Kernel numbers are integers of 4 or 8 bytes; the bytes are never taken as a floating-point
// number, and any other width is no number at all.
template <class Real>
Real kernelNumber(std::string_view name) {
  const auto bytes = kernelValue(name);
  if (!bytes) return 0;
  if (bytes->size() == sizeof(int32_t)) {
    int32_t value = 0;
    std::memcpy(&value, bytes->data(), sizeof value);
    return static_cast<Real>(value);
  }
  if (bytes->size() == sizeof(int64_t)) {
    int64_t value = 0;
    std::memcpy(&value, bytes->data(), sizeof value);
    return static_cast<Real>(value);
  }
  return 0;
}

// An output as the platform's strings decode it: bytes that are not UTF-8 decode to nothing.
std::string decoded(std::string bytes) { return text::isUtf8(bytes) ? std::move(bytes) : std::string(); }

}  // namespace

std::optional<std::string> HWSystemUtils::readDataByPath(const std::string& path,
                                                         const std::optional<std::vector<std::string>>& arguments,
                                                         HWError* error) {
  std::string launchError;
  const auto result = platform::current().service<platform::Processes>().run(
      path, arguments.value_or(std::vector<std::string>{}), &launchError);
  if (!result) {
    if (error != nullptr) *error = errors::kitError(1, launchError);
    return std::nullopt;
  }
  // Strict on purpose: a warning on standard error fails the command even when its output is
  // good, so that callers never parse output the command itself doubted.
  std::string out = decoded(std::move(result->out));
  std::string err = decoded(std::move(result->err));
  if (!out.empty() && err.empty()) return out;
  if (error != nullptr) *error = errors::kitError(1, std::move(err));
  return std::nullopt;
}

std::string HWSystemUtils::sysctlNSStringForKey(std::string_view name) {
  const auto bytes = kernelValue(name);
  if (!bytes || bytes->empty()) return {};
  // A C string: it ends at the first NUL, or at the end of the buffer when there is none.
  return std::string(bytes->c_str(), ::strnlen(bytes->data(), bytes->size()));
}

float HWSystemUtils::sysctlFloatForKey(std::string_view name) { return kernelNumber<float>(name); }

double HWSystemUtils::sysctlDoubleForKey(std::string_view name) { return kernelNumber<double>(name); }

}  // namespace corvane
