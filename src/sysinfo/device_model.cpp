#include "corvane/sysinfo/device_model.h"

#include <sys/utsname.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <utility>

#include <nlohmann/json.hpp>

#include "corvane/platform/platform.h"
#include "corvane/util/strings.h"
#include "corvane/util/system_utils.h"

namespace corvane {

HWDeviceModelInfo HWDeviceModelInfo::objectWithName(std::string name, std::int64_t year, std::int64_t family) {
  HWDeviceModelInfo info;
  info.name = std::move(name);
  info.year = year;
  info.family = family;
  return info;
}

std::optional<std::string> HWDeviceModelInfo::familyName() const {
  switch (family) {
    case device_family::kUnknown: return "Unknown";
    case device_family::kMacBook: return "MacBook";
    case device_family::kMacBookPro: return "MacBook Pro";
    case device_family::kMacBookAir: return "MacBook Air";
    case device_family::kIMac: return "iMac";
    case device_family::kMacPro: return "Mac Pro";
    case device_family::kMacMini: return "Mac Mini";
    case device_family::kXserve: return "Xserve";
    default: return std::nullopt;
  }
}

std::string HWDeviceModelInfo::familyIcon() const {
  switch (family) {
    case device_family::kMacBookPro: return year < 2021 ? "ico_macbookpro" : "ico_macbookpro_5thgen";
    case device_family::kMacBookAir: return year < 2022 ? "ico_macbookair" : "ico_macbookair_4thgen";
    case device_family::kIMac: return "ico_imac";
    case device_family::kIMacPro: return "ico_imacpro";
    case device_family::kMacPro: return year == 2019 ? "ico_macpro_2019" : "ico_macpro";
    case device_family::kMacMini: return "ico_macmini";
    case device_family::kMacStudio: return "ico_macstudio";
    default: return "ico_macbook";
  }
}

namespace {

const char* const kMacNames[] = {"High Sierra", "Mojave", "Catalina"};

}  // namespace

std::string HWOSInfo::name() const {
  if (hostSystemName) return *hostSystemName;
  if (version.major == 10 && version.minor >= 13 && version.minor <= 15) return kMacNames[version.minor - 13];
  switch (version.major) {
    case 11: return "Big Sur";
    case 12: return "Monterey";
    case 13: return "Ventura";
    case 14: return "Sonoma";
    case 15: return "Sequoia";
    default: return "Unknown";
  }
}

std::string HWOSInfo::versionString() const {
  return std::to_string(version.major) + "." + std::to_string(version.minor) + "." + std::to_string(version.patch);
}

namespace device {
namespace {

struct ModelRow {
  const char* modelId;
  const char* name;
  std::int64_t year;
  std::int64_t family;
};

// Transcribed row by row from the product's model list; the order is the list's.
constexpr std::array<ModelRow, 72> kModelRows = {{
      {"Macmini6,1", "Mac mini", 2012, 7},
      {"Macmini6,2", "Mac mini", 2012, 7},
      {"Macmini7,1", "Mac mini", 2014, 7},
      {"Macmini8,1", "Mac mini", 2018, 7},
      {"Macmini9,1", "Mac mini (M1)", 2020, 7},
      {"Mac13,1", "Mac Studio (M1 Max)", 2022, 9},
      {"Mac13,2", "Mac Studio (M1 Ultra)", 2022, 9},
      {"MacPro5,1", "Mac Pro", 2010, 6},
      {"MacPro6,1", "Mac Pro", 2016, 6},
      {"MacPro7,1", "Mac Pro", 2019, 6},
      {"iMac12,1", "iMac 27-inch", 2011, 4},
      {"iMac13,1", "iMac 21.5-inch", 2012, 4},
      {"iMac13,2", "iMac 27-inch", 2012, 4},
      {"iMac14,2", "iMac 27-inch", 2013, 4},
      {"iMac15,1", "iMac 27-inch", 2014, 4},
      {"iMac17,1", "iMac 27-inch", 2015, 4},
      {"iMac18,1", "iMac 21.5-inch", 2017, 4},
      {"iMac18,2", "iMac 21.5-inch", 2017, 4},
      {"iMac18,3", "iMac 27-inch", 2017, 4},
      {"iMac19,1", "iMac 27-inch", 2019, 4},
      {"iMac20,1", "iMac 27-inch", 2020, 4},
      {"iMac20,2", "iMac 27-inch", 2020, 4},
      {"iMac21,1", "iMac 24-inch (M1)", 2021, 4},
      {"iMac21,2", "iMac 24-inch (M1)", 2021, 4},
      {"iMacPro1,1", "iMac Pro", 2017, 5},
      {"MacBook8,1", "MacBook", 2015, 1},
      {"MacBook9,1", "MacBook", 2016, 1},
      {"MacBook10,1", "MacBook", 2017, 1},
      {"MacBookAir5,1", "MacBook Air 11-inch", 2012, 3},
      {"MacBookAir5,2", "MacBook Air 13-inch", 2012, 3},
      {"MacBookAir6,1", "MacBook Air 11-inch", 2014, 3},
      {"MacBookAir6,2", "MacBook Air 13-inch", 2014, 3},
      {"MacBookAir7,1", "MacBook Air 11-inch", 2015, 3},
      {"MacBookAir7,2", "MacBook Air 13-inch", 2015, 3},
      {"MacBookAir8,1", "MacBook Air 13-inch", 2018, 3},
      {"MacBookAir8,2", "MacBook Air 13-inch", 2019, 3},
      {"MacBookAir9,1", "MacBook Air 13-inch", 2020, 3},
      {"MacBookAir10,1", "MacBook Air 13-inch (M1)", 2020, 3},
      {"Mac14,2", "MacBook Air 13-inch (M2)", 2022, 3},
      {"MacBookPro9,1", "MacBook Pro 15-inch", 2012, 2},
      {"MacBookPro9,2", "MacBook Pro 13-inch", 2012, 2},
      {"MacBookPro10,1", "MacBook Pro 15-inch", 2012, 2},
      {"MacBookPro10,2", "MacBook Pro 13-inch", 2012, 2},
      {"MacBookPro11,1", "MacBook Pro 13-inch", 2014, 2},
      {"MacBookPro11,2", "MacBook Pro 15-inch", 2014, 2},
      {"MacBookPro11,3", "MacBook Pro 15-inch", 2014, 2},
      {"MacBookPro11,4", "MacBook Pro 15-inch", 2015, 2},
      {"MacBookPro11,5", "MacBook Pro 15-inch", 2015, 2},
      {"MacBookPro12,1", "MacBook Pro 13-inch", 2015, 2},
      {"MacBookPro13,1", "MacBook Pro 13-inch", 2016, 2},
      {"MacBookPro13,2", "MacBook Pro 13-inch", 2016, 2},
      {"MacBookPro13,3", "MacBook Pro 15-inch", 2016, 2},
      {"MacBookPro14,1", "MacBook Pro 13-inch", 2017, 2},
      {"MacBookPro14,2", "MacBook Pro 13-inch", 2017, 2},
      {"MacBookPro14,3", "MacBook Pro 15-inch", 2017, 2},
      {"MacBookPro15,1", "MacBook Pro 15-inch", 2018, 2},
      {"MacBookPro15,2", "MacBook Pro 13-inch", 2019, 2},
      {"MacBookPro15,3", "MacBook Pro 15-inch", 2019, 2},
      {"MacBookPro15,4", "MacBook Pro 13-inch", 2019, 2},
      {"MacBookPro16,1", "MacBook Pro 16-inch", 2019, 2},
      {"MacBookPro16,2", "MacBook Pro 13-inch", 2019, 2},
      {"MacBookPro16,3", "MacBook Pro 13-inch", 2020, 2},
      {"MacBookPro17,1", "MacBook Pro 13-inch (M1)", 2020, 2},
      {"MacBookPro18,1", "MacBook Pro 16-inch (M1 Pro)", 2021, 2},
      {"MacBookPro18,2", "MacBook Pro 16-inch (M1 Max)", 2021, 2},
      {"MacBookPro18,3", "MacBook Pro 14-inch (M1 Pro)", 2021, 2},
      {"MacBookPro18,4", "MacBook Pro 14-inch (M1 Max)", 2021, 2},
      {"Mac14,7", "MacBook Pro 13-inch (M2)", 2022, 2},
      {"Mac14,5", "MacBook Pro 14-inch (M2 Max)", 2023, 2},
      {"Mac14,6", "MacBook Pro 16-inch (M2 Max)", 2023, 2},
      {"Mac14,9", "MacBook Pro 14-inch (M2 Pro)", 2023, 2},
      {"Mac14,10", "MacBook Pro 16-inch (M2 Pro)", 2023, 2},
}};

std::optional<std::string> stringField(const nlohmann::json& object, const char* key) {
  auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return found->get<std::string>();
}

std::int64_t currentYear() {
  const auto today = std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now());
  return static_cast<int>(std::chrono::year_month_day(today).year());
}

// The hardware profile program exists only on a Mac; a simulated machine never runs it.
std::optional<HWHardwareProfile> runHardwareProfile() {
#ifdef __APPLE__
  if (platform::current().simulated()) return std::nullopt;
  auto output = HWSystemUtils::readDataByPath("/usr/sbin/system_profiler", {{"SPHardwareDataType", "-json"}}, nullptr);
  if (!output) return std::nullopt;
  return hardwareProfileFromJson(*output);
#else
  return std::nullopt;
#endif
}

// Leading decimal digits of `text` as a number, and the rest after them.
std::int64_t leadingNumber(std::string_view& text) {
  std::int64_t value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc()) return 0;
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return value;
}

HWOSVersion versionFrom(std::string_view text) {
  HWOSVersion version;
  const auto digit = text.find_first_of("0123456789");
  if (digit == std::string_view::npos) return version;
  text.remove_prefix(digit);
  std::int64_t* parts[] = {&version.major, &version.minor, &version.patch};
  for (auto* part : parts) {
    *part = leadingNumber(text);
    if (text.size() < 2 || text.front() != '.') break;
    text.remove_prefix(1);
  }
  return version;
}

// The value of `key` in an os-release file, quotes removed.
std::optional<std::string> osReleaseValue(const std::string& contents, std::string_view key) {
  std::istringstream lines(contents);
  std::string line;
  while (std::getline(lines, line)) {
    if (!line.starts_with(key) || line.size() <= key.size() || line[key.size()] != '=') continue;
    std::string value = line.substr(key.size() + 1);
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front()) {
      value = value.substr(1, value.size() - 2);
    }
    return value;
  }
  return std::nullopt;
}

