// `corvane menu sensors|cpu`: the two menu-bar strips, which items stand in the menu bar and which
// sections the drop-down panel shows. Every edit goes through the strip's store, so it is kept in
// the shared settings and announced to every other process (a running `corvane bar` follows it).
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/menu_data_store.h"
#include "corvane/settings/settings_data_store.h"
#include "corvane/util/json_text.h"

namespace corvane::cli {

std::shared_ptr<HWDataManager> openMenuManager(bool sensors) {
  auto manager = HWDataManager::shared();
  // Sensor items are named and valued in the user's units.
  settings::installUnitPreferencesHook(manager->prefData());
  if (!sensors) return manager;
  const auto& store = manager->sensorDataStore();
  const auto& stack = store->coreDataStack();
  if (!stack->hasStore()) {
    std::fprintf(stderr, "corvane: the store %s cannot be opened\n", stack->storeURL().c_str());
    return nullptr;
  }
  // The sensor strip offers the sensors of the store; a store nobody has filled yet (no daemon
  // ever ran) gets this machine's, as the daemon would put them there.
  if (store->allCategories().empty() && (stack->isReadOnly() || !manager->buildDataSetNow())) {
    std::fprintf(stderr, "corvane: the store %s could not be filled with this machine's sensors\n",
                 stack->storeURL().c_str());
    return nullptr;
  }
  return manager;
}

namespace {

enum class Strip { kSensors, kCPU };

struct MenuRequest {
  Strip strip = Strip::kSensors;
  std::string action;  // empty: list
  bool json = false;
  bool dropdown = false;  // move: a drop-down section rather than a menu-bar item
  std::string identifier;
  int from = 0, to = 0;   // positions from 1, as listed
};

const char* stripName(Strip strip) { return strip == Strip::kSensors ? "sensors" : "cpu"; }

std::shared_ptr<HWMenuDataStore> storeOf(const HWDataManager& manager, Strip strip) {
  if (strip == Strip::kSensors) return manager.sensorMenuDataStore();
  return manager.cpuMenuDataStore();
}

// Runs what waits on the main queue (the announcements just posted), so that they leave before
// the program ends.
void flushMainQueue() {
  dispatch::mainQueue()->async([] { dispatch::stopMainQueue(); });
  dispatch::runMainQueue();
}

int badInput(const std::string& message) {
  std::fprintf(stderr, "corvane: %s\n", message.c_str());
  return kExitBadInput;
}

int refused(const std::string& message) {
  std::fprintf(stderr, "corvane: %s\n", message.c_str());
  return kExitFailure;
}

std::string itemValue(const HWMenuItem& item) {
  const std::string title = item.title().value_or("");
  const std::string value = item.value().value_or("");
  if (item.type() == static_cast<std::uint64_t>(HWMenuItemType::kText) && !value.empty()) return title + "  " + value;
  return title;
}

int list(HWMenuDataStore& store, const MenuRequest& request) {
  const auto active = store.activeItems();
  const auto inactive = store.inactiveItems();
  const auto dropdown = store.dropdownItems();
  if (request.json) {
    nlohmann::ordered_json out = {{"strip", stripName(request.strip)},
                                  {"enabled", store.menuEnabled()},
                                  {"activeItems", HWMenuItem::itemsToDictionaries(active).value()},
                                  {"inactiveItems", HWMenuItem::itemsToDictionaries(inactive).value()},
                                  {"dropdownItems", HWDropdownItem::itemsToDictionaries(dropdown).value()}};
    std::printf("%s\n", json_text::dump(out, 1).c_str());
    return kExitOk;
  }
  std::printf("%s strip: %s\n", request.strip == Strip::kSensors ? "Sensor" : "CPU",
              store.menuEnabled() ? "shown" : "hidden");
  std::printf("In the menu bar:\n");
  if (active.empty()) std::printf("  (nothing)\n");
  for (std::size_t i = 0; i < active.size(); ++i) {
    std::printf("  %2zu. %-20s %-7s %s\n", i + 1, active[i].identifier().c_str(),
                HWMenuItem::stringFromType(active[i].type()).c_str(), itemValue(active[i]).c_str());
  }
  std::printf("Can be added:\n");
  for (const auto& item : inactive) {
    std::printf("      %-20s %-7s %s\n", item.identifier().c_str(), HWMenuItem::stringFromType(item.type()).c_str(),
                itemValue(item).c_str());
  }
  std::printf("Drop-down sections:\n");
  for (std::size_t i = 0; i < dropdown.size(); ++i) {
    std::printf("  %2zu. [%c] %-20s %s%s\n", i + 1, dropdown[i].enabled() ? 'x' : ' ',
                dropdown[i].identifier().c_str(), dropdown[i].title().value_or("").c_str(),
                dropdown[i].canChangePosition() ? "" : " (fixed place)");
  }
  return kExitOk;
}

int edit(HWMenuDataStore& store, const MenuRequest& request) {
  const std::string& id = request.identifier;
  const std::string see = " (see corvane menu " + std::string(stripName(request.strip)) + ")";
  if (request.action == "add") {
    const auto all = store.allItems();
    if (std::find_if(all.begin(), all.end(), [&](const HWMenuItem& item) { return item.identifier() == id; }) ==
        all.end()) {
      return badInput("'" + id + "' is not an item of this strip" + see);
    }
    if (store.isActiveItemById(id)) return refused("'" + id + "' is already in the menu bar");
    store.addActiveItemById(id);
  } else if (request.action == "remove") {
    if (!store.removeActiveItemById(id)) return refused("'" + id + "' is not in the menu bar" + see);
  } else if (request.action == "move") {
    const std::size_t count = request.dropdown ? store.dropdownItems().size() : store.activeItems().size();
    for (int position : {request.from, request.to}) {
      if (position < 1 || static_cast<std::size_t>(position) > count) {
        return badInput("there is no position " + std::to_string(position) + " (the " +
                        (request.dropdown ? "drop-down has " : "menu bar has ") + std::to_string(count) + ")" + see);
      }
    }
    const auto from = static_cast<std::size_t>(request.from - 1), to = static_cast<std::size_t>(request.to - 1);
    if (request.dropdown) {
      const auto sections = store.dropdownItems();
      for (const auto* section : {&sections[from], &sections[to]}) {
        if (!section->canChangePosition()) return refused("the section '" + section->identifier() + "' keeps its place");
      }
      store.swapDropdownItemFromIndex(from, to);
    } else {
      store.swapActiveItemFromIndex(from, to);
    }
  } else if (request.action == "enable" || request.action == "disable") {
    const auto sections = store.dropdownItems();
    const auto found = std::find_if(sections.begin(), sections.end(),
                                    [&](const HWDropdownItem& item) { return item.identifier() == id; });
    if (found == sections.end()) return badInput("'" + id + "' is not a drop-down section of this strip" + see);
    HWDropdownItem changed = *found;
    changed.setEnabled(request.action == "enable");
    store.updateDropdownItem(changed);
  } else if (request.action == "show" || request.action == "hide") {
    store.setMenuEnabled(request.action == "show");
  } else if (request.action == "reset") {
    store.clearData();
  }
  return kExitOk;
}

int runMenu(Context& context, const MenuRequest& request) {
  if (!context.installPlatform()) return context.exitCode;
  const bool editing = !request.action.empty();
  // Edits are announced beyond this process, so that a running bar or daemon hears of them.
  if (editing) useSessionBus();
  auto manager = openMenuManager(request.strip == Strip::kSensors);
  if (!manager) return kExitFailure;
  auto store = storeOf(*manager, request.strip);
  if (!editing) return list(*store, request);
  const int status = edit(*store, request);
  flushMainQueue();
  return status;
}

void addStrip(CLI::App& menu, Context& context, Strip strip, const char* description) {
  auto request = std::make_shared<MenuRequest>();
  request->strip = strip;
  CLI::App* command = menu.add_subcommand(stripName(strip), description);
  command->require_subcommand(0, 1);
  command->add_flag("--json", request->json,
                    "Print JSON: \"enabled\", \"activeItems\", \"inactiveItems\" and \"dropdownItems\" in their "
                    "stored dictionary form");
  command->footer("Positions count from 1, as the listing shows them. Edits are kept in the shared settings and "
                  "announced to every process of the product.");
  command->callback([&context, request, command] {
    if (command->get_subcommands().empty()) context.exitCode = runMenu(context, *request);
  });
  const auto action = [&context, request](CLI::App* sub, const char* name) {
    sub->callback([&context, request, name] {
      request->action = name;
      context.exitCode = runMenu(context, *request);
    });
  };
  for (const auto& [name, help] :
       {std::pair{"add", "Append an item to the menu bar"}, std::pair{"remove", "Take an item out of the menu bar"}}) {
    CLI::App* sub = command->add_subcommand(name, help);
    sub->add_option("ID", request->identifier, "The item's identifier, as the listing shows it")->required();
    action(sub, name);
  }
  CLI::App* move = command->add_subcommand("move", "Move the item at FROM to TO; the items between shift over");
  move->add_option("FROM", request->from, "Its position now")->required();
  move->add_option("TO", request->to, "Its new position")->required();
  move->add_flag("--dropdown", request->dropdown, "Move a drop-down section instead of a menu-bar item");
  action(move, "move");
  for (const auto& [name, help] : {std::pair{"enable", "Show a section of the drop-down panel"},
                                   std::pair{"disable", "Hide a section of the drop-down panel"}}) {
    CLI::App* sub = command->add_subcommand(name, help);
    sub->add_option("ID", request->identifier, "The section's identifier, as the listing shows it")->required();
    action(sub, name);
  }
  action(command->add_subcommand("show", "Show the strip in the menu bar"), "show");
  action(command->add_subcommand("hide", "Hide the whole strip"), "hide");
  action(command->add_subcommand("reset", "Forget both lists, so the defaults apply again"), "reset");
}

}  // namespace

void registerMenuCommand(CLI::App& app, Context& context) {
  CLI::App* menu = app.add_subcommand("menu", "The menu-bar strips: the items in the menu bar and the drop-down sections");
  menu->require_subcommand(1);
  addStrip(*menu, context, Strip::kSensors,
           "The sensor strip: listed, or edited with add, remove, move, enable, disable, show, hide, reset");
  addStrip(*menu, context, Strip::kCPU,
           "The CPU strip: listed, or edited with add, remove, move, enable, disable, show, hide, reset");
}

}  // namespace corvane::cli
