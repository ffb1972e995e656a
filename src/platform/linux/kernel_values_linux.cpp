#include "platform/linux/kernel_values_linux.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <functional>
#include <set>
#include <unordered_map>
#include <utility>

#include "platform/kernel_values_backends.h"
#include "platform/posix/file_lock.h"
#include "corvane/platform/text.h"

namespace corvane::platform {
namespace procfs {
namespace {

using text::trimmed;

// Calls `visit(key, value)` for every "key : value" line, trimmed.
template <class Visit>
void forEachField(std::string_view text, Visit&& visit) {
  while (!text.empty()) {
    const auto end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    visit(trimmed(line.substr(0, colon)), trimmed(line.substr(colon + 1)));
  }
}

template <class Number>
std::optional<Number> parseNumber(std::string_view text, int base = 10) {
  if (base == 16 && (text.starts_with("0x") || text.starts_with("0X"))) text.remove_prefix(2);
  Number value{};
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (ec != std::errc() || end == text.data()) return std::nullopt;
  return value;
}

std::optional<double> parseReal(std::string_view text) {
  // from_chars for doubles is missing from older standard libraries; the text is short.
  std::string copy(text);
  char* end = nullptr;
  const double value = std::strtod(copy.c_str(), &end);
  if (end == copy.c_str()) return std::nullopt;
  return value;
}

// ARM processors name their core by implementer and part number only.
std::string armCoreName(std::string_view implementer, std::string_view part) {
  const auto vendor = parseNumber<unsigned>(implementer, 16);
  const auto number = parseNumber<unsigned>(part, 16);
  if (!vendor || !number) return {};
  if (*vendor == 0x61) return "Apple";
  if (*vendor != 0x41) return {};
  static const std::unordered_map<unsigned, std::string_view> kArmCores = {
      {0xd03, "Cortex-A53"},  {0xd04, "Cortex-A35"},  {0xd05, "Cortex-A55"},  {0xd07, "Cortex-A57"},
      {0xd08, "Cortex-A72"},  {0xd09, "Cortex-A73"},  {0xd0a, "Cortex-A75"},  {0xd0b, "Cortex-A76"},
      {0xd0c, "Neoverse-N1"}, {0xd0d, "Cortex-A77"},  {0xd40, "Neoverse-V1"}, {0xd41, "Cortex-A78"},
      {0xd44, "Cortex-X1"},   {0xd46, "Cortex-A510"}, {0xd47, "Cortex-A710"}, {0xd48, "Cortex-X2"},
      {0xd49, "Neoverse-N2"}, {0xd4f, "Neoverse-V2"}};
  auto found = kArmCores.find(*number);
  return found == kArmCores.end() ? std::string() : "ARM " + std::string(found->second);
}

}  // namespace

CpuInfo parseCpuInfo(std::string_view cpuinfo) {
  CpuInfo info;
  std::set<std::pair<std::string, std::string>> cores;
  std::set<std::string> packages;
  std::string physicalId;
  std::string implementer;
  std::string part;
  bool sawCoreIds = false;
  forEachField(cpuinfo, [&](std::string_view key, std::string_view value) {
    if (key == "processor") {
      // Old ARM kernels also write "Processor : ARMv7 ..." once, capitalised; only the
      // numbered entries are processors.
      if (parseNumber<int>(value)) ++info.logicalCpus;
      physicalId.clear();
    } else if (key == "model name" && info.brand.empty()) {
      info.brand = text::cleaned(value);
    } else if (key == "cpu MHz" && info.megahertz == 0.0) {
      info.megahertz = parseReal(value).value_or(0.0);
    } else if (key == "physical id") {
      physicalId = std::string(value);
      packages.insert(physicalId);
    } else if (key == "vendor_id" && info.vendor.empty()) {
      info.vendor = text::cleaned(value);
    } else if (key == "core id") {
      sawCoreIds = true;
      cores.emplace(physicalId, std::string(value));
    } else if (key == "CPU implementer" && implementer.empty()) {
      implementer = std::string(value);
    } else if (key == "CPU part" && part.empty()) {
      part = std::string(value);
    }
  });
  if (info.brand.empty()) info.brand = armCoreName(implementer, part);
  info.physicalCpus = sawCoreIds ? static_cast<int>(cores.size()) : info.logicalCpus;
  info.packages = static_cast<int>(packages.size());
  return info;
}

std::optional<uint64_t> parseCacheSize(std::string_view text) {
  text = trimmed(text);
  uint64_t scale = 1;
  if (text.ends_with('K')) {
    scale = 1024;
  } else if (text.ends_with('M')) {
    scale = 1024 * 1024;
  }
  if (scale != 1) text.remove_suffix(1);
  const auto number = parseNumber<uint64_t>(text);
  if (!number || std::to_string(*number).size() != text.size()) return std::nullopt;
  return *number * scale;
}

std::optional<uint64_t> parseMemTotal(std::string_view meminfo) {
  std::optional<uint64_t> bytes;
  forEachField(meminfo, [&](std::string_view key, std::string_view value) {
    if (key != "MemTotal" || bytes) return;
    const auto space = value.find(' ');
    const auto kilobytes = parseNumber<uint64_t>(value.substr(0, space));
    const std::string_view unit = space == std::string_view::npos ? std::string_view() : trimmed(value.substr(space));
    if (kilobytes && (unit == "kB" || unit.empty())) bytes = *kilobytes * (unit.empty() ? 1 : 1024);
  });
  return bytes;
}

std::optional<int64_t> parseBootTime(std::string_view procStat) {
  while (!procStat.empty()) {
    const auto end = procStat.find('\n');
    const std::string_view line = procStat.substr(0, end);
    procStat = end == std::string_view::npos ? std::string_view() : procStat.substr(end + 1);
    if (line.starts_with("btime ")) return parseNumber<int64_t>(trimmed(line.substr(6)));
  }
  return std::nullopt;
}

std::optional<uint64_t> frequencyFromBrand(std::string_view brand) {
  const auto at = brand.rfind('@');
  if (at == std::string_view::npos) return std::nullopt;
  std::string_view rest = trimmed(brand.substr(at + 1));
  double scale = 0.0;
  if (rest.ends_with("GHz")) {
    scale = 1e9;
  } else if (rest.ends_with("MHz")) {
    scale = 1e6;
  } else {
    return std::nullopt;
  }
  const auto number = parseReal(trimmed(rest.substr(0, rest.size() - 3)));
  if (!number || *number <= 0.0) return std::nullopt;
  return static_cast<uint64_t>(std::llround(*number * scale));
}

std::optional<std::string> singleValue(std::string_view text) {
  while (!text.empty() && text.back() == '\0') text.remove_suffix(1);
  // Firmware tables and device trees hold whatever their vendor wrote.
  const std::string cleaned = text::cleaned(text);
  const std::string_view value = trimmed(cleaned);
  if (value.empty()) return std::nullopt;
  return std::string(value);
}

namespace {

class LinuxKernelValues final : public KernelValues {
 public:
  explicit LinuxKernelValues(Roots roots) : roots_(std::move(roots)) {}

