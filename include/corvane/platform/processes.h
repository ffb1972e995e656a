// Running another program to its end: the privileged helper tool, and commands whose output
// the product reads.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace corvane::platform {

class Platform;

// How a finished command ended and what it wrote.
struct ProcessResult {
  int exitCode = -1;  // the exit status, or -1 when a signal ended it
  int signal = 0;     // the signal that ended it, 0 when it exited
  std::string out;    // everything written to standard output
  std::string err;    // everything written to standard error
};

// Starts programs without a shell. Every platform, simulated ones included, runs real
// processes (the helper tool of a simulated machine is a real program); tests that must not
// replace it with provide<Processes>(). Thread-safe.
class Processes {
 public:
  virtual ~Processes() = default;

  // Makes the service for `platform`: the POSIX runner.
  static std::shared_ptr<Processes> create(const Platform& platform);

  // Runs the executable at `path` with `arguments` (argv[0] is `path`), standard input from
  // /dev/null, and waits until it has ended, with both outputs captured. Nothing when it could
  // not be started, with the reason in `error` (may be null). Blocks the calling thread.
  virtual std::optional<ProcessResult> run(const std::string& path, const std::vector<std::string>& arguments,
                                           std::string* error) = 0;
};

}  // namespace corvane::platform
