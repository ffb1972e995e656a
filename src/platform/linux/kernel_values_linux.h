// Kernel values of a Linux host under their Mac names, read from /proc and /sys. The parsers
// are pure functions over the files' text; the roots are parameters so tests use fixture trees.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "corvane/platform/kernel_values.h"

namespace corvane::platform::procfs {

// What /proc/cpuinfo tells about the processors.
struct CpuInfo {
  std::string brand;       // "model name" of the first processor, else its ARM core; "" unknown
  int logicalCpus = 0;     // "processor" entries
  int physicalCpus = 0;    // distinct (physical id, core id) pairs; the logical count without them
  double megahertz = 0.0;  // "cpu MHz" of the first processor, 0 when absent
  std::string vendor;      // "vendor_id" of the first processor; "" unknown (ARM)
  int packages = 0;        // distinct "physical id" values; 0 when none is given
};

CpuInfo parseCpuInfo(std::string_view cpuinfo);

// MemTotal of /proc/meminfo in bytes.
std::optional<uint64_t> parseMemTotal(std::string_view meminfo);

// "btime" of /proc/stat: the boot time in seconds since 1970.
std::optional<int64_t> parseBootTime(std::string_view procStat);

// The nominal frequency in hertz that a brand string names ("... @ 2.40GHz").
std::optional<uint64_t> frequencyFromBrand(std::string_view brand);

// A one-value file (sysfs, /proc/sys, device tree) cleaned (see text::cleaned), without
// trailing NULs and white space; nothing when that leaves it empty.
std::optional<std::string> singleValue(std::string_view text);

// A cache "size" file of sysfs ("32K", "1024K", "16M", or plain bytes) in bytes.
std::optional<uint64_t> parseCacheSize(std::string_view text);

// Where the host's files are; tests point these at fixture trees.
struct Roots {
  std::filesystem::path proc = "/proc";
  std::filesystem::path sys = "/sys";
};

// The names answered, and where from:
//   hw.model                 DMI product_name, else the device tree's model
//   machdep.cpu.brand_string cpuinfo
//   hw.ncpu, hw.logicalcpu, hw.activecpu, machdep.cpu.thread_count   logical CPUs (4 bytes)
//   hw.physicalcpu, machdep.cpu.core_count                           cores (4 bytes)
//   hw.memsize               MemTotal (8 bytes)
//   hw.cpufrequency          the brand's nominal frequency, else cpufreq's maximum, else
//                            cpuinfo's current MHz (8 bytes, Hz)
//   machdep.cpu.vendor       cpuinfo's vendor_id
//   hw.packages              cpuinfo's distinct physical ids (4 bytes)
//   hw.l2cachesize, hw.l3cachesize   processor 0's unified or data cache of that level in
//                            sysfs (8 bytes)
//   hw.cputype               the Mac's CPU type of this build's processor family (4 bytes)
//   kern.ostype, kern.osrelease, kern.version, kern.hostname   /proc/sys/kernel
//   kern.boottime            /proc/stat btime as the Mac's 16-byte timeval (microseconds 0)
//   hw.byteorder             1234 or 4321, this build's own byte order (4 bytes)
// Every other name has no value.
std::shared_ptr<KernelValues> makeKernelValues(Roots roots);

}  // namespace corvane::platform::procfs
