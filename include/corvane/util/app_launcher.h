// Starting, ending and checking the product's companion applications.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "corvane/util/error.h"

namespace corvane {

// Stateless; every method is thread-safe. Applications are named by bundle identifier.
class HWAppLauncher {
 public:
  // Called when an open has finished: whether the application was opened, and the failure the
  // system reported (none when it merely did not need opening).
  using OpenCompletion = std::function<void(bool opened, std::optional<HWError> error)>;

  // The bundle identifier loadMainApp launches.
  static const std::string_view kMainAppBundleIdentifier;

  // Launches the main application asynchronously, without waiting or reporting back.
  static void loadMainApp();

  // Opens the application at `appPath` unless one with `bundleIdentifier` runs already. With
  // `forceRelaunch`, a running one is first ended forcibly and the application then opened.
  static void openApp(const std::string& bundleIdentifier, const std::string& appPath, bool forceRelaunch,
                      OpenCompletion completion);

  // Opens the application at `appPath` when a file is there and no application with
  // `bundleIdentifier` runs; `completion` then gets (true, none) or (false, the error) on the
  // main queue. Otherwise `completion` gets (false, none) at once on the calling thread.
  static void openApp(const std::string& bundleIdentifier, const std::string& appPath, OpenCompletion completion);

  // Asks every application with `bundleIdentifier` to quit (or ends it, with `force`) again and
  // again, without pause, until none runs; then calls `completion` (if any) on the calling
  // thread. Blocks: an application that never quits keeps it asking.
  static void terminateApp(const std::string& bundleIdentifier, bool force, const std::function<void()>& completion);

  // Asks every application with `bundleIdentifier` once to quit (or ends it, with `force`).
  static void terminateApp(const std::string& bundleIdentifier, bool force);

  // True when at least one application with `bundleIdentifier` runs.
  static bool isAppRunning(const std::string& bundleIdentifier);
};

}  // namespace corvane
