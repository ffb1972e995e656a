#include "platform/linux/running_applications_linux.h"

#include <signal.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <thread>

#include "corvane/platform/text.h"
#include "platform/posix/file_lock.h"
#include "platform/posix/process.h"
#include "platform/running_applications_backends.h"

namespace corvane::platform {
namespace procfs {
namespace {

// The kernel keeps this many characters of a command name.
constexpr std::size_t kCommLength = 15;

std::optional<int> parsePid(std::string_view text) {
  int pid = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), pid);
  if (ec != std::errc() || end != text.data() + text.size() || pid <= 0) return std::nullopt;
  return pid;
}

bool isExecutableFile(const std::filesystem::path& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(path, ec) && ::access(path.c_str(), X_OK) == 0;
}

class ProcRunningApplications final : public RunningApplications {
 public:
  ProcRunningApplications(std::filesystem::path procRoot, AppTable table)
      : procRoot_(std::move(procRoot)), table_(std::move(table)) {}

  std::vector<RunningApplication> runningApplications(std::string_view bundleIdentifier) const override {
    std::vector<RunningApplication> found;
    auto entry = table_.find(bundleIdentifier);
    if (entry == table_.end()) return found;
    for (const ProcessEntry& process : scanProcesses(procRoot_)) {
      if (process.ended) continue;
      for (const std::string& name : entry->second.executableNames) {
        if (runsAs(process, name)) {
          found.push_back({process.pid, std::string(bundleIdentifier)});
          break;
        }
      }
    }
    return found;
  }

  void launchApplication(std::string_view bundleIdentifier) override {
    auto entry = table_.find(bundleIdentifier);
    if (entry == table_.end() || entry->second.launchPath.empty()) return;
    if (auto executable = executableOfApp(entry->second.launchPath)) {
      posix::launchDetached(executable->string(), {}, nullptr);
    }
  }

  void openApplication(const std::filesystem::path& appPath, OpenCompletion completion) override {
    std::optional<std::string> error;
    if (auto executable = executableOfApp(appPath)) {
      std::string reason;
      const pid_t pid = posix::launchDetached(executable->string(), {}, &reason);
      if (pid < 0) {
        error = std::move(reason);
      } else {
        awaitOwnName(pid, executable->filename().string());
      }
    } else {
      error = "no application at " + appPath.string();
    }
    if (completion) completion(std::move(error));
  }

  bool terminate(const RunningApplication& application, bool force) override {
    if (application.processIdentifier <= 0) return false;
    return ::kill(application.processIdentifier, force ? SIGKILL : SIGTERM) == 0;
  }

 private:
  // The kernel lets the launcher go on before the new program has its name: for a moment the
  // child still carries ours. Waiting for it here makes a check from the completion see the
  // application running. Bounded, for a program that ends or renames itself at once.
  void awaitOwnName(pid_t pid, const std::string& executableName) const {
    const std::string expected = executableName.substr(0, kCommLength);
    const auto folder = procRoot_ / std::to_string(pid);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    while (std::chrono::steady_clock::now() < deadline) {
      auto comm = posix::readWholeFile(folder / "comm");
      if (!comm) return;  // already gone
      while (!comm->empty() && comm->back() == '\n') comm->pop_back();
      if (*comm == expected) return;
      auto stat = posix::readWholeFile(folder / "stat");
      if (!stat || parseProcessState(*stat) == 'Z') return;
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

  std::filesystem::path procRoot_;
  AppTable table_;
};

}  // namespace

AppTable defaultAppTable() {
  AppTable table;
  std::error_code ec;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
  AppEntry main{{"corvane"}, {}};
  if (!ec) main.launchPath = self.parent_path() / "corvane";
  table.emplace(std::string(kMainAppBundleIdentifier), std::move(main));
  return table;
}

char parseProcessState(std::string_view stat) {
  const auto close = stat.rfind(')');
  if (close == std::string_view::npos || close + 2 >= stat.size() || stat[close + 1] != ' ') return 0;
  return stat[close + 2];
}

std::string executableNameOfLink(std::string_view target) {
  constexpr std::string_view kDeleted = " (deleted)";
  if (target.ends_with(kDeleted)) target.remove_suffix(kDeleted.size());
  return std::filesystem::path(target).filename().string();
}

bool runsAs(const ProcessEntry& process, std::string_view executableName) {
  if (executableName.empty()) return false;
  // The command name also catches scripts (whose executable is their interpreter) and other
  // users' processes (whose executable link cannot be read); the kernel cuts it short.
  return process.executableName == executableName || process.comm == executableName.substr(0, kCommLength);
}

std::vector<ProcessEntry> scanProcesses(const std::filesystem::path& procRoot) {
  std::vector<ProcessEntry> processes;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(procRoot, ec), end; !ec && it != end; it.increment(ec)) {
    const auto pid = parsePid(it->path().filename().string());
    if (!pid) continue;
    ProcessEntry process;
    process.pid = *pid;
    // A process may end while it is looked at; whatever is gone is left empty.
    if (auto comm = posix::readWholeFile(it->path() / "comm")) {
      // Any process names itself as it likes, bytes that are no text included.
      process.comm = text::cleaned(*comm);
    }
    std::error_code linkError;
    const auto target = std::filesystem::read_symlink(it->path() / "exe", linkError);
    if (!linkError) process.executableName = text::cleaned(executableNameOfLink(target.string()));
    if (auto stat = posix::readWholeFile(it->path() / "stat")) {
      process.ended = parseProcessState(*stat) == 'Z';
    } else {
      continue;  // gone
    }
    processes.push_back(std::move(process));
  }
  return processes;
}

std::optional<std::filesystem::path> executableOfApp(const std::filesystem::path& appPath) {
  std::error_code ec;
  if (appPath.extension() == ".app" && std::filesystem::is_directory(appPath, ec)) {
    const auto inside = appPath / "Contents" / "MacOS" / appPath.stem();
    if (isExecutableFile(inside)) return inside;
    return std::nullopt;
  }
  if (isExecutableFile(appPath)) return appPath;
  return std::nullopt;
}

std::shared_ptr<RunningApplications> makeRunningApplications(std::filesystem::path procRoot, AppTable table) {
  return std::make_shared<ProcRunningApplications>(std::move(procRoot), std::move(table));
}

}  // namespace procfs

std::shared_ptr<RunningApplications> nativeRunningApplications() {
  return procfs::makeRunningApplications("/proc", procfs::defaultAppTable());
}

}  // namespace corvane::platform
