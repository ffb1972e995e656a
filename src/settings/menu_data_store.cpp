#include "corvane/settings/menu_data_store.h"

#include <algorithm>
#include <array>

#include "corvane/settings/data_manager.h"
#include "corvane/settings/notification_utils.h"
#include "corvane/settings/settings_keys.h"
#include "corvane/store/sensor_data_store.h"
#include "corvane/sysinfo/system_device.h"
#include "corvane/util/dictionaries.h"
#include "corvane/util/json_text.h"
#include "platform/log.h"
#include "util/resources.h"

namespace corvane {
namespace {

std::string str(std::string_view text) { return std::string(text); }

// The contents of resource `name`, parsed: nothing when missing, an empty array when unreadable.
std::optional<nlohmann::json> resourceList(const std::string& name) {
  const auto bytes = resources::find(name + ".json");
  if (!bytes) return std::nullopt;
  auto parsed = nlohmann::json::parse(*bytes, nullptr, false);
  if (parsed.is_discarded() || !parsed.is_array()) return nlohmann::json::array();
  return parsed;
}

template <class Item>
bool containsIdentifier(const std::vector<Item>& items, const std::string& identifier) {
  return std::any_of(items.begin(), items.end(), [&](const Item& item) { return item.identifier() == identifier; });
}

// A hand edit or an older writer may have left anything in the suite: an element that is not a
// usable entry is left out, with one line saying so, and the rest of the list stands.
void skipLine(std::string_view key, const nlohmann::json& element, std::string_view why) {
  platform::log("Skipping an entry of " + str(key) + " (" + str(why) + "): " + json_text::dump(element));
}

}  // namespace

// ---- the common part ----

HWMenuDataStore::HWMenuDataStore(std::shared_ptr<HWPrefData> prefData, Names names)
    : prefData_(prefData ? std::move(prefData) : std::make_shared<HWPrefData>()), names_(names) {}

HWMenuDataStore::~HWMenuDataStore() = default;

void HWMenuDataStore::registerNotifications(std::weak_ptr<HWMenuDataStore> self) {
  for (const auto& [name, change] : {std::pair{names_.activeItemsNotification, Change::kActive},
                                     std::pair{names_.dropdownItemsNotification, Change::kDropdown},
                                     std::pair{names_.enabledNotification, Change::kEnabled}}) {
    observations_.push_back(HWNotificationUtils::addObserver(
        str(name), [self, change = change](const std::string&, const nlohmann::json& userInfo) {
          if (auto live = self.lock()) live->didChangeNotification(change, userInfo);
        }));
  }
}

void HWMenuDataStore::didChangeNotification(Change change, const nlohmann::json& userInfo) {
  const auto mode = userInfo.is_object() ? userInfo.find(settings::kAppModeKey) : userInfo.end();
  const bool sameKind = userInfo.is_object() && mode != userInfo.end() && mode->is_number() &&
                        dictionaries::integerValue(*mode) == static_cast<std::int64_t>(HWDataManager::appMode());
  switch (change) {
    case Change::kActive: {
      // A process of this kind wrote through its own setter and so already holds the list.
      if (!sameKind) {
        std::lock_guard guard(lock_);
        activeItems_.reset();
      }
      tellActiveItemsDidChange(activeItems());
      break;
    }
    case Change::kDropdown: {
      if (!sameKind) {
        std::lock_guard guard(lock_);
        dropdownItems_.reset();
      }
      tellDropdownItemsDidChange(dropdownItems());
      break;
    }
    case Change::kEnabled:
      if (!sameKind) tellMenuEnabledDidChange(menuEnabled());
      break;
  }
}

bool HWMenuDataStore::menuEnabled() const {
  const auto stored = prefData_->objectForKey(str(names_.enabledKey));
  if (!stored || !(stored->is_boolean() || stored->is_number())) return true;
  return dictionaries::boolValue(*stored);
}

void HWMenuDataStore::setMenuEnabled(bool enabled) {
  prefData_->setObject(nlohmann::json(enabled), str(names_.enabledKey), str(names_.enabledNotification));
}

std::vector<HWMenuItem> HWMenuDataStore::allItems() {
  std::lock_guard guard(lock_);
  if (!allItems_) allItems_ = buildAllItems();
  return *allItems_;
}

std::vector<HWMenuItem> HWMenuDataStore::decodeActiveItems(const nlohmann::json& stored,
                                                           const std::vector<HWMenuItem>& all) const {
  std::vector<HWMenuItem> items;
  for (const auto& element : stored) {
    auto item = HWMenuItem::itemFromDictionary(element);
    if (!item) {
      skipLine(names_.activeItemsKey, element, "not a menu item");
    } else if (!containsIdentifier(all, item->identifier())) {
      skipLine(names_.activeItemsKey, element, "no such item on this machine");
    } else {
      items.push_back(std::move(*item));
    }
  }
  return items;
}

std::vector<HWMenuItem> HWMenuDataStore::activeItems() {
  std::lock_guard guard(lock_);
  if (activeItems_) return *activeItems_;
  const auto all = allItems();
  const auto stored = prefData_->objectForKey(str(names_.activeItemsKey));
  if (stored && stored->is_array()) {
    activeItems_ = decodeActiveItems(*stored, all);
  } else {
    if (stored) platform::log("Ignoring " + str(names_.activeItemsKey) + ": it holds no list");
    activeItems_ = defaultActiveItems(all);
  }
  return *activeItems_;
}

void HWMenuDataStore::setActiveItems(const std::optional<std::vector<HWMenuItem>>& items) {
  {
    std::lock_guard guard(lock_);
    activeItems_ = items;
  }
  prefData_->setObject(HWMenuItem::itemsToDictionaries(items), str(names_.activeItemsKey),
                       str(names_.activeItemsNotification));
}

std::vector<HWMenuItem> HWMenuDataStore::inactiveItems() {
  const auto active = activeItems();
  std::vector<HWMenuItem> items;
  for (const auto& item : allItems()) {
    if (std::find(active.begin(), active.end(), item) == active.end()) items.push_back(item);
  }
  return items;
}

std::vector<HWDropdownItem> HWMenuDataStore::decodeDropdownItems(const nlohmann::json& stored) const {
  const auto known = loadDropdownItemsFromFile(str(names_.dropdownItemsResource)).value_or(std::vector<HWDropdownItem>{});
  std::vector<HWDropdownItem> items;
  for (const auto& element : stored) {
    auto item = HWDropdownItem::itemFromDictionary(element);
    if (!item) {
      skipLine(names_.dropdownItemsKey, element, "not a drop-down section");
    } else if (!containsIdentifier(known, item->identifier())) {
      skipLine(names_.dropdownItemsKey, element, "no such section");
    } else {
      items.push_back(std::move(*item));
    }
  }
  return items;
}

std::vector<HWDropdownItem> HWMenuDataStore::dropdownItems() {
  std::lock_guard guard(lock_);
  if (dropdownItems_) return *dropdownItems_;
  const auto stored = prefData_->objectForKey(str(names_.dropdownItemsKey));
  if (stored && !stored->is_array()) platform::log("Ignoring " + str(names_.dropdownItemsKey) + ": it holds no list");
  std::vector<HWDropdownItem> decoded;
  if (stored && stored->is_array() && !stored->empty()) decoded = decodeDropdownItems(*stored);
  // A list of nothing usable shows the default sections, as an empty one does.
  dropdownItems_ = decoded.empty() ? defaultDropdownItems() : std::move(decoded);
  return *dropdownItems_;
}

void HWMenuDataStore::setDropdownItems(const std::optional<std::vector<HWDropdownItem>>& items) {
  {
    std::lock_guard guard(lock_);
    dropdownItems_ = items;
  }
  prefData_->setObject(HWDropdownItem::itemsToDictionaries(items), str(names_.dropdownItemsKey),
                       str(names_.dropdownItemsNotification));
}

bool HWMenuDataStore::isActiveItemById(const std::string& identifier) {
  return containsIdentifier(activeItems(), identifier);
}

void HWMenuDataStore::addActiveItem(const std::optional<HWMenuItem>& item) {
  if (!item) return;
  std::lock_guard guard(lock_);
  auto items = activeItems();
  items.push_back(*item);
  setActiveItems(items);
}

void HWMenuDataStore::removeActiveItem(const HWMenuItem& item) {
  std::lock_guard guard(lock_);
  auto items = activeItems();
  items.erase(std::remove(items.begin(), items.end(), item), items.end());
  setActiveItems(items);
}

bool HWMenuDataStore::addActiveItemById(const std::string& identifier) {
  std::lock_guard guard(lock_);
  const auto all = allItems();
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const HWMenuItem& item) { return item.identifier() == identifier; });
  if (found == all.end()) return false;
  addActiveItem(*found);
  return true;
}

