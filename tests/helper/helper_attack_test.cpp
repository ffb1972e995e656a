// The helper tool installed set-user-ID root and run by an unprivileged account that tries to
// steer it: nothing outside that account's own files may be created, changed or shown.
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <sstream>

#include <gtest/gtest.h>

#include "corvane/platform/platform.h"
#include "platform/posix/process.h"
#include "platform/sim/sim_platform.h"
#include "support/test_support.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSecret = "corvane-probe-secret-5f1c9e";

// What a file or folder looks like from outside: enough to see it created, changed or removed.
std::string fingerprint(const fs::path& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return "absent";
  std::error_code error;
  std::ostringstream out;
  out << st.st_mode << ' ' << st.st_uid << ' ' << st.st_size << ' ' << fs::last_write_time(path, error).time_since_epoch().count();
  if (S_ISREG(st.st_mode)) out << ' ' << std::hash<std::string>{}(testing::readFile(path));
  if (S_ISDIR(st.st_mode)) {
    for (const auto& entry : fs::directory_iterator(path, error)) out << '\n' << entry.path() << ' ' << fingerprint(entry.path());
  }
  return out.str();
}

class HelperAttackTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to create an account and install the helper set-user-ID root";
    struct statvfs volume;
    if (::statvfs(dir_.path().c_str(), &volume) != 0 || (volume.f_flag & ST_NOSUID) != 0) {
      GTEST_SKIP() << dir_.path() << " is on a nosuid file system: set-user-ID would have no effect there";
    }
    fs::permissions(dir_.path(), fs::perms(0755));  // the account must reach the tool inside
    const fs::path home = dir_.path() / "home";
    std::string error;
    const auto made = platform::posix::runProcess("/usr/sbin/useradd", {"-M", "-d", home, "-s", "/bin/false", name_}, &error);
    const passwd* entry = made && made->exitCode == 0 ? ::getpwnam(name_.c_str()) : nullptr;
    if (entry == nullptr) GTEST_SKIP() << "cannot create an account with useradd: " << (made ? made->err : error);
    uid_ = entry->pw_uid;
    gid_ = entry->pw_gid;

    helper_ = dir_.path() / "corvane-smc";
    fs::copy_file(CORVANE_HELPER_PATH, helper_);
    ASSERT_TRUE(::chown(helper_.c_str(), 0, 0) == 0 && ::chmod(helper_.c_str(), 06555) == 0);
    // A machine the account may load, and root's files: one it may read, one it may not, a folder.
    profile_ = dir_.path() / "probe.json";
    testing::writeFile(profile_, R"({"name":"Probe","sysctl":{"hw.model":"Test1,1"},"smc":[["F0Md","ui8 ","00"],["F0Tg","flt ","00000000"]]})");
    testing::writeFile(secret_ / "state.json", std::string(R"({"keys":{"F0Tg":"11223344"}} )") + kSecret);
    testing::writeFile(secret_ / "private", kSecret);
    fs::permissions(secret_ / "private", fs::perms(0600));
    fs::create_directories(secret_ / "folder");
    fs::permissions(secret_, fs::perms(0755));

    const auto files = platform::sim::rootedFileLocations(home / ".local" / "share" / "Corvane");
    machines_ = platform::sim::stateFolder(*files);
    fs::create_directories(machines_);
    for (fs::path p = machines_; p != dir_.path(); p = p.parent_path()) own(p);
    probeState_ = platform::sim::stateFile(*files, *platform::resolveMachine(profile_.string(), nullptr), profile_);
    const std::string fallback(platform::kDefaultMachine);
    defaultState_ = platform::sim::stateFile(*files, *platform::resolveMachine(fallback, nullptr), fallback);
  }
  void TearDown() override {
    if (uid_ != 0) platform::posix::runProcess("/usr/sbin/userdel", {name_}, nullptr);
  }

  // Makes `path` (a link itself, not its target) the account's.
  void own(const fs::path& path) { ASSERT_EQ(::lchown(path.c_str(), uid_, gid_), 0) << path; }
  void plantLink(const fs::path& path, const fs::path& target) {
    fs::remove_all(path);
    fs::create_symlink(target, path);
    own(path);
  }
  void announce(const std::string& source) {
    testing::writeFile(machines_ / "current", source + "\n");
    own(machines_ / "current");
  }

  // Runs the installed tool as the account with only `environment`; its exit status and output.
  std::pair<int, std::string> runAsAccount(const std::vector<std::string>& environment) {
    const fs::path outPath = dir_.path() / "output";
    const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    std::vector<std::string> args{helper_, "-k", "F0Tg", "-w", "0000fa44"};
    std::vector<char*> argv, envp;
    for (auto& s : args) argv.push_back(s.data());
    for (const auto& s : environment) envp.push_back(const_cast<char*>(s.c_str()));
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    const pid_t pid = ::fork();
    if (pid == 0) {
      if (::setgroups(0, nullptr) != 0 || ::setgid(gid_) != 0 || ::setuid(uid_) != 0) _exit(126);
      ::dup2(out, 1);
      ::dup2(out, 2);
      ::execve(argv[0], argv.data(), envp.data());
      _exit(127);
    }
    ::close(out);
    int status = 0;
    const bool ended = pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status);
    return {ended ? WEXITSTATUS(status) : -1, testing::readFile(outPath)};
  }

  testing::TempDir dir_;
  const std::string name_ = "cvprobe" + std::to_string(::getpid());
  uid_t uid_ = 0;
  gid_t gid_ = 0;
  const fs::path secret_ = dir_.path() / "secret";
  fs::path helper_, profile_, machines_, probeState_, defaultState_;
};

