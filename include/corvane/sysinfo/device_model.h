// Who the machine is: its model (with the built-in table of Mac models) and its operating system.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

// Family codes of HWDeviceModelInfo::family.
namespace device_family {
inline constexpr std::int64_t kUnknown = 0;
inline constexpr std::int64_t kMacBook = 1;
inline constexpr std::int64_t kMacBookPro = 2;
inline constexpr std::int64_t kMacBookAir = 3;
inline constexpr std::int64_t kIMac = 4;
inline constexpr std::int64_t kIMacPro = 5;
inline constexpr std::int64_t kMacPro = 6;
inline constexpr std::int64_t kMacMini = 7;
inline constexpr std::int64_t kXserve = 8;
inline constexpr std::int64_t kMacStudio = 9;
}  // namespace device_family

// A width and a height in points.
struct HWSize {
  double width = 0.0;
  double height = 0.0;
};

// The machine's model. A copyable value; not synchronised.
struct HWDeviceModelInfo {
  std::string modelId;                        // "hw.model", e.g. "MacBookPro18,3"
  std::optional<std::string> modelNumber;     // the hardware profile's order number
  std::optional<std::string> name;            // marketing name; none for an unknown model without a profile
  std::int64_t year = 0;                      // the model's year (see getModelInfo for unknown models)
  std::int64_t family = device_family::kUnknown;
  HWSize displayResolution;                   // the main screen's size; 0 × 0 when none is known
  std::optional<std::string> serial;          // the hardware profile's serial number
  std::optional<std::string> physicalMemory;  // left empty here
  std::int64_t endianness = 2;                // 0 little-endian, 1 big-endian, 2 other or unknown

  static HWDeviceModelInfo objectWithName(std::string name, std::int64_t year, std::int64_t family);

  // The family's display name. Codes 5 and 9 and above have none, and code 7 is spelled
  // "Mac Mini": screens and stored exports already show these texts, so they stay.
  std::optional<std::string> familyName() const;
  // The name of the family's picture, which for some families depends on the year.
  std::string familyIcon() const;
  // Machines from 2018 on write fan speeds the newer way.
  bool isT2ChipSupport() const { return year >= 2018; }
};

// What the hardware profile program says about the machine (each field only when present).
struct HWHardwareProfile {
  std::optional<std::string> machineName;   // "machine_name", e.g. "MacBook Pro"
  std::optional<std::string> chipType;      // "chip_type", e.g. "Apple M3 Pro"
  std::optional<std::string> modelNumber;   // "model_number"
  std::optional<std::string> serialNumber;  // "serial_number"
};

// The running operating system. A copyable value; not synchronised.
struct HWOSVersion {
  std::int64_t major = 0;
  std::int64_t minor = 0;
  std::int64_t patch = 0;
};

struct HWOSInfo {
  HWOSVersion version;
  std::string build = "Unknown";
  // Set only on a host that is not a Mac (its own name, e.g. "Debian GNU/Linux"): the Mac
  // release names would misname it.
  std::optional<std::string> hostSystemName;

  // The Mac release name of `version`, "Unknown" for a version without one; hostSystemName
  // instead when set.
  std::string name() const;
  // "major.minor.patch".
  std::string versionString() const;
};

namespace device {

// The built-in table of Mac models by identifier, made anew on each call.
std::map<std::string, HWDeviceModelInfo> defaultModelDict();

// The family an identifier's prefix names, for models not in the table.
std::int64_t familyFromModelId(std::string_view modelId);

// Reads the hardware profile program's JSON output; nothing when it holds no profile.
std::optional<HWHardwareProfile> hardwareProfileFromJson(std::string_view json);

// The model record for `modelId`: the table's entry when there is one, else one named from the
// profile ("machine (chip)", "Apple " removed) dated `currentYear`, the year the program runs in
// rather than the model's (a later model is at least that recent), with the family from the
// identifier's prefix. The profile's number and serial and the byte order (1234 / 4321) are
// filled in either way.
HWDeviceModelInfo modelInfoFor(const std::string& modelId, const std::optional<HWHardwareProfile>& profile,
                               std::int64_t byteOrder, std::int64_t currentYear);

// The installed machine's model: "hw.model" and "hw.byteorder" from the kernel values, and on a
// Mac (not a simulated one) the hardware profile program. Elsewhere there is no profile, so an
// unknown model has only its identifier and family (on Linux the identifier is the firmware's
// product name).
HWDeviceModelInfo getModelInfo();

// Version and build parsed from a system version text such as "Version 14.0 (Build 23A344)" or
// "14.1.1"; the build "Unknown" without a parenthesis, the version 0.0.0 without digits.
HWOSInfo osInfoFromVersionText(std::string_view versionText);

// The installed machine's operating system: from the kernel values' "kern.osproductversion"
// and "kern.osversion" when they exist (a Mac, or a profile that recorded them), else from the
// host (/etc/os-release and uname on Linux).
HWOSInfo getOSInfo();

}  // namespace device
}  // namespace corvane