  std::optional<std::string> valueByName(std::string_view name) const override {
    using Reader = std::optional<std::string> (LinuxKernelValues::*)() const;
    static const std::unordered_map<std::string_view, Reader> kReaders = {
        {"hw.model", &LinuxKernelValues::model},
        {"machdep.cpu.brand_string", &LinuxKernelValues::brand},
        {"hw.ncpu", &LinuxKernelValues::logicalCpus},
        {"hw.logicalcpu", &LinuxKernelValues::logicalCpus},
        {"hw.activecpu", &LinuxKernelValues::logicalCpus},
        {"machdep.cpu.thread_count", &LinuxKernelValues::logicalCpus},
        {"hw.physicalcpu", &LinuxKernelValues::physicalCpus},
        {"machdep.cpu.core_count", &LinuxKernelValues::physicalCpus},
        {"hw.memsize", &LinuxKernelValues::memorySize},
        {"hw.cpufrequency", &LinuxKernelValues::cpuFrequency},
        {"kern.ostype", &LinuxKernelValues::osType},
        {"kern.osrelease", &LinuxKernelValues::osRelease},
        {"kern.version", &LinuxKernelValues::osVersion},
        {"kern.hostname", &LinuxKernelValues::hostName},
        {"kern.boottime", &LinuxKernelValues::bootTime},
        {"hw.byteorder", &LinuxKernelValues::byteOrder},
        {"machdep.cpu.vendor", &LinuxKernelValues::vendor},
        {"hw.packages", &LinuxKernelValues::packages},
        {"hw.l2cachesize", &LinuxKernelValues::level2Cache},
        {"hw.l3cachesize", &LinuxKernelValues::level3Cache},
        {"hw.cputype", &LinuxKernelValues::cpuType},
    };
    auto found = kReaders.find(name);
    if (found == kReaders.end()) return std::nullopt;
    return (this->*(found->second))();
  }

 private:
  std::optional<std::string> read(const std::filesystem::path& path) const { return posix::readWholeFile(path); }

  std::optional<std::string> stringFrom(const std::filesystem::path& path) const {
    auto text = read(path);
    if (!text) return std::nullopt;
    auto value = singleValue(*text);
    if (!value) return std::nullopt;
    return kernel_bytes::fromString(*value);
  }

  std::optional<CpuInfo> cpuInfo() const {
    auto text = read(roots_.proc / "cpuinfo");
    if (!text) return std::nullopt;
    return parseCpuInfo(*text);
  }

  std::optional<std::string> model() const {
    if (auto value = stringFrom(roots_.sys / "class/dmi/id/product_name")) return value;
    // Boards without firmware tables (most ARM boards) name themselves in the device tree.
    return stringFrom(roots_.sys / "firmware/devicetree/base/model");
  }

  std::optional<std::string> brand() const {
    auto info = cpuInfo();
    if (!info || info->brand.empty()) return std::nullopt;
    return kernel_bytes::fromString(info->brand);
  }

