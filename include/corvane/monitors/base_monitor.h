// Monitors: objects that own readers and timers and fan results out to many listeners.
#pragma once

#include <functional>
#include <memory>
#include <vector>

namespace corvane {

// The root of every monitor delegate protocol. A protocol derives from it *virtually* (so a
// listener may implement several) and gives each method an empty default body: a listener
// overrides only the messages it wants, and the others do nothing.
//
//   class HWSensorMonitorDelegate : public virtual HWMonitorDelegate {
//    public:
//     virtual void sensorMonitorDidReadSensors(HWSensorMonitor& monitor) {}
//   };
class HWMonitorDelegate {
 public:
  virtual ~HWMonitorDelegate() = default;
};

// The base of every monitor: its listeners, held weakly, and the setup/start/stop life cycle.
// The listener list is not locked: it is filled at start-up and read on the main thread.
class HWBaseMonitor {
 public:
  HWBaseMonitor();
  virtual ~HWBaseMonitor();
  HWBaseMonitor(const HWBaseMonitor&) = delete;
  HWBaseMonitor& operator=(const HWBaseMonitor&) = delete;

  // Registers a listener (held weakly). Null, and a listener already registered, are ignored.
  // There is no removal: a listener leaves by being released.
  void addDelegate(const std::shared_ptr<HWMonitorDelegate>& delegate);
  // The live listeners, in registration order.
  std::vector<std::shared_ptr<HWMonitorDelegate>> delegates() const;

  // Called once after creation; subclasses read their settings here. Does nothing here.
  virtual void setup();
  // Begins monitoring. Does nothing here.
  virtual void start();
  // Ends monitoring. Does nothing here.
  virtual void stop();

  // Calls fn(Protocol&) for each live listener that implements `Protocol`, in registration
  // order; the others are skipped silently.
  template <class Protocol, class Fn>
  void forEachDelegate(Fn&& fn) const {
    forEachListener([&](HWMonitorDelegate& listener) {
      if (auto* receiver = dynamic_cast<Protocol*>(&listener)) fn(*receiver);
    });
  }
  // Calls fn for each live listener in registration order (each kept alive during its call;
  // one added meanwhile is called from the next walk on).
  void forEachListener(const std::function<void(HWMonitorDelegate&)>& fn) const;

 private:
  struct Listeners;
  std::unique_ptr<Listeners> listeners_;
};

}  // namespace corvane
