#include "platform/power_sources_backends.h"

namespace corvane::platform::sim {
namespace {

class FixedPowerSources final : public PowerSources {
 public:
  explicit FixedPowerSources(std::vector<PowerSourceDescription> sources) : sources_(std::move(sources)) {}
  std::vector<PowerSourceDescription> sources() const override { return sources_; }

 private:
  std::vector<PowerSourceDescription> sources_;
};

}  // namespace

std::vector<PowerSourceDescription> powerSourcesOfMachine(const nlohmann::json& recorded, std::string_view model) {
  std::vector<PowerSourceDescription> sources;
  if (!recorded.is_array()) {
    if (model.starts_with("MacBook")) sources.push_back({kACPower, false});
    return sources;
  }
  for (const auto& entry : recorded) {
    if (!entry.is_object()) continue;
    PowerSourceDescription source;
    if (auto state = entry.find("Power Source State"); state != entry.end() && state->is_string()) {
      source.powerSourceState = state->get<std::string>();
    }
    if (auto charging = entry.find("Is Charging"); charging != entry.end() && charging->is_boolean()) {
      source.isCharging = charging->get<bool>();
    }
    sources.push_back(std::move(source));
  }
  return sources;
}

std::shared_ptr<PowerSources> fixedPowerSources(std::vector<PowerSourceDescription> sources) {
  return std::make_shared<FixedPowerSources>(std::move(sources));
}

}  // namespace corvane::platform::sim
