// `corvane daemon` as a user runs it: a real process on a simulated machine, with readers in other
// processes and a private session bus. Real processes need real time: every wait polls with a
// deadline, at the smallest update interval (2 s).
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/process_support.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using testing::eventually;
using ::testing::MatchesRegex;

constexpr const char* kSaved = "HWSensorDataStoreDataDidWriteNotification";

class DaemonTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(bus_.running()) << "dbus-daemon did not start"; }

  std::unique_ptr<testing::ChildProcess> start(const std::string& program, std::vector<std::string> args,
                                               const std::string& errFile = {}) {
    args.insert(args.end(), {"--machine", "MacBookPro16,1"});
    return std::make_unique<testing::ChildProcess>(
        program, args,
        std::map<std::string, std::string>{{"XDG_DATA_HOME", home_.path().string()},
                                           {"DBUS_SESSION_BUS_ADDRESS", bus_.address()}},
        errFile);
  }
  // A daemon that has built its store and started its monitor.
  std::unique_ptr<testing::ChildProcess> startDaemon(const std::string& errFile = {}) {
    auto daemon = start(CORVANE_CLI_PATH, {"daemon"}, errFile);
    const auto line = daemon->readLine(20s);
    EXPECT_THAT(line.value_or(""), MatchesRegex("corvane: daemon " + std::to_string(daemon->pid()) +
                                                " writing .*/Corvane/group/Database.sqlite every 2 s"));
    return daemon;
  }
  // What a reading process sees: `db show --json`, or null when it fails.
  nlohmann::json show() {
    auto shown = testing::runProgram(CORVANE_CLI_PATH, {"db", "show", "--json", "--machine", "MacBookPro16,1"},
                                     home_.path(), {{"DBUS_SESSION_BUS_ADDRESS", bus_.address()}});
    return shown.exitCode == 0 ? nlohmann::json::parse(shown.out, nullptr, false) : nlohmann::json();
  }
  // Hour points of the first temperature sensor (-1 without a store).
  long hourPoints() {
    const auto store = show();
    return store.is_object() ? store["categories"][0]["sensors"][0]["graphPoints"]["hour"].get<long>() : -1;
  }
  std::filesystem::path file(const char* name) const { return home_.path() / "Corvane" / "group" / name; }

  testing::PrivateBus bus_;
  testing::TempDir home_;
  testing::TempDir logs_;
};

TEST_F(DaemonTest, WritesForReadersRefusesASecondSurvivesKillsAndADeletedStore) {
  auto watch = start(CORVANE_CLI_PATH, {"watch"});
  const auto quiet = (logs_.path() / "first").string();
  auto first = startDaemon(quiet);
  const auto refused = testing::runProgram(CORVANE_CLI_PATH, {"daemon", "--machine", "MacBookPro16,1"}, home_.path());
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.err, "corvane: a daemon is already running (pid " + std::to_string(first->pid()) + ")\n");
  EXPECT_THAT(watch->readLine(10s).value_or(""), ::testing::StartsWith(kSaved));
  ASSERT_TRUE(eventually([&] { return hourPoints() >= 1; }, 30s)) << "no graph point reached a reader";

  // Stopped by SIGTERM: every reading it counted is in the file (one hour point per five).
  ::kill(first->pid(), SIGTERM);
  EXPECT_EQ(first->wait(10s), 0);
  long readings = 0;
  ASSERT_EQ(std::sscanf(first->readLine(1s).value_or("").c_str(), "corvane: daemon stopped after %ld readings",
                        &readings), 1);
  const long points = readings / 5;
  EXPECT_EQ(testing::readFile(quiet), "");
  // ... and a reader leaves the file as it found it.
  const std::string before = testing::readFile(file("Database.sqlite"));
  EXPECT_EQ(hourPoints(), points);
  EXPECT_EQ(testing::readFile(file("Database.sqlite")), before);

  // Killed outright after a save of its own: the history is whole and the file opens.
  while (watch->readLine(100ms)) {
  }
  auto killed = startDaemon();
  EXPECT_THAT(watch->readLine(10s).value_or(""), ::testing::StartsWith(kSaved));
  ::kill(killed->pid(), SIGKILL);
  killed->wait(10s);
  EXPECT_GE(hourPoints(), points);

  // The store deleted under a running daemon: one line, a fresh store (a new first fan set), still running.
  const auto errors = (logs_.path() / "deleted").string();
  auto last = startDaemon(errors);
  const double created = show()["fanSets"][0]["created"].get<double>();
  std::filesystem::remove(file("Database.sqlite"));
  EXPECT_TRUE(eventually(
      [&] {
        const auto store = show();
        return store.is_object() && !store["fanSets"].empty() && store["fanSets"][0]["created"] != created;
      },
      15s));
  EXPECT_EQ(last->wait(0ms), std::nullopt);
  ::kill(last->pid(), SIGTERM);
  EXPECT_EQ(last->wait(10s), 0);
  const std::string logged = testing::readFile(errors);
  EXPECT_THAT(logged, ::testing::StartsWith("corvane: the store " + file("Database.sqlite").string() + " was removed"));
  EXPECT_EQ(std::count(logged.begin(), logged.end(), '\n'), 1) << logged;
}

}  // namespace
}  // namespace corvane
