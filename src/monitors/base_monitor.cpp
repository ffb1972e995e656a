#include "corvane/monitors/base_monitor.h"

#include "util/weak_list.h"

namespace corvane {

struct HWBaseMonitor::Listeners {
  WeakList<HWMonitorDelegate> list;
};

HWBaseMonitor::HWBaseMonitor() : listeners_(std::make_unique<Listeners>()) {}

HWBaseMonitor::~HWBaseMonitor() = default;

void HWBaseMonitor::addDelegate(const std::shared_ptr<HWMonitorDelegate>& delegate) {
  listeners_->list.add(delegate);
}

std::vector<std::shared_ptr<HWMonitorDelegate>> HWBaseMonitor::delegates() const { return listeners_->list.live(); }

void HWBaseMonitor::forEachListener(const std::function<void(HWMonitorDelegate&)>& fn) const {
  listeners_->list.forEach(fn);
}

void HWBaseMonitor::setup() {}

void HWBaseMonitor::start() {}

void HWBaseMonitor::stop() {}

}  // namespace corvane
