#include "metrics_server.h"

#include <algorithm>
#include <exception>
#include <optional>

#include <prometheus/exposer.h>

#include "daemon_metrics.h"
#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/cpu_monitor.h"
#include "corvane/platform/platform.h"

namespace corvane::cli {
namespace {

// After each reading, on the main queue: the page of that reading goes to the web server.
class MetricsPublisher final : public HWSensorMonitorDelegate, public HWCPUMonitorDelegate {
 public:
  MetricsPublisher(std::shared_ptr<MetricsCollectable> page, std::string machine,
                   std::shared_ptr<HWDataManager> manager, std::weak_ptr<HWSensorMonitor> monitor,
                   std::weak_ptr<HWFanController> controller, std::shared_ptr<HWCPUMonitor> cpu)
      : page_(std::move(page)), machine_(std::move(machine)), manager_(std::move(manager)),
        monitor_(std::move(monitor)), controller_(std::move(controller)), cpu_(std::move(cpu)) {}

  void sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>& sensors) override {
    ++readings_;
    const auto monitor = monitor_.lock();
    if (!monitor) return;
    const auto controller = controller_.lock();
    MetricsInput input{.machine = machine_,
                       .reader = monitor->sensorReader().get(),
                       .sensors = &sensors,
                       .cpu = load_,
                       .loadAverages = cpu_->loadValues(),
                       .fanControlMode = manager_->sensorDataStore()->fanControlMode(),
                       .autoBoostActive = controller && controller->activeFanCondition() != nullptr,
                       .readings = readings_,
                       .saveFailures = monitor->saveFailures(),
                       .host = nullptr};
    std::string error;
    if (host_->readings(hostReadings_, error)) input.host = &hostReadings_;
    // A reading two intervals late means the monitor has stopped: its figures leave the page.
    const auto interval = static_cast<double>(std::max<std::int64_t>(1, manager_->settingsDataStore()->updateInterval()));
    page_->publish(buildMetricsPage(input), dispatch::now() + 3 * interval);
  }

  void cpuMonitorDidReadLoadInfo(const HWCPULoadInfo& loadInfo) override { load_ = loadInfo; }

 private:
  std::shared_ptr<MetricsCollectable> page_;
  std::string machine_;
  std::shared_ptr<HWDataManager> manager_;
  std::weak_ptr<HWSensorMonitor> monitor_;
  std::weak_ptr<HWFanController> controller_;
  std::shared_ptr<HWCPUMonitor> cpu_;
  std::optional<HWCPULoadInfo> load_;
  // This computer's own sensors (none on a simulated machine), read afresh with every reading.
  std::shared_ptr<platform::HostSensors> host_ = platform::HostSensors::create(platform::current());
  std::vector<platform::HostSensorReading> hostReadings_;
  std::uint64_t readings_ = 0;
};

class ExposedMetrics final : public MetricsServer {
 public:
  ExposedMetrics(std::unique_ptr<prometheus::Exposer> exposer, std::shared_ptr<MetricsCollectable> page,
                 std::shared_ptr<HWCPUMonitor> cpu, std::shared_ptr<MetricsPublisher> publisher)
      : exposer_(std::move(exposer)), page_(std::move(page)), cpu_(std::move(cpu)),
        publisher_(std::move(publisher)) {}
  ~ExposedMetrics() override { cpu_->stop(); }
  int port() const override {
    const auto ports = exposer_->GetListeningPorts();
    return ports.empty() ? 0 : ports.front();
  }

 private:
  std::unique_ptr<prometheus::Exposer> exposer_;
  std::shared_ptr<MetricsCollectable> page_;
  std::shared_ptr<HWCPUMonitor> cpu_;
  std::shared_ptr<MetricsPublisher> publisher_;  // the monitors hold their listeners weakly
};

}  // namespace

std::unique_ptr<MetricsServer> startMetricsServer(const std::string& listen, const std::string& machine,
                                                  const std::shared_ptr<HWDataManager>& manager,
                                                  const std::shared_ptr<HWSensorMonitor>& monitor,
                                                  const std::shared_ptr<HWFanController>& controller,
                                                  std::string* error) {
  std::unique_ptr<prometheus::Exposer> exposer;
  try {
    // Two threads: a scrape that stalls does not hold up the next one.
    exposer = std::make_unique<prometheus::Exposer>(listen, 2);
  } catch (const std::exception&) {
    // The web server's own message blames no one in particular; the address is what failed.
    *error = "cannot listen on " + listen + " (in use, or not an address of this machine)";
    return nullptr;
  }
  auto page = std::make_shared<MetricsCollectable>();
  exposer->RegisterCollectable(page);
  // Only the load and its averages: the busiest processes are not on the page, and listing them
  // would walk every process at each update interval.
  auto cpu = HWCPUMonitor::create(
      manager, {.load = nullptr,
                .process = std::make_shared<HWCPUProcessReader>(
                    [](std::int64_t) { return std::optional<std::vector<HWCPUProcess>>(); }),
                .average = nullptr});
  auto publisher = std::make_shared<MetricsPublisher>(page, machine, manager, monitor, controller, cpu);
  cpu->addDelegate(publisher);
  monitor->addDelegate(publisher);
  cpu->setup();
  cpu->start();
  return std::make_unique<ExposedMetrics>(std::move(exposer), std::move(page), std::move(cpu), std::move(publisher));
}

}  // namespace corvane::cli
