// The two menu-bar strips (sensors and CPU load): which items stand in the menu bar, in order,
// which sections the drop-down panel shows, and whether the strip is shown at all. Shared by every
// process of the product through the settings suite and its announcements; the defaults are built
// from the product's resource lists and the machine's sensors.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "corvane/platform/global_notifications.h"
#include "corvane/settings/menu_items.h"
#include "corvane/settings/pref_data.h"
#include "corvane/store/data_store.h"

namespace corvane {

class HWSensorDataStore;

// Told, on the main queue, that some process changed the sensor strip. Each list is as it reads now.
class HWSensorMenuDataStoreDelegate : public virtual HWDataStoreDelegate {
 public:
  virtual void sensorMenuDataStoreActiveItemsDidChange(const std::vector<HWMenuItem>& items) { (void)items; }
  virtual void sensorMenuDataStoreDropdownItemsDidChange(const std::vector<HWDropdownItem>& items) { (void)items; }
  virtual void sensorMenuDataStoreMenuEnabledDidChange(bool enabled) { (void)enabled; }
};

// The same for the CPU strip.
class HWCPUMenuDataStoreDelegate : public virtual HWDataStoreDelegate {
 public:
  virtual void cpuMenuDataStoreActiveItemsDidChange(const std::vector<HWMenuItem>& items) { (void)items; }
  virtual void cpuMenuDataStoreDropdownItemsDidChange(const std::vector<HWDropdownItem>& items) { (void)items; }
  virtual void cpuMenuDataStoreMenuEnabledDidChange(bool enabled) { (void)enabled; }
};

// What both strips share. Lists read from the suite are cached until this process writes them or
// another kind of process announces a change. Thread-safe; delegates are called on the main queue.
class HWMenuDataStore : public HWDataStore {
 public:
  // Where a strip keeps its choices and what it announces on each write.
  struct Names {
    std::string_view activeItemsKey, dropdownItemsKey, enabledKey;
    std::string_view activeItemsNotification, dropdownItemsNotification, enabledNotification;
    std::string_view menuItemsResource, dropdownItemsResource;
  };

  ~HWMenuDataStore() override;

  const std::shared_ptr<HWPrefData>& prefData() const { return prefData_; }
  const Names& names() const { return names_; }

  // Whether the strip is shown; true while nothing (or something other than a switch) is stored.
  bool menuEnabled() const;
  void setMenuEnabled(bool enabled);
  // Every item that can be made active, built on first use and kept for the life of the store.
  std::vector<HWMenuItem> allItems();
  // The stored list (an empty one is an empty strip), else the strip's default list.
  std::vector<HWMenuItem> activeItems();
  // Caches and stores the list (nothing removes it), announcing the change.
  void setActiveItems(const std::optional<std::vector<HWMenuItem>>& items);
  // allItems() less every active item, in allItems() order.
  std::vector<HWMenuItem> inactiveItems();
  // The stored list when it is a non-empty one, else the strip's default sections.
  std::vector<HWDropdownItem> dropdownItems();
  void setDropdownItems(const std::optional<std::vector<HWDropdownItem>>& items);

  bool isActiveItemById(const std::string& identifier);
  // Appends `item` (nothing: no change) and stores the list.
  void addActiveItem(const std::optional<HWMenuItem>& item);
  // Removes every item equal to `item` and stores the list.
  void removeActiveItem(const HWMenuItem& item);
  // The first of allItems() with the identifier, appended; false when there is none.
  bool addActiveItemById(const std::string& identifier);
  // The first active item with the identifier, removed; false when there is none.
  bool removeActiveItemById(const std::string& identifier);
  // Moves (does not exchange) the item at `from` to `to` and stores the list; false, changing
  // nothing, unless both are below the list's count.
  bool swapActiveItemFromIndex(std::size_t from, std::size_t to);
  bool swapDropdownItemFromIndex(std::size_t from, std::size_t to);
  // Replaces the first section with the same identifier and stores the list; false when none.
  bool updateDropdownItem(const HWDropdownItem& item);
  // Removes both lists (announcing both).
  void clearData() override;