bool HWMenuDataStore::removeActiveItemById(const std::string& identifier) {
  std::lock_guard guard(lock_);
  const auto active = activeItems();
  const auto found = std::find_if(active.begin(), active.end(),
                                  [&](const HWMenuItem& item) { return item.identifier() == identifier; });
  if (found == active.end()) return false;
  removeActiveItem(*found);
  return true;
}

namespace {
template <class Item>
bool move(std::vector<Item>& items, std::size_t from, std::size_t to) {
  if (from >= items.size() || to >= items.size()) return false;
  Item item = std::move(items[from]);
  items.erase(items.begin() + static_cast<std::ptrdiff_t>(from));
  items.insert(items.begin() + static_cast<std::ptrdiff_t>(to), std::move(item));
  return true;
}
}  // namespace

bool HWMenuDataStore::swapActiveItemFromIndex(std::size_t from, std::size_t to) {
  std::lock_guard guard(lock_);
  auto items = activeItems();
  if (!move(items, from, to)) return false;
  setActiveItems(items);
  return true;
}

bool HWMenuDataStore::swapDropdownItemFromIndex(std::size_t from, std::size_t to) {
  std::lock_guard guard(lock_);
  auto items = dropdownItems();
  if (!move(items, from, to)) return false;
  setDropdownItems(items);
  return true;
}