TEST_F(HelperAttackTest, TouchesNothingButTheCallersOwnFiles) {
  struct Attack {
    const char* name;
    std::function<void()> plant;
    fs::path written;  // the account's file the write lands in; empty when the write is refused
  };
  const Attack attacks[] = {
      {"hostile environment only", [&] { announce(profile_); }, probeState_},
      {"state file is a link to a file of root's",
       [&] { announce(profile_); plantLink(probeState_, secret_ / "state.json"); }, probeState_},
      {"lock file is a link into a folder of root's",
       [&] { announce(profile_); plantLink(probeState_.string() + ".lock", secret_ / "folder" / "made"); }, {}},
      {"machine path is /etc/shadow", [&] { announce("/etc/shadow"); }, {}},
      {"announcement is a link to a file only root may read",
       [&] { plantLink(machines_ / "current", secret_ / "private"); }, defaultState_},
      {"state folder is a link to a folder of root's", [&] { plantLink(machines_, secret_ / "folder"); }, {}},
  };
  const std::vector<std::string> hostile{"HOME=/root", "XDG_DATA_HOME=/etc", "XDG_CONFIG_HOME=/etc",
                                         "LC_ALL=xx_XX.UTF-8", "TZ=/etc/shadow", "ICU_DATA=/etc",
                                         "DBUS_SESSION_BUS_ADDRESS=unix:path=/root/bus"};
  // Where the environment points, and root's files the attacks aim at.
  const std::vector<fs::path> watched{"/etc/Corvane", "/root/.local/share/Corvane/group/simulated-machines", secret_};
  std::vector<std::string> shadow;
  std::istringstream lines(testing::readFile("/etc/shadow"));
  for (std::string line; std::getline(lines, line);) shadow.push_back(line);

  for (const Attack& attack : attacks) {
    SCOPED_TRACE(attack.name);
    fs::remove_all(machines_);
    fs::create_directories(machines_);
    own(machines_);
    attack.plant();
    std::vector<std::string> before;
    for (const auto& path : watched) before.push_back(fingerprint(path));

    const auto [exitCode, output] = runAsAccount(hostile);

    for (std::size_t i = 0; i < watched.size(); ++i) EXPECT_EQ(fingerprint(watched[i]), before[i]) << watched[i];
    EXPECT_EQ(output.find(kSecret), std::string::npos) << output;
    for (const auto& line : shadow) EXPECT_TRUE(line.size() < 8 || output.find(line) == std::string::npos) << output;
    // The tool's one message, and at most the library's fixed line about a missing SMC.
    EXPECT_LE(std::count(output.begin(), output.end(), '\n'), 2) << output;
    EXPECT_EQ(exitCode == 0, !attack.written.empty()) << output;
    if (attack.written.empty()) continue;
    // The write lands in the home of the account entry, as the account: the environment's folders
    // were ignored and the raised rights given up.
    struct stat st;
    ASSERT_EQ(::lstat(attack.written.c_str(), &st), 0);
    EXPECT_TRUE(S_ISREG(st.st_mode) && st.st_uid == uid_);
    EXPECT_NE(testing::readFile(attack.written).find("0000fa44"), std::string::npos);
  }
}

}  // namespace
}  // namespace corvane
