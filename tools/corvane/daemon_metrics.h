// The daemon's page for Prometheus. The monitor thread builds the whole page after each reading
// and publishes it; a scrape, on the web server's own threads, only copies the page it finds.
// So a scrape never waits for a reading, never reaches the store, and costs a copy.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <prometheus/collectable.h>
#include <prometheus/metric_family.h>

#include "corvane/monitors/cpu_load_reader.h"
#include "corvane/monitors/cpu_readers.h"
#include "corvane/platform/host_sensors.h"
#include "corvane/sensors/sensor_reader.h"

namespace corvane::cli {

// What one page is built from, all read on the monitor thread. (Every field has an initializer,
// so g++ does not flag the ones a designated initializer leaves out.)
struct MetricsInput {
  std::string machine{};                 // the "machine" label: model or simulated machine name
  const HWSensorReader* reader = nullptr;  // tells which records its last pass refreshed
  const HWSensorReader::SensorList* sensors = nullptr;  // the reader's records after a reading
  std::optional<HWCPULoadInfo> cpu{};    // the latest processor load, once read
  std::optional<HWLoadAverages> loadAverages{};
  std::uint64_t fanControlMode = 0;      // 0 system, 1 manual fan set, 2 auto boost
  bool autoBoostActive = false;          // a fan condition's fan set is in force
  std::uint64_t readings = 0;            // readings since the daemon started
  std::uint64_t saveFailures = 0;        // saves the store refused
  // This computer's own inputs, read with the reading (null: none); source "host", group "host",
  // keyed "chip/feature". An input that could not be read (NaN) is left out.
  const std::vector<platform::HostSensorReading>* host = nullptr;
};

// One published page: the figures of a reading, and counters that stay true however old.
struct MetricsPage {
  std::vector<prometheus::MetricFamily> readings;
  std::vector<prometheus::MetricFamily> counters;
};

// The page for `input`. A sensor appears only when the reader's last pass read it: records the
// pass skipped, reads that failed and computed figures without contributors are left out, so
// Prometheus sees a series end rather than an old value. Values in base units (Celsius, rpm,
// volts, amperes, watts), whatever the user shows.
MetricsPage buildMetricsPage(const MetricsInput& input);

// What the web server collects. publish() from the monitor thread, Collect() from any thread;
// the lock is held only to swap or copy a pointer. Readings published with an expiry are left
// off the page once the dispatch clock passes it (a daemon whose monitor stopped would otherwise
// serve its last figures for ever); the counters stay.
class MetricsCollectable final : public prometheus::Collectable {
 public:
  void publish(MetricsPage page, double expires);
  std::vector<prometheus::MetricFamily> Collect() const override;

 private:
  struct Published {
    MetricsPage page;
    double expires = 0;
  };
  mutable std::mutex lock_;
  std::shared_ptr<const Published> published_;
};

// The listening address the web server takes for `--metrics ADDRESS:PORT`: an IPv4 address,
// "localhost" or nothing (both the loopback address), a colon and a port from 0 (any free one)
// to 65535; a bare port listens on the loopback address too. Nothing, with `error` set to a
// one-line reason, for anything else. (The web server as packaged listens on IPv4 alone.)
std::optional<std::string> parseMetricsAddress(std::string_view text, std::string* error);

}  // namespace corvane::cli
