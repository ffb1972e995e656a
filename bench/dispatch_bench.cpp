// Costs of the periodic engine: what a monitor timer tick costs beyond its handler on the real
// backend, and how fast the virtual clock replays long periods.
#include <benchmark/benchmark.h>

#include <time.h>
#ifdef __linux__
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#endif

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "corvane/dispatch/dispatch.h"
#include "corvane/monitors/monitor_timer.h"

namespace {

using namespace corvane;

// Process CPU time in seconds (every thread, so the backend's pool threads count too).
double processCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Reports the process CPU spent per tick.
void reportCpuPerTick(benchmark::State& state, double cpu, std::int64_t ticks) {
  state.counters["cpu_per_tick_us"] = benchmark::Counter(cpu / static_cast<double>(ticks) * 1e6);
  state.SetItemsProcessed(ticks);
}

// Waits on a condition variable until a timer's handler has counted `target` ticks.
struct TickCounter {
  void tick() {
    std::lock_guard guard(lock);
    ++ticks;
    if (ticks >= target) reached.notify_one();
  }
  void waitFor(std::int64_t count) {
    std::unique_lock guard(lock);
    target = count;
    reached.wait(guard, [&] { return ticks >= target; });
  }
  std::mutex lock;
  std::condition_variable reached;
  std::int64_t ticks = 0;
  std::int64_t target = 0;
};

// A 1 ms monitor timer on the real backend, as monitors use it (with a far longer interval).
// Each iteration waits for 100 ticks. The figure that matters is "cpu_per_tick": all the CPU
// the process spent per tick (waking the pool thread, the strand, arming the next deadline,
// the handler's counter), since the wall time per tick is the interval by design. The handler
// here only counts, so this is the overhead beyond a real handler's own work.
void BM_MonitorTimerTickCpu(benchmark::State& state) {
  constexpr std::int64_t kTicksPerIteration = 100;
  TickCounter counter;
  HWMonitorTimer timer;
  timer.setInterval(0.001);
  timer.setHandler([&] { counter.tick(); });
  timer.start(false);
  counter.waitFor(1);  // let the pool threads come up
  double cpu = 0;
  std::int64_t ticks = 0;
  for (auto _ : state) {
    std::int64_t from;
    {
      std::lock_guard guard(counter.lock);
      from = counter.ticks;
    }
    double before = processCpuSeconds();
    counter.waitFor(from + kTicksPerIteration);
    cpu += processCpuSeconds() - before;
    ticks += kTicksPerIteration;
  }
  timer.stop();
  reportCpuPerTick(state, cpu, ticks);
}
BENCHMARK(BM_MonitorTimerTickCpu)->Unit(benchmark::kMillisecond)->Iterations(20)->UseRealTime();

#ifdef __linux__
// The floor for comparison: the bare operating-system timer a reactor waits on (a 1 ms
// periodic timerfd read through epoll on this thread, no queue, no handler). What the monitor
// timer costs beyond this is the overhead of the queue, Asio and the timer source.
void BM_BareOsTimerFloor(benchmark::State& state) {
  constexpr std::int64_t kTicksPerIteration = 100;
  int timerFd = timerfd_create(CLOCK_MONOTONIC, 0);
  int poll = epoll_create1(0);
  epoll_event watch{};
  watch.events = EPOLLIN;
  epoll_ctl(poll, EPOLL_CTL_ADD, timerFd, &watch);
  itimerspec period{};
  period.it_value.tv_nsec = 1'000'000;
  period.it_interval.tv_nsec = 1'000'000;
  timerfd_settime(timerFd, 0, &period, nullptr);
  double cpu = 0;
  std::int64_t ticks = 0;
  for (auto _ : state) {
    double before = processCpuSeconds();
    for (std::int64_t i = 0; i < kTicksPerIteration; ++i) {
      epoll_event ready{};
      if (epoll_wait(poll, &ready, 1, -1) == 1) {
        std::uint64_t expirations = 0;
        benchmark::DoNotOptimize(read(timerFd, &expirations, sizeof expirations));
      }
    }
    cpu += processCpuSeconds() - before;
    ticks += kTicksPerIteration;
  }
  close(poll);
  close(timerFd);
  reportCpuPerTick(state, cpu, ticks);
}
BENCHMARK(BM_BareOsTimerFloor)->Unit(benchmark::kMillisecond)->Iterations(20)->UseRealTime();
#endif

// The library's own work per tick, without any operating-system wait: a 1 ns interval is
// always due, so each tick's catch-up tick is posted straight onto the queue's thread, and the
// process CPU per tick is the timer source's bookkeeping, the queue's dispatch and a counting
// handler (what each real tick adds to the kernel's wake-up, measured above).
void BM_TimerEventBackToBack(benchmark::State& state) {
  constexpr std::int64_t kTicksPerIteration = 10'000;
  TickCounter counter;
  auto queue = dispatch::serialQueue("bench");
  auto source = dispatch::makeTimer(queue);
  source->setHandler([&] { counter.tick(); });
  source->schedule(std::chrono::nanoseconds(0), std::chrono::nanoseconds(1), std::chrono::nanoseconds(0));
  source->resume();
  counter.waitFor(1);
  double cpu = 0;
  std::int64_t ticks = 0;
  for (auto _ : state) {
    std::int64_t from;
    {
      std::lock_guard guard(counter.lock);
      from = counter.ticks;
    }
    double before = processCpuSeconds();
    counter.waitFor(from + kTicksPerIteration);
    cpu += processCpuSeconds() - before;
    ticks += kTicksPerIteration;
  }
  source->cancel();
  queue->sync([] {});
  reportCpuPerTick(state, cpu, ticks);
}
BENCHMARK(BM_TimerEventBackToBack)->Unit(benchmark::kMillisecond)->UseRealTime();

// One week of a 2-second monitor timer with an empty handler on the virtual clock: 302,401
// ticks (the one at once, then one every 2 s).
void BM_VirtualWeekOfTwoSecondTimer(benchmark::State& state) {
  std::int64_t ticks = 0;
  for (auto _ : state) {
    auto time = dispatch::installVirtualTime(1'700'000'000.0);
    HWMonitorTimer timer;
    timer.setInterval(2);
    std::int64_t count = 0;
    timer.setHandler([&count] { ++count; });
    timer.start(false);
    time->advance(std::chrono::hours(24 * 7));
    if (count != 302'401) state.SkipWithError("wrong tick count");
    ticks += count;
    timer.stop();
  }
  state.SetItemsProcessed(ticks);
}
BENCHMARK(BM_VirtualWeekOfTwoSecondTimer)->Unit(benchmark::kMillisecond);

// Posting and running plain work on the virtual clock.
void BM_VirtualAsync(benchmark::State& state) {
  auto time = dispatch::installVirtualTime(0);
  auto queue = dispatch::serialQueue("bench");
  std::int64_t ran = 0;
  for (auto _ : state) {
    queue->async([&ran] { ++ran; });
    time->runUntilIdle();
  }
  benchmark::DoNotOptimize(ran);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_VirtualAsync);

}  // namespace

BENCHMARK_MAIN();
