#include "corvane/monitors/cpu_output_parsers.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace corvane::cpu_text {
namespace {

using Averages = std::optional<std::array<double, 3>>;

TEST(LoadAverageParsing, ReadsThreeNumbersOrNothing) {
  const std::pair<const char*, Averages> uptime[] = {
      {"10:14  up 3 days,  2:01, 2 users, load averages: 1.52 1.71 1.80\n", std::array{1.52, 1.71, 1.80}},
      {"10:14  up 3 days,  2:01, 2 users, load averages: 1,52 1,71 1,80", std::array{1.52, 1.71, 1.80}},
      {"  load averages: 12.05 3.10 0.00  \nsecond line 9.9 9.9 9.9", std::array{12.05, 3.10, 0.0}},
      {"load averages: 1.52  1.71  1.80", std::nullopt},  // two blanks between
      {"load average: 0.52, 0.58, 0.59", std::nullopt},   // Linux's layout
      {"load averages: 1.52 1.71", std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [text, expected] : uptime) EXPECT_EQ(loadAveragesFromUptime(text), expected) << text;
}

TEST(ProcessListParsing, KeepsTheFirstProcessesInListOrder) {
  const char* recorded =
      "  PID  %CPU COMM\n"
      "  312  12,5 mds_stores\n"
      "   88  7.3 /Applications/Some App.app/Contents/MacOS/Some App\n"
      "\n"
      "  401  2.0 Über-Prozess ✓\n"
      "  977  0.0 \n"
      "  12 3.5\n"
      "no-pid 1.0 odd\n";
  using Process = std::tuple<std::int64_t, double, std::string>;
  const std::vector<Process> all = {{312, 12.5, "mds_stores"},
                                    {88, 7.3, "/Applications/Some App.app/Contents/MacOS/Some App"},
                                    {401, 2.0, "Über-Prozess ✓"},
                                    {977, 0.0, "0.0"},  // no blank after the usage once trimmed
                                    {12, 0.0, "3.5"},
                                    {0, 0.0, "no-pid 1.0 odd"}};
  for (std::int64_t count : {0, -1, 2, 20}) {
    std::vector<Process> seen;
    for (const auto& p : processesFromList(recorded, count)) seen.emplace_back(p.pid, p.usage, p.command);
    const auto wanted = std::min<std::size_t>(static_cast<std::size_t>(std::max<std::int64_t>(count, 0)), all.size());
    EXPECT_EQ(seen, std::vector(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(wanted))) << count;
  }
}

}  // namespace
}  // namespace corvane::cpu_text
