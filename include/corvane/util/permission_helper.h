// Gives the SMC helper tool the rights it needs to write the SMC: owned by root, group of the
// administrators, set-user-ID and set-group-ID, mode exactly 6555, set once with the
// administrator's consent.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "corvane/platform/file_attributes.h"

namespace corvane {

class HWPermissionHelper {
 public:
  // The only mode an installed tool may have: set-user-ID, set-group-ID, r-x for everyone.
  static constexpr unsigned kRequiredPermissions = 06555;

  // True when the tool at files::smcExePath() is owned by the platform's root account and
  // administrators' group with mode exactly 6555. A missing file (or no path) gives false.
  // Synchronous: one attribute read.
  static bool isSMCPermissionGranted();

  // On a new serial queue "Request Privilege": copies the shipped tool to its run path when no
  // file is there (never replacing one), answers true at once when already granted, else asks
  // for the administrator's consent and runs chown ROOT:ADMIN then chmod 6555 on it. Calls
  // `completion` (when given) on the main queue with the result.
  static void requestSMCPermissionWithCompletionHandler(std::function<void(bool)> completion);

  // The rule of isSMCPermissionGranted over attributes already read.
  static bool isGranted(const std::optional<platform::FileAttributes>& attributes, const std::string& rootAccount,
                        const std::string& adminGroup);

  // Everything that keeps the tool at files::smcExePath() from being usable by fan control, each
  // a short phrase ("it is owned by alice, not root"); empty when it is installed as required.
  static std::vector<std::string> smcPermissionProblems();
  // The same over attributes already read (nothing: no file there).
  static std::vector<std::string> problemsWith(const std::optional<platform::FileAttributes>& attributes,
                                               const std::string& rootAccount, const std::string& adminGroup);
  // Why fan control cannot change a fan, in one line that names the tool's path, says what is
  // wrong and ends with how to fix it; empty when the tool is installed as required. What every
  // fan command prints (after "corvane: ") when it refuses for want of the helper tool.
  static std::string smcPermissionMessage();

  // Where attributes come from (tests feed their own); null restores reading the file system.
  using AttributesReader = std::function<std::optional<platform::FileAttributes>(const std::filesystem::path&)>;
  static void setAttributesReader(AttributesReader reader);
};

}  // namespace corvane
