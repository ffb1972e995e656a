// The process service on every platform: the POSIX runner.
#include "corvane/platform/processes.h"
#include "platform/posix/process.h"

namespace corvane::platform {
namespace {

class PosixProcesses final : public Processes {
 public:
  std::optional<ProcessResult> run(const std::string& path, const std::vector<std::string>& arguments,
                                   std::string* error) override {
    return posix::runProcess(path, arguments, error);
  }
};

}  // namespace

std::shared_ptr<Processes> Processes::create(const Platform&) { return std::make_shared<PosixProcesses>(); }

}  // namespace corvane::platform
