#include "corvane/util/hw_utils.h"

#include <plist/plist.h>

#include <cctype>
#include <cstdlib>
#include <limits>
#include <memory>

#include "corvane/platform/displays.h"
#include "corvane/platform/platform.h"
#include "platform/posix/file_lock.h"
#include "util/hw_utils.h"
#include "util/plist_node.h"
#include "platform/log.h"
#include "util/resources.h"

namespace corvane {
namespace {

// Room the system's display list is asked for.
constexpr std::size_t kMaxDisplays = 32;

std::vector<platform::Display> activeDisplays() {
  return platform::current().service<platform::Displays>().activeDisplays(kMaxDisplays);
}

// Only containers count: the platform's parser rejects a bare number or string at the top.
std::optional<nlohmann::json> parseContainer(std::string_view text, std::string* error) {
  try {
    auto value = nlohmann::json::parse(text);
    if (value.is_array() || value.is_object()) return value;
    if (error != nullptr) *error = "the top level is neither an array nor an object";
  } catch (const nlohmann::json::exception& e) {
    if (error != nullptr) {
      // Without the library's "[json.exception.parse_error.101] " tag.
      const std::string what = e.what();
      const auto tag = what.find("] ");
      *error = tag == std::string::npos ? what : what.substr(tag + 2);
    }
  }
  return std::nullopt;
}

// One row of the axis table: seconds between labels, intervals shown, and the label format.
struct AxisRow {
  double step;
  int count;
  std::string (*format)(dates::Date);
};

AxisRow axisRow(unsigned long timeRange) {
  switch (timeRange) {
    case 0:
      return {600, 6, &dates::shortTimeOnlyFormat};
    case 1:
      return {14400, 6, &dates::shortTimeOnlyFormat};
    case 2:
      return {86400, 7, &dates::shortDateOnlyFormat};
    case 3:
      return {10, 6, &dates::timeOnlyFormat};
    default:
      return {86400, 7, &dates::shortTimeOnlyFormat};
  }
}

}  // namespace

namespace hw_utils {

std::optional<nlohmann::json> jsonFromResource(const std::string& name, std::optional<std::string_view> contents) {
  if (!contents) {
    platform::log(name + ".json not found");
    return std::nullopt;
  }
  std::string error;
  auto value = parseContainer(*contents, &error);
  if (!value) platform::log("Error JSON: " + error);
  return value;
}

long integerValue(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && std::isspace(static_cast<unsigned char>(text[at]))) ++at;
  bool negative = false;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) negative = text[at++] == '-';
  long value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const int digit = text[at] - '0';
    // Saturates like the platform's strings rather than wrapping.
    if (value > (std::numeric_limits<long>::max() - digit) / 10) {
      return negative ? std::numeric_limits<long>::min() : std::numeric_limits<long>::max();
    }
    value = value * 10 + digit;
  }
  return negative ? -value : value;
}

std::filesystem::path bundleOfExecutableDirectory(const std::filesystem::path& executableDirectory) {
  const auto macos = executableDirectory.lexically_normal();
  const auto trimmed = macos.has_filename() ? macos : macos.parent_path();
  if (trimmed.filename() != "MacOS" || trimmed.parent_path().filename() != "Contents") return {};
  return trimmed.parent_path().parent_path();
}

}  // namespace hw_utils

bool HWUtils::isExternalDisplayConnected() {
  for (const auto& display : activeDisplays()) {
    if (!display.builtIn) return true;
  }
  return false;
}

long HWUtils::numOfDisplays() { return static_cast<long>(activeDisplays().size()); }

std::optional<nlohmann::json> HWUtils::jsonFromString(const std::string& text) { return parseContainer(text, nullptr); }

std::optional<nlohmann::json> HWUtils::loadJSONArrayFromFileName(const std::string& name) {
  return hw_utils::jsonFromResource(name, resources::find(name + ".json"));
}

std::vector<HWAxisLabel> HWUtils::xAxisWithCurrentDate(dates::Date date, unsigned long timeRange) {
  const AxisRow row = axisRow(timeRange);
  const double now = std::chrono::duration<double>(date.time_since_epoch()).count();
  std::vector<HWAxisLabel> labels;
  labels.reserve(static_cast<std::size_t>(row.count) + 1);
  for (int i = row.count; i >= 0; --i) {
    const double time = now - i * row.step;
    const auto instant =
        dates::Date(std::chrono::duration_cast<dates::Date::duration>(std::chrono::duration<double>(time)));
    std::string label = row.format(instant);
    labels.push_back({time, label.empty() ? "--" : std::move(label)});
  }
  return labels;
}

double HWUtils::xAxisStartWithCurrentDate(dates::Date date, unsigned long timeRange) {
  const AxisRow row = axisRow(timeRange);
  return std::chrono::duration<double>(date.time_since_epoch()).count() - row.count * row.step;
}

long HWUtils::appBuildNumberAtPath(const std::string& appPath) {
  if (appPath.empty()) return 0;
  const auto contents = platform::posix::readWholeFile(std::filesystem::path(appPath) / "Contents" / "Info.plist");
  if (!contents || contents->empty() || contents->size() > std::numeric_limits<uint32_t>::max()) return 0;
  plist_t raw = nullptr;
  plist_from_memory(contents->data(), static_cast<uint32_t>(contents->size()), &raw);
  PlistPtr root(raw);
  if (raw == nullptr || plist_get_node_type(raw) != PLIST_DICT) return 0;
  plist_t version = plist_dict_get_item(raw, "CFBundleVersion");
  if (version == nullptr) return 0;
  switch (plist_get_node_type(version)) {
    case PLIST_STRING: {
      char* text = nullptr;
      plist_get_string_val(version, &text);
      const long value = text != nullptr ? hw_utils::integerValue(text) : 0;
      std::free(text);
      return value;
    }
    case PLIST_UINT: {
      uint64_t value = 0;
      plist_get_uint_val(version, &value);
      return static_cast<long>(value);
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(version, &value);
      // Out of range (or not a number) has no integer value.
      if (!(value > -9.2e18 && value < 9.2e18)) return 0;
      return static_cast<long>(value);
    }
    default:
      return 0;
  }
}

long HWUtils::appBuildNumber() {
  const auto bundle = hw_utils::bundleOfExecutableDirectory(platform::current().files().mainExecutableDirectory());
  if (bundle.empty()) return 0;
  return appBuildNumberAtPath(bundle.string());
}

}  // namespace corvane
