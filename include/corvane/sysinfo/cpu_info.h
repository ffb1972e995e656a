// The machine's processor: its cleaned brand, and the platform code that tells Intel from each
// Apple-silicon family (the sensor catalogue selects its entries by it).
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <string>
#include <vector>

namespace corvane {

// CPU platform values: one bit per processor family; 0 for a chip not recognised.
namespace cpu_platform {
inline constexpr std::uint64_t kUnknown = 0;
inline constexpr std::uint64_t kIntel = 1;
inline constexpr std::uint64_t kM1 = 2;
inline constexpr std::uint64_t kM1Pro = 4;
inline constexpr std::uint64_t kM1Max = 8;
inline constexpr std::uint64_t kM1Ultra = 16;
inline constexpr std::uint64_t kM2 = 32;
inline constexpr std::uint64_t kM2Pro = 64;
inline constexpr std::uint64_t kM2Max = 128;
inline constexpr std::uint64_t kM2Ultra = 256;
}  // namespace cpu_platform

// A count that is not known (all bits set).
inline constexpr std::uint64_t kUnknownCount = std::numeric_limits<std::uint64_t>::max();

// One core as the I/O registry lists it. A copyable value.
struct HWCPUCore {
  std::uint64_t coreId = 0;  // the registry's CPU id
  std::string name;          // the registry entry's name, e.g. "cpu0"
  std::uint64_t type = 0;    // 1 efficiency, 2 performance, 0 unknown
};

// What is known about the processor. A copyable value; not synchronised. A value the machine
// does not give reads as: one package, unknown core and thread counts, efficiency and
// performance counts all bits set and no core list where the cores are not described,
// frequency and caches of −1 scaled, the "GenuineIntel" vendor, the architecture of a zero CPU
// type.
class HWCPUInfo {
 public:
  // Cleaned brand string, e.g. "Intel Core i7-9750H 2.60GHz" or "Apple M1 Pro".
  const std::string& brand() const { return brand_; }
  void setBrand(std::string v) { brand_ = std::move(v); }
  // Vendor string.
  const std::string& vendor() const { return vendor_; }
  void setVendor(std::string v) { vendor_ = std::move(v); }
  // Processor packages, at least 1.
  std::uint64_t cpuCount() const { return cpuCount_; }
  void setCpuCount(std::uint64_t v) { cpuCount_ = v; }
  // Cores; kUnknownCount when not known.
  std::uint64_t coreCount() const { return coreCount_; }
  void setCoreCount(std::uint64_t v) { coreCount_ = v; }
  // Hardware threads; kUnknownCount when not known.
  std::uint64_t threadCount() const { return threadCount_; }
  void setThreadCount(std::uint64_t v) { threadCount_ = v; }
  // Efficiency cores from the registry: 0 when it lists none, all bits set when not searched.
  std::uint64_t eCoreCount() const { return eCoreCount_; }
  void setECoreCount(std::uint64_t v) { eCoreCount_ = v; }
  // Performance cores, same rules.
  std::uint64_t pCoreCount() const { return pCoreCount_; }
  void setPCoreCount(std::uint64_t v) { pCoreCount_ = v; }
  // The registry's cores in registry order.
  const std::vector<HWCPUCore>& coreList() const { return coreList_; }
  void setCoreList(std::vector<HWCPUCore> v) { coreList_ = std::move(v); }
  // Nominal frequency in GHz.
  double frequency() const { return frequency_; }
  void setFrequency(double v) { frequency_ = v; }
  // Level-2 cache in MiB.
  double l2Cache() const { return l2Cache_; }
  void setL2Cache(double v) { l2Cache_ = v; }
  // Level-3 cache in MiB.
  double l3Cache() const { return l3Cache_; }
  void setL3Cache(double v) { l3Cache_ = v; }
  // 0 when the kernel's CPU type is non-zero, 2 when it reads 0.
  std::int64_t architecture() const { return architecture_; }
  void setArchitecture(std::int64_t v) { architecture_ = v; }
  // A cpu_platform value.
  std::uint64_t platform() const { return platform_; }
  void setPlatform(std::uint64_t v) { platform_ = v; }
  // Whether the physical and logical CPU counts differ.
  bool hasHyperthreadingCores() const { return hasHyperthreadingCores_; }
  void setHasHyperthreadingCores(bool v) { hasHyperthreadingCores_ = v; }
  // Whether the registry reports efficiency or performance cores.
  bool hasEPCores() const { return hasEPCores_; }
  void setHasEPCores(bool v) { hasEPCores_ = v; }

  // `brand` with every "Apple " removed, e.g. "M1 Pro".
  std::string shortBrand() const;

 private:
  std::string brand_ = "Unknown";
  std::string vendor_ = "GenuineIntel";
  std::uint64_t cpuCount_ = 1;
  std::uint64_t coreCount_ = kUnknownCount;
  std::uint64_t threadCount_ = kUnknownCount;
  std::uint64_t eCoreCount_ = kUnknownCount;
  std::uint64_t pCoreCount_ = kUnknownCount;
  std::vector<HWCPUCore> coreList_;
  double frequency_ = -1.0 / 1'000'000'000.0;
  double l2Cache_ = -1.0 / 1'048'576.0;
  double l3Cache_ = -1.0 / 1'048'576.0;
  std::int64_t architecture_ = 2;
  std::uint64_t platform_ = cpu_platform::kUnknown;
  bool hasHyperthreadingCores_ = false;
  bool hasEPCores_ = false;
};

namespace cpu {

// The kernel's "machdep.cpu.brand_string" without "(TM)", "(R)", "CPU" and "@", with white space
// condensed and trimmed; "Unknown" when that leaves nothing.
std::string getCPUBrand();

// The kernel's "machdep.cpu.vendor"; "GenuineIntel" when it gives none.
std::string getCPUVendor();
// Processor packages ("hw.packages"), at least 1.
std::uint64_t getCPUCount();
// Cores and hardware threads; kUnknownCount when the kernel gives 0 or nothing.
std::uint64_t getCPUCoreCount();
std::uint64_t getCPUThreadCount();
// Nominal frequency in GHz; −1e-9 when unknown.
double getCPUFrequency();
// Level-2 and level-3 caches in MiB; −1/1048576 when unknown.
double getL2Cache();
double getL3Cache();
// 0 when the kernel's CPU type is non-zero, 2 when it reads 0 or nothing.
std::int64_t getCPUArchitecture();

// `rawBrand` cleaned as getCPUBrand cleans the kernel's brand string.
std::string cleanedBrand(const std::string& rawBrand);

// The cpu_platform value a brand names, decided by case-insensitive substring tests; 0 for any
// chip not in the table.
std::uint64_t getCPUPlatformFromBrand(const std::string& brand);

// Whether the kernel's physical and logical processor counts differ.
bool hasHyperthreadingCores();

// The machine's cores with their kinds, in processor order; nothing when it does not describe
// them (a simulated machine's profile records no clusters yet).
std::optional<std::vector<HWCPUCore>> getCPUCoresInfo();

// The processor facts this build gathers (see HWCPUInfo for which fields are filled).
HWCPUInfo getCPUInfo();

}  // namespace cpu
}  // namespace corvane
