#include "corvane/util/app_launcher.h"

#include <filesystem>
#include <utility>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/running_applications.h"

namespace corvane {
namespace {

platform::RunningApplications& applications() { return platform::current().service<platform::RunningApplications>(); }

}  // namespace

const std::string_view HWAppLauncher::kMainAppBundleIdentifier = platform::kMainAppBundleIdentifier;

void HWAppLauncher::loadMainApp() { applications().launchApplication(kMainAppBundleIdentifier); }

void HWAppLauncher::openApp(const std::string& bundleIdentifier, const std::string& appPath, bool forceRelaunch,
                            OpenCompletion completion) {
  if (!forceRelaunch) {
    openApp(bundleIdentifier, appPath, std::move(completion));
    return;
  }
  terminateApp(bundleIdentifier, true, [&] { openApp(bundleIdentifier, appPath, std::move(completion)); });
}

void HWAppLauncher::openApp(const std::string& bundleIdentifier, const std::string& appPath,
                            OpenCompletion completion) {
  std::error_code ec;
  if (!std::filesystem::exists(appPath, ec) || isAppRunning(bundleIdentifier)) {
    if (completion) completion(false, std::nullopt);
    return;
  }
  applications().openApplication(appPath, [completion = std::move(completion)](std::optional<std::string> failure) {
    if (!completion) return;
    dispatch::mainQueue()->async([completion, failure = std::move(failure)] {
      if (failure) {
        completion(false, errors::kitError(1, *failure));
      } else {
        completion(true, std::nullopt);
      }
    });
  });
}

void HWAppLauncher::terminateApp(const std::string& bundleIdentifier, bool force,
                                 const std::function<void()>& completion) {
  while (isAppRunning(bundleIdentifier)) terminateApp(bundleIdentifier, force);
  if (completion) completion();
}

void HWAppLauncher::terminateApp(const std::string& bundleIdentifier, bool force) {
  auto& apps = applications();
  for (const auto& application : apps.runningApplications(bundleIdentifier)) apps.terminate(application, force);
}

bool HWAppLauncher::isAppRunning(const std::string& bundleIdentifier) {
  return !applications().runningApplications(bundleIdentifier).empty();
}

}  // namespace corvane
