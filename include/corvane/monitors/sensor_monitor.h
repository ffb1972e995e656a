// The sensor monitor: reads every sensor at the user's update interval, writes the readings into
// the stored sensors, samples them into hour, day and week graph points, prunes the points that
// fell out of their range, and tells its listeners that a new reading is there.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "corvane/monitors/base_monitor.h"
#include "corvane/monitors/monitor_timer.h"
#include "corvane/sensors/sensor_reader.h"
#include "corvane/settings/data_manager.h"
#include "corvane/settings/settings_data_store.h"

namespace corvane {

// Told on the main queue after each reading has been written to the store.
class HWSensorMonitorDelegate : public virtual HWMonitorDelegate {
 public:
  // `sensors` is the whole list just read (the reader's records, updated in place each time).
  virtual void sensorMonitorDidReadSensors(const std::vector<std::shared_ptr<HWSensor>>& sensors) { (void)sensors; }
};

// The engine between the sensor reader and the store. One per process in the product
// (shared()); tests and simulations make their own over a data manager of their choice with
// create(). Held by std::shared_ptr.
//
// All store work, the sampling counters and the listener calls run on the main queue: start()
// is called there and the reader delivers its results there. The timer ticks on its own queue
// and only reads the hardware.
class HWSensorMonitor : public HWBaseMonitor,
                        public HWSensorReader::Delegate,
                        public HWSettingsDataStoreDelegate,
                        public HWDataManagerDelegate,
                        public std::enable_shared_from_this<HWSensorMonitor> {
 public:
  using SensorList = HWSensorReader::SensorList;

  // The process's monitor over HWDataManager::shared(), made on first use.
  static std::shared_ptr<HWSensorMonitor> shared();
  // Forgets the process's monitor: the next shared() makes a fresh one. The old one stops
  // ticking once its last holder lets it go.
  static void resetShared();
  // A monitor over `dataManager`'s stores (null: HWDataManager::shared()), with its own reader
  // and timer, registered with the settings store for changes of the update frequency and with
  // the data manager for rebuilt data sets.
  static std::shared_ptr<HWSensorMonitor> create(std::shared_ptr<HWDataManager> dataManager = nullptr);
  ~HWSensorMonitor() override;

  // The latest reading (the discovered list after setup(), before any reading).
  const SensorList& allSensors() const { return allSensors_; }
  const std::shared_ptr<HWSensorReader>& sensorReader() const { return sensorReader_; }
  const std::shared_ptr<HWMonitorTimer>& sensorTimer() const { return sensorTimer_; }
  const std::shared_ptr<HWDataManager>& dataManager() const { return dataManager_; }

  // Readings since the last graph point of each range, and since the last pruning.
  std::int32_t timerCountForHour() const { return timerCountForHour_; }
  std::int32_t timerCountForDay() const { return timerCountForDay_; }
  std::int32_t timerCountForWeek() const { return timerCountForWeek_; }
  std::int32_t timerCountForOptimize() const { return timerCountForOptimize_; }
  // Saves of a reading or a pruning that the store refused, since the monitor was made.
  std::uint64_t saveFailures() const { return saveFailures_; }

  // Takes the reader's discovered list as the current one. Call once, after the data set exists.
  void setup() override;
  // Restarts the sampling phase: counters to 0, pruning, the recorded extremes back to the
  // stored ones, the visibility switches copied to the reader, one reading at once and the
  // timer (re)started at the update interval. Calling it again applies new settings.
  void start() override;

  // A result of the monitor's own reader: written to the store, then passed to the listeners.
  // Results of any other reader are ignored.
  void readerDidReadWithResult(HWBaseReader<SensorList>& reader, const SensorList& result) override;
  // The update interval is now `interval` seconds: the store's staleness follows and the
  // monitor restarts.
  void settingsDataStoreUpdateFrequencyDidChange(std::int64_t interval) override;
  // The data set was built anew: every record is looked up afresh.
  void dataManagerDataSetReady() override;

  // Writes allSensors() into the stored sensors, adds the graph points that fall due, saves,
  // then advances the counters (and prunes when that falls due).
  void updateSensorData();
  // Advances the four counters; every 300 s of readings prunes the graph points.
  void checkToRemoveOutOfDateGraphPoints();
  // Deletes the graph points older than the first label of their range's time axis; saves only
  // when something went.
  void removeOutOfDateGraphPoints();

 private:
  explicit HWSensorMonitor(std::shared_ptr<HWDataManager> dataManager);
  double updateInterval() const;
  // The same with the interval that the reading's update already read.
  void checkToRemoveOutOfDateGraphPoints(double interval);
  struct Record {
    std::shared_ptr<HWSensorEntity> sensor;
    std::int64_t categoryType = -1;
  };
  // The stored record of the reading `key` (the sensor the store's getSensorByKey answers, and
  // its category's type), or null. Records come from a table filled with one fetch at start and
  // kept while their objects live (a context keeps one object per row, so a fetch by key would
  // answer the same one), so a tick does not query the file once per sensor.
  const Record* storedRecord(const std::string& key);
  // Every stored sensor, from the same table.
  std::vector<std::shared_ptr<HWSensorEntity>> storedSensors();
  void loadRecords();

  std::shared_ptr<HWDataManager> dataManager_;
  std::shared_ptr<HWSensorReader> sensorReader_;
  std::shared_ptr<HWMonitorTimer> sensorTimer_;
  SensorList allSensors_;
  std::unordered_map<std::string, Record> records_;
  bool recordsLoaded_ = false;
  std::int32_t timerCountForHour_ = 0;
  std::int32_t timerCountForDay_ = 0;
  std::int32_t timerCountForWeek_ = 0;
  std::int32_t timerCountForOptimize_ = 0;
  std::uint64_t saveFailures_ = 0;
};

}  // namespace corvane
