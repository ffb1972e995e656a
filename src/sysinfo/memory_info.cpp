#include "corvane/sysinfo/memory_info.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "corvane/platform/kernel_values.h"
#include "corvane/platform/platform.h"

namespace corvane::memory {
namespace {

std::string grouped(uint64_t whole) {
  const auto digits = std::to_string(whole);
  std::string text;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i > 0 && (digits.size() - i) % 3 == 0) text += ',';
    text += digits[i];
  }
  return text;
}

}  // namespace

std::string byteCountText(uint64_t bytes) {
  if (bytes == 0) return "Zero KB";
  if (bytes == 1) return "1 byte";
  if (bytes < 1024) return grouped(bytes) + " bytes";
  static constexpr std::array<const char*, 6> kUnits = {"KB", "MB", "GB", "TB", "PB", "EB"};
  std::size_t unit = 0;
  double value = static_cast<double>(bytes) / 1024.0;
  while (value >= 1024.0 && unit + 1 < kUnits.size()) {
    value /= 1024.0;
    ++unit;
  }
  // Finer units carry fewer decimals: a kilobyte more or less is noise, a fraction of a
  // gigabyte is not.
  const int decimals = unit == 0 ? 0 : unit == 1 ? 1 : 2;
  const double scale = std::pow(10.0, decimals);
  const auto scaled = static_cast<uint64_t>(std::llround(value * scale));
  const uint64_t whole = scaled / static_cast<uint64_t>(scale);
  uint64_t fraction = scaled % static_cast<uint64_t>(scale);
  int shown = decimals;
  while (shown > 0 && fraction % 10 == 0) {
    fraction /= 10;
    --shown;
  }
  std::string text = grouped(whole);
  if (shown > 0) {
    char digits[32];
    std::snprintf(digits, sizeof digits, ".%0*llu", shown, static_cast<unsigned long long>(fraction));
    text += digits;
  }
  return text + " " + kUnits[unit];
}

HWMemoryInfo getMemoryInfo() {
  uint64_t bytes = 0;
  const auto value = platform::current().service<platform::KernelValues>().valueByName("hw.memsize");
  if (value && value->size() == sizeof bytes) {
    std::memcpy(&bytes, value->data(), sizeof bytes);
  } else if (value && value->size() == sizeof(uint32_t)) {
    uint32_t narrow = 0;
    std::memcpy(&narrow, value->data(), sizeof narrow);
    bytes = narrow;
  } else {
    // The message names the page size, as the overview always has; the size is then zero.
    std::fprintf(stderr, "getting page size\n");
  }
  return HWMemoryInfo{byteCountText(bytes)};
}

}  // namespace corvane::memory
