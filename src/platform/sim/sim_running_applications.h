// Applications of a simulated machine: a table in memory that tests fill and inspect.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "corvane/platform/running_applications.h"

namespace corvane::platform::sim {

// Opening an application at a path installed with installApplication() starts one instance of
// it; anything else fails. Termination requests are counted; an instance ends after the number
// of plain requests it was made to survive, or at the first forced one unless it ignores those
// too. Completions are called on the caller's thread before openApplication returns.
class InMemoryRunningApplications final : public RunningApplications {
 public:
  std::vector<RunningApplication> runningApplications(std::string_view bundleIdentifier) const override;
  void launchApplication(std::string_view bundleIdentifier) override;
  void openApplication(const std::filesystem::path& appPath, OpenCompletion completion) override;
  bool terminate(const RunningApplication& application, bool force) override;

  // Makes an application with `bundleIdentifier` openable at `appPath`.
  void installApplication(const std::filesystem::path& appPath, const std::string& bundleIdentifier);
  // Starts an instance as if the user had; it survives `plainTerminations` plain requests.
  // Returns its process identifier.
  int addRunning(const std::string& bundleIdentifier, int plainTerminations = 0, bool ignoresForce = false);
  // Every later open fails with `error` (nothing: opens succeed again).
  void setOpenError(std::optional<std::string> error);

  // Paths opened and identifiers launched, in order (failed opens included).
  std::vector<std::filesystem::path> openedPaths() const;
  std::vector<std::string> launchedIdentifiers() const;
  // Termination requests delivered so far, plain and forced.
  int plainTerminationCount() const;
  int forcedTerminationCount() const;

 private:
  struct Instance {
    std::string bundleIdentifier;
    int plainTerminationsLeft = 0;
    bool ignoresForce = false;
  };

  int startLocked(const std::string& bundleIdentifier);

  mutable std::mutex lock_;
  std::map<std::filesystem::path, std::string> installed_;
  std::map<int, Instance> running_;
  int nextPid_ = 1000;
  std::optional<std::string> openError_;
  std::vector<std::filesystem::path> opened_;
  std::vector<std::string> launched_;
  int plainTerminations_ = 0;
  int forcedTerminations_ = 0;
};

}  // namespace corvane::platform::sim
