#include "corvane/store/data_store.h"

#include "util/weak_list.h"

namespace corvane {

struct HWDataStore::Delegates {
  WeakList<HWDataStoreDelegate> list;
};

HWDataStore::HWDataStore() : delegates_(std::make_unique<Delegates>()) {}

HWDataStore::~HWDataStore() = default;

void HWDataStore::addDelegate(const std::shared_ptr<HWDataStoreDelegate>& delegate) { delegates_->list.add(delegate); }

std::vector<std::shared_ptr<HWDataStoreDelegate>> HWDataStore::delegates() const { return delegates_->list.live(); }

void HWDataStore::clearData() {}

}  // namespace corvane
