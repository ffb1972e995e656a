// `corvane menu` and `corvane bar` as a user runs them, with another process of the product
// listening on a private session bus.
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/menu_data_store.h"
#include "platform/global_notifications_backends.h"
#include "support/process_support.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;

class MenuCommand : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(bus_.running()) << "dbus-daemon did not start"; }
  void TearDown() override {
    HWDataManager::setAppMode(0);
    platform::SimulatedOptions options;
    options.root = home_.path() / "after";
    options.announce = false;
    platform::install(platform::simulated(nullptr, options));  // our bus connection goes first
  }
  testing::ProgramResult corvane(std::vector<std::string> args) {
    args.insert(args.end(), {"--machine", "MacBookPro14,1"});
    return testing::runProgram(CORVANE_CLI_PATH, args, home_.path(), {{"DBUS_SESSION_BUS_ADDRESS", bus_.address()}});
  }

  testing::PrivateBus bus_;
  testing::TempDir home_;
};

TEST_F(MenuCommand, WrongInvocationsSayWhyAndExitWithTwo) {
  struct Case {
    std::vector<std::string> args;
    std::string error;  // what standard error begins with
  };
  for (const auto& c : std::vector<Case>{{{"menu"}, "corvane: "},
                                         {{"menu", "sensors", "move", "1"}, "corvane: "},
                                         {{"menu", "cpu", "add", "nope"}, "corvane: 'nope' is not an item of this strip"},
                                         {{"menu", "cpu", "move", "1", "7"}, "corvane: there is no position 7"},
                                         {{"menu", "cpu", "disable", "Fan"}, "corvane: 'Fan' is not a drop-down section"},
                                         {{"bar", "--only", "gpu"}, "corvane: "}}) {
    const auto result = corvane(c.args);
    EXPECT_EQ(result.exitCode, 2) << c.args[1];
    EXPECT_NE(result.err.find(c.error), std::string::npos) << result.err;
  }
}

TEST_F(MenuCommand, AnEditReachesAnotherProcessAndTheBarShowsIt) {
  // This process is another kind (as the menu bar is) on the children's settings, listening.
  HWDataManager::setAppMode(2);
  platform::SimulatedOptions options;
  options.root = testing::rootSharedWith(home_.path());
  options.announce = false;
  auto platform = platform::simulated(nullptr, options);
  std::string error;
  auto centre = platform::busNotifications(bus_.address(), &error);
  ASSERT_NE(centre, nullptr) << error;
  platform->provide<platform::GlobalNotifications>(centre);
  platform::install(platform);
  auto store = HWCPUMenuDataStore::create(nullptr);
  struct Delegate : HWCPUMenuDataStoreDelegate {
    void cpuMenuDataStoreActiveItemsDidChange(const std::vector<HWMenuItem>& items) override { lists.push_back(items); }
    std::vector<std::vector<HWMenuItem>> lists;
  };
  auto delegate = std::make_shared<Delegate>();
  store->addDelegate(delegate);
  const auto before = store->activeItems();  // the defaults, cached here

  ASSERT_EQ(corvane({"menu", "cpu", "add", "cpu_user_usage"}).exitCode, 0);
  ASSERT_TRUE(testing::runMainQueueUntil([&] { return !delegate->lists.empty(); }, 10s));
  ASSERT_EQ(delegate->lists.back().size(), before.size() + 1);
  EXPECT_EQ(delegate->lists.back().back().identifier(), "cpu_user_usage");

  // The sensor strip: an added sensor shows in the bar, valued as the listing values it.
  ASSERT_EQ(corvane({"menu", "sensors", "add", "TCXC"}).exitCode, 0);
  const auto listed = nlohmann::json::parse(corvane({"menu", "sensors", "--json"}).out);
  const auto& added = listed["activeItems"].back();
  ASSERT_EQ(added["identifier"], "TCXC");
  const auto bar = corvane({"bar", "--once", "--waybar", "--only", "sensors"});
  ASSERT_EQ(bar.exitCode, 0) << bar.err;
  const auto line = nlohmann::json::parse(bar.out);
  const std::string text = line["text"];
  EXPECT_EQ(text.substr(text.size() - added["value"].get<std::string>().size()), added["value"]);
  EXPECT_NE(line["tooltip"].get<std::string>().find(added["title"].get<std::string>() + ": "), std::string::npos);
}

}  // namespace
}  // namespace corvane