HWOSInfo hostOSInfo() {
  HWOSInfo info;
  std::ifstream file("/etc/os-release");
  if (!file) file.open("/usr/lib/os-release");
  std::ostringstream contents;
  contents << file.rdbuf();
  const std::string text = contents.str();
  if (auto version = osReleaseValue(text, "VERSION_ID")) info.version = versionFrom(*version);
  info.hostSystemName = osReleaseValue(text, "NAME");
  struct utsname names {};
  if (::uname(&names) == 0) {
    if (!info.hostSystemName) info.hostSystemName = names.sysname;
    info.build = names.release;
  }
  if (!info.hostSystemName) info.hostSystemName = "Unknown";
  return info;
}

}  // namespace

std::map<std::string, HWDeviceModelInfo> defaultModelDict() {
  std::map<std::string, HWDeviceModelInfo> table;
  for (const auto& row : kModelRows) {
    table.emplace(row.modelId, HWDeviceModelInfo::objectWithName(row.name, row.year, row.family));
  }
  return table;
}

std::int64_t familyFromModelId(std::string_view modelId) {
  // Longer prefixes first: "MacBookPro" also begins "MacBook".
  static constexpr std::pair<std::string_view, std::int64_t> kPrefixes[] = {
      {"MacBookPro", device_family::kMacBookPro}, {"MacBookAir", device_family::kMacBookAir},
      {"MacBook", device_family::kMacBook},       {"iMac", device_family::kIMac},
      {"Macmini", device_family::kMacMini},       {"MacPro", device_family::kMacPro},
      {"Xserve", device_family::kXserve}};
  for (const auto& [prefix, family] : kPrefixes) {
    if (modelId.starts_with(prefix)) return family;
  }
  return device_family::kUnknown;
}

