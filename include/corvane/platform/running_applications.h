// The applications running on this computer, and starting and ending them.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::platform {

class Platform;

// The bundle identifier of the product's main application.
inline constexpr std::string_view kMainAppBundleIdentifier = "com.corvane.app";

// One running application.
struct RunningApplication {
  int processIdentifier = -1;
  std::string bundleIdentifier;
};

// Lists, launches and ends applications. On a Mac an application is what the workspace lists;
// elsewhere it is a process recognised by its executable (see the backend). Thread-safe.
class RunningApplications {
 public:
  // Called once a launch has finished: nothing on success, else why it failed. May be called
  // on any thread, including the caller's before openApplication returns.
  using OpenCompletion = std::function<void(std::optional<std::string> error)>;

  virtual ~RunningApplications() = default;

  // Makes the service for `platform`: an in-memory one when simulated, else the host's.
  static std::shared_ptr<RunningApplications> create(const Platform& platform);

  // The running applications whose bundle identifier is `bundleIdentifier`.
  virtual std::vector<RunningApplication> runningApplications(std::string_view bundleIdentifier) const = 0;

  // Starts the application known by `bundleIdentifier`, asynchronously and without waiting or
  // reporting back; an application that cannot be found is not started.
  virtual void launchApplication(std::string_view bundleIdentifier) = 0;

  // Opens the application at `appPath` with the default configuration, then calls `completion`.
  virtual void openApplication(const std::filesystem::path& appPath, OpenCompletion completion) = 0;

  // Asks `application` to quit (`force` false) or ends it at once (`force` true). False when the
  // request could not be delivered (e.g. it has already ended).
  virtual bool terminate(const RunningApplication& application, bool force) = 0;
};

}  // namespace corvane::platform
