#include "corvane/monitors/base_reader.h"

namespace corvane {

HWBaseReader::HWBaseReader() : internalQueue_(dispatch::serialQueue("com.HWBaseReader.internalQueue")) {}

HWBaseReader::~HWBaseReader() = default;

void HWBaseReader::read() {}

std::shared_ptr<HWBaseReaderDelegate> HWBaseReader::delegate() const {
  std::lock_guard guard(lock_);
  return delegate_.lock();
}

void HWBaseReader::setDelegate(const std::shared_ptr<HWBaseReaderDelegate>& delegate) {
  std::lock_guard guard(lock_);
  delegate_ = delegate;
}

std::shared_ptr<dispatch::Queue> HWBaseReader::internalQueue() const {
  std::lock_guard guard(lock_);
  return internalQueue_;
}

void HWBaseReader::setInternalQueue(std::shared_ptr<dispatch::Queue> queue) {
  std::lock_guard guard(lock_);
  internalQueue_.swap(queue);
}

}  // namespace corvane