  // The items of the product's resource list `name` (without ".json"): nothing when there is no
  // such resource, none when it does not parse; elements that do not convert are left out.
  static std::optional<std::vector<HWMenuItem>> loadMenuItemsFromFile(const std::string& name);
  static std::optional<std::vector<HWDropdownItem>> loadDropdownItemsFromFile(const std::string& name);

 protected:
  HWMenuDataStore(std::shared_ptr<HWPrefData> prefData, Names names);
  // Listens for the strip's three announcements; called once the store is held by a shared_ptr.
  void registerNotifications(std::weak_ptr<HWMenuDataStore> self);

  // The strip's own parts: its full item list, its lists while nothing is stored, and its delegates.
  virtual std::vector<HWMenuItem> buildAllItems() = 0;
  virtual std::vector<HWMenuItem> defaultActiveItems(const std::vector<HWMenuItem>& allItems) = 0;
  virtual std::vector<HWDropdownItem> defaultDropdownItems() = 0;
  virtual void tellActiveItemsDidChange(const std::vector<HWMenuItem>& items) = 0;
  virtual void tellDropdownItemsDidChange(const std::vector<HWDropdownItem>& items) = 0;
  virtual void tellMenuEnabledDidChange(bool enabled) = 0;

 private:
  enum class Change { kActive, kDropdown, kEnabled };
  void didChangeNotification(Change change, const nlohmann::json& userInfo);
  std::vector<HWMenuItem> decodeActiveItems(const nlohmann::json& stored, const std::vector<HWMenuItem>& allItems) const;
  std::vector<HWDropdownItem> decodeDropdownItems(const nlohmann::json& stored) const;

  std::shared_ptr<HWPrefData> prefData_;
  Names names_;
  mutable std::recursive_mutex lock_;
  std::optional<std::vector<HWMenuItem>> allItems_;
  std::optional<std::vector<HWMenuItem>> activeItems_;
  std::optional<std::vector<HWDropdownItem>> dropdownItems_;
  std::vector<std::unique_ptr<platform::GlobalNotifications::Token>> observations_;
};

// The sensor strip: the resource's items, then every fan, then every other visible sensor.
class HWSensorMenuDataStore final : public HWMenuDataStore, public std::enable_shared_from_this<HWSensorMenuDataStore> {
  struct Passkey {};

 public:
  static std::shared_ptr<HWSensorMenuDataStore> create(std::shared_ptr<HWPrefData> prefData,
                                                       std::shared_ptr<HWSensorDataStore> sensorDataStore);
  HWSensorMenuDataStore(Passkey, std::shared_ptr<HWPrefData> prefData, std::shared_ptr<HWSensorDataStore> sensorDataStore);

  const std::shared_ptr<HWSensorDataStore>& sensorDataStore() const { return sensorDataStore_; }

 protected:
  std::vector<HWMenuItem> buildAllItems() override;
  std::vector<HWMenuItem> defaultActiveItems(const std::vector<HWMenuItem>& allItems) override;
  std::vector<HWDropdownItem> defaultDropdownItems() override;
  void tellActiveItemsDidChange(const std::vector<HWMenuItem>& items) override;
  void tellDropdownItemsDidChange(const std::vector<HWDropdownItem>& items) override;
  void tellMenuEnabledDidChange(bool enabled) override;

 private:
  std::shared_ptr<HWSensorDataStore> sensorDataStore_;
};

// The CPU strip: the resource's items, and the per-core section only on machines with efficiency
// and performance cores.
class HWCPUMenuDataStore final : public HWMenuDataStore, public std::enable_shared_from_this<HWCPUMenuDataStore> {
  struct Passkey {};

 public:
  static std::shared_ptr<HWCPUMenuDataStore> create(std::shared_ptr<HWPrefData> prefData);
  HWCPUMenuDataStore(Passkey, std::shared_ptr<HWPrefData> prefData);

 protected:
  std::vector<HWMenuItem> buildAllItems() override;
  std::vector<HWMenuItem> defaultActiveItems(const std::vector<HWMenuItem>& allItems) override;
  std::vector<HWDropdownItem> defaultDropdownItems() override;
  void tellActiveItemsDidChange(const std::vector<HWMenuItem>& items) override;
  void tellDropdownItemsDidChange(const std::vector<HWDropdownItem>& items) override;
  void tellMenuEnabledDidChange(bool enabled) override;
};

}  // namespace corvane
