// The base of every data store: listeners held weakly, and a hook to clear the store's data.
#pragma once

#include <memory>
#include <vector>

namespace corvane {

// The root of every data store's delegate protocol. A protocol derives from it virtually, so one
// object may implement several protocols and still be registered once; a store calls a delegate
// only through the protocols it implements (what "responds to" means here).
class HWDataStoreDelegate {
 public:
  virtual ~HWDataStoreDelegate() = default;
};

// A store of the product's data with its delegates. Delegates are never kept alive by the store:
// one that goes away simply drops out. Not locked: delegates are added at start-up and walked on
// the main queue.
class HWDataStore {
 public:
  HWDataStore();
  virtual ~HWDataStore();
  HWDataStore(const HWDataStore&) = delete;
  HWDataStore& operator=(const HWDataStore&) = delete;

  // Registers `delegate` after the others; null and a delegate already registered are ignored.
  void addDelegate(const std::shared_ptr<HWDataStoreDelegate>& delegate);
  // The live delegates, in registration order.
  std::vector<std::shared_ptr<HWDataStoreDelegate>> delegates() const;
  // Removes what this store keeps; the base keeps nothing.
  virtual void clearData();

 protected:
  // Calls `fn(protocol&)` on each live delegate that implements `Protocol`, in registration
  // order; each one is kept alive during its call.
  template <class Protocol, class Fn>
  void forEachDelegate(Fn&& fn) const {
    for (const auto& delegate : delegates()) {
      if (auto* conforming = dynamic_cast<Protocol*>(delegate.get())) fn(*conforming);
    }
  }

 private:
  struct Delegates;
  std::unique_ptr<Delegates> delegates_;
};

}  // namespace corvane
