#include "platform/linux/io_registry_linux.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "platform/io_registry_backends.h"
#include "platform/linux/power_sources_linux.h"
#include "corvane/platform/text.h"

namespace corvane::platform {
namespace pcisys {
namespace {

using text::trimmed;

bool isHexDigit(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The id at the start of a pci.ids line ("1002  Advanced Micro ..."), with the name after it.
std::optional<std::pair<uint16_t, std::string_view>> idLine(std::string_view line) {
  if (line.size() < 5 || !std::all_of(line.begin(), line.begin() + 4, isHexDigit)) {
    return std::nullopt;
  }
  if (line[4] != ' ' && line[4] != '\t') return std::nullopt;
  uint16_t id = 0;
  std::from_chars(line.data(), line.data() + 4, id, 16);
  return std::make_pair(id, trimmed(line.substr(4)));
}

std::string hexId(uint16_t id) { return fmt::format("{:#06x}", id); }

std::optional<std::string> readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return text;
}

class SysfsIORegistry final : public IORegistry {
 public:
  explicit SysfsIORegistry(Roots roots) : roots_(std::move(roots)) {}

  std::optional<std::vector<PciDevice>> pciDevices() const override {
    return readDisplayControllers(roots_);
  }

  SmartBattery smartBattery() const override {
    return power_supply::smartBatteryOf(power_supply::scanSupplies(roots_.sys));
  }

 private:
  Roots roots_;
};

}  // namespace

bool isDisplayControllerClass(std::string_view classText) {
  const auto text = trimmed(classText);
  return text.size() >= 4 && (text.starts_with("0x03") || text.starts_with("0X03"));
}

std::optional<uint16_t> parsePciId(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  if (text.empty() || text.size() > 4) return std::nullopt;
  uint16_t value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

PciNames lookupPciIds(std::string_view pciIds, uint16_t vendor, uint16_t device) {
  PciNames names;
  bool inVendor = false;
  while (!pciIds.empty()) {
    const auto end = pciIds.find('\n');
    std::string_view line = pciIds.substr(0, end);
    pciIds = end == std::string_view::npos ? std::string_view() : pciIds.substr(end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty() || line.front() == '#') continue;
    if (line.front() != '\t') {
      // A new vendor, or the device-class section that follows the vendor list.
      if (inVendor) break;
      const auto parsed = idLine(line);
      if (parsed && parsed->first == vendor) {
        names.vendor = std::string(parsed->second);
        inVendor = true;
      }
      continue;
    }
    if (!inVendor || line.starts_with("\t\t")) continue;  // subsystems are not needed
    const auto parsed = idLine(line.substr(1));
    if (parsed && parsed->first == device) {
      names.device = std::string(parsed->second);
      break;
    }
  }
  return names;
}

std::string pciModelText(const PciNames& names, uint16_t vendor, uint16_t device) {
  if (names.vendor && names.device) return *names.vendor + " " + *names.device;
  return (names.vendor ? *names.vendor : hexId(vendor)) + " device " + hexId(device);
}

std::optional<std::vector<PciDevice>> readDisplayControllers(const Roots& roots) {
  const auto folder = roots.sys / "bus" / "pci" / "devices";
  std::error_code error;
  if (!std::filesystem::exists(folder, error)) return std::vector<PciDevice>();
  std::vector<std::filesystem::path> entries;
  std::filesystem::directory_iterator it(folder, error);
  if (error) return std::nullopt;
  for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
    if (error) return std::nullopt;
    entries.push_back(it->path());
  }
  std::sort(entries.begin(), entries.end());

  std::optional<std::string> pciIds;
  bool pciIdsRead = false;
  std::vector<PciDevice> devices;
  for (const auto& entry : entries) {
    const auto classText = readFile(entry / "class");
    if (!classText || !isDisplayControllerClass(*classText)) continue;
    const auto vendorText = readFile(entry / "vendor");
    const auto deviceText = readFile(entry / "device");
    if (!vendorText || !deviceText) continue;
    const auto vendor = parsePciId(*vendorText);
    const auto device = parsePciId(*deviceText);
    if (!vendor.has_value() || !device.has_value()) continue;
    if (!pciIdsRead) {
      // The database is large; read it only once a display controller needs naming.
      pciIdsRead = true;
      for (const auto& path : roots.pciIds) {
        if ((pciIds = readFile(path))) break;
      }
    }
    const auto names = pciIds ? lookupPciIds(*pciIds, *vendor, *device) : PciNames{};
    devices.push_back(PciDevice{pciModelText(names, *vendor, *device)});
  }
  return devices;
}

std::shared_ptr<IORegistry> makeIORegistry(Roots roots) {
  return std::make_shared<SysfsIORegistry>(std::move(roots));
}

}  // namespace pcisys

std::shared_ptr<IORegistry> nativeIORegistry() { return pcisys::makeIORegistry(pcisys::Roots{}); }

}  // namespace corvane::platform
