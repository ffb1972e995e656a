// The CPU monitor: the processor's load at the update interval with a one-minute series of it,
// the busiest processes at the same interval, and the load averages once a minute.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "corvane/monitors/base_monitor.h"
#include "corvane/monitors/cpu_load_reader.h"
#include "corvane/monitors/cpu_readers.h"
#include "corvane/monitors/monitor_timer.h"
#include "corvane/settings/cpu_data_store.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_data_store.h"

namespace corvane {

// Told on the main queue of each new figure; every message is optional.
class HWCPUMonitorDelegate : public virtual HWMonitorDelegate {
 public:
  virtual void cpuMonitorDidReadLoadInfo(const HWCPULoadInfo& loadInfo) { (void)loadInfo; }
  virtual void cpuMonitorDidReadTopProcesses(const std::vector<HWCPUProcess>& processes) { (void)processes; }
  virtual void cpuMonitorDidReadLoadAverage(const HWLoadAverages& loadValues) { (void)loadValues; }
};

// The process's source of processor figures. One per process in the product (shared()); tests
// and the command line make their own with create(). Held by std::shared_ptr.
//
// Each reader runs on its own timer's queue, so a slow ps run never delays a load reading. The
// monitor keeps the latest figures under a lock (the accessors may be called from any thread)
// and calls its listeners on the main queue.
class HWCPUMonitor : public HWBaseMonitor,
                     public HWCPULoadReader::Delegate,
                     public HWCPUProcessReader::Delegate,
                     public HWCPUAverageReader::Delegate,
                     public HWCPUDataStoreDelegate,
                     public HWSettingsDataStoreDelegate,
                     public std::enable_shared_from_this<HWCPUMonitor> {
 public:
  // The readers a monitor uses; a null one is made over the installed platform.
  struct Readers {
    std::shared_ptr<HWCPULoadReader> load;
    std::shared_ptr<HWCPUProcessReader> process;
    std::shared_ptr<HWCPUAverageReader> average;
  };

  // Seconds the load series reaches back (six steps of the one-minute axis).
  static constexpr double kSeriesSeconds = 60.0;
  // Seconds between two load-average readings, whatever the update interval.
  static constexpr double kAverageInterval = 60.0;

  // The process's monitor over HWDataManager::shared(), made on first use.
  static std::shared_ptr<HWCPUMonitor> shared();
  // Forgets the process's monitor; it stops once its last holder lets it go.
  static void resetShared();
  // A monitor over `dataManager`'s CPU and settings stores (null: HWDataManager::shared()),
  // registered with both for their changes.
  static std::shared_ptr<HWCPUMonitor> create(std::shared_ptr<HWDataManager> dataManager = nullptr,
                                              Readers readers = {});
  ~HWCPUMonitor() override;

  const std::shared_ptr<HWCPULoadReader>& loadReader() const { return readers_.load; }
  const std::shared_ptr<HWCPUProcessReader>& processReader() const { return readers_.process; }
  const std::shared_ptr<HWCPUAverageReader>& averageReader() const { return readers_.average; }
  const std::shared_ptr<HWMonitorTimer>& loadTimer() const { return loadTimer_; }
  const std::shared_ptr<HWMonitorTimer>& processTimer() const { return processTimer_; }
  const std::shared_ptr<HWMonitorTimer>& averageTimer() const { return averageTimer_; }

  // The latest load reading (empty before the first).
  HWCPULoadInfo loadInfo() const;
  // The recent load readings, oldest first: the last minute plus up to half an update interval.
  std::vector<HWCPULoadInfoItem> loadInfoItems() const;
  // The latest busiest processes, busiest first.
  std::vector<HWCPUProcess> topProcesses() const;
  // The latest load averages; nothing before the first.
  std::optional<HWLoadAverages> loadValues() const;

  // Reads the process count and the update interval into the readers and timers.
  void setup() override;
  // One reading of each kind at once on the calling thread, then each timer started aligned on
  // the shared sync start time.
  void start() override;
  // Halts the three timers; start() resumes them.
  void stop() override;

  // Keeps `info` as the latest reading and appends it to the series, dropping what fell out.
  void processLoadInfo(const HWCPULoadInfo& info);

  void readerDidReadWithResult(HWBaseReader<HWCPULoadInfo>& reader, const HWCPULoadInfo& result) override;
  void readerDidReadWithResult(HWBaseReader<std::vector<HWCPUProcess>>& reader,
                               const std::vector<HWCPUProcess>& result) override;
  void readerDidReadWithResult(HWBaseReader<HWLoadAverages>& reader, const HWLoadAverages& result) override;
  // Takes the new count and lists the processes again at once, outside the timer.
  void cpuDataStoreNumOfTopProcessesDidChange(std::int64_t number) override;
  // Restarts the load and process timers at `interval` seconds; the averages keep their minute.
  void settingsDataStoreUpdateFrequencyDidChange(std::int64_t interval) override;

 private:
  HWCPUMonitor(std::shared_ptr<HWDataManager> dataManager, Readers readers);
  // Calls `fn` with each listener of the CPU protocol, later, on the main queue.
  template <class Fn>
  void tellListeners(Fn fn);

  std::shared_ptr<HWDataManager> dataManager_;
  Readers readers_;
  std::shared_ptr<HWMonitorTimer> loadTimer_ = std::make_shared<HWMonitorTimer>();
  std::shared_ptr<HWMonitorTimer> processTimer_ = std::make_shared<HWMonitorTimer>();
  std::shared_ptr<HWMonitorTimer> averageTimer_ = std::make_shared<HWMonitorTimer>();

  mutable std::mutex lock_;  // guards everything below
  double updateInterval_ = 2.0;
  HWCPULoadInfo loadInfo_;
  std::vector<HWCPULoadInfoItem> loadInfoItems_;
  std::vector<HWCPUProcess> topProcesses_;
  std::optional<HWLoadAverages> loadValues_;
};

}  // namespace corvane
