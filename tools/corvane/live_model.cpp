#include "live_model.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "corvane/sensors/value_formatter.h"

namespace corvane::cli::live {

namespace {

constexpr double kHour = 3600;
constexpr int kCategoryTypes = 5;

// An extreme in the user's units, formatted as the sensor's own value would be: a scratch sensor
// of the same category and limits carries it, so the temperature unit and the fan scale apply.
std::string extremeText(const HWSensorEntity& sensor, double raw) {
  if (!std::isfinite(raw) || raw == kNothingRecorded || raw == kRecordedMinStart) return "-";
  HWSensorEntity scratch;
  scratch.setCategory(sensor.category());
  scratch.setMinValue(sensor.minValue());
  scratch.setMaxValue(sensor.maxValue());
  scratch.setValue(raw);
  return HWSensorFormatter::fullStringValueFromSensor(scratch);
}

}  // namespace

std::string sparkline(const std::vector<double>& values, int width, const Glyphs& glyphs) {
  if (width <= 0) return {};
  const std::size_t count = std::min(values.size(), static_cast<std::size_t>(width));
  const auto first = values.end() - static_cast<std::ptrdiff_t>(count);
  double low = std::numeric_limits<double>::infinity();
  double high = -low;
  for (auto it = first; it != values.end(); ++it) {
    if (!std::isfinite(*it)) continue;
    low = std::min(low, *it);
    high = std::max(high, *it);
  }
  std::string line;
  for (auto it = first; it != values.end(); ++it) {
    if (!std::isfinite(*it)) {
      line += ' ';
      continue;
    }
    std::size_t level = 3;
    if (high > low) level = static_cast<std::size_t>(std::lround((*it - low) / (high - low) * 7));
    line += glyphs[std::min<std::size_t>(level, 7)];
  }
  return line;
}

std::vector<double> hourSeries(std::span<const GraphSample> history, double now, int columns) {
  if (columns <= 0) return {};
  std::vector<double> sums(static_cast<std::size_t>(columns), 0);
  std::vector<int> counts(static_cast<std::size_t>(columns), 0);
  const double start = now - kHour;
  for (const auto& reading : history) {
    if (reading.time <= start || reading.time > now || !std::isfinite(reading.value)) continue;
    // The slice ending at `now` includes it; each slice is open at its start.
    const auto slice = std::clamp(static_cast<int>(std::ceil((reading.time - start) / kHour * columns)) - 1, 0,
                                  columns - 1);
    sums[static_cast<std::size_t>(slice)] += reading.value;
    ++counts[static_cast<std::size_t>(slice)];
  }
  std::vector<double> series(static_cast<std::size_t>(columns), std::numeric_limits<double>::quiet_NaN());
  for (std::size_t i = 0; i < series.size(); ++i) {
    if (counts[i] > 0) series[i] = sums[i] / counts[i];
  }
  return series;
}

std::string fanModeText(std::optional<double> modeKey, std::optional<double> forcedMask, std::uint64_t fanIndex) {
  if (modeKey && std::isfinite(*modeKey)) return *modeKey == 0 ? "auto" : "forced";
  if (forcedMask && std::isfinite(*forcedMask) && *forcedMask >= 0 && fanIndex < 16) {
    const auto mask = static_cast<std::uint64_t>(*forcedMask);
    return (mask >> fanIndex) & 1U ? "forced" : "auto";
  }
  return "-";
}

std::vector<Row> buildRows(const std::vector<SensorInput>& sensors, double now, int sparkWidth, const Glyphs& glyphs) {
  std::vector<Row> rows;
  for (std::int64_t type = 0; type < kCategoryTypes; ++type) {
    bool headed = false;
    for (const auto& input : sensors) {
      if (!input.sensor || input.sensor->categoryTypeNumber() != type) continue;
      const HWSensorEntity& sensor = *input.sensor;
      if (!headed) {
        Row header;
        header.kind = Row::Kind::kHeader;
        header.name = std::string(sensorTypeName(sensor.categoryType()));
        rows.push_back(std::move(header));
        headed = true;
      }
      Row row;
      row.name = sensor.name();
      row.key = sensor.key();
      const bool readable = std::isfinite(sensor.value());
      row.value = readable ? HWSensorFormatter::fullStringValueFromSensor(sensor) : "-";
      row.status = readable ? HWSensorFormatter::statusDisplayFromSensor(sensor) : "--";
      row.minimum = extremeText(sensor, sensor.recordedMinValue());
      row.maximum = extremeText(sensor, sensor.recordedMaxValue());
      row.fanMode = input.fanMode;
      row.sparkline = sparkline(hourSeries(input.history, now, sparkWidth), sparkWidth, glyphs);
      rows.push_back(std::move(row));
    }
  }
  return rows;
}

}  // namespace corvane::cli::live
