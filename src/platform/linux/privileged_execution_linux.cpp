// Linux: each privileged run goes through pkexec, which asks the user through the desktop's
// polkit agent. No shell is involved: pkexec gets the tool and its arguments as they are.
#include <unistd.h>

#include "platform/posix/process.h"
#include "platform/privileged_execution_backends.h"

namespace corvane::platform {
namespace {

constexpr const char* kPkexec = "/usr/bin/pkexec";

class PkexecExecution final : public PrivilegedExecution {
 public:
  bool authorize() override { return ::access(kPkexec, X_OK) == 0; }

  bool run(const std::string& tool, const std::vector<std::string>& args) override {
    std::vector<std::string> arguments{tool};
    arguments.insert(arguments.end(), args.begin(), args.end());
    std::string error;
    // Waiting for the end keeps the runs in order: a chown after a chmod would clear the
    // set-user-ID bits again.
    return posix::runProcess(kPkexec, arguments, &error).has_value();
  }

  void release() override {}
  std::string chownTool() const override { return "/usr/bin/chown"; }
  std::string chmodTool() const override { return "/usr/bin/chmod"; }
};

}  // namespace

std::shared_ptr<PrivilegedExecution> nativePrivilegedExecution() { return std::make_shared<PkexecExecution>(); }

}  // namespace corvane::platform
