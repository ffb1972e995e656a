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
};

struct Row {
  enum class Kind { kHeader, kSensor };
  Kind kind = Kind::kSensor;
  std::string name;       // the category's name on a header
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
std::vector<Row> buildRows(const std::vector<SensorInput>& sensors, double now, int sparkWidth,
                           const Glyphs& glyphs = kBlocks);

}  // namespace corvane::cli::live
