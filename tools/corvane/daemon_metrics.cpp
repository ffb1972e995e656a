#include "daemon_metrics.h"

#include <arpa/inet.h>

#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "corvane/dispatch/dispatch.h"

namespace corvane::cli {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

// One family per sensor type, in the type's base unit, indexed by the type's number.
constexpr std::array<std::pair<const char*, const char*>, 5> kSensorFamilies{{
    {"corvane_temperature_celsius", "Temperature of a sensor, in degrees Celsius"},
    {"corvane_fan_speed_rpm", "Speed of a fan, in revolutions per minute"},
    {"corvane_voltage_volts", "Voltage of a sensor, in volts"},
    {"corvane_current_amperes", "Current of a sensor, in amperes"},
    {"corvane_power_watts", "Power of a sensor, in watts"},
}};

// Label values are part of every stored series: lower case, and never renamed.
constexpr std::array<const char*, 12> kGroupLabels{"unknown", "cpu",     "gpu",     "memory",       "mainboard", "airflow",
                                                   "ssd",     "drive_bay", "battery", "power_supply", "display",   "fans"};
constexpr std::array<const char*, 3> kSourceLabels{"smc", "hid", "computed"};
constexpr std::array<const char*, 3> kFanModeLabels{"system", "manual", "auto_boost"};

MetricFamily family(const char* name, const char* help, MetricType type) {
  MetricFamily made;
  made.name = name;
  made.help = help;
  made.type = type;
  return made;
}

ClientMetric gauge(double value, std::vector<ClientMetric::Label> labels = {}) {
  ClientMetric metric;
  metric.label = std::move(labels);
  metric.gauge.value = value;
  return metric;
}

ClientMetric counter(double value, std::vector<ClientMetric::Label> labels = {}) {
  ClientMetric metric;
  metric.label = std::move(labels);
  metric.counter.value = value;
  return metric;
}

std::vector<ClientMetric::Label> sensorLabels(const HWSensor& sensor, const std::string& machine) {
  const auto group = toNumber(sensor.group());
  const auto source = toNumber(sensor.sourceType());
  return {{"key", sensor.key()},
          {"name", sensor.name()},
          {"group", group < kGroupLabels.size() ? kGroupLabels[group] : kGroupLabels[0]},
          {"source", source < kSourceLabels.size() ? kSourceLabels[source] : "unknown"},
          {"machine", machine}};
}

bool wasRead(const HWSensorReader& reader, const HWSensor& sensor) {
  if (!reader.shouldRefresh(sensor) || sensor.readFailed()) return false;
  // A computed CPU or GPU figure with nothing to compute it from reads -1: no temperature.
  return !(sensor.sourceType() == SourceType::kComputed && sensor.value() < 0);
}

// Families without a series say nothing; they stay off the page.
void keep(std::vector<MetricFamily>& page, MetricFamily&& made) {
  if (!made.metric.empty()) page.push_back(std::move(made));
}

}  // namespace

