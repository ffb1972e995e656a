// Readers: objects that take one measurement when told to and hand the result to one delegate.
#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "corvane/dispatch/dispatch.h"

namespace corvane {

// Something that measures once per call to read(). Monitors hold their readers through this
// interface whatever their result types.
class HWReader {
 public:
  virtual ~HWReader() = default;
  // Takes one measurement, synchronously on the calling thread or queue.
  virtual void read() = 0;
};

template <class Result>
class HWBaseReader;

// The single receiver of the results of readers of `Result` (e.g. the sensor reader's list of
// records). A receiver of several kinds of reader derives from one delegate per result type and
// overrides one readerDidReadWithResult for each.
template <class Result>
class HWBaseReaderDelegate {
 public:
  virtual ~HWBaseReaderDelegate() = default;
  // `reader` has read `result`. Called on the thread or queue that the reader documents.
  virtual void readerDidReadWithResult(HWBaseReader<Result>& reader, const Result& result) = 0;
};

// The base of every reader of `Result`: one weak delegate and a private serial queue kept for
// subclasses. Held by std::shared_ptr. The delegate may be set and read from any thread.
template <class Result>
class HWBaseReader : public HWReader {
 public:
  using ResultType = Result;
  using Delegate = HWBaseReaderDelegate<Result>;

  // Creates the reader's own queue, labelled "com.HWBaseReader.internalQueue".
  HWBaseReader() : internalQueue_(dispatch::serialQueue("com.HWBaseReader.internalQueue")) {}
  ~HWBaseReader() override = default;
  HWBaseReader(const HWBaseReader&) = delete;
  HWBaseReader& operator=(const HWBaseReader&) = delete;

  // Does nothing; each reader overrides it.
  void read() override {}

  // The receiver of results, or null when none is set or it has gone.
  std::shared_ptr<Delegate> delegate() const {
    std::lock_guard guard(lock_);
    return delegate_.lock();
  }
  // Sets the receiver, held weakly.
  void setDelegate(const std::shared_ptr<Delegate>& delegate) {
    std::lock_guard guard(lock_);
    delegate_ = delegate;
  }

  // The reader's serial queue (never null unless a subclass sets null).
  std::shared_ptr<dispatch::Queue> internalQueue() const {
    std::lock_guard guard(lock_);
    return internalQueue_;
  }
  void setInternalQueue(std::shared_ptr<dispatch::Queue> queue) {
    std::lock_guard guard(lock_);
    internalQueue_.swap(queue);
  }

 protected:
  // Hands `result` to the delegate, if any, on the calling thread. The delegate is called with
  // no lock held, so it may set another delegate.
  void deliverResult(const Result& result) {
    if (auto receiver = delegate()) receiver->readerDidReadWithResult(*this, result);
  }

 private:
  mutable std::mutex lock_;
  std::weak_ptr<Delegate> delegate_;
  std::shared_ptr<dispatch::Queue> internalQueue_;
};

}  // namespace corvane
