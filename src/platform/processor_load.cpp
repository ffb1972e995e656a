#include "corvane/platform/processor_load.h"

#include "corvane/platform/platform.h"
#include "platform/processor_load_backends.h"

namespace corvane::platform {
namespace {

// A recorded machine has no running processors; until profiles record tick series and core
// clusters, it answers nothing rather than inventing figures.
class RecordedProcessorLoad final : public ProcessorLoad {
 public:
  bool sample(ProcessorTickSample&) const override { return false; }
  std::optional<std::vector<ProcessorCore>> cores() const override { return std::nullopt; }
};

}  // namespace

std::shared_ptr<ProcessorLoad> ProcessorLoad::create(const Platform& platform) {
  if (platform.simulated()) return std::make_shared<RecordedProcessorLoad>();
  return nativeProcessorLoad();
}

}  // namespace corvane::platform
