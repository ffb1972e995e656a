// A simulated Mac: the SMC key table, HID readings and kernel values recorded from a real machine.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace corvane::platform {

// One key of a simulated SMC, as recorded.
struct SmcEntry {
  uint32_t key = 0;          // packed four-character key
  uint32_t type = 0;         // packed four-character type code
  uint32_t size = 0;         // the size key information reports, in bytes
  uint8_t attributes = 0;    // attribute bits as recorded (0 when the source had none)
  std::array<uint8_t, 32> bytes{};  // value bytes; beyond `size` zero
  uint8_t result = 0;        // non-zero: the SMC rejects reads and writes with this result byte
  int32_t status = 0;        // non-zero: the driver call itself fails with this status
  bool hidden = false;       // readable by name but not enumerated by index
  bool redacted = false;     // the source withheld the bytes; they read as zeros
};

// One HID service reading (Apple-silicon machines only).
struct HidReading {
  std::string name;
  double value = 0.0;
};

// A whole recorded machine. Immutable once loaded; shared between the services that use it.
struct MachineProfile {
  std::string name;                    // identifier used by --machine, e.g. "MacBookPro16,1"
  nlohmann::json provenance;           // where the data came from, kept as recorded
  nlohmann::json sysctl;               // kernel values by name (object of strings and numbers)
  std::vector<SmcEntry> smc;           // key table in index order, hidden keys included
  bool hasHid = false;                 // true for Apple-silicon machines
  std::vector<HidReading> hidTemperature;
  std::vector<HidReading> hidVoltage;
  nlohmann::json displays;             // active displays ([{"builtIn": true, "name": ..., "id": 1}]); null if not recorded
  nlohmann::json ioreg;                // I/O registry facts ({"pci": [{"model": ...}]}); null if none
  nlohmann::json startupDisk;          // {"mediaName": ..., "deviceModel": ..., "mediaSize": ..., "removable": false}; null if not recorded
  nlohmann::json powerSources;         // [{"Power Source State": "AC Power", "Is Charging": false}]; null if not recorded
};

// Parses a profile; on any malformed entry returns null and sets `error` to a message naming
// `origin` and the entry. Nothing is loaded half-way. Only "sysctl" and "smc" are required;
// "name" defaults to `defaultName` (a file's stem), and is required when that is empty.
std::shared_ptr<const MachineProfile> parseProfile(std::string_view json, std::string_view origin,
                                                   std::string* error, std::string_view defaultName = {});

// Serialises a profile back to the JSON form parseProfile reads (one SMC entry per line).
std::string serializeProfile(const MachineProfile& profile);

// The machine the library simulates when none is chosen and the host has no SMC.
inline constexpr std::string_view kDefaultMachine = "MacBookPro16,1";

// Names of the profiles compiled into the library, in a stable order.
std::vector<std::string> builtinProfileNames();

// A built-in profile by name, letter case ignored; null (with `error` set) when there is none.
std::shared_ptr<const MachineProfile> loadBuiltinProfile(std::string_view name, std::string* error);

// True when `nameOrFile` names a profile file rather than a built-in machine: it holds a '/' or
// ends in ".json". Anything else is a built-in name.
bool isProfileFileName(std::string_view nameOrFile);

// The built-in machine `name` (letter case ignored), or the profile file `nameOrFile` as
// isProfileFileName tells them apart (a file's profile is named after its stem unless it says
// otherwise); null with `error` set on failure: an unknown name lists the closest built-in ones.
std::shared_ptr<const MachineProfile> resolveMachine(std::string_view nameOrFile, std::string* error);

}  // namespace corvane::platform
