#include <algorithm>

#include "platform/displays_backends.h"

namespace corvane::platform::sim {
namespace {

class FixedDisplays final : public Displays {
 public:
  explicit FixedDisplays(std::vector<Display> displays) : displays_(std::move(displays)) {}

  std::vector<Display> activeDisplays(std::size_t capacity) const override {
    const auto count = std::min(capacity, displays_.size());
    return {displays_.begin(), displays_.begin() + static_cast<std::ptrdiff_t>(count)};
  }

 private:
  std::vector<Display> displays_;
};

}  // namespace

std::vector<Display> displaysOfMachine(const nlohmann::json& recorded, std::string_view model) {
  std::vector<Display> displays;
  if (!recorded.is_array()) {
    if (model.starts_with("MacBook")) displays.push_back({1, true, "Built-in Display"});
    return displays;
  }
  uint32_t position = 0;
  for (const auto& entry : recorded) {
    ++position;
    if (!entry.is_object()) continue;
    Display display;
    display.identifier = position;
    if (auto id = entry.find("id"); id != entry.end() && id->is_number_unsigned()) {
      display.identifier = id->get<uint32_t>();
    }
    if (auto builtIn = entry.find("builtIn"); builtIn != entry.end() && builtIn->is_boolean()) {
      display.builtIn = builtIn->get<bool>();
    }
    if (auto name = entry.find("name"); name != entry.end() && name->is_string()) {
      display.name = name->get<std::string>();
    }
    displays.push_back(std::move(display));
  }
  return displays;
}

std::shared_ptr<Displays> fixedDisplays(std::vector<Display> displays) {
  return std::make_shared<FixedDisplays>(std::move(displays));
}

}  // namespace corvane::platform::sim
