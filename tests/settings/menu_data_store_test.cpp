#include "corvane/settings/menu_data_store.h"

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/global_notifications.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_keys.h"
#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using nlohmann::json;

std::vector<std::string> ids(const auto& items) {
  std::vector<std::string> out;
  for (const auto& item : items) out.push_back(item.identifier());
  return out;
}

TEST(MenuItems, DictionaryFormsReadAndWriteAsStored) {
  struct Case {
    json dictionary;
    std::optional<json> written;  // nothing: the element gives no item
  };
  const json full = {{"identifier", "TC0P"}, {"type", "icon"},  {"sourceType", "cpu"},
                     {"title", "CPU"},       {"value", "50°"},  {"image", "cpu"}};
  for (const auto& c : std::vector<Case>{
           {full, full},
           // Other letter case and missing values: text, sensor, empty strings.
           {{{"identifier", "a"}, {"type", "TEXT"}, {"sourceType", "CPU"}},
            json{{"identifier", "a"}, {"type", "text"}, {"sourceType", "sensor"}, {"title", ""}, {"value", ""}, {"image", ""}}},
           {{{"identifier", "s"}, {"type", "spacer"}, {"sourceType", "sensor"}},
            json{{"identifier", "s"}, {"type", "spacer"}, {"sourceType", "sensor"}, {"title", ""}, {"value", ""}, {"image", ""}}},
           {json(42), std::nullopt},
           {{{"title", "no identifier"}}, std::nullopt},
           {{{"identifier", 7}}, std::nullopt},
           {{{"identifier", "x"}, {"title", 7}}, std::nullopt},
       }) {
    const auto item = HWMenuItem::itemFromDictionary(c.dictionary);
    ASSERT_EQ(item.has_value(), c.written.has_value()) << c.dictionary;
    if (item) {
      EXPECT_EQ(item->toDictionary(), *c.written) << c.dictionary;
    }
  }
  EXPECT_EQ(HWMenuItem::stringFromType(9), "text");
  EXPECT_EQ(HWMenuItem::itemsToDictionaries(std::nullopt), std::nullopt);

  // A section's type is always "custom"; its switches may come as numbers from another writer.
  const auto section = HWDropdownItem::itemFromDictionary(
      {{"identifier", "Fan"}, {"type", "label"}, {"enabled", 1}, {"canChangePosition", true}});
  ASSERT_TRUE(section);
  EXPECT_EQ(section->toDictionary(), (json{{"identifier", "Fan"}, {"type", "custom"}, {"sourceType", "sensor"},
                                           {"title", ""}, {"enabled", true}, {"canChangePosition", true}}));
  EXPECT_FALSE(HWDropdownItem::itemFromDictionary({{"identifier", "Fan"}, {"enabled", "yes"}}));

  // The category number is a 32-bit signed one, widened.
  const auto wrapped = HWHotkeyItem::itemFromDictionary({{"key", "k"}, {"categoryType", 4294967297.0}});
  ASSERT_TRUE(wrapped);
  EXPECT_EQ(wrapped->categoryType(), 1u);
  EXPECT_EQ(HWHotkeyItem::itemFromDictionary({{"key", "k"}, {"categoryType", -1}})->categoryType(), UINT64_MAX);
  EXPECT_FALSE(HWHotkeyItem::itemFromDictionary({{"key", "k"}}));
}

TEST(MenuItems, ABindingCallsAHandlerBoundTwiceOncePerFire) {
  HWDataBinding<int> binding(1);
  std::vector<int> seen;
  auto handler = std::make_shared<const std::function<void(const int&)>>([&](const int& v) { seen.push_back(v); });
  binding.bind(handler);
  binding.bindAndFire(handler);
  binding.setValue(2);
  EXPECT_EQ(seen, (std::vector<int>{1, 2}));
}

// The shipped lists are read by identifier: each must convert and hold the identifiers the stores
// treat specially.
TEST(MenuResources, EveryListConvertsAndHoldsTheSpecialIdentifiers) {
  struct Case {
    std::string name;
    std::vector<std::string> special;
  };
  for (const auto& c : std::vector<Case>{{"sensor_menu_items", {}},
                                         {"sensor_dropdown_items", {"fan_control", "Fan", "Temperature", "Voltage", "Current", "Power"}},
                                         {"cpu_menu_items", {"cpu_total_usage"}},
                                         {"cpu_dropdown_items", {"cpu_usage_per_core"}}}) {
    const auto menu = c.name.find("dropdown") == std::string::npos;
    const auto found = menu ? ids(HWMenuDataStore::loadMenuItemsFromFile(c.name).value_or(std::vector<HWMenuItem>{}))
                            : ids(HWMenuDataStore::loadDropdownItemsFromFile(c.name).value_or(std::vector<HWDropdownItem>{}));
    ASSERT_FALSE(found.empty()) << c.name;
    for (const auto& id : c.special) EXPECT_NE(std::find(found.begin(), found.end(), id), found.end()) << c.name << " " << id;
  }
  EXPECT_EQ(HWMenuDataStore::loadMenuItemsFromFile("no_such_list"), std::nullopt);
}

