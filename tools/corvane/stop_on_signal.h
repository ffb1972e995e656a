// Ctrl-C, SIGTERM and a closing terminal as a stop of the main queue, for the commands that run
// until interrupted.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <thread>

#include "corvane/dispatch/dispatch.h"

namespace corvane::cli {

// Blocks the stop signals in every thread and turns them into a stop of the main queue on a
// thread of its own: a signal handler may not touch the queue, and a stop taken between two
// items of the queue never cuts a save in half. Make it before any other thread starts, so that
// they all inherit the mask and leave the signals to the waiter.
class StopOnSignal {
 public:
  StopOnSignal() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGINT);
    sigaddset(&signals_, SIGTERM);
    sigaddset(&signals_, SIGHUP);
    pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    waiter_ = std::thread([this] {
      int received = 0;
      sigwait(&signals_, &received);
      dispatch::stopMainQueue();
    });
  }
  // Ends the waiter whether or not a signal came (then it is its own SIGTERM that wakes it).
  ~StopOnSignal() {
    pthread_kill(waiter_.native_handle(), SIGTERM);
    waiter_.join();
  }
  StopOnSignal(const StopOnSignal&) = delete;
  StopOnSignal& operator=(const StopOnSignal&) = delete;

 private:
  sigset_t signals_;
  std::thread waiter_;
};

}  // namespace corvane::cli
