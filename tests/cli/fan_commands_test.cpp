// The fan commands and the daemon's fan control as a user runs them: real processes on a
// simulated machine with a private session bus. The helper tool is a script that logs what it is
// asked to write and writes nothing, so every write the daemon reads back is a mismatch it must
// log. Real processes need real time: waits poll with a deadline.
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "platform/posix/system_folders.h"
#include "support/process_support.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using testing::eventually;

class FanCommandsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(bus_.running()) << "dbus-daemon did not start"; }

  std::map<std::string, std::string> environment() const {
    return {{"XDG_DATA_HOME", home_.path().string()}, {"DBUS_SESSION_BUS_ADDRESS", bus_.address()}};
  }
  testing::ProgramResult run(std::vector<std::string> args) {
    args.insert(args.end(), {"--machine", "MacBookPro14,1"});
    return testing::runProgram(CORVANE_CLI_PATH, args, {}, environment());
  }
  std::unique_ptr<testing::ChildProcess> startDaemon() {
    return std::make_unique<testing::ChildProcess>(
        CORVANE_CLI_PATH, std::vector<std::string>{"daemon", "--machine", "MacBookPro14,1"}, environment(),
        (home_.path() / "daemon.err").string());
  }
  // Installs the logging helper where fan control looks for it, owned as the permission check
  // wants; false when this account cannot give a file to root.
  bool installHelper() {
    const auto tool = home_.path() / "Corvane" / "Corvane SMC";
    testing::writeFile(tool, "#!/bin/sh\necho \"$@\" >> '" + log().string() + "'\n");
    const group* admin = ::getgrnam(platform::posix::adminGroupFromFile("/etc/group").c_str());
    return admin != nullptr && ::chown(tool.c_str(), 0, admin->gr_gid) == 0 && ::chmod(tool.c_str(), 06555) == 0;
  }
  std::filesystem::path log() const { return home_.path() / "helper.log"; }
  std::string writes() const { return testing::readFile(log()); }
  std::string daemonErrors() const { return testing::readFile(home_.path() / "daemon.err"); }
  std::string takenFans() const { return testing::readFile(home_.path() / "Corvane" / "group" / "fans-taken.json"); }

  testing::PrivateBus bus_;
  testing::TempDir home_;
};

TEST_F(FanCommandsTest, WithoutTheHelpersPermissionNothingChanges) {
  // Arguments, exit status, what standard error begins with.
  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string error;
  };
  const std::string refused = "corvane: fan control needs the helper tool " + home_.path().string() + "/Corvane/Corvane SMC";
  for (const auto& c : {
           Case{{"fans", "mode", "auto"}, 1, refused},
           Case{{"fansets", "create", "Loud", "0=3000"}, 1, refused},
           Case{{"fansets", "use", "1"}, 1, refused},
           Case{{"conditions", "add", "--fanset", "1", "--any-sensor", "--threshold", "80"}, 1, refused},
           Case{{"fans"}, 0, refused},
           Case{{"fans", "mode", "fast"}, 2, "corvane: 'fast' is not a fan control mode"},
           Case{{"conditions", "add", "--fanset", "1", "--threshold", "80"}, 2, "corvane: give either"},
           Case{{"conditions", "add", "--fanset", "1", "--any-sensor", "--threshold", "80", "--battery-state", "4"}, 2,
                "corvane: "},
       }) {
    const auto result = run(c.args);
    EXPECT_EQ(result.exitCode, c.exitCode) << c.args[1];
    EXPECT_EQ(result.err.substr(0, c.error.size()), c.error) << result.err;
  }
  EXPECT_FALSE(std::filesystem::exists(home_.path() / "Corvane" / "group" / "Database.sqlite"));
  EXPECT_EQ(run({"settings", "get", "HWFanControllerModeKey"}).out, "0 (default)\n");
}

TEST_F(FanCommandsTest, PolicyFromTheCommandLineAndFansNeverLeftForced) {
  if (!installHelper()) GTEST_SKIP() << "this account cannot install the helper as root's (run the tests as root)";
  const auto created = run({"fansets", "create", "Loud", "0=3000"});
  ASSERT_EQ(created.exitCode, 0) << created.err;
  const std::string id = created.out.substr(0, created.out.find('\n'));
  EXPECT_EQ(run({"fansets", "create", "Wrong", "7=3000"}).exitCode, 2) << "the machine has fan 0 only";

  // No daemon: the mode is applied once here.
  const auto used = run({"fansets", "use", id});
  EXPECT_EQ(used.out, "Manual fan set: Loud; applied once; auto boost needs the daemon (corvane daemon)\n");
  EXPECT_EQ(writes(), "-k F0Mn -w 2ee0\n");
  ASSERT_EQ(run({"conditions", "add", "--fanset", id, "--sensor", "TC0P", "--threshold", "40"}).exitCode, 0);
  const auto listed = nlohmann::json::parse(run({"fans", "--json"}).out);
  EXPECT_EQ(listed["fanControlMode"], "manual");
  EXPECT_EQ(listed["fans"][0]["maxValue"], 7200);

  // The daemon takes the fan, reads the write back (the logging helper wrote nothing) and hands
  // the fan back when told to leave it to the system.
  auto daemon = startDaemon();
  ASSERT_TRUE(eventually([&] { return writes() == "-k F0Mn -w 2ee0\n-k F0Mn -w 2ee0\n"; })) << writes();
  ASSERT_TRUE(eventually([&] { return daemonErrors().find("Fan 0: wrote 2ee0 to F0Mn, read back 12c0") != std::string::npos; }))
      << daemonErrors();
  EXPECT_EQ(takenFans(), "{\"fans\":{\"0\":1200}}\n");
  EXPECT_EQ(run({"fans", "mode", "system"}).out, "Fan control mode: system; the daemon applies it\n");
  ASSERT_TRUE(eventually([&] { return takenFans() == "{\"fans\":{}}\n"; })) << writes();
  EXPECT_EQ(writes().substr(writes().rfind("-k")), "-k F0Mn -w 12c0\n");

  // Killed while the fan is forced, the next daemon hands it back first; one stopped hands it back itself.
  EXPECT_EQ(run({"fans", "mode", "manual"}).exitCode, 0);
  ASSERT_TRUE(eventually([&] { return takenFans() == "{\"fans\":{\"0\":1200}}\n"; }));
  ::kill(daemon->pid(), SIGKILL);
  daemon->wait(10s);
  // With no daemon, auto boost is applied once from a reading made then (TC0P is above 40).
  const auto written = writes().size();
  const auto boosted = run({"fans", "mode", "auto"}).out;
  EXPECT_NE(boosted.find(": fan set Loud applied once; auto boost needs the daemon (corvane daemon) to keep"),
            std::string::npos) << boosted;
  EXPECT_EQ(writes().substr(written), "-k F0Mn -w 2ee0\n");
  EXPECT_EQ(takenFans(), "{\"fans\":{\"0\":1200}}\n");
  daemon = startDaemon();
  EXPECT_EQ(daemon->readLine(20s).value_or(""),
            "corvane: handed 1 fan back to the system that an earlier daemon had left forced");
  ASSERT_TRUE(eventually([&] { return takenFans() == "{\"fans\":{\"0\":1200}}\n"; })) << "auto boost: TC0P is above 40";
  ::kill(daemon->pid(), SIGTERM);
  EXPECT_EQ(daemon->wait(20s), 0);
  EXPECT_EQ(takenFans(), "{\"fans\":{}}\n");
  EXPECT_EQ(writes().substr(writes().rfind("-k")), "-k F0Mn -w 12c0\n");
}

}  // namespace
}  // namespace corvane
