#include "corvane/settings/menu_items.h"

#include <array>
#include <limits>

#include "corvane/sensors/value_formatter.h"
#include "corvane/store/entities.h"

namespace corvane {
namespace {

constexpr std::array<const char*, 5> kTypeNames = {"label", "text", "icon", "spacer", "custom"};

// The string under `key`: nothing when absent; false (the element is unusable) when present but
// not a string, since every value of the dictionary forms is text.
bool optionalString(const nlohmann::json& dictionary, const char* key, std::optional<std::string>& out) {
  const auto found = dictionary.find(key);
  if (found == dictionary.end() || found->is_null()) return true;
  if (!found->is_string()) return false;
  out = found->get<std::string>();
  return true;
}

// A switch stored by another writer may be a number (0 or 1) rather than a boolean.
bool optionalBool(const nlohmann::json& dictionary, const char* key, bool& out) {
  const auto found = dictionary.find(key);
  if (found == dictionary.end() || found->is_null()) return true;
  if (found->is_boolean()) {
    out = found->get<bool>();
  } else if (found->is_number()) {
    out = found->get<double>() != 0;
  } else {
    return false;
  }
  return true;
}

template <class Item>
std::optional<nlohmann::json> toDictionaries(const std::optional<std::vector<Item>>& items) {
  if (!items) return std::nullopt;
  nlohmann::json list = nlohmann::json::array();
  for (const auto& item : *items) list.push_back(item.toDictionary());
  return list;
}

template <class Item>
std::vector<Item> fromDictionaries(const nlohmann::json& dictionaries) {
  std::vector<Item> items;
  if (!dictionaries.is_array()) return items;
  for (const auto& element : dictionaries) {
    if (auto item = Item::itemFromDictionary(element)) items.push_back(std::move(*item));
  }
  return items;
}

}  // namespace

HWMenuItem::HWMenuItem(std::string identifier, std::uint64_t type, std::uint64_t sourceType,
                       std::optional<std::string> title, std::optional<std::string> value,
                       std::optional<std::string> imageName)
    : identifier_(std::move(identifier)), type_(type), sourceType_(sourceType), title_(std::move(title)),
      value_(std::move(value)), imageName_(std::move(imageName)) {}

HWMenuItem::HWMenuItem(const HWSensorEntity& sensor)
    : identifier_(sensor.key()), type_(1), sourceType_(0), title_(sensor.name().empty() ? "--" : sensor.name()) {
  std::string tidy = HWSensorFormatter::tidyStringValueFromSensor(sensor);
  value_ = tidy.empty() ? "--" : std::move(tidy);
}

std::optional<HWMenuItem> HWMenuItem::itemFromDictionary(const nlohmann::json& dictionary) {
  if (!dictionary.is_object()) return std::nullopt;
  std::optional<std::string> identifier, type, source, title, value, image;
  if (!optionalString(dictionary, "identifier", identifier) || !identifier) return std::nullopt;
  if (!optionalString(dictionary, "type", type) || !optionalString(dictionary, "sourceType", source) ||
      !optionalString(dictionary, "title", title) || !optionalString(dictionary, "value", value) ||
      !optionalString(dictionary, "image", image)) {
    return std::nullopt;
  }
  // An empty image name names no image.
  if (image && image->empty()) image.reset();
  return HWMenuItem(std::move(*identifier), typeFromString(type), sourceTypeFromString(source), std::move(title),
                    std::move(value), std::move(image));
}

nlohmann::json HWMenuItem::toDictionary() const {
  return {{"identifier", identifier_},         {"type", stringFromType(type_)},
          {"sourceType", stringFromSourceType(sourceType_)}, {"title", title_.value_or("")},
          {"value", value_.value_or("")},      {"image", imageName_.value_or("")}};
}

std::optional<nlohmann::json> HWMenuItem::itemsToDictionaries(const std::optional<std::vector<HWMenuItem>>& items) {
  return toDictionaries(items);
}

std::vector<HWMenuItem> HWMenuItem::itemsFromDictionaries(const nlohmann::json& dictionaries) {
  return fromDictionaries<HWMenuItem>(dictionaries);
}

std::uint64_t HWMenuItem::typeFromString(const std::optional<std::string>& text) {
  if (!text) return 1;
  for (std::uint64_t type = 0; type < kTypeNames.size(); ++type) {
    if (*text == kTypeNames[type]) return type;
  }
  return 1;
}

std::string HWMenuItem::stringFromType(std::uint64_t type) { return type < kTypeNames.size() ? kTypeNames[type] : "text"; }

std::uint64_t HWMenuItem::sourceTypeFromString(const std::optional<std::string>& text) {
  return text && *text == "cpu" ? 1 : 0;
}

std::string HWMenuItem::stringFromSourceType(std::uint64_t sourceType) { return sourceType == 1 ? "cpu" : "sensor"; }

HWDropdownItem::HWDropdownItem(std::string identifier, std::uint64_t type, std::uint64_t sourceType,
                               std::optional<std::string> title, bool enabled, bool canChangePosition)
    : identifier_(std::move(identifier)), type_(type), sourceType_(sourceType), title_(std::move(title)),
      enabled_(enabled), canChangePosition_(canChangePosition) {}

std::optional<HWDropdownItem> HWDropdownItem::itemFromDictionary(const nlohmann::json& dictionary) {
  if (!dictionary.is_object()) return std::nullopt;
  std::optional<std::string> identifier, source, title;
  bool enabled = false, movable = false;
  if (!optionalString(dictionary, "identifier", identifier) || !identifier) return std::nullopt;
  if (!optionalString(dictionary, "sourceType", source) || !optionalString(dictionary, "title", title) ||
      !optionalBool(dictionary, "enabled", enabled) || !optionalBool(dictionary, "canChangePosition", movable)) {
    return std::nullopt;
  }
  return HWDropdownItem(std::move(*identifier), 0, sourceTypeFromString(source), std::move(title), enabled, movable);
}

nlohmann::json HWDropdownItem::toDictionary() const {
  return {{"identifier", identifier_},
          {"type", stringFromType(type_)},
          {"sourceType", stringFromSourceType(sourceType_)},
          {"title", title_.value_or("")},
          {"enabled", enabled_},
          {"canChangePosition", canChangePosition_}};
}

std::optional<nlohmann::json> HWDropdownItem::itemsToDictionaries(
    const std::optional<std::vector<HWDropdownItem>>& items) {
  return toDictionaries(items);
}

std::vector<HWDropdownItem> HWDropdownItem::itemsFromDictionaries(const nlohmann::json& dictionaries) {
  return fromDictionaries<HWDropdownItem>(dictionaries);
}

std::optional<HWHotkeyItem> HWHotkeyItem::itemFromDictionary(const nlohmann::json& dictionary) {
  if (!dictionary.is_object()) return std::nullopt;
  std::optional<std::string> key, title;
  if (!optionalString(dictionary, "key", key) || !key || !optionalString(dictionary, "title", title)) {
    return std::nullopt;
  }
  const auto category = dictionary.find("categoryType");
  if (category == dictionary.end() || !category->is_number()) return std::nullopt;
  // Read as a 32-bit signed number and widened, so -1 becomes the largest type, which no
  // category has.
  const double raw = category->get<double>();
  if (!(raw > -9.2e18 && raw < 9.2e18)) return std::nullopt;
  const auto narrow = static_cast<std::int32_t>(static_cast<std::uint32_t>(static_cast<std::int64_t>(raw)));
  return HWHotkeyItem(std::move(*key), static_cast<std::uint64_t>(static_cast<std::int64_t>(narrow)), std::move(title));
}

}  // namespace corvane
