// A PrivilegedExecution that runs nothing and remembers what it was asked, for simulated
// machines and tests. Thread-safe.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "corvane/platform/privileged_execution.h"

namespace corvane::platform::sim {

class RecordedPrivilegedExecution final : public PrivilegedExecution {
 public:
  // One request, in order: "authorize", "release", or a run with its tool and arguments.
  struct Call {
    std::string tool;  // "authorize" and "release" for those calls
    std::vector<std::string> args;
    bool operator==(const Call&) const = default;
  };

  bool authorize() override;
  bool run(const std::string& tool, const std::vector<std::string>& args) override;
  void release() override;
  // A Mac's tools, as a simulated machine is a Mac.
  std::string chownTool() const override { return "/usr/sbin/chown"; }
  std::string chmodTool() const override { return "/bin/chmod"; }

  // Makes authorize() answer false (the user cancels).
  void setRefuseAuthorization(bool refuse);
  // Makes the run with this 0-based index (counting runs only) fail to start; -1 for none.
  void setFailingRun(int index);
  // Called with each run that starts, before run() returns: tests apply its effect.
  void setOnRun(std::function<void(const Call&)> effect);

  std::vector<Call> calls() const;

 private:
  mutable std::mutex lock_;
  std::vector<Call> calls_;
  bool refuse_ = false;
  int failingRun_ = -1;
  int runs_ = 0;
  std::function<void(const Call&)> onRun_;
};

}  // namespace corvane::platform::sim
