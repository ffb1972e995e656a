// Running a system tool with administrator rights, after the user's consent: how the product
// gives its SMC helper tool its owner and mode.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace corvane::platform {

class Platform;

// One backend per system: Authorization Services on a Mac, pkexec on Linux, and a recording
// fake for simulated machines and tests. Calls block; use from one thread at a time.
class PrivilegedExecution {
 public:
  virtual ~PrivilegedExecution() = default;

  // Makes the service for `platform`: the host's when native, a recording one that touches
  // nothing when simulated (a simulation never asks for a password).
  static std::shared_ptr<PrivilegedExecution> create(const Platform& platform);

  // Asks for the administrator's consent to the runs that follow (a Mac asks for the password
  // here; pkexec asks at each run, so on Linux this only checks that pkexec is there). False
  // when it was refused or cannot be asked.
  virtual bool authorize() = 0;
  // Runs the executable at `tool` (an absolute path) with `args`, as root, without a shell, and
  // waits for it to end. True when it could be started; the tool's exit status is not looked at.
  virtual bool run(const std::string& tool, const std::vector<std::string>& args) = 0;
  // Gives up the consent obtained by authorize().
  virtual void release() = 0;

  // Where this system keeps chown and chmod.
  virtual std::string chownTool() const = 0;
  virtual std::string chmodTool() const = 0;
};

}  // namespace corvane::platform
