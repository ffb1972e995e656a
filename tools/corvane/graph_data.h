// What a picture of one sensor's history shows, taken from the store and kept apart from any
// drawing, so the image export and the live view's sparkline share it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/store/entities.h"
#include "corvane/util/dates.h"
#include "corvane/util/hw_utils.h"

namespace corvane::cli {

// One sample: seconds since 1970 and the value in the user's unit (a fan in percent mode as a
// share 0 ... 1, as the stored point converts it).
struct GraphSample {
  double time = 0;
  double value = 0;
};

// One label of the value axis at `value` (same unit as the samples).
struct GraphTick {
  double value = 0;
  std::string label;
};

// A plain value; copy it freely.
struct GraphData {
  std::string key;
  std::string title;              // "Name (KEY)", or the key alone when the sensor has no name
  HWTimeRange range = HWTimeRange::kHour;
  std::vector<GraphSample> samples;     // oldest first, only those inside the time axis
  std::vector<HWAxisLabel> timeLabels;  // oldest first; the first and last bound the time axis
  std::vector<GraphTick> valueTicks;    // lowest first; the first and last bound the value axis
  std::string unit;                     // "°", "°F", "rpm", "%", "V", "A", "W" or ""
  // The lowest and highest sample with their texts; meaningful only when there are samples.
  GraphSample lowest, highest;
  std::string lowestText, highestText;
};

// "hour", "day", "week" and back; nothing for another name.
std::optional<HWTimeRange> timeRangeNamed(std::string_view name);
const char* timeRangeName(HWTimeRange range);

// The sensor's points of `range` on the graph-axis helper's time axis ending at `now`, or at the
// newest point when that is later (a store filled on a simulated clock runs ahead of this one).
// The value axis spans the sensor's graph limits, widened to every sample, in round steps.
// Reads the store through the sensor's context, so call it on that context's queue.
GraphData graphDataForSensor(const HWSensorEntity& sensor, HWTimeRange range, dates::Date now);

}  // namespace corvane::cli