bool HWMenuDataStore::updateDropdownItem(const HWDropdownItem& item) {
  std::lock_guard guard(lock_);
  auto items = dropdownItems();
  const auto found = std::find(items.begin(), items.end(), item);
  if (found == items.end()) return false;
  *found = item;
  setDropdownItems(items);
  return true;
}

void HWMenuDataStore::clearData() {
  setActiveItems(std::nullopt);
  setDropdownItems(std::nullopt);
}

std::optional<std::vector<HWMenuItem>> HWMenuDataStore::loadMenuItemsFromFile(const std::string& name) {
  const auto list = resourceList(name);
  if (!list) return std::nullopt;
  return HWMenuItem::itemsFromDictionaries(*list);
}

std::optional<std::vector<HWDropdownItem>> HWMenuDataStore::loadDropdownItemsFromFile(const std::string& name) {
  const auto list = resourceList(name);
  if (!list) return std::nullopt;
  return HWDropdownItem::itemsFromDictionaries(*list);
}

// ---- the sensor strip ----

std::shared_ptr<HWSensorMenuDataStore> HWSensorMenuDataStore::create(std::shared_ptr<HWPrefData> prefData,
                                                                     std::shared_ptr<HWSensorDataStore> sensorDataStore) {
  auto store = std::make_shared<HWSensorMenuDataStore>(Passkey{}, std::move(prefData), std::move(sensorDataStore));
  store->registerNotifications(store);
  return store;
}

HWSensorMenuDataStore::HWSensorMenuDataStore(Passkey, std::shared_ptr<HWPrefData> prefData,
                                             std::shared_ptr<HWSensorDataStore> sensorDataStore)
    : HWMenuDataStore(std::move(prefData),
                      {settings::kSensorMenuActiveItemsKey, settings::kSensorMenuDropdownItemsKey,
                       settings::kSensorMenuDataEnabledKey, settings::kSensorMenuDataActiveItemsDidChangeNotification,
                       settings::kSensorMenuDataDropdownItemsDidChangeNotification,
                       settings::kSensorMenuDataEnabledDidChangeNotification, "sensor_menu_items",
                       "sensor_dropdown_items"}),
      sensorDataStore_(std::move(sensorDataStore)) {}

std::vector<HWMenuItem> HWSensorMenuDataStore::buildAllItems() {
  auto items = loadMenuItemsFromFile(str(names().menuItemsResource)).value_or(std::vector<HWMenuItem>{});
  if (!sensorDataStore_) return items;
  for (const auto& fan : sensorDataStore_->fanSensors()) items.emplace_back(*fan);
  for (const auto& category : sensorDataStore_->allCategories()) {
    if (category->type() == 1) continue;  // the fans, added above
    for (const auto& sensor : category->filterSensors()) items.emplace_back(*sensor);
  }
  return items;
}

std::vector<HWMenuItem> HWSensorMenuDataStore::defaultActiveItems(const std::vector<HWMenuItem>& all) {
  std::vector<HWMenuItem> items;
  if (!all.empty()) items.push_back(all.front());
  if (!sensorDataStore_) return items;
  // Sensors chosen before the strip had items of its own come over in their order.
  const auto older = prefData()->objectForKey(str(settings::kMenuSensorsKey));
  if (older && older->is_array()) {
    for (const auto& key : *older) {
      if (!key.is_string()) continue;
      if (auto sensor = sensorDataStore_->getSensorByKey(key.get<std::string>())) items.emplace_back(*sensor);
    }
  } else if (auto main = sensorDataStore_->mainSensor()) {
    items.emplace_back(*main);
  }
  return items;
}

