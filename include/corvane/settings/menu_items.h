// The records of the menu-bar screens: what can stand in a strip, the sections of its drop-down
// panel, the global shortcuts, and a small observable value. Each record converts to and from the
// dictionary form kept in the settings suite and in the product's JSON resource lists.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace corvane {

class HWSensorEntity;

// What a strip item draws.
enum class HWMenuItemType : std::uint64_t { kLabel = 0, kText = 1, kIcon = 2, kSpacer = 3, kCustom = 4 };
// Where an item's value comes from.
enum class HWMenuItemSourceType : std::uint64_t { kSensor = 0, kCPU = 1 };

// One thing that can stand in the menu bar. Equal to another item exactly when the identifiers
// are equal.
class HWMenuItem {
 public:
  HWMenuItem() = default;
  HWMenuItem(std::string identifier, std::uint64_t type, std::uint64_t sourceType, std::optional<std::string> title,
             std::optional<std::string> value, std::optional<std::string> imageName);
  // A text item for a stored sensor: its key, its name ("--" without one), its tidy value ("--"
  // without a reading).
  explicit HWMenuItem(const HWSensorEntity& sensor);

  // Nothing for anything but a dictionary with a string "identifier" whose other values, where
  // present, are strings.
  static std::optional<HWMenuItem> itemFromDictionary(const nlohmann::json& dictionary);
  nlohmann::json toDictionary() const;
  static std::optional<nlohmann::json> itemsToDictionaries(const std::optional<std::vector<HWMenuItem>>& items);
  // The items of the elements that convert, in order (a value that is not an array gives none).
  static std::vector<HWMenuItem> itemsFromDictionaries(const nlohmann::json& dictionaries);

  // "label" 0, "icon" 2, "spacer" 3, "custom" 4, anything else (and nothing) 1; compared exactly.
  static std::uint64_t typeFromString(const std::optional<std::string>& text);
  static std::string stringFromType(std::uint64_t type);
  // Exactly "cpu" is 1, anything else 0.
  static std::uint64_t sourceTypeFromString(const std::optional<std::string>& text);
  static std::string stringFromSourceType(std::uint64_t sourceType);

  const std::string& identifier() const { return identifier_; }
  std::uint64_t type() const { return type_; }
  std::uint64_t sourceType() const { return sourceType_; }
  const std::optional<std::string>& title() const { return title_; }
  const std::optional<std::string>& value() const { return value_; }
  void setValue(std::optional<std::string> value) { value_ = std::move(value); }
  const std::optional<std::string>& imageName() const { return imageName_; }

  friend bool operator==(const HWMenuItem& a, const HWMenuItem& b) { return a.identifier_ == b.identifier_; }

 private:
  std::string identifier_;
  std::uint64_t type_ = 1;
  std::uint64_t sourceType_ = 0;
  std::optional<std::string> title_;
  std::optional<std::string> value_;
  std::optional<std::string> imageName_;
};

// One section of a strip's drop-down panel, which the user may switch off or move.
class HWDropdownItem {
 public:
  HWDropdownItem() = default;
  HWDropdownItem(std::string identifier, std::uint64_t type, std::uint64_t sourceType, std::optional<std::string> title,
                 bool enabled, bool canChangePosition);

  // Nothing for anything but a dictionary with a string "identifier", whose "sourceType" and
  // "title" are strings and whose "enabled" and "canChangePosition" are booleans (or numbers)
  // where present. The type read is always 0.
  static std::optional<HWDropdownItem> itemFromDictionary(const nlohmann::json& dictionary);
  nlohmann::json toDictionary() const;
  static std::optional<nlohmann::json> itemsToDictionaries(const std::optional<std::vector<HWDropdownItem>>& items);
  static std::vector<HWDropdownItem> itemsFromDictionaries(const nlohmann::json& dictionaries);

  // A section has one kind: every string reads as 0 and every type writes as "custom".
  static std::uint64_t typeFromString(const std::optional<std::string>&) { return 0; }
  static std::string stringFromType(std::uint64_t) { return "custom"; }
  static std::uint64_t sourceTypeFromString(const std::optional<std::string>& text) {
    return HWMenuItem::sourceTypeFromString(text);
  }
  static std::string stringFromSourceType(std::uint64_t sourceType) {
    return HWMenuItem::stringFromSourceType(sourceType);
  }

  const std::string& identifier() const { return identifier_; }
  std::uint64_t type() const { return type_; }
  std::uint64_t sourceType() const { return sourceType_; }
  const std::optional<std::string>& title() const { return title_; }
  bool enabled() const { return enabled_; }
  void setEnabled(bool enabled) { enabled_ = enabled; }
  bool canChangePosition() const { return canChangePosition_; }

  friend bool operator==(const HWDropdownItem& a, const HWDropdownItem& b) { return a.identifier_ == b.identifier_; }

 private:
  std::string identifier_;
  std::uint64_t type_ = 0;
  std::uint64_t sourceType_ = 0;
  std::optional<std::string> title_;
  bool enabled_ = false;
  bool canChangePosition_ = false;
};

// One global shortcut the product offers: it opens the panel of a sensor category.
class HWHotkeyItem {
 public:
  HWHotkeyItem(std::string key, std::uint64_t categoryType, std::optional<std::string> title)
      : key_(std::move(key)), categoryType_(categoryType), title_(std::move(title)) {}
  // Nothing for anything but a dictionary with a string "key", a number "categoryType" (read as
  // a 32-bit signed integer, then widened) and, where present, a string "title".
  static std::optional<HWHotkeyItem> itemFromDictionary(const nlohmann::json& dictionary);

  const std::string& key() const { return key_; }
  std::uint64_t categoryType() const { return categoryType_; }
  const std::optional<std::string>& title() const { return title_; }

 private:
  std::string key_;
  std::uint64_t categoryType_;
  std::optional<std::string> title_;
};

// A value that tells its handlers whenever it is set. A handler is bound once however often it
// is offered (the same shared handler object); handlers run on the caller's thread, in the order
// bound. Not locked.
template <class T>
class HWDataBinding {
 public:
  using Handler = std::shared_ptr<const std::function<void(const T&)>>;

  explicit HWDataBinding(T value) : value_(std::move(value)) {}

  const T& value() const { return value_; }
  void setValue(T value) {
    value_ = std::move(value);
    fire();
  }
  const std::vector<Handler>& handlers() const { return handlers_; }
  void bind(Handler handler) {
    if (handler && std::find(handlers_.begin(), handlers_.end(), handler) == handlers_.end()) {
      handlers_.push_back(std::move(handler));
    }
  }
  void bindAndFire(Handler handler) {
    bind(std::move(handler));
    fire();
  }
  void fire() const {
    // A handler may bind another; the ones bound now are the ones called.
    const auto handlers = handlers_;
    for (const auto& handler : handlers) (*handler)(value_);
  }

 private:
  T value_;
  std::vector<Handler> handlers_;
};

}  // namespace corvane

template <>
struct std::hash<corvane::HWMenuItem> {
  std::size_t operator()(const corvane::HWMenuItem& item) const noexcept {
    return std::hash<std::string>{}(item.identifier());
  }
};
template <>
struct std::hash<corvane::HWDropdownItem> {
  std::size_t operator()(const corvane::HWDropdownItem& item) const noexcept {
    return std::hash<std::string>{}(item.identifier());
  }
};
