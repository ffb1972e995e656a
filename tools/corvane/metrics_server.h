// The daemon's `--metrics` web server and what feeds it: a page built after every reading.
#pragma once

#include <memory>
#include <string>

#include "corvane/fan/fan_controller.h"
#include "corvane/monitors/sensor_monitor.h"
#include "corvane/settings/data_manager.h"

namespace corvane::cli {

// Serves /metrics while it lives; made by startMetricsServer.
class MetricsServer {
 public:
  virtual ~MetricsServer() = default;
  // The port it listens on (the one the system chose, for port 0).
  virtual int port() const = 0;
};

// Listens on `listen` (as parseMetricsAddress gives it) and publishes a page after every reading
// of `monitor`, with the processor's load from a CPU monitor of its own and the fan policy of
// `controller`. Call on the main queue, after the monitor is set up. Null, with `error` set, when
// the address cannot be listened on.
std::unique_ptr<MetricsServer> startMetricsServer(const std::string& listen, const std::string& machine,
                                                  const std::shared_ptr<HWDataManager>& manager,
                                                  const std::shared_ptr<HWSensorMonitor>& monitor,
                                                  const std::shared_ptr<HWFanController>& controller,
                                                  std::string* error);

}  // namespace corvane::cli
