// The two slower CPU readers: the system's load averages and its busiest processes.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "corvane/monitors/base_reader.h"
#include "corvane/monitors/cpu_output_parsers.h"

namespace corvane {

// The 1-, 5- and 15-minute load averages, in that order.
using HWLoadAverages = std::array<double, 3>;

namespace cpu_sources {

// This machine's load averages: /proc/loadavg under `procRoot` on Linux, uptime's last line on a
// Mac; nothing when they cannot be read.
std::optional<HWLoadAverages> hostLoadAverages(const std::filesystem::path& procRoot = "/proc");

// The first `count` processes of the list ps prints, busiest first; nothing when ps cannot be
// run. Blocks while ps runs; runs nothing for a count not above 0. What a Mac uses.
std::optional<std::vector<HWCPUProcess>> psProcesses(std::int64_t count);

// The busiest processes of a Linux system, from <procRoot>/<pid>/stat: a process's usage is its
// processor time since the previous call over the time between the two calls (dispatch::now),
// in percent of one core; on the first call, and for a process new since, over its whole life
// (from <procRoot>/uptime), as ps shows it. A process seen before is measured from its
// "schedstat" alone, the cheaper file; the ones listed are checked against "stat" for their
// command and start. Reading the files costs a fraction of a ps run, which matters at every
// update interval. Thread-safe.
class ProcProcessList {
 public:
  explicit ProcProcessList(std::filesystem::path procRoot = "/proc", double ticksPerSecond = 0);
  // The first `count` processes, busiest first (the lower pid first on a tie); nothing when the
  // folder cannot be listed. A count of 0 takes the look all the same, so that the next call
  // measures from here.
  std::optional<std::vector<HWCPUProcess>> busiest(std::int64_t count);

 private:
  struct Seen {
    std::uint64_t cpuTicks = 0;
    std::uint64_t startTicks = 0;
    std::optional<std::uint64_t> runNanos;  // from "schedstat", where the kernel writes it
    std::string command;
  };
  std::mutex lock_;
  std::filesystem::path procRoot_;
  double ticksPerSecond_;
  double previousTime_ = -1;
  std::unordered_map<std::int64_t, Seen> previous_;
};

// This machine's busiest processes: a ProcProcessList of its own on Linux, ps on a Mac.
std::function<std::optional<std::vector<HWCPUProcess>>(std::int64_t count)> hostProcesses();

}  // namespace cpu_sources

// Reads the load averages and hands them to its delegate on the calling thread; delivers nothing
// when they cannot be read. Held by std::shared_ptr.
class HWCPUAverageReader final : public HWBaseReader<HWLoadAverages> {
 public:
  using Source = std::function<std::optional<HWLoadAverages>()>;
  // Reads from `source`; null: cpu_sources::hostLoadAverages, or nothing on a simulated platform.
  explicit HWCPUAverageReader(Source source = {});
  void read() override;

 private:
  Source source_;
};

// Reads the busiest processes and hands the first numberOfProcesses() of them, busiest first,
// to its delegate on the calling thread. Held by std::shared_ptr; the count may be set from any
// thread.
class HWCPUProcessReader final : public HWBaseReader<std::vector<HWCPUProcess>> {
 public:
  // The first `count` processes, busiest first, or nothing.
  using Source = std::function<std::optional<std::vector<HWCPUProcess>>(std::int64_t count)>;
  // Reads from `source`; null: cpu_sources::hostProcesses, or nothing on a simulated platform.
  explicit HWCPUProcessReader(Source source = {});

  // How many processes to deliver; 10 until set. Not above 0: read() does nothing.
  std::int64_t numberOfProcesses() const { return numberOfProcesses_.load(); }
  void setNumberOfProcesses(std::int64_t count) { numberOfProcesses_.store(count); }

  // Does nothing when the count is not above 0 (not even running ps) or the list cannot be had.
  void read() override;

 private:
  Source source_;
  std::atomic<std::int64_t> numberOfProcesses_{10};
};

}  // namespace corvane
