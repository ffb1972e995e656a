#include "platform/sim/sim_running_applications.h"

namespace corvane::platform::sim {

std::vector<RunningApplication> InMemoryRunningApplications::runningApplications(
    std::string_view bundleIdentifier) const {
  std::lock_guard guard(lock_);
  std::vector<RunningApplication> found;
  for (const auto& [pid, instance] : running_) {
    if (instance.bundleIdentifier == bundleIdentifier) found.push_back({pid, instance.bundleIdentifier});
  }
  return found;
}

void InMemoryRunningApplications::launchApplication(std::string_view bundleIdentifier) {
  std::lock_guard guard(lock_);
  launched_.emplace_back(bundleIdentifier);
  for (const auto& [path, identifier] : installed_) {
    if (identifier == bundleIdentifier) {
      startLocked(identifier);
      return;
    }
  }
}

void InMemoryRunningApplications::openApplication(const std::filesystem::path& appPath, OpenCompletion completion) {
  std::optional<std::string> error;
  {
    std::lock_guard guard(lock_);
    opened_.push_back(appPath);
    auto app = installed_.find(appPath);
    if (openError_) {
      error = openError_;
    } else if (app == installed_.end()) {
      error = "no application at " + appPath.string();
    } else {
      startLocked(app->second);
    }
  }
  // Outside the lock: the completion may well ask what is running.
  if (completion) completion(std::move(error));
}

bool InMemoryRunningApplications::terminate(const RunningApplication& application, bool force) {
  std::lock_guard guard(lock_);
  auto instance = running_.find(application.processIdentifier);
  if (instance == running_.end()) return false;
  if (force) {
    ++forcedTerminations_;
    if (!instance->second.ignoresForce) running_.erase(instance);
  } else {
    ++plainTerminations_;
    if (instance->second.plainTerminationsLeft-- <= 0) running_.erase(instance);
  }
  return true;
}

void InMemoryRunningApplications::installApplication(const std::filesystem::path& appPath,
                                                     const std::string& bundleIdentifier) {
  std::lock_guard guard(lock_);
  installed_[appPath] = bundleIdentifier;
}

int InMemoryRunningApplications::addRunning(const std::string& bundleIdentifier, int plainTerminations,
                                            bool ignoresForce) {
  std::lock_guard guard(lock_);
  const int pid = startLocked(bundleIdentifier);
  running_[pid].plainTerminationsLeft = plainTerminations;
  running_[pid].ignoresForce = ignoresForce;
  return pid;
}

void InMemoryRunningApplications::setOpenError(std::optional<std::string> error) {
  std::lock_guard guard(lock_);
  openError_ = std::move(error);
}

std::vector<std::filesystem::path> InMemoryRunningApplications::openedPaths() const {
  std::lock_guard guard(lock_);
  return opened_;
}

std::vector<std::string> InMemoryRunningApplications::launchedIdentifiers() const {
  std::lock_guard guard(lock_);
  return launched_;
}

int InMemoryRunningApplications::plainTerminationCount() const {
  std::lock_guard guard(lock_);
  return plainTerminations_;
}

int InMemoryRunningApplications::forcedTerminationCount() const {
  std::lock_guard guard(lock_);
  return forcedTerminations_;
}

int InMemoryRunningApplications::startLocked(const std::string& bundleIdentifier) {
  const int pid = nextPid_++;
  running_[pid] = Instance{bundleIdentifier, 0, false};
  return pid;
}

}  // namespace corvane::platform::sim
