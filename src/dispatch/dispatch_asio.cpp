// The real backend on Linux: Asio. Each private queue that is used gets its own thread running
// its own context, so a timer tick is woken, run and re-armed on one thread with no hand-off;
// the main queue's context is run by the thread that calls runMainQueue().
#ifndef ASIO_STANDALONE
#define ASIO_STANDALONE
#endif
#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <atomic>
#include <chrono>
#include <thread>

#include "dispatch/backend.h"

namespace corvane::dispatch::detail {
namespace {

using Executor = asio::io_context::executor_type;

// One context, run by one thread at a time (the hint lets Asio skip cross-thread wake-ups).
struct Context {
  asio::io_context io{1};
  asio::executor_work_guard<Executor> keepRunning = asio::make_work_guard(io);
  std::atomic<bool> stopRequested{false};  // main loop only
};

// Lives for the whole process: queues held by singletons destroyed at exit still refer to it.
Context& mainContext() {
  static auto* context = new Context;
  return *context;
}

void postAtOn(Context& context, std::int64_t deadline, std::function<void()> work) {
  auto when = std::chrono::steady_clock::time_point(
      std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::nanoseconds(deadline)));
  auto timer = std::make_shared<asio::steady_timer>(context.io, when);
  timer->async_wait([timer, work = std::move(work)](const std::error_code& error) {
    if (!error) work();
  });
}

// A private queue: its context and the thread that runs it.
//
// Pending work holds its queue, so the core goes only once nothing is pending: either from
// another thread (join the idle thread) or from the last item on its own thread (detach; the
// thread keeps the context until run() returns).
class ThreadQueueCore final : public RealQueueCore {
 public:
  ThreadQueueCore() : context_(std::make_shared<Context>()) {
    thread_ = std::thread([context = context_] { context->io.run(); });
  }

  ~ThreadQueueCore() override {
    asio::post(context_->io, [context = context_] { context->keepRunning.reset(); });
    if (thread_.get_id() == std::this_thread::get_id()) {
      thread_.detach();
    } else {
      thread_.join();
    }
  }

  ThreadQueueCore(const ThreadQueueCore&) = delete;
  ThreadQueueCore& operator=(const ThreadQueueCore&) = delete;

  void post(std::function<void()> work) override { asio::post(context_->io, std::move(work)); }

  void postAt(std::int64_t deadline, std::function<void()> work) override {
    postAtOn(*context_, deadline, std::move(work));
  }

 private:
  std::shared_ptr<Context> context_;
  std::thread thread_;
};

class MainQueueCore final : public RealQueueCore {
 public:
  void post(std::function<void()> work) override { asio::post(mainContext().io, std::move(work)); }

  void postAt(std::int64_t deadline, std::function<void()> work) override {
    postAtOn(mainContext(), deadline, std::move(work));
  }
};

}  // namespace

std::unique_ptr<RealQueueCore> makeRealQueueCore(const std::string& /*label*/, bool isMain) {
  if (isMain) return std::make_unique<MainQueueCore>();
  return std::make_unique<ThreadQueueCore>();
}

std::int64_t realMonotonicNanos() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

void realRunMain() {
  auto& context = mainContext();
  // Restart first: a stop that lands after this check still stops run() below.
  context.io.restart();
  if (context.stopRequested.exchange(false)) return;
  context.io.run();
  context.stopRequested.store(false);
}

void realStopMain() {
  auto& context = mainContext();
  context.stopRequested.store(true);
  context.io.stop();
}

}  // namespace corvane::dispatch::detail
