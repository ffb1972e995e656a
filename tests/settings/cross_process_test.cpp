// Settings and their announcements between real processes, over a private D-Bus session bus.
#include <csignal>

#include <gtest/gtest.h>

#include "corvane/platform/global_notifications.h"
#include "corvane/platform/platform.h"
#include "corvane/settings/settings_data_store.h"
#include "platform/global_notifications_backends.h"
#include "support/process_support.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

class CrossProcess : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(bus_.running()) << "dbus-daemon did not start"; }
  void TearDown() override {
    // Our platform's connections go before the bus does.
    platform::SimulatedOptions options;
    options.root = dataHome_.path() / "after";
    options.announce = false;
    platform::install(platform::simulated(nullptr, options));
  }

  std::map<std::string, std::string> childEnvironment() const {
    return {{"XDG_DATA_HOME", dataHome_.path().string()}, {"DBUS_SESSION_BUS_ADDRESS", bus_.address()}};
  }

  // Runs `corvane` with `args` to its end (bounded) and collects its output.
  testing::ProgramResult corvane(const std::vector<std::string>& args) {
    return testing::runProgram(CORVANE_CLI_PATH, args, dataHome_.path(),
                               {{"DBUS_SESSION_BUS_ADDRESS", bus_.address()}});
  }

  // This process on the same settings file as the children, with its own connection to the bus.
  void joinTheChildren() {
    platform::SimulatedOptions options;
    options.root = testing::rootSharedWith(dataHome_.path());
    options.announce = false;
    auto platform = platform::simulated(nullptr, options);
    std::string error;
    auto centre = platform::busNotifications(bus_.address(), &error);
    ASSERT_NE(centre, nullptr) << error;
    platform->provide<platform::GlobalNotifications>(centre);
    platform::install(platform);
  }

  testing::PrivateBus bus_;
  testing::TempDir dataHome_;
};

TEST_F(CrossProcess, AWriteInOneProcessReachesTheDelegatesOfAnother) {
  joinTheChildren();
  auto store = HWSettingsDataStore::create(std::make_shared<HWPrefData>(), nullptr, [] { return "en"; });
  struct Delegate : HWSettingsDataStoreDelegate {
    void settingsDataStoreUpdateFrequencyDidChange(std::int64_t interval) override { intervals.push_back(interval); }
    std::vector<std::int64_t> intervals;
  };
  auto delegate = std::make_shared<Delegate>();
  store->addDelegate(delegate);

  const testing::ProgramResult set = corvane({"settings", "set", "HWUpdateFrequencyKey", "1"});
  ASSERT_EQ(set.exitCode, 0);
  ASSERT_TRUE(testing::runMainQueueUntil([&] { return !delegate->intervals.empty(); }, 10s));
  EXPECT_EQ(delegate->intervals, std::vector<std::int64_t>{5});
  EXPECT_EQ(store->updateFrequency(), 1u);

  // And back: this process writes, another reads the shared file.
  store->setGraphTimeRange(2);
  const testing::ProgramResult get = corvane({"settings", "get", "HWGraphTimeRangeKey"});
  EXPECT_EQ(get.exitCode, 0);
  EXPECT_EQ(get.out, "2\n");
}

TEST_F(CrossProcess, WatchPrintsEveryAnnouncementOfAnotherProcess) {
  testing::ChildProcess watch(CORVANE_CLI_PATH, {"watch"}, childEnvironment());
  ASSERT_TRUE(watch.started());

  // The watcher is ready once it echoes a probe of ours.
  std::string error;
  auto centre = platform::busNotifications(bus_.address(), &error);
  ASSERT_NE(centre, nullptr) << error;
  bool ready = false;
  for (auto deadline = std::chrono::steady_clock::now() + 20s; !ready && std::chrono::steady_clock::now() < deadline;) {
    centre->post("CorvaneTestProbe", {{"n", 1}});
    if (auto line = watch.readLine(100ms)) ready = *line == R"(CorvaneTestProbe {"n":1})";
  }
  ASSERT_TRUE(ready) << "corvane watch printed no probe";

  ASSERT_EQ(corvane({"settings", "set", "HWUpdateFrequencyKey", "1"}).exitCode, 0);
  ASSERT_EQ(corvane({"settings", "set", "HWGraphTimeRangeKey", "1"}).exitCode, 0);  // announces nothing
  ASSERT_EQ(corvane({"settings", "set", "HWFileLoggingSensorsKey", R"(["TC0P","F0Ac"])"}).exitCode, 0);

  std::vector<std::string> announced;
  while (announced.size() < 2) {
    auto line = watch.readLine(10s);
    ASSERT_TRUE(line) << "after " << announced.size() << " announcements";
    if (line->rfind("CorvaneTestProbe", 0) != 0) announced.push_back(*line);
  }
  EXPECT_EQ(
      announced,
      (std::vector<std::string>{
          R"(HWUpdateFrequencyDidChangeNotification {"HWUpdateFrequencyKey":1,"appMode":0})",
          R"(HWFileLoggingSensorKeysDidChangeNotification {"HWFileLoggingSensorsKey":["TC0P","F0Ac"],"appMode":0})"}));

  ::kill(watch.pid(), SIGINT);
  EXPECT_EQ(watch.wait(10s), 0) << "an interrupted watch ends cleanly";
}

}  // namespace
}  // namespace corvane
