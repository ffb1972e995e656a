#include "platform/sim/recorded_privileged_execution.h"

namespace corvane::platform::sim {

bool RecordedPrivilegedExecution::authorize() {
  std::lock_guard guard(lock_);
  calls_.push_back({"authorize", {}});
  return !refuse_;
}

bool RecordedPrivilegedExecution::run(const std::string& tool, const std::vector<std::string>& args) {
  std::function<void(const Call&)> effect;
  Call call{tool, args};
  {
    std::lock_guard guard(lock_);
    calls_.push_back(call);
    if (runs_++ == failingRun_) return false;
    effect = onRun_;
  }
  if (effect) effect(call);
  return true;
}

void RecordedPrivilegedExecution::release() {
  std::lock_guard guard(lock_);
  calls_.push_back({"release", {}});
}

void RecordedPrivilegedExecution::setRefuseAuthorization(bool refuse) {
  std::lock_guard guard(lock_);
  refuse_ = refuse;
}

void RecordedPrivilegedExecution::setFailingRun(int index) {
  std::lock_guard guard(lock_);
  failingRun_ = index;
}

void RecordedPrivilegedExecution::setOnRun(std::function<void(const Call&)> effect) {
  std::lock_guard guard(lock_);
  onRun_ = std::move(effect);
}

std::vector<RecordedPrivilegedExecution::Call> RecordedPrivilegedExecution::calls() const {
  std::lock_guard guard(lock_);
  return calls_;
}

}  // namespace corvane::platform::sim
