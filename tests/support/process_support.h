// What the tests that cross processes need: child programs with their output on a pipe, a private
// D-Bus session bus, and running the main queue until something happened. Every wait is bounded;
// nothing sleeps.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "corvane/dispatch/dispatch.h"

extern char** environ;

namespace corvane::testing {

// A child program (looked up on PATH when it has no "/") with its standard output on a pipe and its
// standard error in `errorFile` (empty: /dev/null), in this process's environment changed by
// `overrides` (an empty value removes the variable). Killed and reaped when the object goes,
// unless it has ended already.
class ChildProcess {
 public:
  ChildProcess(const std::string& program, const std::vector<std::string>& args,
               const std::map<std::string, std::string>& overrides = {}, const std::string& errorFile = {}) {
    std::vector<std::string> argStore{program}, envStore;
    argStore.insert(argStore.end(), args.begin(), args.end());
    for (char** entry = environ; *entry != nullptr; ++entry) {
      const std::string_view text(*entry);
      if (overrides.count(std::string(text.substr(0, text.find('=')))) == 0) envStore.emplace_back(text);
    }
    for (const auto& [name, value] : overrides) {
      if (!value.empty()) envStore.push_back(name + "=" + value);
    }
    std::vector<char*> argv, envp;
    for (auto& arg : argStore) argv.push_back(arg.data());
    for (auto& entry : envStore) envp.push_back(entry.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, errorFile.empty() ? "/dev/null" : errorFile.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (::posix_spawnp(&pid_, program.c_str(), &actions, nullptr, argv.data(), envp.data()) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    fd_ = fds[0];
  }
  ~ChildProcess() {
    if (fd_ >= 0) ::close(fd_);
    if (pid_ > 0 && !exitCode_) {
      ::kill(pid_, SIGTERM);
      if (!wait(std::chrono::seconds(10))) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
      }
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }

  // The next line of output (without its newline), or nothing when none came within `timeout` or
  // the child closed its end.
  std::optional<std::string> readLine(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (auto end = buffer_.find('\n'); end == std::string::npos; end = buffer_.find('\n')) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      pollfd ready{fd_, POLLIN, 0};
      char chunk[4096];
      ssize_t got = 0;
      if (fd_ < 0 || left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0 ||
          (got = ::read(fd_, chunk, sizeof chunk)) <= 0) {
        return std::nullopt;
      }
      buffer_.append(chunk, static_cast<std::size_t>(got));
    }
    const auto end = buffer_.find('\n');
    std::string line = buffer_.substr(0, end);
    buffer_.erase(0, end + 1);
    return line;
  }

  // Everything up to the end of the output (each line waited for up to `timeout`).
  std::string readAll(std::chrono::milliseconds timeout) {
    std::string all;
    while (auto line = readLine(timeout)) all += *line + "\n";
    return all + buffer_;
  }

  // Waits up to `timeout` for the child to end: its exit code (-1 when killed by a signal), or
  // nothing while it still runs.
  std::optional<int> wait(std::chrono::milliseconds timeout) {
    if (exitCode_ || pid_ <= 0) return exitCode_;
    // A process descriptor becomes readable when the child ends.
    const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
    if (pidfd >= 0) {
      pollfd ended{pidfd, POLLIN, 0};
      ::poll(&ended, 1, static_cast<int>(timeout.count()));
      ::close(pidfd);
    }
    int status = 0;
    if (::waitpid(pid_, &status, WNOHANG) == pid_) exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return exitCode_;
  }

 private:
  pid_t pid_ = -1;
  int fd_ = -1;
  std::string buffer_;
  std::optional<int> exitCode_;
};

// A private D-Bus session bus for one test: dbus-daemon forks it off and prints its address and
// pid; stopped by that pid when the object goes.
class PrivateBus {
 public:
  PrivateBus() {
    ChildProcess daemon("dbus-daemon", {"--session", "--fork", "--print-address=1", "--print-pid=1"});
    auto address = daemon.readLine(std::chrono::seconds(10));
    auto pid = daemon.readLine(std::chrono::seconds(10));
    daemon.wait(std::chrono::seconds(10));
    if (!address || !pid || address->empty()) return;
    address_ = *address;
    pid_ = static_cast<pid_t>(std::atol(pid->c_str()));
  }
  ~PrivateBus() {
    if (pid_ > 0) ::kill(pid_, SIGTERM);
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  bool running() const { return pid_ > 0 && !address_.empty(); }
  const std::string& address() const { return address_; }

 private:
  std::string address_;
  pid_t pid_ = -1;
};

// Runs the real main queue until `done()` holds (checked every 2 ms) or `timeout` passes; returns
// whether it held.
inline bool runMainQueueUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  auto active = std::make_shared<std::atomic<bool>>(!done());
  auto check = std::make_shared<std::function<void()>>();
  *check = [active, deadline, done, weak = std::weak_ptr(check)] {
    if (!*active) return;
    if (done() || std::chrono::steady_clock::now() >= deadline) {
      *active = false;
      dispatch::stopMainQueue();
    } else if (auto again = weak.lock()) {
      dispatch::mainQueue()->asyncAfter(std::chrono::milliseconds(2), [again] { (*again)(); });
    }
  };
  if (*active) {
    dispatch::mainQueue()->async([check] { (*check)(); });
    dispatch::runMainQueue();
    *active = false;
  }
  return done();
}

// Polls `holds` until it is true or `within` has passed: a real process's work takes real time.
inline bool eventually(const std::function<bool()>& holds, std::chrono::seconds within = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + within;
  while (!holds()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  return true;
}

}  // namespace corvane::testing
