// The I/O registry of a simulated machine. The recorded dumps carry no registry data, so a
// profile without an "ioreg" member simply has no PCI devices and no battery.
#include <utility>

#include "platform/io_registry_backends.h"

namespace corvane::platform::sim {
namespace {

class RecordedIORegistry final : public IORegistry {
 public:
  RecordedIORegistry(std::vector<PciDevice> devices, SmartBattery battery)
      : devices_(std::move(devices)), battery_(battery) {}

  std::optional<std::vector<PciDevice>> pciDevices() const override { return devices_; }
  SmartBattery smartBattery() const override { return battery_; }

 private:
  std::vector<PciDevice> devices_;
  SmartBattery battery_;
};

}  // namespace

std::vector<PciDevice> pciDevicesFromIoreg(const nlohmann::json& ioreg) {
  std::vector<PciDevice> devices;
  if (!ioreg.is_object()) return devices;
  auto pci = ioreg.find("pci");
  if (pci == ioreg.end() || !pci->is_array()) return devices;
  for (const auto& entry : *pci) {
    PciDevice device;
    if (entry.is_object()) {
      auto model = entry.find("model");
      if (model != entry.end() && model->is_string()) device.model = model->get<std::string>();
    }
    devices.push_back(std::move(device));
  }
  return devices;
}

SmartBattery smartBatteryFromIoreg(const nlohmann::json& ioreg) {
  SmartBattery battery;
  if (!ioreg.is_object()) return battery;
  auto recorded = ioreg.find("battery");
  if (recorded == ioreg.end() || !recorded->is_object()) return battery;
  const auto property = [&](const char* name) -> std::optional<int64_t> {
    auto found = recorded->find(name);
    if (found == recorded->end() || !found->is_number_integer()) return std::nullopt;
    return found->get<int64_t>();
  };
  battery.cycleCount = property("CycleCount");
  battery.maxCapacity = property("MaxCapacity");
  battery.appleRawMaxCapacity = property("AppleRawMaxCapacity");
  battery.designCapacity = property("DesignCapacity");
  return battery;
}

std::shared_ptr<IORegistry> ioRegistryFromIoreg(const nlohmann::json& ioreg) {
  return std::make_shared<RecordedIORegistry>(pciDevicesFromIoreg(ioreg), smartBatteryFromIoreg(ioreg));
}

}  // namespace corvane::platform::sim
