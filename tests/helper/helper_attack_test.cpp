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
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/platform/platform.h"
#include "platform/posix/process.h"
#include "platform/sim/sim_platform.h"
#include "support/test_support.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSecret = "corvane-probe-secret-5f1c9e";

constexpr const char* kMachine = R"({"name":"Probe","sysctl":{"hw.model":"Test1,1"},"smc":[
  ["#KEY","ui32","00000002"],["F0Md","ui8 ","00"],["F0Tg","flt ","00000000"]]})";

// What a file or folder looks like from outside: enough to see it created, changed or removed.
std::string fingerprint(const fs::path& path) {
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return "absent";
#ifdef __APPLE__
  const auto& mtime = st.st_mtimespec;
#else
  const auto& mtime = st.st_mtim;
#endif
  std::ostringstream out;
  out << st.st_mode << ' ' << st.st_uid << ' ' << st.st_size << ' ' << mtime.tv_sec << '.' << mtime.tv_nsec;
  if (S_ISREG(st.st_mode)) out << ' ' << std::hash<std::string>{}(testing::readFile(path));
  if (S_ISDIR(st.st_mode)) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(path, error)) out << '\n' << entry.path() << ' ' << fingerprint(entry.path());
  }
  return out.str();
}

// An account made for the test and removed after it.
class ProbeAccount {
 public:
  ProbeAccount(std::string name, const fs::path& home) : name_(std::move(name)) {
    std::string error;
    const auto made = platform::posix::runProcess(
        "/usr/sbin/useradd", {"-M", "-d", home.string(), "-s", "/usr/sbin/nologin", name_}, &error);
    const passwd* entry = made && made->exitCode == 0 ? ::getpwnam(name_.c_str()) : nullptr;
    if (entry == nullptr) {
      why_ = made ? made->err : error;
      return;
    }
    uid_ = entry->pw_uid;
    gid_ = entry->pw_gid;
  }
  ~ProbeAccount() {
    if (uid_ != 0) platform::posix::runProcess("/usr/sbin/userdel", {name_}, nullptr);
  }
  bool made() const { return uid_ != 0; }
  const std::string& why() const { return why_; }
  uid_t uid() const { return uid_; }
  gid_t gid() const { return gid_; }

 private:
  std::string name_;
  std::string why_;
  uid_t uid_ = 0;
  gid_t gid_ = 0;
};

struct AccountRun {
  int exitCode = -1;
  std::string output;  // standard output and error together
};

class HelperAttackTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to create an account and install the helper set-user-ID root";
    if (::access("/usr/sbin/useradd", X_OK) != 0) GTEST_SKIP() << "no /usr/sbin/useradd to create an account with";
    struct statvfs volume;
    if (::statvfs(dir_.path().c_str(), &volume) != 0 || (volume.f_flag & ST_NOSUID) != 0) {
      GTEST_SKIP() << dir_.path() << " is on a nosuid file system: set-user-ID would have no effect there";
    }
    fs::permissions(dir_.path(), fs::perms(0755));  // the account must reach the tool inside
    home_ = dir_.path() / "home";
    account_ = std::make_unique<ProbeAccount>("cvprobe" + std::to_string(::getpid()), home_);
    if (!account_->made()) GTEST_SKIP() << "cannot create an account: " << account_->why();

    helper_ = dir_.path() / "bin" / "corvane-smc";
    fs::create_directories(helper_.parent_path());
    fs::copy_file(CORVANE_HELPER_PATH, helper_);
    ASSERT_EQ(::chown(helper_.c_str(), 0, 0), 0);
    ASSERT_EQ(::chmod(helper_.c_str(), 06555), 0);

    profile_ = dir_.path() / "machines" / "probe.json";
    testing::writeFile(profile_, kMachine);
    // Root's own files, which the account may read (state) or not (private), and a root folder.
    secret_ = dir_.path() / "secret";
    testing::writeFile(secret_ / "state.json", std::string(R"({"keys":{"F0Tg":"11223344"}} )") + kSecret);
    testing::writeFile(secret_ / "private", kSecret);
    fs::permissions(secret_ / "private", fs::perms(0600));
    fs::create_directories(secret_ / "folder");
    fs::permissions(dir_.path() / "machines", fs::perms(0755));
    fs::permissions(secret_, fs::perms(0755));

    // The account's home, as its own.
    group_ = home_ / ".local" / "share" / "Corvane" / "group";
    fs::create_directories(group_ / "simulated-machines");
    for (fs::path p = group_ / "simulated-machines"; p != dir_.path(); p = p.parent_path()) own(p);
    auto profile = platform::resolveMachine(profile_.string(), nullptr);
    ASSERT_NE(profile, nullptr);
    const auto files = platform::sim::rootedFileLocations(home_ / ".local" / "share" / "Corvane");
    stateFile_ = platform::sim::stateFile(*files, *profile, profile_.string());
  }

  // Makes `path` (a link itself, not its target) the account's.
  void own(const fs::path& path) { ASSERT_EQ(::lchown(path.c_str(), account_->uid(), account_->gid()), 0) << path; }
  void plantFile(const fs::path& path, const std::string& text) {
    testing::writeFile(path, text);
    own(path);
  }
  void plantLink(const fs::path& path, const fs::path& target) {
    fs::remove_all(path);
    fs::create_symlink(target, path);
    own(path);
  }
  void announce(const std::string& source) { plantFile(group_ / "simulated-machines" / "current", source + "\n"); }

  // Runs the installed tool as the account, with only `environment` and its standard streams
  // captured by files root opened for it.
  AccountRun runAsAccount(const std::vector<std::string>& args, const std::map<std::string, std::string>& environment) {
    const fs::path outPath = dir_.path() / "output";
    const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    std::vector<std::string> strings{helper_.string()};
    strings.insert(strings.end(), args.begin(), args.end());
    std::vector<std::string> envStrings;
    for (const auto& [name, value] : environment) envStrings.push_back(name + "=" + value);
    std::vector<char*> argv, envp;
    for (auto& s : strings) argv.push_back(s.data());
    for (auto& s : envStrings) envp.push_back(s.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    const uid_t uid = account_->uid();
    const gid_t gid = account_->gid();
    const char* cwd = dir_.path().c_str();
    const pid_t pid = ::fork();
    if (pid == 0) {
      if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0 || ::chdir(cwd) != 0) _exit(126);
      ::dup2(out, 1);
      ::dup2(out, 2);
      ::execve(argv[0], argv.data(), envp.data());
      _exit(127);
    }
    ::close(out);
    int status = 0;
    AccountRun run;
    if (pid > 0 && ::waitpid(pid, &status, 0) == pid && WIFEXITED(status)) run.exitCode = WEXITSTATUS(status);
    run.output = testing::readFile(outPath);
    return run;
  }

  testing::TempDir dir_;
  fs::path home_, helper_, profile_, secret_, group_, stateFile_;
  std::unique_ptr<ProbeAccount> account_;
};

