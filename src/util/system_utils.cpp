#include "corvane/util/system_utils.h"

#include <cstdint>
#include <cstring>

#include "corvane/platform/kernel_values.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/processes.h"

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

// True when `text` is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF).
bool isUtf8(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) {
      ++at;
      continue;
    }
    std::size_t length = 0;
    uint32_t code = 0;
    if ((lead & 0xE0) == 0xC0) {
      length = 2;
      code = lead & 0x1Fu;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3;
      code = lead & 0x0Fu;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4;
      code = lead & 0x07u;
    } else {
      return false;
    }
    if (text.size() - at < length) return false;
    for (std::size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(text[at + k]);
      if ((next & 0xC0) != 0x80) return false;
      code = (code << 6) | (next & 0x3Fu);
    }
    constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kSmallest[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    at += length;
  }
  return true;
}

// An output as the platform's strings decode it: bytes that are not UTF-8 decode to nothing.
std::string decoded(std::string bytes) { return isUtf8(bytes) ? std::move(bytes) : std::string(); }

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
