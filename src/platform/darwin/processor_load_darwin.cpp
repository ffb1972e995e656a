// The Mac's kernel counts ticks per processor and for the machine itself.
#include <mach/mach.h>
#include <mach/processor_info.h>

#include <algorithm>

#include "platform/processor_load_backends.h"

namespace corvane::platform {
namespace {

class MachProcessorLoad final : public ProcessorLoad {
 public:
  bool sample(ProcessorTickSample& sample) const override {
    sample.machine.reset();
    sample.processors.clear();
    const mach_port_t host = mach_host_self();
    host_cpu_load_info_data_t load{};
    mach_msg_type_number_t count = HOST_CPU_LOAD_INFO_COUNT;
    if (host_statistics(host, HOST_CPU_LOAD_INFO, reinterpret_cast<host_info_t>(&load), &count) == KERN_SUCCESS) {
      sample.machine.emplace();
      (*sample.machine)[kUserTicks] = load.cpu_ticks[CPU_STATE_USER];
      (*sample.machine)[kSystemTicks] = load.cpu_ticks[CPU_STATE_SYSTEM];
      (*sample.machine)[kIdleTicks] = load.cpu_ticks[CPU_STATE_IDLE];
      (*sample.machine)[kNiceTicks] = load.cpu_ticks[CPU_STATE_NICE];
    }
    natural_t processors = 0;
    processor_info_array_t info = nullptr;
    mach_msg_type_number_t infoCount = 0;
    if (host_processor_info(host, PROCESSOR_CPU_LOAD_INFO, &processors, &info, &infoCount) == KERN_SUCCESS) {
      sample.processors.assign(reinterpret_cast<const std::uint32_t*>(info),
                               reinterpret_cast<const std::uint32_t*>(info) + infoCount);
      vm_deallocate(mach_task_self(), reinterpret_cast<vm_address_t>(info), infoCount * sizeof(integer_t));
    }
    mach_port_deallocate(mach_task_self(), host);
    return sample.machine.has_value() || !sample.processors.empty();
  }

  // The Mac describes its cores in the I/O registry, which the processor description reads.
  std::optional<std::vector<ProcessorCore>> cores() const override { return std::nullopt; }
};

}  // namespace

std::shared_ptr<ProcessorLoad> nativeProcessorLoad() { return std::make_shared<MachProcessorLoad>(); }

}  // namespace corvane::platform