std::vector<HWDropdownItem> HWSensorMenuDataStore::defaultDropdownItems() {
  static constexpr std::array<std::string_view, 5> kCategorySections = {"Fan", "Temperature", "Voltage", "Current",
                                                                        "Power"};
  std::vector<HWDropdownItem> items;
  for (auto& item : loadDropdownItemsFromFile(str(names().dropdownItemsResource)).value_or(std::vector<HWDropdownItem>{})) {
    const std::string& id = item.identifier();
    if (id == "fan_control") {
      if (!sensorDataStore_ || sensorDataStore_->fanSensors().empty()) continue;
    } else if (std::find(kCategorySections.begin(), kCategorySections.end(), id) != kCategorySections.end()) {
      const auto category = sensorDataStore_ ? sensorDataStore_->getCategoryWithName(id) : nullptr;
      if (!category || category->filterSensors().empty()) continue;
    }
    items.push_back(std::move(item));
  }
  return items;
}

void HWSensorMenuDataStore::tellActiveItemsDidChange(const std::vector<HWMenuItem>& items) {
  forEachDelegate<HWSensorMenuDataStoreDelegate>(
      [&](HWSensorMenuDataStoreDelegate& delegate) { delegate.sensorMenuDataStoreActiveItemsDidChange(items); });
}

void HWSensorMenuDataStore::tellDropdownItemsDidChange(const std::vector<HWDropdownItem>& items) {
  forEachDelegate<HWSensorMenuDataStoreDelegate>(
      [&](HWSensorMenuDataStoreDelegate& delegate) { delegate.sensorMenuDataStoreDropdownItemsDidChange(items); });
}

void HWSensorMenuDataStore::tellMenuEnabledDidChange(bool enabled) {
  forEachDelegate<HWSensorMenuDataStoreDelegate>(
      [&](HWSensorMenuDataStoreDelegate& delegate) { delegate.sensorMenuDataStoreMenuEnabledDidChange(enabled); });
}

// ---- the CPU strip ----

std::shared_ptr<HWCPUMenuDataStore> HWCPUMenuDataStore::create(std::shared_ptr<HWPrefData> prefData) {
  auto store = std::make_shared<HWCPUMenuDataStore>(Passkey{}, std::move(prefData));
  store->registerNotifications(store);
  return store;
}

HWCPUMenuDataStore::HWCPUMenuDataStore(Passkey, std::shared_ptr<HWPrefData> prefData)
    : HWMenuDataStore(std::move(prefData),
                      {settings::kCPUMenuActiveItemsKey, settings::kCPUMenuDropdownItemsKey,
                       settings::kCPUMenuDataEnabledKey, settings::kCPUMenuDataActiveItemsDidChangeNotification,
                       settings::kCPUMenuDataDropdownItemsDidChangeNotification,
                       settings::kCPUMenuDataEnabledDidChangeNotification, "cpu_menu_items", "cpu_dropdown_items"}) {}

std::vector<HWMenuItem> HWCPUMenuDataStore::buildAllItems() {
  return loadMenuItemsFromFile(str(names().menuItemsResource)).value_or(std::vector<HWMenuItem>{});
}

std::vector<HWMenuItem> HWCPUMenuDataStore::defaultActiveItems(const std::vector<HWMenuItem>& all) {
  std::vector<HWMenuItem> items;
  if (!all.empty()) items.push_back(all.front());
  for (const auto& item : all) {
    if (item.identifier() == "cpu_total_usage") {
      items.push_back(item);
      break;
    }
  }
  return items;
}

std::vector<HWDropdownItem> HWCPUMenuDataStore::defaultDropdownItems() {
  const bool kinds = HWSystemDevice::device()->cpuInfo().hasEPCores();
  std::vector<HWDropdownItem> items;
  for (auto& item : loadDropdownItemsFromFile(str(names().dropdownItemsResource)).value_or(std::vector<HWDropdownItem>{})) {
    if (item.identifier() == "cpu_usage_per_core" && !kinds) continue;
    items.push_back(std::move(item));
  }
  return items;
}

void HWCPUMenuDataStore::tellActiveItemsDidChange(const std::vector<HWMenuItem>& items) {
  forEachDelegate<HWCPUMenuDataStoreDelegate>(
      [&](HWCPUMenuDataStoreDelegate& delegate) { delegate.cpuMenuDataStoreActiveItemsDidChange(items); });
}

void HWCPUMenuDataStore::tellDropdownItemsDidChange(const std::vector<HWDropdownItem>& items) {
  forEachDelegate<HWCPUMenuDataStoreDelegate>(
      [&](HWCPUMenuDataStoreDelegate& delegate) { delegate.cpuMenuDataStoreDropdownItemsDidChange(items); });
}

void HWCPUMenuDataStore::tellMenuEnabledDidChange(bool enabled) {
  forEachDelegate<HWCPUMenuDataStoreDelegate>(
      [&](HWCPUMenuDataStoreDelegate& delegate) { delegate.cpuMenuDataStoreMenuEnabledDidChange(enabled); });
}

}  // namespace corvane
