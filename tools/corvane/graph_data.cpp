#include "graph_data.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "corvane/sensors/value_formatter.h"

namespace corvane::cli {
namespace {

constexpr int kWantedValueSteps = 6;

// A step of 1, 2, 2.5 or 5 times a power of ten that cuts `span` into about kWantedValueSteps parts,
// so the value labels read as round numbers.
double roundStep(double span) {
  const double raw = span / kWantedValueSteps;
  const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
  const double scaled = raw / magnitude;
  const double factor = scaled <= 1 ? 1 : scaled <= 2 ? 2 : scaled <= 2.5 ? 2.5 : scaled <= 5 ? 5 : 10;
  return factor * magnitude;
}

std::vector<GraphTick> valueTicks(double low, double high, SensorType type) {
  if (!(high > low)) {
    // A flat history still needs an axis with some height around it.
    const double pad = std::max(std::fabs(low) * 0.1, 1.0);
    low -= pad;
    high += pad;
  }
  const double step = roundStep(high - low);
  const auto first = static_cast<long long>(std::floor(low / step + 1e-9));
  const auto last = static_cast<long long>(std::ceil(high / step - 1e-9));
  std::vector<GraphTick> ticks;
  for (long long i = first; i <= last; ++i) {
    const double value = static_cast<double>(i) * step;
    ticks.push_back({value, HWValueConverter::fullStringFromValue(value, type, false)});
  }
  return ticks;
}

}  // namespace

std::optional<HWTimeRange> timeRangeNamed(std::string_view name) {
  if (name == "hour") return HWTimeRange::kHour;
  if (name == "day") return HWTimeRange::kDay;
  if (name == "week") return HWTimeRange::kWeek;
  return std::nullopt;
}

const char* timeRangeName(HWTimeRange range) {
  switch (range) {
    case HWTimeRange::kHour:
      return "hour";
    case HWTimeRange::kDay:
      return "day";
    case HWTimeRange::kWeek:
      return "week";
  }
  return "hour";
}

GraphData graphDataForSensor(const HWSensorEntity& sensor, HWTimeRange range, dates::Date now) {
  GraphData data;
  data.key = sensor.key();
  data.title = sensor.name().empty() || sensor.name() == sensor.key() ? sensor.key()
                                                                      : sensor.name() + " (" + sensor.key() + ")";
  data.range = range;
  const SensorType type = sensor.categoryType();
  data.unit = HWValueConverter::unitStringFromCategoryType(type, false).value_or("");

  const auto points = sensor.graphPoints(range);
  double newest = std::chrono::duration<double>(now.time_since_epoch()).count();
  for (const auto& point : points) newest = std::max(newest, point->pointX());
  const auto end = dates::Date(std::chrono::duration_cast<dates::Date::duration>(std::chrono::duration<double>(newest)));
  data.timeLabels = HWUtils::xAxisWithCurrentDate(end, static_cast<unsigned long>(range));
  const double start = data.timeLabels.front().time;

  for (const auto& point : points) {
    const GraphSample sample{point->pointX(), point->convertedPointY()};
    if (sample.time < start || !std::isfinite(sample.value)) continue;  // awaiting pruning, or unreadable
    data.samples.push_back(sample);
  }
  std::stable_sort(data.samples.begin(), data.samples.end(),
                   [](const GraphSample& a, const GraphSample& b) { return a.time < b.time; });

  double low = sensor.graphMinValue();
  double high = sensor.graphMaxValue();
  if (!data.samples.empty()) {
    const auto [lowest, highest] = std::minmax_element(
        data.samples.begin(), data.samples.end(), [](const GraphSample& a, const GraphSample& b) { return a.value < b.value; });
    data.lowest = *lowest;
    data.highest = *highest;
    data.lowestText = HWValueConverter::fullStringFromValue(lowest->value, type, false);
    data.highestText = HWValueConverter::fullStringFromValue(highest->value, type, false);
    low = std::min(low, lowest->value);
    high = std::max(high, highest->value);
  }
  if (!std::isfinite(low) || !std::isfinite(high)) {
    low = data.samples.empty() ? 0 : data.lowest.value;
    high = data.samples.empty() ? 0 : data.highest.value;
  }
  data.valueTicks = valueTicks(low, high, type);
  return data;
}

}  // namespace corvane::cli
