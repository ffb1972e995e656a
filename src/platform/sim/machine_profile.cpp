// Reading and writing machine profiles. The loader is strict on purpose: a profile is recorded
// data that tests compare byte for byte, so a typo must stop the load rather than quietly change
// what the simulated SMC answers.
#include "corvane/platform/machine_profile.h"
#include "corvane/platform/text.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

namespace corvane::platform {
namespace {

using text::bytesFromHex;
using text::hexDigit;
using text::hexFromBytes;
using text::hexNumber;
using text::packFourCc;
using text::unpackFourCc;

using nlohmann::json;
using nlohmann::ordered_json;

constexpr std::size_t kMaxValueBytes = 32;

// Serialisation must not throw on text that is not valid UTF-8 (file names, dump headers).
template <class Json>
std::string toJson(const Json& value, int indent = -1) {
  return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

std::string jsonQuoted(std::string_view text) { return toJson(json(text)); }

bool allHex(std::string_view text) {
  for (char c : text) {
    if (hexDigit(c) < 0) return false;
  }
  return true;
}

std::string hexText(uint32_t value, int digits, bool upper) {
  return upper ? fmt::format("{:0{}X}", value, digits) : fmt::format("{:0{}x}", value, digits);
}

// A built-in profile says so itself; anything else is a file (or a caller's label) to quote.
std::string describeOrigin(std::string_view origin) {
  if (origin.starts_with("built-in profile")) return std::string(origin);
  return "profile '" + std::string(origin) + "'";
}

class ProfileParser {
 public:
  ProfileParser(std::string_view origin, std::string_view defaultName, std::string* error)
      : origin_(origin), defaultName_(defaultName), error_(error) {}

  std::shared_ptr<const MachineProfile> parse(std::string_view text) {
    json root;
    bool tooDeep = false;
    try {
      // Returning false drops a value before it is built, so a deep document costs no stack.
      root = json::parse(text.begin(), text.end(), [&tooDeep](int depth, json::parse_event_t, json&) {
        if (depth > text::kMaxJsonDepth) tooDeep = true;
        return !tooDeep;
      });
    } catch (const json::parse_error& e) {
      std::string what = e.what();
      auto detail = what.find("] ");
      fail("not valid JSON at byte " + std::to_string(e.byte) + ": " +
           (detail == std::string::npos ? what : what.substr(detail + 2)));
      return nullptr;
    }
    if (tooDeep) {
      fail("nested deeper than " + std::to_string(text::kMaxJsonDepth) + " levels");
      return nullptr;
    }
    auto profile = std::make_shared<MachineProfile>();
    if (!parseRoot(root, *profile)) return nullptr;
    return profile;
  }

 private:
  bool fail(const std::string& detail) {
    if (error_ != nullptr) *error_ = describeOrigin(origin_) + ": " + detail;
    return false;
  }

  bool parseRoot(const json& root, MachineProfile& profile) {
    if (!root.is_object()) return fail("the top level is not an object");
    auto name = root.find("name");
    if (name == root.end()) {
      if (defaultName_.empty()) return fail("no \"name\"");
      profile.name = std::string(defaultName_);
    } else if (!name->is_string() || name->get_ref<const std::string&>().empty()) {
      return fail("\"name\" is not a non-empty string");
    } else {
      profile.name = name->get<std::string>();
    }
    // Every text a profile gives (a file name too) is shown and printed later, so it is cleaned
    // here, once.
    profile.name = text::cleaned(profile.name);
    if (profile.name.empty()) return fail("\"name\" has no printable character");
    if (auto provenance = root.find("provenance"); provenance != root.end()) {
      profile.provenance = text::cleanedStrings(*provenance);
    }
    auto sysctl = root.find("sysctl");
    if (sysctl == root.end()) return fail("no \"sysctl\"");
    if (!parseSysctl(*sysctl, profile)) return false;
    auto smc = root.find("smc");
    if (smc == root.end()) return fail("no \"smc\"");
    if (!parseSmc(*smc, profile)) return false;
    if (auto hid = root.find("hid"); hid != root.end()) {
      if (!parseHid(*hid, profile)) return false;
    }
    if (auto displays = root.find("displays"); displays != root.end()) {
      if (!displays->is_array()) return fail("\"displays\" is not an array");
      profile.displays = text::cleanedStrings(*displays);
    }
    if (auto ioreg = root.find("ioreg"); ioreg != root.end()) {
      if (!ioreg->is_object()) return fail("\"ioreg\" is not an object");
      profile.ioreg = text::cleanedStrings(*ioreg);
    }
    if (auto power = root.find("powerSources"); power != root.end()) {
      if (!power->is_array()) return fail("\"powerSources\" is not an array");
      profile.powerSources = text::cleanedStrings(*power);
    }
    if (auto disk = root.find("startupDisk"); disk != root.end()) {
      if (!disk->is_object()) return fail("\"startupDisk\" is not an object");
      profile.startupDisk = text::cleanedStrings(*disk);
    }
    return true;
  }

  bool parseSysctl(const json& sysctl, MachineProfile& profile) {
    if (!sysctl.is_object()) return fail("\"sysctl\" is not an object");
    for (const auto& [name, value] : sysctl.items()) {
      if (!value.is_string() && !value.is_number()) {
        return fail("sysctl " + jsonQuoted(name) + ": value is not a string or a number");
      }
    }
    profile.sysctl = text::cleanedStrings(sysctl);
    return true;
  }

  bool parseSmc(const json& smc, MachineProfile& profile) {
    if (!smc.is_array()) return fail("\"smc\" is not an array");
    profile.smc.reserve(smc.size());
    std::unordered_map<uint32_t, std::size_t> firstIndex;
    for (std::size_t i = 0; i < smc.size(); ++i) {
      SmcEntry entry;
      if (!parseEntry(smc[i], i, entry)) return false;
      auto [at, inserted] = firstIndex.emplace(entry.key, i);
      if (!inserted) {
        return fail(entryLabel(i, unpackFourCc(entry.key)) + ": duplicate key " + jsonQuoted(unpackFourCc(entry.key)) +
                    " (first at entry " + std::to_string(at->second) + ")");
      }
      profile.smc.push_back(entry);
    }
    return true;
  }

  static std::string entryLabel(std::size_t index, std::string_view key) {
    return "smc entry " + std::to_string(index) + " (" + jsonQuoted(key) + ")";
  }

  bool parseEntry(const json& item, std::size_t index, SmcEntry& entry) {
    std::string where = "smc entry " + std::to_string(index);
    if (!item.is_array() || item.size() < 3 || item.size() > 4) {
      return fail(where + ": not an array of key, type, value and optional options");
    }
    if (!item[0].is_string()) return fail(where + ": the key is not a string");
    const auto& key = item[0].get_ref<const std::string&>();
    where = entryLabel(index, key);
    if (key.size() != 4) return fail(where + ": key " + jsonQuoted(key) + " is not four characters");
    for (char c : key) {
      if (c < 0x20 || c > 0x7E) {
        return fail(where + ": key " + jsonQuoted(key) + " has a character outside printable ASCII");
      }
    }
    entry.key = packFourCc(key);

    if (!item[1].is_string()) return fail(where + ": the type is not a string");
    const auto& type = item[1].get_ref<const std::string&>();
    if (type.size() != 4) return fail(where + ": type " + jsonQuoted(type) + " is not four characters");
    for (char c : type) {
      // A NUL may stand in a type: recorded machines have "ui8\0".
      if (static_cast<unsigned char>(c) > 0x7E) {
        return fail(where + ": type " + jsonQuoted(type) + " has a character above 0x7E");
      }
    }
    entry.type = packFourCc(type);

    if (!item[2].is_string()) return fail(where + ": the value is not a string of hex digits");
    const auto& hex = item[2].get_ref<const std::string&>();
    if (hex.size() % 2 != 0) return fail(where + ": value " + jsonQuoted(hex) + " has odd length");
    if (!allHex(hex)) return fail(where + ": value " + jsonQuoted(hex) + " has a bad hex digit");
    const std::size_t byteCount = hex.size() / 2;
    if (byteCount > kMaxValueBytes) {
      return fail(where + ": value of " + std::to_string(byteCount) + " bytes is over 32");
    }
    const auto bytes = bytesFromHex(hex);  // checked above: even length, digits only
    std::copy(bytes->begin(), bytes->end(), entry.bytes.begin());
    entry.size = static_cast<uint32_t>(byteCount);

    if (item.size() == 4 && !parseOptions(item[3], where, byteCount, entry)) return false;
    return true;
  }

  bool hexOption(const json& value, const std::string& where, const char* name, std::size_t minDigits,
                 std::size_t maxDigits, uint32_t& out) {
    std::string label = where + ": option \"" + name + "\"";
    if (!value.is_string()) return fail(label + " is not a string of hex digits");
    const auto& text = value.get_ref<const std::string&>();
    if (text.size() < minDigits || text.size() > maxDigits || !allHex(text)) {
      std::string digits = minDigits == maxDigits
                               ? std::to_string(minDigits) + " hex digits"
                               : std::to_string(minDigits) + " to " + std::to_string(maxDigits) + " hex digits";
      return fail(label + " " + jsonQuoted(text) + " is not " + digits);
    }
    out = *hexNumber(text);  // checked above: one to eight digits
    return true;
  }

  bool parseOptions(const json& options, const std::string& where, std::size_t byteCount, SmcEntry& entry) {
    if (!options.is_object()) return fail(where + ": options are not an object");
    std::optional<uint64_t> size;
    for (const auto& [name, value] : options.items()) {
      uint32_t number = 0;
      if (name == "size") {
        if (!value.is_number_integer() || value.get<int64_t>() < 0 ||
            value.get<uint64_t>() > std::numeric_limits<uint32_t>::max()) {
          return fail(where + ": option \"size\" is not a size in bytes");
        }
        size = value.get<uint64_t>();
      } else if (name == "attr") {
        if (!hexOption(value, where, "attr", 2, 2, number)) return false;
        entry.attributes = static_cast<uint8_t>(number);
      } else if (name == "result") {
        if (!hexOption(value, where, "result", 2, 2, number)) return false;
        if (number == 0) return fail(where + ": option \"result\" is zero (omit it for success)");
        entry.result = static_cast<uint8_t>(number);
      } else if (name == "status") {
        if (!hexOption(value, where, "status", 1, 8, number)) return false;
        if (number == 0) return fail(where + ": option \"status\" is zero (omit it for success)");
        entry.status = static_cast<int32_t>(number);
      } else if (name == "hidden" || name == "redacted") {
        if (!value.is_boolean()) return fail(where + ": option \"" + name + "\" is not true or false");
        (name == "hidden" ? entry.hidden : entry.redacted) = value.get<bool>();
      } else {
        return fail(where + ": unknown option " + jsonQuoted(name));
      }
    }
    if (entry.redacted && byteCount != 0) {
      return fail(where + ": a redacted value has no bytes, but the value is given");
    }
    if (size) {
      if (byteCount != 0 && *size != byteCount) {
        return fail(where + ": size " + std::to_string(*size) + " does not match the " + std::to_string(byteCount) +
                    " bytes of the value");
      }
      // Only a key the SMC refuses to read may report more than the value buffer holds.
      if (*size > kMaxValueBytes && entry.result == 0 && entry.status == 0) {
        return fail(where + ": size " + std::to_string(*size) + " is over 32");
      }
      entry.size = static_cast<uint32_t>(*size);
    }
    return true;
  }

  bool parseReadings(const json& list, const char* name, std::vector<HidReading>& out) {
    std::string label = std::string("hid \"") + name + "\"";
    if (!list.is_array()) return fail(label + " is not an array");
    for (std::size_t i = 0; i < list.size(); ++i) {
      const json& pair = list[i];
      if (!pair.is_array() || pair.size() != 2 || !pair[0].is_string() || !pair[1].is_number()) {
        return fail(label + " entry " + std::to_string(i) + ": not a [name, number] pair");
      }
      out.push_back(HidReading{text::cleaned(pair[0].get_ref<const std::string&>()), pair[1].get<double>()});
    }
    return true;
  }

  bool parseHid(const json& hid, MachineProfile& profile) {
    if (!hid.is_object()) return fail("\"hid\" is not an object");
    for (const auto& [name, value] : hid.items()) {
      if (name == "temperature") {
        if (!parseReadings(value, "temperature", profile.hidTemperature)) return false;
      } else if (name == "voltage") {
        if (!parseReadings(value, "voltage", profile.hidVoltage)) return false;
      } else {
        return fail("hid: unknown member " + jsonQuoted(name));
      }
    }
    profile.hasHid = true;
    return true;
  }

  std::string_view origin_;
  std::string_view defaultName_;
  std::string* error_;
};

bool allZero(const SmcEntry& entry) {
  for (uint8_t b : entry.bytes) {
    if (b != 0) return false;
  }
  return true;
}

// One value on one line, with a blank after each comma and colon: how a profile writes an SMC
// entry or a HID reading, so that a diff of two profiles shows whole keys.
std::string inlineJson(const ordered_json& value) {
  if (value.is_array()) {
    std::string out = "[";
    for (std::size_t i = 0; i < value.size(); ++i) {
      if (i != 0) out += ", ";
      out += inlineJson(value[i]);
    }
    return out + "]";
  }
  if (value.is_object()) {
    std::string out = "{";
    for (const auto& [name, member] : value.items()) {
      if (out.size() > 1) out += ", ";
      out += jsonQuoted(name) + ": " + inlineJson(member);
    }
    return out + "}";
  }
  return toJson(value);
}

ordered_json entryJson(const SmcEntry& entry) {
  // A key whose bytes the SMC never hands out is written without bytes, with the size it reports.
  const bool withoutBytes = allZero(entry) && (entry.redacted || entry.result != 0 || entry.status != 0);
  const uint32_t written = entry.size < kMaxValueBytes ? entry.size : kMaxValueBytes;
  std::string hex;
  if (!withoutBytes) {
    hex = hexFromBytes(entry.bytes.data(), written);
  }
  ordered_json options = ordered_json::object();
  if (hex.size() / 2 != entry.size) options["size"] = entry.size;
  if (entry.attributes != 0) options["attr"] = hexText(entry.attributes, 2, true);
  if (entry.result != 0) options["result"] = hexText(entry.result, 2, true);
  if (entry.status != 0) options["status"] = hexText(static_cast<uint32_t>(entry.status), 8, true);
  if (entry.redacted) options["redacted"] = true;
  if (entry.hidden) options["hidden"] = true;
  ordered_json line = ordered_json::array({unpackFourCc(entry.key), unpackFourCc(entry.type), hex});
  if (!options.empty()) line.push_back(std::move(options));
  return line;
}

ordered_json readingJson(const HidReading& reading) { return ordered_json::array({reading.name, reading.value}); }

// A list with one item per line at `depth` levels of two blanks, or "[]" when empty.
template <class Item, class ToJson>
std::string listLines(const std::vector<Item>& items, int depth, ToJson toItem) {
  if (items.empty()) return "[]";
  const std::string indent(static_cast<std::size_t>(2 * depth), ' ');
  std::string out = "[\n";
  for (std::size_t i = 0; i < items.size(); ++i) {
    out += indent + "  " + inlineJson(toItem(items[i]));
    out += i + 1 < items.size() ? ",\n" : "\n";
  }
  return out + indent + "]";
}

// Nested values are indented one level under their top-level key.
std::string nested(const json& value) {
  std::string text = toJson(value, 2);
  std::string out;
  out.reserve(text.size() + text.size() / 8);
  for (char c : text) {
    out += c;
    if (c == '\n') out += "  ";
  }
  return out;
}

}  // namespace

std::shared_ptr<const MachineProfile> parseProfile(std::string_view json, std::string_view origin, std::string* error,
                                                   std::string_view defaultName) {
  try {
    return ProfileParser(origin, defaultName, error).parse(json);
  } catch (const std::exception& e) {
    // The parser checks every type before reading it; this is for running out of memory.
    if (error != nullptr) *error = describeOrigin(origin) + ": " + e.what();
    return nullptr;
  }
}

std::string serializeProfile(const MachineProfile& profile) {
  // Each member is rendered by nlohmann; only the layout (one SMC entry per line) is ours.
  std::vector<std::pair<std::string, std::string>> members;
  members.emplace_back("name", jsonQuoted(profile.name));
  if (!profile.provenance.is_null()) members.emplace_back("provenance", nested(profile.provenance));
  members.emplace_back("sysctl", nested(profile.sysctl.is_null() ? json::object() : profile.sysctl));
  members.emplace_back("smc", listLines(profile.smc, 1, entryJson));
  if (profile.hasHid) {
    members.emplace_back("hid", "{\n    \"temperature\": " + listLines(profile.hidTemperature, 2, readingJson) +
                                    ",\n    \"voltage\": " + listLines(profile.hidVoltage, 2, readingJson) + "\n  }");
  }
  if (!profile.displays.is_null()) members.emplace_back("displays", nested(profile.displays));
  if (!profile.ioreg.is_null()) members.emplace_back("ioreg", nested(profile.ioreg));
  if (!profile.powerSources.is_null()) members.emplace_back("powerSources", nested(profile.powerSources));
  if (!profile.startupDisk.is_null()) members.emplace_back("startupDisk", nested(profile.startupDisk));
  std::string out = "{\n";
  for (std::size_t i = 0; i < members.size(); ++i) {
    out += "  " + jsonQuoted(members[i].first) + ": " + members[i].second;
    out += i + 1 < members.size() ? ",\n" : "\n";
  }
  return out + "}\n";
}

}  // namespace corvane::platform
