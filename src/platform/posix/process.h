// Child processes started without a shell: run to the end with both outputs captured, or
// launched to live on their own.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "corvane/platform/processes.h"

namespace corvane::platform::posix {

// A file descriptor closed when the object goes.
class UniqueFd {
 public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  ~UniqueFd() { reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;

  int get() const { return fd_; }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd = -1);

 private:
  int fd_ = -1;
};

using platform::ProcessResult;

// Runs the executable at `path` with `arguments` (argv[0] is `path`), standard input from
// /dev/null, and waits until it has closed both outputs and ended. Both pipes are drained
// together, so a command filling one while the other is read cannot stall. Nothing when it could
// not be started, with the reason in `error`. Blocks the calling thread.
std::optional<ProcessResult> runProcess(const std::string& path, const std::vector<std::string>& arguments,
                                        std::string* error);

// Starts the executable at `path` with `arguments` in a session of its own, with its standard
// streams on /dev/null, and returns at once. It is reaped by a background thread when it ends,
// so it never lingers as a zombie. The process id, or -1 with the reason in `error`.
pid_t launchDetached(const std::string& path, const std::vector<std::string>& arguments, std::string* error);

}  // namespace corvane::platform::posix
