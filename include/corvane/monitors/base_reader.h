// Readers: objects that take one measurement when told to and hand the result to one delegate.
#pragma once

#include <any>
#include <memory>
#include <mutex>
#include <utility>

#include "corvane/dispatch/dispatch.h"

namespace corvane {

// Something that measures once per call to read().
class HWReader {
 public:
  virtual ~HWReader() = default;
  // Takes one measurement, synchronously on the calling thread or queue.
  virtual void read() = 0;
};

class HWBaseReader;

// The single receiver of a reader's results.
//
// The result travels as std::any holding the reader's own result type, which each reader
// documents (e.g. std::vector<std::shared_ptr<HWSensor>> for the sensor reader). Receivers take
// it with std::any_cast<const T>(&result), which yields null rather than a wrong type.
class HWBaseReaderDelegate {
 public:
  virtual ~HWBaseReaderDelegate() = default;
  // `reader` has read `result`. Called on the thread or queue that the reader documents.
  virtual void readerDidReadWithResult(HWBaseReader& reader, const std::any& result) = 0;
};

// The base of every reader: one weak delegate and a private serial queue kept for subclasses.
// Held by std::shared_ptr. The delegate may be set and read from any thread.
class HWBaseReader : public HWReader {
 public:
  // Creates the reader's own queue, labelled "com.HWBaseReader.internalQueue".
  HWBaseReader();
  ~HWBaseReader() override;
  HWBaseReader(const HWBaseReader&) = delete;
  HWBaseReader& operator=(const HWBaseReader&) = delete;

  // Does nothing; each reader overrides it.
  void read() override;

  // The receiver of results, or null when none is set or it has gone.
  std::shared_ptr<HWBaseReaderDelegate> delegate() const;
  // Sets the receiver, held weakly.
  void setDelegate(const std::shared_ptr<HWBaseReaderDelegate>& delegate);

  // The reader's serial queue (never null unless a subclass sets null).
  std::shared_ptr<dispatch::Queue> internalQueue() const;
  void setInternalQueue(std::shared_ptr<dispatch::Queue> queue);

 protected:
  // Hands `result` to the delegate, if any, on the calling thread.
  template <class Result>
  void deliverResult(Result&& result) {
    if (auto receiver = delegate()) {
      receiver->readerDidReadWithResult(*this, std::any(std::forward<Result>(result)));
    }
  }

 private:
  mutable std::mutex lock_;
  std::weak_ptr<HWBaseReaderDelegate> delegate_;
  std::shared_ptr<dispatch::Queue> internalQueue_;
};

}  // namespace corvane
