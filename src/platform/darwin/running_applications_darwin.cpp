// Applications on a Mac, through LaunchServices and the process list. Without the workspace's
// Objective-C objects, an application is a process whose executable lies inside a bundle, known
// by that bundle's identifier; quitting sends SIGTERM and forcing SIGKILL.
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <libproc.h>
#include <signal.h>
#include <sys/param.h>

#include <string>
#include <vector>

#include "platform/darwin/cf_property_list.h"
#include "platform/running_applications_backends.h"

namespace corvane::platform {
namespace {

using darwin::CFOwned;

// The bundle folder an executable inside ".../Name.app/Contents/MacOS/" belongs to.
std::string bundlePathOfExecutable(const std::string& executable) {
  const auto marker = executable.rfind(".app/Contents/MacOS/");
  if (marker == std::string::npos) return {};
  return executable.substr(0, marker + 4);
}

std::string bundleIdentifierAt(const std::string& bundlePath) {
  CFOwned path = darwin::makeString(bundlePath);
  if (!path) return {};
  CFOwned url(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, static_cast<CFStringRef>(path.get()),
                                            kCFURLPOSIXPathStyle, true));
  if (!url) return {};
  CFOwned bundle(CFBundleCreate(kCFAllocatorDefault, static_cast<CFURLRef>(url.get())));
  if (!bundle) return {};
  CFStringRef identifier = CFBundleGetIdentifier(static_cast<CFBundleRef>(const_cast<void*>(bundle.get())));
  return identifier != nullptr ? darwin::toUtf8(identifier) : std::string();
}

CFOwned fileUrl(const std::string& path) {
  CFOwned text = darwin::makeString(path);
  if (!text) return CFOwned();
  return CFOwned(CFURLCreateWithFileSystemPath(kCFAllocatorDefault, static_cast<CFStringRef>(text.get()),
                                               kCFURLPOSIXPathStyle, true));
}

OSStatus openUrl(CFURLRef appUrl, LSLaunchFlags flags) {
  LSLaunchURLSpec launch{};
  launch.appURL = appUrl;
  launch.launchFlags = flags;
  return LSOpenFromURLSpec(&launch, nullptr);
}

class LaunchServicesApplications final : public RunningApplications {
 public:
  std::vector<RunningApplication> runningApplications(std::string_view bundleIdentifier) const override {
    std::vector<RunningApplication> found;
    const int count = proc_listallpids(nullptr, 0);
    if (count <= 0) return found;
    std::vector<pid_t> pids(static_cast<size_t>(count) + 16);
    const int listed = proc_listallpids(pids.data(), static_cast<int>(pids.size() * sizeof(pid_t)));
    char path[PROC_PIDPATHINFO_MAXSIZE];
    for (int i = 0; i < listed; ++i) {
      if (pids[i] <= 0 || proc_pidpath(pids[i], path, sizeof path) <= 0) continue;
      const std::string bundle = bundlePathOfExecutable(path);
      if (!bundle.empty() && bundleIdentifierAt(bundle) == bundleIdentifier) {
        found.push_back({pids[i], std::string(bundleIdentifier)});
      }
    }
    return found;
  }

  void launchApplication(std::string_view bundleIdentifier) override {
    CFOwned identifier = darwin::makeString(std::string(bundleIdentifier));
    if (!identifier) return;
    CFOwned urls(LSCopyApplicationURLsForBundleIdentifier(static_cast<CFStringRef>(identifier.get()), nullptr));
    if (!urls || CFArrayGetCount(static_cast<CFArrayRef>(urls.get())) == 0) return;
    auto url = static_cast<CFURLRef>(CFArrayGetValueAtIndex(static_cast<CFArrayRef>(urls.get()), 0));
    openUrl(url, kLSLaunchDefaults | kLSLaunchAsync);
  }

  void openApplication(const std::filesystem::path& appPath, OpenCompletion completion) override {
    std::optional<std::string> error;
    CFOwned url = fileUrl(appPath.string());
    if (!url) {
      error = "no application at " + appPath.string();
    } else if (OSStatus status = openUrl(static_cast<CFURLRef>(url.get()), kLSLaunchDefaults); status != noErr) {
      error = "cannot open " + appPath.string() + " (LaunchServices error " + std::to_string(status) + ")";
    }
    if (completion) completion(std::move(error));
  }

  bool terminate(const RunningApplication& application, bool force) override {
    if (application.processIdentifier <= 0) return false;
    return ::kill(application.processIdentifier, force ? SIGKILL : SIGTERM) == 0;
  }
};

}  // namespace

std::shared_ptr<RunningApplications> nativeRunningApplications() {
  return std::make_shared<LaunchServicesApplications>();
}

}  // namespace corvane::platform
