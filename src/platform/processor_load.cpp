#include "corvane/platform/processor_load.h"

#include "corvane/platform/platform.h"
#include "platform/processor_load_backends.h"

namespace corvane::platform {
namespace {

// A recorded machine has no running processors, so it gives no ticks rather than inventing
// them; its cores are the ones its registry facts list.
class RecordedProcessorLoad final : public ProcessorLoad {
 public:
  explicit RecordedProcessorLoad(std::optional<std::vector<ProcessorCore>> cores) : cores_(std::move(cores)) {}
  bool sample(ProcessorTickSample&) const override { return false; }
  std::optional<std::vector<ProcessorCore>> cores() const override { return cores_; }

 private:
  std::optional<std::vector<ProcessorCore>> cores_;
};

}  // namespace

namespace sim {

std::optional<std::vector<ProcessorCore>> coresFromIoreg(const nlohmann::json& ioreg) {
  if (!ioreg.is_object()) return std::nullopt;
  const auto cpus = ioreg.find("cpus");
  if (cpus == ioreg.end() || !cpus->is_array()) return std::nullopt;
  std::vector<ProcessorCore> cores;
  for (const auto& cpu : *cpus) {
    if (!cpu.is_object()) continue;
    const auto id = cpu.find("cpu-id");
    const auto name = cpu.find("name");
    if (id == cpu.end() || !id->is_number_unsigned() || name == cpu.end() || !name->is_string()) continue;
    ProcessorCore core{id->get<std::uint64_t>(), name->get<std::string>(), 0};
    // The registry writes the cluster's kind as a letter; anything else leaves the kind untold.
    if (const auto type = cpu.find("cluster-type"); type != cpu.end() && type->is_string()) {
      const auto& letter = type->get_ref<const std::string&>();
      core.type = letter.find('E') != std::string::npos ? 1 : letter.find('P') != std::string::npos ? 2 : 0;
    }
    cores.push_back(std::move(core));
  }
  return cores;
}

}  // namespace sim

std::shared_ptr<ProcessorLoad> ProcessorLoad::create(const Platform& platform) {
  if (platform.simulated()) {
    const auto& machine = platform.machine();
    return std::make_shared<RecordedProcessorLoad>(machine ? sim::coresFromIoreg(machine->ioreg) : std::nullopt);
  }
  return nativeProcessorLoad();
}

}  // namespace corvane::platform
