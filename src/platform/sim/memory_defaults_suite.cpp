// A defaults suite held in this process's memory: for tests, and the last resort when the
// settings file cannot be opened at all.
#include <map>
#include <mutex>

#include "platform/defaults_suite_backends.h"

namespace corvane::platform {
namespace {

class MemoryDefaultsSuite final : public DefaultsSuite {
 public:
  std::optional<nlohmann::json> get(const std::string& key) const override {
    std::lock_guard guard(lock_);
    auto found = values_.find(key);
    if (found == values_.end()) return std::nullopt;
    return found->second;
  }

  bool set(const std::string& key, const nlohmann::json& value) override {
    if (value.is_null()) return remove(key);
    if (!isPropertyListValue(value)) return false;
    std::lock_guard guard(lock_);
    values_[key] = value;
    return true;
  }

  bool remove(const std::string& key) override {
    std::lock_guard guard(lock_);
    values_.erase(key);
    return true;
  }

  std::vector<std::string> keys() const override {
    std::lock_guard guard(lock_);
    std::vector<std::string> result;
    result.reserve(values_.size());
    for (const auto& entry : values_) result.push_back(entry.first);
    return result;
  }

  bool synchronize() override { return true; }

 private:
  mutable std::mutex lock_;
  std::map<std::string, nlohmann::json> values_;
};

}  // namespace

std::shared_ptr<DefaultsSuite> DefaultsSuite::inMemory() { return std::make_shared<MemoryDefaultsSuite>(); }

}  // namespace corvane::platform
