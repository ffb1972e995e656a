// Kernel values of a recorded machine. Profiles write numbers without their width, so the width
// comes from the name: the Mac hands out sizes, frequencies and feature masks as 64-bit
// integers and everything else (counts, flags) as 32-bit ones.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string>
#include <unordered_map>

#include "platform/kernel_values_backends.h"

namespace corvane::platform::sim {
namespace {

// The names the Mac's kernel declares as 64-bit integers. Keep sorted.
constexpr std::array<std::string_view, 18> kSixtyFourBitNames = {
    "hw.busfrequency",          "hw.busfrequency_max",
    "hw.busfrequency_min",      "hw.cachelinesize",
    "hw.cpufrequency",          "hw.cpufrequency_max",
    "hw.cpufrequency_min",      "hw.l1dcachesize",
    "hw.l1icachesize",          "hw.l2cachesize",
    "hw.l3cachesize",           "hw.memsize",
    "hw.memsize_usable",        "hw.pagesize",
    "hw.tbfrequency",           "machdep.cpu.extfeature_bits",
    "machdep.cpu.feature_bits", "machdep.cpu.leaf7_feature_bits"};
static_assert(std::is_sorted(kSixtyFourBitNames.begin(), kSixtyFourBitNames.end()));

class RecordedKernelValues final : public KernelValues {
 public:
  explicit RecordedKernelValues(const nlohmann::json& sysctl) {
    if (!sysctl.is_object()) return;
    for (const auto& [name, value] : sysctl.items()) {
      if (auto bytes = encodeSysctlValue(name, value)) values_.emplace(name, std::move(*bytes));
    }
  }

  std::optional<std::string> valueByName(std::string_view name) const override {
    auto found = values_.find(std::string(name));
    if (found == values_.end()) return std::nullopt;
    return found->second;
  }

 private:
  // Encoded once: the profile is immutable, and readers then only look up.
  std::unordered_map<std::string, std::string> values_;
};

}  // namespace

bool isSixtyFourBitValue(std::string_view name) {
  return std::binary_search(kSixtyFourBitNames.begin(), kSixtyFourBitNames.end(), name);
}

std::optional<std::string> encodeSysctlValue(std::string_view name, const nlohmann::json& value) {
  if (value.is_string()) return kernel_bytes::fromString(value.get_ref<const std::string&>());
  if (value.is_boolean()) return kernel_bytes::fromInt32(value.get<bool>() ? 1 : 0);
  if (!value.is_number()) return std::nullopt;

  int64_t number = 0;
  if (value.is_number_unsigned()) {
    // Above INT64_MAX only a 64-bit mask can be meant; keep its bits.
    number = static_cast<int64_t>(value.get<uint64_t>());
  } else if (value.is_number_integer()) {
    number = value.get<int64_t>();
  } else {
    // "2.4e9" is a whole number written the long way; a fraction is no kernel value.
    const double real = value.get<double>();
    if (!std::isfinite(real) || real != std::trunc(real) || std::fabs(real) >= 9.2e18) return std::nullopt;
    number = static_cast<int64_t>(real);
  }

  const bool fitsInt32 = number >= std::numeric_limits<int32_t>::min() && number <= std::numeric_limits<int32_t>::max();
  if (isSixtyFourBitValue(name) || !fitsInt32 || (value.is_number_unsigned() && value.get<uint64_t>() > INT64_MAX)) {
    return kernel_bytes::fromInt64(number);
  }
  return kernel_bytes::fromInt32(static_cast<int32_t>(number));
}

std::shared_ptr<KernelValues> kernelValuesFromSysctl(const nlohmann::json& sysctl) {
  return std::make_shared<RecordedKernelValues>(sysctl);
}

}  // namespace corvane::platform::sim