// The stores of a data manager on a simulated machine, its sensors in the store, on the virtual clock.
class MenuStoreTest : public ::testing::Test {
 protected:
  void open(std::shared_ptr<const platform::MachineProfile> profile) {
    testing::installMachine(std::move(profile), dir_.path());
    HWSystemDevice::reset();
    clock_ = dispatch::installVirtualTime(1'700'000'000);
    manager_ = HWDataManager::create(dir_.path() / "group" / "Database.sqlite");
    ASSERT_TRUE(manager_->buildDataSetNow());
  }
  void TearDown() override { SMCClose(); }
  platform::DefaultsSuite& suite() { return platform::current().service<platform::DefaultsSuite>(); }

  testing::TempDir dir_;
  std::shared_ptr<dispatch::VirtualTime> clock_;
  std::shared_ptr<HWDataManager> manager_;
};

TEST_F(MenuStoreTest, DefaultsComeFromTheListsAndTheMachine) {
  open(testing::builtinMachine("MacBookPro14,1"));
  auto sensors = manager_->sensorMenuDataStore();
  const auto shipped = *HWMenuDataStore::loadMenuItemsFromFile("sensor_menu_items");
  const auto all = sensors->allItems();
  const auto fans = manager_->sensorDataStore()->fanSensors();
  ASSERT_FALSE(fans.empty());
  ASSERT_GT(all.size(), shipped.size() + fans.size());
  EXPECT_EQ(all[shipped.size()].identifier(), fans[0]->key());  // the fans right after the list
  const auto main = manager_->sensorDataStore()->mainSensor();
  EXPECT_EQ(ids(sensors->activeItems()), (std::vector<std::string>{shipped[0].identifier(), main->key()}));
  EXPECT_EQ(sensors->inactiveItems().size(), all.size() - 2);
  EXPECT_EQ(ids(sensors->dropdownItems()), ids(*HWMenuDataStore::loadDropdownItemsFromFile("sensor_dropdown_items")));

  // Without EP cores, no per-core section; the CPU strip starts with its first item and the total.
  auto cpu = manager_->cpuMenuDataStore();
  const auto cpuIds = ids(cpu->dropdownItems());
  EXPECT_EQ(std::find(cpuIds.begin(), cpuIds.end(), "cpu_usage_per_core"), cpuIds.end());
  EXPECT_EQ(ids(cpu->activeItems()), (std::vector<std::string>{cpu->allItems()[0].identifier(), "cpu_total_usage"}));

  // The shortcuts open the panels of the five categories.
  const auto& hotkeys = manager_->settingsDataStore()->hotkeyItems();
  ASSERT_FALSE(hotkeys.empty());
  for (const auto& hotkey : hotkeys) EXPECT_LT(hotkey.categoryType(), 5u) << hotkey.key();
}

TEST_F(MenuStoreTest, AFanlessMachineOffersNoFanSectionsAndTheOlderSensorListIsTakenOver) {
  open(testing::profileFromJson(R"({"name": "Fanless", "sysctl": {}, "smc": [["TC0P", "sp78", "2f80"], ["TC0D", "sp78", "3000"]]})"));
  suite().set(std::string(settings::kMenuSensorsKey), json::array({"TC0D", "gone", "TC0P"}));
  auto store = manager_->sensorMenuDataStore();
  EXPECT_EQ(ids(store->dropdownItems()), (std::vector<std::string>{"Temperature"}));
  EXPECT_EQ(ids(store->activeItems()), (std::vector<std::string>{"sensor_icon", "TC0D", "TC0P"}));

  // A new data set may change the sections on offer: they are rebuilt once it is ready.
  auto sections = store->dropdownItems();
  sections[0].setEnabled(false);
  store->setDropdownItems(sections);
  manager_->buildDatabase();
  clock_->advance(std::chrono::seconds(2));
  ASSERT_TRUE(manager_->dataSetReady());
  EXPECT_FALSE(suite().get(std::string(settings::kSensorMenuDropdownItemsKey)));
  EXPECT_TRUE(store->dropdownItems()[0].enabled());
}

TEST_F(MenuStoreTest, EditsAreStoredMovedAndAnnouncedAndAnotherKindOfWriterIsReread) {
  open(testing::builtinMachine("M2-Max"));
  auto store = manager_->cpuMenuDataStore();
  const auto cpuIds = ids(store->dropdownItems());
  EXPECT_NE(std::find(cpuIds.begin(), cpuIds.end(), "cpu_usage_per_core"), cpuIds.end());
  struct Delegate : HWCPUMenuDataStoreDelegate {
    void cpuMenuDataStoreActiveItemsDidChange(const std::vector<HWMenuItem>& items) override { lists.push_back(ids(items)); }
    void cpuMenuDataStoreMenuEnabledDidChange(bool enabled) override { switches.push_back(enabled); }
    std::vector<std::vector<std::string>> lists;
    std::vector<bool> switches;
  };
  auto delegate = std::make_shared<Delegate>();
  store->addDelegate(delegate);

  ASSERT_TRUE(store->addActiveItemById("cpu_user_usage"));
  ASSERT_TRUE(store->addActiveItemById("cpu_load_average"));
  EXPECT_FALSE(store->addActiveItemById("nothing"));
  const std::vector<std::string> four{"cpu_icon", "cpu_total_usage", "cpu_user_usage", "cpu_load_average"};
  EXPECT_EQ(ids(store->activeItems()), four);
  EXPECT_FALSE(store->swapActiveItemFromIndex(3, 4));  // a target equal to the count
  ASSERT_TRUE(store->swapActiveItemFromIndex(3, 0));
  const std::vector<std::string> moved{"cpu_load_average", "cpu_icon", "cpu_total_usage", "cpu_user_usage"};
  EXPECT_EQ(ids(HWMenuItem::itemsFromDictionaries(*suite().get(std::string(settings::kCPUMenuActiveItemsKey)))), moved);
  store->setMenuEnabled(false);  // this kind of process has acted already: no call
  clock_->runUntilIdle();
  EXPECT_EQ(delegate->lists.back(), moved);
  EXPECT_TRUE(delegate->switches.empty());

  // Another kind of process rewrites the list: the cache goes and the stored list is read.
  suite().set(std::string(settings::kCPUMenuActiveItemsKey), json::array());
  auto& centre = platform::current().service<platform::GlobalNotifications>();
  centre.post(std::string(settings::kCPUMenuDataActiveItemsDidChangeNotification), {{"appMode", 7}});
  centre.post(std::string(settings::kCPUMenuDataEnabledDidChangeNotification), {{"appMode", 7}});
  clock_->runUntilIdle();
  EXPECT_TRUE(delegate->lists.back().empty());  // an empty stored list is an empty strip
  EXPECT_EQ(delegate->switches, std::vector<bool>{false});

  // An empty stored drop-down list gives the default sections; clearing removes both lists.
  suite().set(std::string(settings::kCPUMenuDropdownItemsKey), json::array());
  EXPECT_EQ(ids(HWCPUMenuDataStore::create(nullptr)->dropdownItems()), cpuIds);
  store->clearData();
  EXPECT_FALSE(suite().get(std::string(settings::kCPUMenuActiveItemsKey)));
  EXPECT_EQ(ids(store->activeItems()), (std::vector<std::string>{"cpu_icon", "cpu_total_usage"}));
}

TEST_F(MenuStoreTest, EntriesOfTheWrongShapeAreSkippedWithALineAndLeftStoredUntilAnEdit) {
  open(testing::builtinMachine("MacBookPro14,1"));
  const json stored = json::array({42, {{"title", "x"}}, {{"identifier", "NOPE"}}, {{"identifier", "TC0P"}, {"title", 7}},
                                   {{"identifier", "TC0P"}, {"type", "text"}}});
  const std::string key(settings::kSensorMenuActiveItemsKey);
  suite().set(key, stored);
  suite().set(std::string(settings::kSensorMenuDropdownItemsKey), json::array({{{"identifier", "Nope"}}, "x"}));
  auto store = manager_->sensorMenuDataStore();
  ::testing::internal::CaptureStderr();
  const auto active = ids(store->activeItems());
  const auto sections = ids(store->dropdownItems());
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(active, std::vector<std::string>{"TC0P"});
  EXPECT_EQ(sections, ids(*HWMenuDataStore::loadDropdownItemsFromFile("sensor_dropdown_items")));  // nothing usable
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 6) << err;
  EXPECT_EQ(*suite().get(key), stored);

  ASSERT_TRUE(store->addActiveItemById("TCXC"));
  EXPECT_EQ(ids(HWMenuItem::itemsFromDictionaries(*suite().get(key))), (std::vector<std::string>{"TC0P", "TCXC"}));
}

}  // namespace
}  // namespace corvane
