// What the live view shows, as plain rows built by pure functions: the terminal drawing only lays
// these out, so everything a user reads can be checked without a terminal.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/monitors/cpu_load_reader.h"
#include "corvane/monitors/cpu_readers.h"
#include "corvane/store/entities.h"
#include "graph_data.h"

namespace corvane::cli::live {

// One sensor as the view knows it: a stored sensor while a daemon writes the store, else an
// unsaved one the view fills from its own readings (so statuses and units follow the same rules
// either way). Its recorded extremes are the minimum and maximum seen; `history` (owned by the
// caller) may hold readings older than the hour, which are left out.
struct SensorInput {
  std::shared_ptr<const HWSensorEntity> sensor;
  std::span<const GraphSample> history;  // any unit: a sparkline shows only the shape
  std::string fanMode;  // fans only: fanModeText()
  bool host = false;    // a monitor of the computer running the view, not of the Mac
};

struct Row {
  enum class Kind { kGroup, kHeader, kSensor };
  Kind kind = Kind::kSensor;
  std::string name;       // the category's name on a header, "Host" on the host's group
  std::string key;
  std::string value;      // in the user's units, "-" when the sensor has no reading
  std::string status;
  std::string minimum;    // "-" when nothing was recorded
  std::string maximum;
  std::string fanMode;
  std::string sparkline;  // the last hour, `sparkWidth` columns
};

// The eight levels of a sparkline, lowest first.
using Glyphs = std::array<std::string_view, 8>;
inline constexpr Glyphs kBlocks = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
// For terminals whose character set has no block elements.
inline constexpr Glyphs kAsciiLevels = {"_", ".", "-", "~", "=", "+", "*", "#"};

// `values` as one glyph each, scaled between their smallest and largest finite value; a value
// that is not finite is a blank gap, a flat series sits at the middle level. Longer series keep
// their newest `width` values; a width of 0 or less gives "".
std::string sparkline(const std::vector<double>& values, int width, const Glyphs& glyphs = kBlocks);

// The hour before `now` cut into `columns` equal slices: the mean of the readings in each slice,
// NaN where there is none. Readings outside the hour are left out.
std::vector<double> hourSeries(std::span<const GraphSample> history, double now, int columns);

// A fan's mode: its mode key when the SMC has one (0 automatic, else forced), else its bit in the
// older forced-fans mask; "-" when neither can be read.
std::string fanModeText(std::optional<double> modeKey, std::optional<double> forcedMask, std::uint64_t fanIndex);

// The rows: a header for each category in type order (temperature, fan, voltage, current,
// power) followed by its sensors in input order; sensors outside those categories are left out.
// The host's sensors follow the Mac's, grouped the same way under a "Host" group row.
std::vector<Row> buildRows(const std::vector<SensorInput>& sensors, double now, int sparkWidth,
                           const Glyphs& glyphs = kBlocks);

// What the CPU panel shows: the monitor's latest figures.
struct CpuInput {
  bool recorded = true;  // false: the machine records no processor load (a simulated one)
  std::optional<HWCPULoadInfo> load;       // nothing before the first reading
  std::vector<HWCPULoadInfoItem> series;   // the last minute, oldest first
  std::optional<HWLoadAverages> averages;
  std::vector<HWCPUProcess> processes;     // busiest first
  std::vector<HWCPUCore> cores;            // the core list, for each bar's kind
};

struct PanelLine {
  std::string text;
  bool heading = false;
};

// A share from 0 to 1 as a percentage with one decimal ("45.2%"); a share outside 0..1 is held
// at the nearer end, one that is not a number is "-".
std::string shareText(double share);

// A bar `width` cells wide filled in proportion to `share` (held within 0..1): full cells, one
// partial cell of eighths, blanks; a share that is not a number is all blanks.
std::string shareBar(double share, int width, const Glyphs& glyphs = kBlocks);

// The minute before `now` cut into `columns` slices: the mean total usage of the readings in
// each slice, NaN where there is none.
std::vector<double> minuteSeries(const std::vector<HWCPULoadInfoItem>& items, double now, int columns);

// `shares` as one glyph each on a fixed 0..1 scale (so an idle minute stays low), NaN a blank.
std::string levelLine(const std::vector<double>& shares, const Glyphs& glyphs = kBlocks);

// The panel's lines for a terminal `width` columns wide: the totals and load averages, the last
// minute, one bar per core (as many a line as fit; "E" or "P" before the bar where the kind is
// known), and the busiest processes. At most `processLines` processes are shown.
std::vector<PanelLine> cpuPanel(const CpuInput& input, double now, int width, int processLines,
                                const Glyphs& glyphs = kBlocks);

}  // namespace corvane::cli::live
