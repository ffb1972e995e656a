// The load averages and the busiest processes, read from what the system's tools and files
// print. Pure functions over text, so that every format quirk is tested on recorded output.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

// One line of the process list.
struct HWCPUProcess {
  std::int64_t pid = 0;
  std::string command;              // as the list prints it; may hold blanks, or be empty
  std::optional<std::string> name;  // the running application's name; none for other processes
  double usage = 0.0;               // percent of one core, as the list prints it
};

namespace cpu_text {

// The 1-, 5- and 15-minute load averages that end the first line of uptime's output, written
// with a point or a comma as decimal mark and separated by single blanks. Nothing when the line
// does not end so (other separators, two blanks, fewer numbers).
std::optional<std::array<double, 3>> loadAveragesFromUptime(std::string_view output);

// The three load averages that begin Linux's /proc/loadavg.
std::optional<std::array<double, 3>> loadAveragesFromProcLoadavg(std::string_view text);

// The first `count` processes of a process list printed as "pid usage command" under one heading
// line (the list's own order, busiest first); none when `count` is not above 0. A line without
// a leading pid gives pid 0, one without a usage followed by a blank gives usage 0 and keeps the
// rest as the command. Blank lines are skipped.
std::vector<HWCPUProcess> processesFromList(std::string_view output, std::int64_t count);

// What one /proc/<pid>/stat of Linux tells about its process.
struct ProcStat {
  std::int64_t pid = 0;
  std::string command;          // between the first '(' and the last ')': it may hold both
  std::uint64_t cpuTicks = 0;   // user and system time, in clock ticks
  std::uint64_t startTicks = 0; // when it started, in clock ticks since boot
};

// The file's fields; nothing when it is cut short or a number is not one.
std::optional<ProcStat> procStat(std::string_view text);

// The seconds since boot that begin Linux's /proc/uptime.
std::optional<double> uptimeSeconds(std::string_view text);

}  // namespace cpu_text
}  // namespace corvane