  std::optional<std::string> logicalCpus() const {
    auto info = cpuInfo();
    if (!info || info->logicalCpus == 0) return std::nullopt;
    return kernel_bytes::fromInt32(info->logicalCpus);
  }

  std::optional<std::string> physicalCpus() const {
    auto info = cpuInfo();
    if (!info || info->physicalCpus == 0) return std::nullopt;
    return kernel_bytes::fromInt32(info->physicalCpus);
  }

  std::optional<std::string> vendor() const {
    auto info = cpuInfo();
    if (!info || info->vendor.empty()) return std::nullopt;
    return kernel_bytes::fromString(info->vendor);
  }

  std::optional<std::string> packages() const {
    auto info = cpuInfo();
    if (!info || info->packages == 0) return std::nullopt;
    return kernel_bytes::fromInt32(info->packages);
  }

  // Processor 0's cache of `level` that holds data (a unified one, else the data half).
  std::optional<std::string> cacheOfLevel(int level) const {
    const auto folder = roots_.sys / "devices/system/cpu/cpu0/cache";
    std::optional<uint64_t> bytes;
    for (int index = 0; index < 16; ++index) {
      const auto entry = folder / ("index" + std::to_string(index));
      const auto entryLevel = read(entry / "level");
      if (!entryLevel) continue;
      if (parseNumber<int>(trimmed(*entryLevel)) != level) continue;
      const auto type = read(entry / "type");
      if (!type || trimmed(*type) == "Instruction") continue;
      const auto size = read(entry / "size");
      if (auto parsed = size ? parseCacheSize(*size) : std::nullopt; parsed && (!bytes || trimmed(*type) == "Unified")) {
        bytes = parsed;
      }
    }
    if (!bytes) return std::nullopt;
    return kernel_bytes::fromInt64(static_cast<int64_t>(*bytes));
  }
  std::optional<std::string> level2Cache() const { return cacheOfLevel(2); }
  std::optional<std::string> level3Cache() const { return cacheOfLevel(3); }

  std::optional<std::string> cpuType() const {
    // The Mac's numbering: the family with the 64-bit flag.
    constexpr int32_t k64Bit = 0x01000000;
#if defined(__x86_64__)
    return kernel_bytes::fromInt32(k64Bit | 7);
#elif defined(__aarch64__)
    return kernel_bytes::fromInt32(k64Bit | 12);
#else
    return std::nullopt;
#endif
  }

  std::optional<std::string> memorySize() const {
    auto text = read(roots_.proc / "meminfo");
    if (!text) return std::nullopt;
    auto bytes = parseMemTotal(*text);
    if (!bytes) return std::nullopt;
    return kernel_bytes::fromInt64(static_cast<int64_t>(*bytes));
  }

  std::optional<std::string> cpuFrequency() const {
    auto info = cpuInfo();
    if (info) {
      if (auto hertz = frequencyFromBrand(info->brand)) return kernel_bytes::fromInt64(static_cast<int64_t>(*hertz));
    }
    if (auto text = read(roots_.sys / "devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq")) {
      if (auto value = singleValue(*text)) {
        if (auto kilohertz = parseNumber<int64_t>(*value); kilohertz && *kilohertz > 0) {
          return kernel_bytes::fromInt64(*kilohertz * 1000);
        }
      }
    }
    if (info && info->megahertz > 0.0) return kernel_bytes::fromInt64(std::llround(info->megahertz * 1e6));
    return std::nullopt;
  }

  std::optional<std::string> osType() const { return stringFrom(roots_.proc / "sys/kernel/ostype"); }
  std::optional<std::string> osRelease() const { return stringFrom(roots_.proc / "sys/kernel/osrelease"); }
  std::optional<std::string> osVersion() const { return stringFrom(roots_.proc / "sys/kernel/version"); }
  std::optional<std::string> hostName() const { return stringFrom(roots_.proc / "sys/kernel/hostname"); }

  std::optional<std::string> byteOrder() const {
    return kernel_bytes::fromInt32(std::endian::native == std::endian::little ? 1234 : 4321);
  }

  std::optional<std::string> bootTime() const {
    auto text = read(roots_.proc / "stat");
    if (!text) return std::nullopt;
    auto seconds = parseBootTime(*text);
    if (!seconds) return std::nullopt;
    // The Mac's struct timeval: 64-bit seconds, 32-bit microseconds, 4 bytes of padding.
    std::string bytes = kernel_bytes::fromInt64(*seconds);
    bytes += kernel_bytes::fromInt32(0);
    bytes.append(4, '\0');
    return bytes;
  }

  Roots roots_;
};

}  // namespace

std::shared_ptr<KernelValues> makeKernelValues(Roots roots) {
  return std::make_shared<LinuxKernelValues>(std::move(roots));
}

}  // namespace procfs

std::shared_ptr<KernelValues> nativeKernelValues() { return procfs::makeKernelValues({}); }

}  // namespace corvane::platform
