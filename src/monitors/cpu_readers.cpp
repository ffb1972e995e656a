#include "corvane/monitors/cpu_readers.h"

#include <algorithm>
#include <charconv>
#include <memory>
#include <string_view>
#include <fstream>
#include <iterator>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "corvane/dispatch/dispatch.h"

#include "corvane/platform/platform.h"
#include "corvane/platform/processes.h"

namespace corvane {

namespace cpu_sources {
namespace {

std::optional<std::string> fileText(const std::filesystem::path& path) {
  std::ifstream file(path);
  if (!file) return std::nullopt;
  return std::string{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

std::optional<HWLoadAverages> hostLoadAverages(const std::filesystem::path& procRoot) {
#ifdef __APPLE__
  (void)procRoot;
  auto result = platform::current().service<platform::Processes>().run("/usr/bin/uptime", {}, nullptr);
  if (!result || result->exitCode != 0) return std::nullopt;
  return cpu_text::loadAveragesFromUptime(result->out);
#else
  // Linux's uptime prints the averages in the user's locale; the kernel's file never varies.
  const auto text = fileText(procRoot / "loadavg");
  if (!text) return std::nullopt;
  return cpu_text::loadAveragesFromProcLoadavg(*text);
#endif
}

std::optional<std::vector<HWCPUProcess>> psProcesses(std::int64_t count) {
  if (count <= 0) return std::vector<HWCPUProcess>();
#ifdef __APPLE__
  // -c: the command's name rather than its whole argument list; -r: busiest first.
  auto result = platform::current().service<platform::Processes>().run("/bin/ps", {"-Aceo", "pid,pcpu,comm", "-r"},
                                                                      nullptr);
#else
  auto result = platform::current().service<platform::Processes>().run(
      "/bin/ps", {"-eo", "pid,pcpu,comm", "--sort=-pcpu"}, nullptr);
#endif
  if (!result || result->exitCode != 0) return std::nullopt;
  return cpu_text::processesFromList(result->out, count);
}

ProcProcessList::ProcProcessList(std::filesystem::path procRoot, double ticksPerSecond)
    : procRoot_(std::move(procRoot)), ticksPerSecond_(ticksPerSecond) {
  if (ticksPerSecond_ <= 0) {
    const long ticks = ::sysconf(_SC_CLK_TCK);
    ticksPerSecond_ = ticks > 0 ? static_cast<double>(ticks) : 100.0;
  }
}

std::optional<std::vector<HWCPUProcess>> ProcProcessList::busiest(std::int64_t count) {
  std::lock_guard guard(lock_);
  // Plain directory and file calls: this runs at every update interval over every process, and
  // stream and path objects cost more than the kernel's work here.
  std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(procRoot_.c_str()), ::closedir);
  if (!folder) return std::nullopt;
  const double now = dispatch::now();
  const double elapsed = previousTime_ >= 0 ? now - previousTime_ : 0;
  const auto uptime = cpu_text::uptimeSeconds(fileText(procRoot_ / "uptime").value_or(""));
  std::unordered_map<std::int64_t, Seen> seen;
  seen.reserve(previous_.size());
  std::vector<HWCPUProcess> processes;
  std::string path = procRoot_.string() + "/";
  const std::size_t folderLength = path.size();
  char buffer[1024];
  // The file `leaf` of process `name`, into `buffer`; empty when it cannot be read (the process
  // may have ended since the listing: it is simply left out).
  const auto readLeaf = [&](std::string_view name, const char* leaf) -> std::string_view {
    path.resize(folderLength);
    path.append(name).append("/").append(leaf);
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return {};
    const ssize_t length = ::read(file, buffer, sizeof buffer);
    ::close(file);
    return length > 0 ? std::string_view(buffer, static_cast<std::size_t>(length)) : std::string_view();
  };
  // Nanoseconds on a processor from "schedstat", which the kernel writes for less than "stat".
  const auto runNanos = [&](std::string_view name) -> std::optional<std::uint64_t> {
    const auto text = readLeaf(name, "schedstat");
    std::uint64_t nanos = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), nanos);
    if (error != std::errc() || end == text.data()) return std::nullopt;
    return nanos;
  };
  std::vector<bool> measuredFast;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (name.empty() || name.find_first_not_of("0123456789") != std::string_view::npos) continue;
    std::int64_t pid = 0;
    std::from_chars(name.data(), name.data() + name.size(), pid);
    const auto before = previous_.find(pid);
    // A process seen before needs only its run time; its command and start are known.
    if (before != previous_.end() && before->second.runNanos && elapsed > 0) {
      const auto nanos = runNanos(name);
      if (nanos && *nanos >= *before->second.runNanos) {
        const double usage = static_cast<double>(*nanos - *before->second.runNanos) / 1e9 / elapsed * 100.0;
        seen[pid] = {before->second.cpuTicks, before->second.startTicks, nanos, before->second.command};
        processes.push_back({pid, before->second.command, std::nullopt, usage});
        measuredFast.push_back(true);
        continue;
      }
    }
    const auto stat = cpu_text::procStat(readLeaf(name, "stat"));
    if (!stat) continue;
    double usage = 0;
    // A pid reused by a new process has another start time: its ticks are not comparable.
    if (before != previous_.end() && before->second.startTicks == stat->startTicks && elapsed > 0) {
      const double ticks = stat->cpuTicks >= before->second.cpuTicks
                               ? static_cast<double>(stat->cpuTicks - before->second.cpuTicks) : 0.0;
      usage = ticks / ticksPerSecond_ / elapsed * 100.0;
    } else if (uptime) {
      const double age = *uptime - static_cast<double>(stat->startTicks) / ticksPerSecond_;
      if (age > 0) usage = static_cast<double>(stat->cpuTicks) / ticksPerSecond_ / age * 100.0;
    }
    seen[stat->pid] = {stat->cpuTicks, stat->startTicks, runNanos(name), stat->command};
    processes.push_back({stat->pid, stat->command, std::nullopt, usage});
    measuredFast.push_back(false);
  }
  // The ones shown are checked against "stat" all the same: a process may have run another
  // program (a new command) or ended, its pid going to a new one (another start time).
  std::vector<std::size_t> order(processes.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  const auto busierAt = [&](std::size_t a, std::size_t b) {
    return processes[a].usage != processes[b].usage ? processes[a].usage > processes[b].usage
                                                    : processes[a].pid < processes[b].pid;
  };
  const auto shown = std::min<std::size_t>(order.size(), static_cast<std::size_t>(std::max<std::int64_t>(0, count)));
  std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(shown), order.end(), busierAt);
  for (std::size_t k = 0; k < shown; ++k) {
    auto& process = processes[order[k]];
    if (!measuredFast[order[k]]) continue;
    const auto stat = cpu_text::procStat(readLeaf(std::to_string(process.pid), "stat"));
    Seen& known = seen[process.pid];
    if (!stat || stat->startTicks != known.startTicks) {
      process.usage = 0;  // measured against another process: nothing sure to show this time
      known.runNanos.reset();
      continue;
    }
    process.command = stat->command;
    known.command = stat->command;
  }
  previous_ = std::move(seen);
  previousTime_ = now;
  // A process whose usage was cleared above may now sit lower: the list is sorted again.
  const auto busier = [](const HWCPUProcess& a, const HWCPUProcess& b) {
    return a.usage != b.usage ? a.usage > b.usage : a.pid < b.pid;
  };
  std::vector<HWCPUProcess> result;
  result.reserve(shown);
  for (std::size_t k = 0; k < shown; ++k) result.push_back(std::move(processes[order[k]]));
  std::stable_sort(result.begin(), result.end(), busier);
  return result;
}

std::function<std::optional<std::vector<HWCPUProcess>>(std::int64_t count)> hostProcesses() {
#ifdef __APPLE__
  return psProcesses;
#else
  return [list = std::make_shared<ProcProcessList>()](std::int64_t count) { return list->busiest(count); };
#endif
}

}  // namespace cpu_sources

HWCPUAverageReader::HWCPUAverageReader(Source source) : source_(std::move(source)) {
  // A recorded machine has no running system to average or list, and the host's figures must
  // not pass for its own.
  if (!source_) {
    source_ = []() -> std::optional<HWLoadAverages> {
      if (platform::current().simulated()) return std::nullopt;
      return cpu_sources::hostLoadAverages();
    };
  }
}

void HWCPUAverageReader::read() {
  if (auto averages = source_()) deliverResult(*averages);
}

HWCPUProcessReader::HWCPUProcessReader(Source source) : source_(std::move(source)) {
  if (!source_) {
    source_ = [host = cpu_sources::hostProcesses()](std::int64_t count) -> std::optional<std::vector<HWCPUProcess>> {
      if (platform::current().simulated()) return std::nullopt;
      return host(count);
    };
  }
}

void HWCPUProcessReader::read() {
  const std::int64_t count = numberOfProcesses();
  if (count <= 0) return;
  auto list = source_(count);
  if (!list) return;
  // A source may give more than asked; the delivered list never is longer than the count.
  if (static_cast<std::int64_t>(list->size()) > count) list->resize(static_cast<std::size_t>(count));
  deliverResult(*list);
}

}  // namespace corvane
