#include "corvane/monitors/cpu_monitor.h"

#include <algorithm>
#include <utility>

#include "corvane/dispatch/dispatch.h"

namespace corvane {

namespace {

std::mutex sharedLock;
std::shared_ptr<HWCPUMonitor>& sharedInstance() {
  static std::shared_ptr<HWCPUMonitor> instance;
  return instance;
}

// A timer tick holds the monitor weakly: a monitor let go is never read for again.
template <class Reader>
std::function<void()> readOnTick(const std::weak_ptr<HWCPUMonitor>& weak,
                                 const std::shared_ptr<Reader>& (HWCPUMonitor::*reader)() const) {
  return [weak, reader] {
    if (auto self = weak.lock()) ((*self).*reader)()->read();
  };
}

}  // namespace

std::shared_ptr<HWCPUMonitor> HWCPUMonitor::shared() {
  std::lock_guard guard(sharedLock);
  auto& instance = sharedInstance();
  if (!instance) instance = create();
  return instance;
}

void HWCPUMonitor::resetShared() {
  std::shared_ptr<HWCPUMonitor> old;
  {
    std::lock_guard guard(sharedLock);
    old.swap(sharedInstance());
  }
}

std::shared_ptr<HWCPUMonitor> HWCPUMonitor::create(std::shared_ptr<HWDataManager> dataManager, Readers readers) {
  if (!dataManager) dataManager = HWDataManager::shared();
  if (!readers.load) readers.load = std::make_shared<HWCPULoadReader>();
  if (!readers.process) readers.process = std::make_shared<HWCPUProcessReader>();
  if (!readers.average) readers.average = std::make_shared<HWCPUAverageReader>();
  std::shared_ptr<HWCPUMonitor> monitor(new HWCPUMonitor(std::move(dataManager), std::move(readers)));
  monitor->readers_.load->setDelegate(monitor);
  monitor->readers_.process->setDelegate(monitor);
  monitor->readers_.average->setDelegate(monitor);
  std::weak_ptr<HWCPUMonitor> weak = monitor;
  monitor->loadTimer_->setHandler(readOnTick(weak, &HWCPUMonitor::loadReader));
  monitor->processTimer_->setHandler(readOnTick(weak, &HWCPUMonitor::processReader));
  monitor->averageTimer_->setHandler(readOnTick(weak, &HWCPUMonitor::averageReader));
  monitor->dataManager_->cpuDataStore()->addDelegate(monitor);
  monitor->dataManager_->settingsDataStore()->addDelegate(monitor);
  return monitor;
}

HWCPUMonitor::HWCPUMonitor(std::shared_ptr<HWDataManager> dataManager, Readers readers)
    : dataManager_(std::move(dataManager)), readers_(std::move(readers)) {
  loadTimer_->setIdentifier("cpu_load");
}

HWCPUMonitor::~HWCPUMonitor() { stop(); }

HWCPULoadInfo HWCPUMonitor::loadInfo() const {
  std::lock_guard guard(lock_);
  return loadInfo_;
}

std::vector<HWCPULoadInfoItem> HWCPUMonitor::loadInfoItems() const {
  std::lock_guard guard(lock_);
  return loadInfoItems_;
}

std::vector<HWCPUProcess> HWCPUMonitor::topProcesses() const {
  std::lock_guard guard(lock_);
  return topProcesses_;
}

std::optional<HWLoadAverages> HWCPUMonitor::loadValues() const {
  std::lock_guard guard(lock_);
  return loadValues_;
}

void HWCPUMonitor::setup() {
  readers_.process->setNumberOfProcesses(dataManager_->cpuDataStore()->numOfTopProcesses());
  const auto interval = static_cast<double>(dataManager_->settingsDataStore()->updateInterval());
  {
    std::lock_guard guard(lock_);
    updateInterval_ = interval;
  }
  processTimer_->setInterval(interval);
  loadTimer_->setInterval(interval);
  averageTimer_->setInterval(kAverageInterval);
}

void HWCPUMonitor::start() {
  readers_.process->read();
  processTimer_->start(true);
  readers_.load->read();
  loadTimer_->start(true);
  readers_.average->read();
  averageTimer_->start(true);
}

void HWCPUMonitor::stop() {
  processTimer_->stop();
  loadTimer_->stop();
  averageTimer_->stop();
}

void HWCPUMonitor::processLoadInfo(const HWCPULoadInfo& info) {
  const double now = dispatch::now();
  std::lock_guard guard(lock_);
  loadInfo_ = info;
  loadInfoItems_.push_back({now, info});
  // Half an interval of slack keeps the reading that is just about a minute old: without it the
  // series would hold one point fewer every other tick as readings drift across the cutoff.
  const double cutoff = now - kSeriesSeconds - 0.5 * updateInterval_;
  const auto firstKept = std::find_if(loadInfoItems_.begin(), loadInfoItems_.end(),
                                      [cutoff](const HWCPULoadInfoItem& item) { return item.timeInterval >= cutoff; });
  loadInfoItems_.erase(loadInfoItems_.begin(), firstKept);
}

template <class Fn>
void HWCPUMonitor::tellListeners(Fn fn) {
  std::weak_ptr<HWCPUMonitor> weak = weak_from_this();
  dispatch::mainQueue()->async([weak, fn = std::move(fn)] {
    if (auto self = weak.lock()) self->forEachDelegate<HWCPUMonitorDelegate>(fn);
  });
}

void HWCPUMonitor::readerDidReadWithResult(HWBaseReader<HWCPULoadInfo>& reader, const HWCPULoadInfo& result) {
  if (&reader != readers_.load.get()) return;
  processLoadInfo(result);
  tellListeners([result](HWCPUMonitorDelegate& listener) { listener.cpuMonitorDidReadLoadInfo(result); });
}

void HWCPUMonitor::readerDidReadWithResult(HWBaseReader<std::vector<HWCPUProcess>>& reader,
                                           const std::vector<HWCPUProcess>& result) {
  if (&reader != readers_.process.get()) return;
  {
    std::lock_guard guard(lock_);
    topProcesses_ = result;
  }
  tellListeners([result](HWCPUMonitorDelegate& listener) { listener.cpuMonitorDidReadTopProcesses(result); });
}

void HWCPUMonitor::readerDidReadWithResult(HWBaseReader<HWLoadAverages>& reader, const HWLoadAverages& result) {
  if (&reader != readers_.average.get()) return;
  {
    std::lock_guard guard(lock_);
    loadValues_ = result;
  }
  tellListeners([result](HWCPUMonitorDelegate& listener) { listener.cpuMonitorDidReadLoadAverage(result); });
}

void HWCPUMonitor::cpuDataStoreNumOfTopProcessesDidChange(std::int64_t number) {
  readers_.process->setNumberOfProcesses(number);
  readers_.process->read();
}

void HWCPUMonitor::settingsDataStoreUpdateFrequencyDidChange(std::int64_t interval) {
  const auto seconds = static_cast<double>(interval);
  {
    std::lock_guard guard(lock_);
    updateInterval_ = seconds;
  }
  processTimer_->setInterval(seconds);
  processTimer_->start(true);
  loadTimer_->setInterval(seconds);
  loadTimer_->start(true);
}

}  // namespace corvane
