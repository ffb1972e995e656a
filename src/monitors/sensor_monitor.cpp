#include "corvane/monitors/sensor_monitor.h"

#include <chrono>
#include <cmath>
#include <mutex>

#include "corvane/dispatch/dispatch.h"
#include "corvane/util/hw_utils.h"

namespace corvane {

namespace {

constexpr std::int16_t kHIDSource = 1;
constexpr std::int16_t kComputedSource = 2;
constexpr std::int64_t kTemperatureCategory = 0;
constexpr std::int64_t kFanCategory = 1;

// Seconds of readings between two graph points of each range, and between two prunings, so that
// the graphs keep the same density whatever the update interval.
constexpr double kHourSampleSeconds = 10;
constexpr double kDaySampleSeconds = 240;
constexpr double kWeekSampleSeconds = 1800;
constexpr double kPruneSeconds = 300;

std::mutex sharedLock;
std::shared_ptr<HWSensorMonitor>& sharedInstance() {
  static std::shared_ptr<HWSensorMonitor> instance;
  return instance;
}

// The counter after one more reading: back to 0 when it reaches `readings`.
std::int32_t advanced(std::int32_t count, double readings) {
  const std::int32_t next = count + 1;
  return static_cast<double>(next) == readings ? 0 : next;
}

}  // namespace

std::shared_ptr<HWSensorMonitor> HWSensorMonitor::shared() {
  std::lock_guard guard(sharedLock);
  auto& instance = sharedInstance();
  if (!instance) instance = create();
  return instance;
}

void HWSensorMonitor::resetShared() {
  std::shared_ptr<HWSensorMonitor> old;
  {
    std::lock_guard guard(sharedLock);
    old.swap(sharedInstance());
  }
  // `old` goes here, outside the lock, so that its timer stops without the lock held.
}

std::shared_ptr<HWSensorMonitor> HWSensorMonitor::create(std::shared_ptr<HWDataManager> dataManager) {
  if (!dataManager) dataManager = HWDataManager::shared();
  std::shared_ptr<HWSensorMonitor> monitor(new HWSensorMonitor(std::move(dataManager)));
  monitor->sensorReader_->setDelegate(monitor);
  // The tick holds the monitor weakly: a monitor let go is never read for again.
  std::weak_ptr<HWSensorMonitor> weak = monitor;
  monitor->sensorTimer_->setHandler([weak] {
    if (auto self = weak.lock()) self->sensorReader_->read();
  });
  monitor->dataManager_->settingsDataStore()->addDelegate(monitor);
  monitor->dataManager_->addDelegate(monitor);
  return monitor;
}

HWSensorMonitor::HWSensorMonitor(std::shared_ptr<HWDataManager> dataManager)
    : dataManager_(std::move(dataManager)),
      sensorReader_(HWSensorReader::create()),
      sensorTimer_(std::make_shared<HWMonitorTimer>()) {}

HWSensorMonitor::~HWSensorMonitor() { sensorTimer_->stop(); }

double HWSensorMonitor::updateInterval() const {
  return static_cast<double>(dataManager_->settingsDataStore()->updateInterval());
}

void HWSensorMonitor::loadRecords() {
  records_.clear();
  // Backwards, so that of two sensors with one key the first stays, as with a fetch by key.
  const auto sensors = dataManager_->sensorDataStore()->allSensors();
  for (auto sensor = sensors.rbegin(); sensor != sensors.rend(); ++sensor) {
    records_[(*sensor)->key()] = {*sensor, (*sensor)->categoryTypeNumber()};
  }
  recordsLoaded_ = true;
}

const HWSensorMonitor::Record* HWSensorMonitor::storedRecord(const std::string& key) {
  if (!recordsLoaded_) loadRecords();
  auto found = records_.find(key);
  if (found != records_.end() && !found->second.sensor->isDeleted()) return &found->second;
  // Not known yet, or deleted since: asked of the store, and kept only when it has one.
  auto sensor = dataManager_->sensorDataStore()->getSensorByKey(key);
  if (!sensor) {
    if (found != records_.end()) records_.erase(found);
    return nullptr;
  }
  Record& record = records_[key];
  record = {sensor, sensor->categoryTypeNumber()};
  return &record;
}

std::vector<std::shared_ptr<HWSensorEntity>> HWSensorMonitor::storedSensors() {
  if (!recordsLoaded_) loadRecords();
  std::vector<std::shared_ptr<HWSensorEntity>> sensors;
  sensors.reserve(records_.size());
  for (const auto& [key, record] : records_) {
    if (!record.sensor->isDeleted()) sensors.push_back(record.sensor);
  }
  return sensors;
}

void HWSensorMonitor::dataManagerDataSetReady() { recordsLoaded_ = false; }

void HWSensorMonitor::setup() { allSensors_ = sensorReader_->getAllSensors(); }

void HWSensorMonitor::start() {
  timerCountForHour_ = 0;
  timerCountForDay_ = 0;
  timerCountForWeek_ = 0;
  timerCountForOptimize_ = 0;
  loadRecords();
  removeOutOfDateGraphPoints();

  for (const auto& record : storedSensors()) {
    record->setRecordedMinValue(record->finalRecordedMinValue());
    record->setRecordedMaxValue(record->finalRecordedMaxValue());
  }

  const auto& store = dataManager_->sensorDataStore();
  sensorReader_->setShowHIDSensors(store->showHIDSensors());
  sensorReader_->setShowComputedSensors(store->showComputedSensors());
  sensorReader_->setShowUnknownSensors(store->showUnknownSensors());
  sensorReader_->read();

  sensorTimer_->setInterval(updateInterval());
  sensorTimer_->start(false);
}

void HWSensorMonitor::readerDidReadWithResult(HWBaseReader<SensorList>& reader, const SensorList& result) {
  if (&reader != sensorReader_.get()) return;
  allSensors_ = result;
  updateSensorData();
  forEachDelegate<HWSensorMonitorDelegate>([&](HWSensorMonitorDelegate& d) { d.sensorMonitorDidReadSensors(result); });
}

void HWSensorMonitor::settingsDataStoreUpdateFrequencyDidChange(std::int64_t interval) {
  dataManager_->sensorDataStore()->coreDataStack()->setStalenessInterval(static_cast<double>(interval));
  start();
}

void HWSensorMonitor::updateSensorData() {
  const auto& store = dataManager_->sensorDataStore();
  const double interval = updateInterval();
  const bool hourDue = static_cast<double>(timerCountForHour_) == kHourSampleSeconds / interval - 1;
  const bool dayDue = static_cast<double>(timerCountForDay_) == kDaySampleSeconds / interval - 1;
  const bool weekDue = static_cast<double>(timerCountForWeek_) == kWeekSampleSeconds / interval - 1;
  const bool showHID = store->showHIDSensors();
  const bool showComputed = store->showComputedSensors();
  const bool showUnknown = store->showUnknownSensors();
  const double now = dispatch::now();

  for (const auto& reading : allSensors_) {
    if (!reading) continue;
    const Record* stored = storedRecord(reading->key());
    // A reading the store has no record for (a sensor discovered after the data set was built)
    // waits for the next build.
    if (!stored) continue;
    const auto& record = stored->sensor;
    if ((!showHID && record->sourceType() == kHIDSource) ||
        (!showComputed && record->sourceType() == kComputedSource) || (!showUnknown && record->isUnknownSensor())) {
      continue;
    }
    // Only what changed is marked, so a save writes the rows that moved and nothing else.
    const double value = reading->value();
    if (record->value() != value) record->setValue(value);
    if (record->recordedMinValue() > value) record->setRecordedMinValue(value);
    if (value > record->recordedMaxValue()) record->setRecordedMaxValue(value);
    if (!hourDue && !dayDue && !weekDue) continue;

    // One point per reading even when several ranges fall due: it is kept by the longest of them.
    auto point = store->createGraphPoint();
    point->setPointX(now);
    point->setPointY(record->value());
    if (hourDue) point->setTimeRange(static_cast<std::int16_t>(HWTimeRange::kHour));
    if (dayDue) point->setTimeRange(static_cast<std::int16_t>(HWTimeRange::kDay));
    if (weekDue) point->setTimeRange(static_cast<std::int16_t>(HWTimeRange::kWeek));
    point->setSensor(record);

    if (stored->categoryType != kTemperatureCategory && stored->categoryType != kFanCategory) {
      // Whole-unit bounds for the graph; a flat voltage, current or power still gets a span.
      double minValue = std::floor(record->recordedMinValue());
      const double maxValue = std::ceil(record->recordedMaxValue());
      if (minValue == maxValue) minValue *= 0.9;
      if (record->minValue() != minValue) record->setMinValue(minValue);
      if (record->maxValue() != maxValue) record->setMaxValue(maxValue);
    }
  }
  if (!store->save()) ++saveFailures_;
  checkToRemoveOutOfDateGraphPoints(interval);
}

void HWSensorMonitor::checkToRemoveOutOfDateGraphPoints() { checkToRemoveOutOfDateGraphPoints(updateInterval()); }

void HWSensorMonitor::checkToRemoveOutOfDateGraphPoints(double interval) {
  timerCountForHour_ = advanced(timerCountForHour_, kHourSampleSeconds / interval);
  timerCountForDay_ = advanced(timerCountForDay_, kDaySampleSeconds / interval);
  timerCountForWeek_ = advanced(timerCountForWeek_, kWeekSampleSeconds / interval);
  timerCountForOptimize_ = advanced(timerCountForOptimize_, kPruneSeconds / interval);
  if (timerCountForOptimize_ == 0) removeOutOfDateGraphPoints();
}

void HWSensorMonitor::removeOutOfDateGraphPoints() {
  const auto now =
      dates::Date(std::chrono::duration_cast<dates::Date::duration>(std::chrono::duration<double>(dispatch::now())));
  const auto& store = dataManager_->sensorDataStore();
  const auto sensors = storedSensors();
  std::int64_t removed = 0;
  // Each range keeps what its graph's time axis still shows: from its first label on.
  for (const auto range : {HWTimeRange::kHour, HWTimeRange::kDay, HWTimeRange::kWeek}) {
    const double cutoff = HWUtils::xAxisStartWithCurrentDate(now, static_cast<unsigned long>(range));
    const std::int64_t gone = store->deleteGraphPoints(sensors, range, cutoff);
    if (gone > 0) removed += gone;
  }
  if (removed == 0) return;
  if (!store->save()) ++saveFailures_;
}

}  // namespace corvane
