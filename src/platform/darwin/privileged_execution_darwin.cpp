// macOS: one authorization for the right "system.privilege.admin" (the system asks for an
// administrator's password), then each tool through AuthorizationExecuteWithPrivileges.
#include <Security/Authorization.h>
#include <Security/AuthorizationTags.h>

#include <cstdio>
#include <vector>

#include "platform/privileged_execution_backends.h"

namespace corvane::platform {
namespace {

class AuthorizationExecution final : public PrivilegedExecution {
 public:
  ~AuthorizationExecution() override { release(); }

  bool authorize() override {
    release();
    AuthorizationItem right = {kAuthorizationRightExecute /* "system.privilege.admin" */, 0, nullptr, 0};
    AuthorizationRights rights = {1, &right};
    const AuthorizationFlags flags =
        kAuthorizationFlagDefaults | kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights;
    return AuthorizationCreate(&rights, kAuthorizationEmptyEnvironment, flags, &authorization_) == errAuthorizationSuccess &&
           authorization_ != nullptr;
  }

  bool run(const std::string& tool, const std::vector<std::string>& args) override {
    if (authorization_ == nullptr) return false;
    std::vector<char*> argv;
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    FILE* pipe = nullptr;
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
    const OSStatus status =
        AuthorizationExecuteWithPrivileges(authorization_, tool.c_str(), kAuthorizationFlagDefaults, argv.data(), &pipe);
#pragma clang diagnostic pop
    if (pipe != nullptr) {
      // The output is not used; reading to its end only waits for the tool, so the runs stay in
      // order (a chown after a chmod would clear the set-user-ID bits again).
      char buffer[256];
      while (std::fread(buffer, 1, sizeof buffer, pipe) > 0) {
      }
      std::fclose(pipe);
    }
    return status == errAuthorizationSuccess;
  }

  void release() override {
    if (authorization_ != nullptr) {
      AuthorizationFree(authorization_, kAuthorizationFlagDefaults);
      authorization_ = nullptr;
    }
  }

  std::string chownTool() const override { return "/usr/sbin/chown"; }
  std::string chmodTool() const override { return "/bin/chmod"; }

 private:
  AuthorizationRef authorization_ = nullptr;
};

}  // namespace

std::shared_ptr<PrivilegedExecution> nativePrivilegedExecution() {
  return std::make_shared<AuthorizationExecution>();
}

}  // namespace corvane::platform
