#include "platform/host_sensors_backends.h"

namespace corvane::platform::sim {
namespace {

class FixedHostSensors final : public HostSensors {
 public:
  explicit FixedHostSensors(std::string reason) : reason_(std::move(reason)) {}
  bool readings(std::vector<HostSensorReading>& out, std::string& error,
                const std::filesystem::path&) const override {
    out.clear();
    error = reason_;
    return reason_.empty();
  }

 private:
  std::string reason_;
};

}  // namespace

std::shared_ptr<HostSensors> noHostSensors() { return std::make_shared<FixedHostSensors>(std::string()); }

std::shared_ptr<HostSensors> unsupportedHostSensors(std::string reason) {
  return std::make_shared<FixedHostSensors>(std::move(reason));
}

}  // namespace corvane::platform::sim