MetricsPage buildMetricsPage(const MetricsInput& input) {
  MetricsPage page;
  std::vector<MetricFamily> sensors;
  for (const auto& [name, help] : kSensorFamilies) sensors.push_back(family(name, help, MetricType::Gauge));
  auto errors = family("corvane_sensor_read_errors_total", "Reads of a sensor that failed since the daemon started",
                       MetricType::Counter);
  if (input.reader != nullptr && input.sensors != nullptr) {
    for (const auto& sensor : *input.sensors) {
      const auto type = toNumber(sensor->type());
      if (sensor->readErrors() > 0) {
        errors.metric.push_back(counter(static_cast<double>(sensor->readErrors()), sensorLabels(*sensor, input.machine)));
      }
      if (type >= sensors.size() || !wasRead(*input.reader, *sensor)) continue;
      sensors[type].metric.push_back(gauge(sensor->value(), sensorLabels(*sensor, input.machine)));
    }
  }
  if (input.host != nullptr) {
    // The host's kinds come in the order of the sensor types, so they share the families.
    for (const auto& reading : *input.host) {
      const auto kind = static_cast<std::size_t>(reading.kind);
      if (kind >= sensors.size() || std::isnan(reading.value)) continue;
      sensors[kind].metric.push_back(gauge(reading.value, {{"key", reading.chip + "/" + reading.feature},
                                                           {"name", reading.label},
                                                           {"group", "host"},
                                                           {"source", "host"},
                                                           {"machine", input.machine}}));
    }
  }
  for (auto& made : sensors) keep(page.readings, std::move(made));

  if (input.cpu) {
    auto cores = family("corvane_cpu_usage_ratio", "Share of a core's time spent busy over the last update interval",
                        MetricType::Gauge);
    const auto usages = input.cpu->perCoreUsages();
    for (std::size_t core = 0; core < usages.size(); ++core) {
      cores.metric.push_back(gauge(usages[core], {{"core", std::to_string(core)}}));
    }
    keep(page.readings, std::move(cores));
    auto total = family("corvane_cpu_total_usage_ratio",
                        "Share of the processor's time spent busy over the last update interval", MetricType::Gauge);
    total.metric.push_back(gauge(input.cpu->totalUsage));
    keep(page.readings, std::move(total));
  }
  if (input.loadAverages) {
    auto load = family("corvane_load_average", "System load average over the last 1, 5 and 15 minutes",
                       MetricType::Gauge);
    constexpr std::array<const char*, 3> kMinutes{"1", "5", "15"};
    for (std::size_t i = 0; i < kMinutes.size(); ++i) {
      load.metric.push_back(gauge((*input.loadAverages)[i], {{"minutes", kMinutes[i]}}));
    }
    keep(page.readings, std::move(load));
  }

  auto mode = family("corvane_fan_control_mode", "1 for the fan control mode in force, 0 for the others",
                     MetricType::Gauge);
  for (std::size_t i = 0; i < kFanModeLabels.size(); ++i) {
    mode.metric.push_back(gauge(input.fanControlMode == i ? 1 : 0, {{"mode", kFanModeLabels[i]}}));
  }
  keep(page.readings, std::move(mode));
  auto boost = family("corvane_fan_auto_boost_active", "1 while auto boost holds the fans at a condition's fan set",
                      MetricType::Gauge);
  boost.metric.push_back(gauge(input.autoBoostActive ? 1 : 0));
  keep(page.readings, std::move(boost));

  auto readings = family("corvane_readings_total", "Readings of every sensor since the daemon started",
                         MetricType::Counter);
  readings.metric.push_back(counter(static_cast<double>(input.readings)));
  keep(page.counters, std::move(readings));
  auto saves = family("corvane_store_save_failures_total", "Saves of a reading that the store refused",
                      MetricType::Counter);
  saves.metric.push_back(counter(static_cast<double>(input.saveFailures)));
  keep(page.counters, std::move(saves));
  keep(page.counters, std::move(errors));
  return page;
}

void MetricsCollectable::publish(MetricsPage page, double expires) {
  auto made = std::make_shared<const Published>(Published{std::move(page), expires});
  std::lock_guard guard(lock_);
  published_.swap(made);
  // The page replaced goes with `made`, after the lock (unless a scrape still copies it).
}

std::vector<prometheus::MetricFamily> MetricsCollectable::Collect() const {
  std::shared_ptr<const Published> published;
  {
    std::lock_guard guard(lock_);
    published = published_;
  }
  if (!published) return {};
  std::vector<prometheus::MetricFamily> families;
  const bool fresh = dispatch::now() < published->expires;
  families.reserve(published->page.counters.size() + (fresh ? published->page.readings.size() : 0));
  if (fresh) families = published->page.readings;
  families.insert(families.end(), published->page.counters.begin(), published->page.counters.end());
  return families;
}

std::optional<std::string> parseMetricsAddress(std::string_view text, std::string* error) {
  const auto colon = text.rfind(':');
  std::string_view host = colon == std::string_view::npos ? std::string_view() : text.substr(0, colon);
  const std::string_view port = colon == std::string_view::npos ? text : text.substr(colon + 1);
  unsigned number = 0;
  const auto [end, failed] = std::from_chars(port.data(), port.data() + port.size(), number);
  if (port.empty() || failed != std::errc() || end != port.data() + port.size() || number > 65535) {
    *error = "--metrics wants ADDRESS:PORT with a port from 0 to 65535, not '" + std::string(text) + "'";
    return std::nullopt;
  }
  if (host.empty() || host == "localhost") host = "127.0.0.1";
  in_addr address{};
  if (::inet_pton(AF_INET, std::string(host).c_str(), &address) != 1) {
    *error = "--metrics wants an IPv4 address (or localhost) before the port, not '" + std::string(host) + "'";
    return std::nullopt;
  }
  return std::string(host) + ":" + std::to_string(number);
}

}  // namespace corvane::cli
