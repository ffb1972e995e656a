// What the tests that cross processes need: a private D-Bus session bus, child programs with their
// output on a pipe, and running the main queue until something happened. Every wait is bounded;
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
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"

extern char** environ;

namespace corvane::testing {

// The read end of a child's output, read line by line with a deadline.
class LineReader {
 public:
  explicit LineReader(int fd = -1) : fd_(fd) {}
  ~LineReader() { close(); }
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  void reset(int fd) {
    close();
    fd_ = fd;
    buffer_.clear();
  }
  void close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  // The next line (without its newline), or nothing when none came within `timeout` or the
  // writer closed the pipe.
  std::optional<std::string> readLine(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
      if (auto end = buffer_.find('\n'); end != std::string::npos) {
        std::string line = buffer_.substr(0, end);
        buffer_.erase(0, end + 1);
        return line;
      }
      if (fd_ < 0) return std::nullopt;
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return std::nullopt;
      pollfd ready{fd_, POLLIN, 0};
      const int polled = ::poll(&ready, 1, static_cast<int>(left.count()));
      if (polled < 0 && errno == EINTR) continue;
      if (polled <= 0) return std::nullopt;
      char chunk[4096];
      const ssize_t got = ::read(fd_, chunk, sizeof chunk);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) {
        close();
        continue;
      }
      buffer_.append(chunk, static_cast<std::size_t>(got));
    }
  }

  // Everything up to the end of the output (each line waited for up to `timeout`).
  std::string readAll(std::chrono::milliseconds timeout) {
    std::string all;
    while (auto line = readLine(timeout)) all += *line + "\n";
    return all + std::exchange(buffer_, {});
  }

 private:
  int fd_;
  std::string buffer_;
};

// The current environment with `overrides` applied (an empty value removes the variable).
inline std::vector<std::string> environmentWith(const std::map<std::string, std::string>& overrides) {
  std::vector<std::string> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view text(*entry);
    const std::string name(text.substr(0, text.find('=')));
    if (overrides.count(name) == 0) result.emplace_back(text);
  }
  for (const auto& [name, value] : overrides) {
    if (!value.empty()) result.push_back(name + "=" + value);
  }
  return result;
}

// A child program whose standard output comes back through a pipe. Killed (SIGTERM, then
// reaped) when the object goes, unless it has ended already.
class ChildProcess {
 public:
  // Starts `program` (looked up on PATH when it has no "/") with `args` and the environment
  // `environment`; standard error goes to `errorFile` (empty: /dev/null).
  ChildProcess(const std::string& program, const std::vector<std::string>& args,
               const std::vector<std::string>& environment, const std::string& errorFile = {}) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addopen(&actions, 2, errorFile.empty() ? "/dev/null" : errorFile.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    std::vector<std::string> storage{program};
    storage.insert(storage.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& arg : storage) argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::vector<std::string> env = environment;
    std::vector<char*> envp;
    for (auto& entry : env) envp.push_back(entry.data());
    envp.push_back(nullptr);
    const int spawned = ::posix_spawnp(&pid_, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[1]);
    if (spawned != 0) {
      pid_ = -1;
      ::close(fds[0]);
      return;
    }
    output_.reset(fds[0]);
  }

  ~ChildProcess() {
    if (pid_ > 0 && !exitCode_) {
      ::kill(pid_, SIGTERM);
      wait(std::chrono::seconds(10));
      if (!exitCode_) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
      }
    }
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  LineReader& output() { return output_; }

  // Waits up to `timeout` for the child to end; its exit code (-1 when killed by a signal), or
  // nothing when it is still running.
  std::optional<int> wait(std::chrono::milliseconds timeout) {
    if (exitCode_ || pid_ <= 0) return exitCode_;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
      int status = 0;
      const pid_t done = ::waitpid(pid_, &status, WNOHANG);
      if (done == pid_) {
        exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return exitCode_;
      }
      if (done < 0 && errno != EINTR) return std::nullopt;
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return std::nullopt;
      // A process descriptor becomes readable when the child ends.
      const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
      if (pidfd < 0) return std::nullopt;
      pollfd ended{pidfd, POLLIN, 0};
      ::poll(&ended, 1, static_cast<int>(left.count()));
      ::close(pidfd);
    }
  }

 private:
  pid_t pid_ = -1;
  LineReader output_;
  std::optional<int> exitCode_;
};

// A private D-Bus session bus for one test: started with dbus-daemon, which forks it off and
// prints its address and pid; stopped by that pid when the object goes.
class PrivateBus {
 public:
  PrivateBus() {
    ChildProcess daemon("dbus-daemon", {"--session", "--fork", "--print-address=1", "--print-pid=1"},
                        environmentWith({}));
    auto address = daemon.output().readLine(std::chrono::seconds(10));
    auto pid = daemon.output().readLine(std::chrono::seconds(10));
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

// Runs the real main queue until `done()` holds (checked after every 2 ms) or `timeout` passes;
// returns whether it held.
inline bool runMainQueueUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  if (done()) return true;
  auto active = std::make_shared<std::atomic<bool>>(true);
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  auto queue = dispatch::mainQueue();
  auto check = std::make_shared<std::function<void()>>();
  std::weak_ptr<std::function<void()>> weakCheck = check;
  *check = [active, deadline, done, queue, weakCheck] {
    if (!*active) return;
    if (done() || std::chrono::steady_clock::now() >= deadline) {
      *active = false;
      dispatch::stopMainQueue();
      return;
    }
    if (auto again = weakCheck.lock()) queue->asyncAfter(std::chrono::milliseconds(2), [again] { (*again)(); });
  };
  queue->async([check] { (*check)(); });
  dispatch::runMainQueue();
  *active = false;
  return done();
}

}  // namespace corvane::testing
