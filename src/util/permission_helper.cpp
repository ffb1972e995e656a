#include "corvane/util/permission_helper.h"

#include <cstdio>
#include <mutex>
#include <system_error>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/privileged_execution.h"
#include "corvane/util/install_paths.h"

namespace corvane {

namespace {

std::mutex& readerLock() {
  static std::mutex lock;
  return lock;
}
HWPermissionHelper::AttributesReader& attributesReader() {
  static HWPermissionHelper::AttributesReader reader;
  return reader;
}

std::optional<platform::FileAttributes> attributesOf(const std::filesystem::path& path) {
  HWPermissionHelper::AttributesReader reader;
  {
    std::lock_guard guard(readerLock());
    reader = attributesReader();
  }
  return reader ? reader(path) : platform::readFileAttributes(path);
}

bool grantedAt(const std::string& path) {
  const auto& files = platform::current().files();
  return HWPermissionHelper::isGranted(attributesOf(path), files.rootAccountName(), files.adminGroupName());
}

// The whole request, on the request's own queue.
bool install() {
  const auto path = files::smcExePath();
  if (!path) return false;

  std::error_code error;
  if (!std::filesystem::exists(*path, error)) {
    // A failed copy shows in the check below; an existing file is never replaced.
    std::filesystem::copy_file(files::smcExeSrcPath(), *path, std::filesystem::copy_options::none, error);
  }
  if (grantedAt(*path)) return true;

  auto& platform = platform::current();
  auto& privileged = platform.service<platform::PrivilegedExecution>();
  if (!privileged.authorize()) return false;
  const std::string owner = platform.files().rootAccountName() + ":" + platform.files().adminGroupName();
  const bool granted = privileged.run(privileged.chownTool(), {owner, *path}) &&
                       privileged.run(privileged.chmodTool(), {"6555", *path});
  privileged.release();
  return granted;
}

}  // namespace

bool HWPermissionHelper::isGranted(const std::optional<platform::FileAttributes>& attributes,
                                   const std::string& rootAccount, const std::string& adminGroup) {
  return attributes.has_value() && attributes->ownerAccountName == rootAccount &&
         attributes->groupOwnerAccountName == adminGroup && attributes->posixPermissions == kRequiredPermissions;
}

std::vector<std::string> HWPermissionHelper::problemsWith(const std::optional<platform::FileAttributes>& attributes,
                                                         const std::string& rootAccount,
                                                         const std::string& adminGroup) {
  if (!attributes) return {"it is not installed"};
  std::vector<std::string> problems;
  if (attributes->ownerAccountName != rootAccount) {
    problems.push_back("it is owned by " + attributes->ownerAccountName + ", not " + rootAccount);
  }
  if (attributes->groupOwnerAccountName != adminGroup) {
    problems.push_back("its group is " + attributes->groupOwnerAccountName + ", not " + adminGroup);
  }
  const unsigned mode = attributes->posixPermissions;
  if (mode == kRequiredPermissions) return problems;
  // The bits that matter most are named; the mode itself says the rest.
  if ((mode & 04000) == 0) problems.push_back("it is not set-user-ID");
  if ((mode & 02000) == 0) problems.push_back("it is not set-group-ID");
  if ((mode & 0222) != 0) problems.push_back("it is writable");
  char text[64];
  std::snprintf(text, sizeof text, "its mode is %04o, not %04o", mode, kRequiredPermissions);
  problems.push_back(text);
  return problems;
}

std::vector<std::string> HWPermissionHelper::smcPermissionProblems() {
  const auto path = files::smcExePath();
  if (!path) return {"there is no folder to install it in"};
  const auto& files = platform::current().files();
  return problemsWith(attributesOf(*path), files.rootAccountName(), files.adminGroupName());
}

std::string HWPermissionHelper::smcPermissionMessage() {
  const auto problems = smcPermissionProblems();
  if (problems.empty()) return {};
  const auto& files = platform::current().files();
  std::string message = "fan control needs the helper tool " + files::smcExePath().value_or("Corvane SMC") +
                        " owned by " + files.rootAccountName() + ":" + files.adminGroupName() + " with mode 6555, but ";
  for (std::size_t i = 0; i < problems.size(); ++i) message += (i == 0 ? "" : ", ") + problems[i];
  return message + "; run `corvane helper install` (it asks for an administrator's password)";
}

bool HWPermissionHelper::isSMCPermissionGranted() {
  const auto path = files::smcExePath();
  return path.has_value() && grantedAt(*path);
}

void HWPermissionHelper::requestSMCPermissionWithCompletionHandler(std::function<void(bool)> completion) {
  dispatch::serialQueue("Request Privilege")->async([completion = std::move(completion)]() mutable {
    const bool granted = install();
    if (completion) {
      dispatch::mainQueue()->async([completion = std::move(completion), granted] { completion(granted); });
    }
  });
}

void HWPermissionHelper::setAttributesReader(AttributesReader reader) {
  std::lock_guard guard(readerLock());
  attributesReader() = std::move(reader);
}

}  // namespace corvane
