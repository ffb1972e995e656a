// Applications on Linux. Linux has no bundles, so an application is a process recognised by its
// executable: a table maps each bundle identifier to the executable names it runs as (matched
// against the file name of /proc/<pid>/exe and against /proc/<pid>/comm, which the kernel cuts
// to 15 characters). A path opened as an application is either an executable file, or a Mac-style
// bundle folder "<Name>.app" whose executable is "Contents/MacOS/<Name>". Quitting sends
// SIGTERM, forcing SIGKILL. Processes that have ended but are not yet reaped do not count.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/running_applications.h"

namespace corvane::platform::procfs {

// How one bundle identifier shows up, and is started, on Linux.
struct AppEntry {
  std::vector<std::string> executableNames;  // the file names it runs as
  std::filesystem::path launchPath;          // what launchApplication starts; empty: not startable
};

using AppTable = std::map<std::string, AppEntry, std::less<>>;

// The product's own applications: the main application is the `corvane` program, started from
// beside the running program's executable.
AppTable defaultAppTable();

// One process as /proc shows it.
struct ProcessEntry {
  int pid = -1;
  std::string comm;            // /proc/<pid>/comm without its newline
  std::string executableName;  // file name of /proc/<pid>/exe, "" when unreadable
  bool ended = false;          // a zombie: ended, waiting for its parent
};

// The state letter of /proc/<pid>/stat ('R', 'S', 'Z', ...), or 0 when malformed. The command
// name in parentheses may itself hold spaces and parentheses.
char parseProcessState(std::string_view stat);

// The file name a /proc/<pid>/exe link points at, without the " (deleted)" the kernel adds
// when the file was replaced.
std::string executableNameOfLink(std::string_view target);

// True when `process` runs as `executableName`.
bool runsAs(const ProcessEntry& process, std::string_view executableName);

// Every process under `procRoot`.
std::vector<ProcessEntry> scanProcesses(const std::filesystem::path& procRoot);

// The executable that opening `appPath` runs, or nothing when it has none.
std::optional<std::filesystem::path> executableOfApp(const std::filesystem::path& appPath);

// The service over `procRoot` with `table`.
std::shared_ptr<RunningApplications> makeRunningApplications(std::filesystem::path procRoot, AppTable table);

}  // namespace corvane::platform::procfs