TEST_F(HelperAttackTest, TouchesNothingButTheCallersOwnFiles) {
  struct Attack {
    const char* name;
    std::function<void()> plant;
    bool writes;  // whether the write is still made (into the account's own file)
  };
  const fs::path stateFile = stateFile_;
  const fs::path machines = group_ / "simulated-machines";
  const Attack attacks[] = {
      {"hostile environment only", [&] { announce(profile_.string()); }, true},
      {"state file is a link to a file of root's",
       [&] {
         announce(profile_.string());
         plantLink(stateFile, secret_ / "state.json");
       },
       true},
      {"lock file is a link into a folder of root's",
       [&] {
         announce(profile_.string());
         plantLink(stateFile.string() + ".lock", secret_ / "folder" / "made-by-helper");
       },
       false},
      {"machine path is /etc/shadow", [&] { announce("/etc/shadow"); }, false},
      {"announcement is a link to a file only root may read",
       [&] { plantLink(machines / "current", secret_ / "private"); }, true},
      {"state folder is a link to a folder of root's",
       [&] {
         fs::remove_all(machines);
         plantLink(machines, secret_ / "folder");
       },
       false},
  };
  const std::map<std::string, std::string> hostile{
      {"HOME", "/root"},          {"XDG_DATA_HOME", "/etc"},         {"XDG_CONFIG_HOME", "/etc"},
      {"LC_ALL", "xx_XX.UTF-8"},  {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/root/bus"},
      {"TZ", "/etc/shadow"},      {"ICU_DATA", "/etc"}};
  // Watched from outside: where the environment points, and root's files the attacks aim at.
  const std::vector<fs::path> watched{"/etc/Corvane", "/root/.local/share/Corvane/group/simulated-machines", secret_};
  const std::string shadow = testing::readFile("/etc/shadow");

  for (const Attack& attack : attacks) {
    SCOPED_TRACE(attack.name);
    fs::remove_all(machines);
    fs::create_directories(machines);
    own(machines);
    attack.plant();
    std::vector<std::string> before;
    for (const auto& path : watched) before.push_back(fingerprint(path));

    const AccountRun run = runAsAccount({"-k", "F0Tg", "-w", "0000fa44"}, hostile);

    for (std::size_t i = 0; i < watched.size(); ++i) {
      EXPECT_EQ(fingerprint(watched[i]), before[i]) << watched[i];
    }
    EXPECT_EQ(run.output.find(kSecret), std::string::npos) << run.output;
    std::istringstream lines(shadow);
    for (std::string line; std::getline(lines, line);) {
      if (line.size() >= 8) {
        EXPECT_EQ(run.output.find(line), std::string::npos) << "a line of /etc/shadow shown";
      }
    }
    // The tool's one message, and at most the library's fixed line about a missing SMC.
    EXPECT_LE(std::count(run.output.begin(), run.output.end(), '\n'), 2) << run.output;
    if (attack.writes) {
      EXPECT_EQ(run.exitCode, 0) << run.output;
    } else {
      EXPECT_NE(run.exitCode, 0) << run.output;
    }
    // A write lands in the account's own home, as the account: the raised rights were given up
    // and the environment's folders ignored.
    struct stat st;
    if (attack.writes && ::lstat(stateFile.c_str(), &st) == 0) {
      EXPECT_TRUE(S_ISREG(st.st_mode));
      EXPECT_EQ(st.st_uid, account_->uid());
      EXPECT_NE(testing::readFile(stateFile).find("0000fa44"), std::string::npos);
    } else if (attack.writes) {
      // The announcement was not followed: the write went to the default machine's file instead.
      bool wroteSomewhere = false;
      for (const auto& entry : fs::directory_iterator(machines)) {
        if (entry.path().extension() == ".json" && ::lstat(entry.path().c_str(), &st) == 0 &&
            st.st_uid == account_->uid()) {
          wroteSomewhere = true;
        }
      }
      EXPECT_TRUE(wroteSomewhere);
    }
  }
}

}  // namespace
}  // namespace corvane