std::optional<HWHardwareProfile> hardwareProfileFromJson(std::string_view json) {
  const auto parsed = nlohmann::json::parse(json, nullptr, false);
  if (!parsed.is_object()) return std::nullopt;
  auto list = parsed.find("SPHardwareDataType");
  if (list == parsed.end() || !list->is_array() || list->empty() || !list->front().is_object()) return std::nullopt;
  const auto& first = list->front();
  return HWHardwareProfile{stringField(first, "machine_name"), stringField(first, "chip_type"),
                           stringField(first, "model_number"), stringField(first, "serial_number")};
}

HWDeviceModelInfo modelInfoFor(const std::string& modelId, const std::optional<HWHardwareProfile>& profile,
                               std::int64_t byteOrder, std::int64_t currentYear) {
  auto table = defaultModelDict();
  HWDeviceModelInfo info;
  if (auto entry = table.find(modelId); entry != table.end()) {
    info = std::move(entry->second);
  } else {
    if (profile && profile->machineName && profile->chipType) {
      // A fixed word, so no expression engine: the daemon's fan control asks for the model too.
      info.name = *profile->machineName + " (" + strings::removedOccurrencesIgnoringCase(*profile->chipType, {"Apple "}) +
                  ")";
      info.year = currentYear;
    }
    info.family = familyFromModelId(modelId);
  }
  info.modelId = modelId;
  if (profile) {
    info.modelNumber = profile->modelNumber;
    info.serial = profile->serialNumber;
  }
  info.endianness = byteOrder == 1234 ? 0 : byteOrder == 4321 ? 1 : 2;
  return info;
}

HWDeviceModelInfo getModelInfo() {
  return modelInfoFor(HWSystemUtils::sysctlNSStringForKey("hw.model"), runHardwareProfile(),
                      static_cast<std::int64_t>(HWSystemUtils::sysctlDoubleForKey("hw.byteorder")), currentYear());
}

HWOSInfo osInfoFromVersionText(std::string_view versionText) {
  HWOSInfo info;
  const auto open = versionText.find('(');
  info.version = versionFrom(versionText.substr(0, open));
  if (open != std::string_view::npos) {
    auto second = versionText.substr(open + 1);
    second = second.substr(0, second.find('('));
    info.build = strings::replace(strings::replace(second, "Build ", ""), ")", "");
  }
  return info;
}

HWOSInfo getOSInfo() {
  const auto product = HWSystemUtils::sysctlNSStringForKey("kern.osproductversion");
  if (product.empty()) return hostOSInfo();
  auto build = HWSystemUtils::sysctlNSStringForKey("kern.osversion");
  return osInfoFromVersionText(build.empty() ? product : "Version " + product + " (Build " + build + ")");
}

}  // namespace device
}  // namespace corvane
