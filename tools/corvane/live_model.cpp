#include "live_model.h"

#include <algorithm>
#include <cstdio>
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
  for (const bool host : {false, true}) {
    if (host && std::none_of(sensors.begin(), sensors.end(), [](const SensorInput& input) { return input.host; })) {
      break;
    }
    if (host) {
      Row group;
      group.kind = Row::Kind::kGroup;
      group.name = "Host";
      rows.push_back(std::move(group));
    }
    for (std::int64_t type = 0; type < kCategoryTypes; ++type) {
      bool headed = false;
      for (const auto& input : sensors) {
        if (!input.sensor || input.host != host || input.sensor->categoryTypeNumber() != type) continue;
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
  }
  return rows;
}

std::string shareText(double share) {
  if (std::isnan(share)) return "-";
  char text[16];
  std::snprintf(text, sizeof text, "%.1f%%", std::clamp(share, 0.0, 1.0) * 100.0);
  return text;
}

std::string shareBar(double share, int width, const Glyphs& glyphs) {
  if (width <= 0) return {};
  if (std::isnan(share)) return std::string(static_cast<std::size_t>(width), ' ');
  const long eighths = std::lround(std::clamp(share, 0.0, 1.0) * width * 8);
  std::string bar;
  for (int cell = 0; cell < width; ++cell) {
    const long filled = eighths - cell * 8L;
    if (filled >= 8) {
      bar += glyphs[7];
    } else if (filled > 0) {
      bar += glyphs[static_cast<std::size_t>(filled - 1)];
    } else {
      bar += ' ';
    }
  }
  return bar;
}

std::vector<double> minuteSeries(const std::vector<HWCPULoadInfoItem>& items, double now, int columns) {
  if (columns <= 0) return {};
  constexpr double kMinute = 60;
  std::vector<double> sums(static_cast<std::size_t>(columns), 0);
  std::vector<int> counts(static_cast<std::size_t>(columns), 0);
  for (const auto& item : items) {
    const double age = now - item.timeInterval;
    if (age < 0 || age >= kMinute || !std::isfinite(item.loadInfo.totalUsage)) continue;
    const auto column = static_cast<std::size_t>((kMinute - age) / kMinute * columns);
    const auto index = std::min(column, static_cast<std::size_t>(columns - 1));
    sums[index] += item.loadInfo.totalUsage;
    ++counts[index];
  }
  std::vector<double> series(static_cast<std::size_t>(columns), std::numeric_limits<double>::quiet_NaN());
  for (std::size_t i = 0; i < series.size(); ++i) {
    if (counts[i] > 0) series[i] = sums[i] / counts[i];
  }
  return series;
}

std::string levelLine(const std::vector<double>& shares, const Glyphs& glyphs) {
  std::string line;
  for (double share : shares) {
    if (std::isnan(share)) {
      line += ' ';
      continue;
    }
    line += glyphs[static_cast<std::size_t>(std::lround(std::clamp(share, 0.0, 1.0) * 7))];
  }
  return line;
}

std::vector<PanelLine> cpuPanel(const CpuInput& input, double now, int width, int processLines, const Glyphs& glyphs) {
  std::vector<PanelLine> lines;
  if (!input.recorded) {
    lines.push_back({"CPU: no processor load recorded for this machine", true});
    return lines;
  }
  std::string heading = "CPU";
  if (input.load) {
    heading += "  total " + shareText(input.load->totalUsage) + "  user " + shareText(input.load->userLoad) +
               "  system " + shareText(input.load->systemLoad) + "  idle " + shareText(input.load->idleLoad);
  } else {
    heading += "  reading...";
  }
  if (input.averages) {
    char text[64];
    std::snprintf(text, sizeof text, "  load averages %.2f %.2f %.2f", (*input.averages)[0], (*input.averages)[1],
                  (*input.averages)[2]);
    heading += text;
  }
  lines.push_back({heading, true});
  constexpr std::string_view kMinuteLabel = "  last minute ";
  const int seriesWidth = std::clamp(width - static_cast<int>(kMinuteLabel.size()), 0, 60);
  if (seriesWidth > 0) {
    lines.push_back({std::string(kMinuteLabel) + levelLine(minuteSeries(input.series, now, seriesWidth), glyphs)});
  }

  if (input.load) {
    const auto usages = input.load->perCoreUsages();
    // "  E12 ▕████    ▏ 45.2%": label, bar and share of one core.
    constexpr int kBar = 8;
    constexpr int kCell = 2 + 4 + 1 + kBar + 2 + 6;
    const int perLine = std::max(1, width / kCell);
    // Folded per physical core, the figures no longer match the core list one for one.
    const bool kinds = input.load->usagePerCore != nullptr;
    // Terminals without block elements get plain bar ends too.
    const bool blocks = glyphs[7] == kBlocks[7];
    const std::string open = blocks ? "\u2595" : "|", close = blocks ? "\u258f" : "|";
    std::string line;
    for (std::size_t i = 0; i < usages.size(); ++i) {
      std::string label = std::to_string(i);
      if (kinds && i < input.cores.size()) {
        const auto type = input.cores[i].type;
        label = type == 1 ? "E" : type == 2 ? "P" : "";
        label += std::to_string(input.cores[i].coreId);
      }
      char share[16];
      std::snprintf(share, sizeof share, "%6s", shareText(usages[i]).c_str());
      line += "  " + label + std::string(label.size() < 4 ? 4 - label.size() : 0, ' ') + " " + open +
              shareBar(usages[i], kBar, glyphs) + close + share;
      if ((i + 1) % static_cast<std::size_t>(perLine) == 0 || i + 1 == usages.size()) {
        lines.push_back({line});
        line.clear();
      }
    }
    const auto kindMean = [](const std::optional<double>& mean) { return mean && !std::isnan(*mean); };
    if (kindMean(input.load->usageECores) || kindMean(input.load->usagePCores)) {
      constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
      lines.push_back({"  efficiency cores " + shareText(input.load->usageECores.value_or(kNone)) +
                       "  performance cores " + shareText(input.load->usagePCores.value_or(kNone))});
    }
  }

  if (processLines > 0 && !input.processes.empty()) {
    lines.push_back({"     PID    %CPU  COMMAND", true});
    for (std::size_t i = 0; i < input.processes.size() && static_cast<int>(i) < processLines; ++i) {
      const auto& process = input.processes[i];
      char text[48];
      std::snprintf(text, sizeof text, "  %6lld %7.1f  ", static_cast<long long>(process.pid), process.usage);
      // A command is whatever the process named itself: control characters are not drawn.
      std::string command;
      for (char c : process.command) command += (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) ? '?' : c;
      lines.push_back({text + command});
    }
  }
  return lines;
}

}  // namespace corvane::cli::live
