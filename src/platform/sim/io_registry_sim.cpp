// The I/O registry of a simulated machine. The recorded dumps carry no registry data, so a
// profile without an "ioreg" member simply has no PCI devices.
#include <utility>

#include "platform/io_registry_backends.h"

namespace corvane::platform::sim {
namespace {

class RecordedIORegistry final : public IORegistry {
 public:
  explicit RecordedIORegistry(std::vector<PciDevice> devices) : devices_(std::move(devices)) {}

  std::optional<std::vector<PciDevice>> pciDevices() const override { return devices_; }

 private:
  std::vector<PciDevice> devices_;
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

std::shared_ptr<IORegistry> ioRegistryFromIoreg(const nlohmann::json& ioreg) {
  return std::make_shared<RecordedIORegistry>(pciDevicesFromIoreg(ioreg));
}

}  // namespace corvane::platform::sim
