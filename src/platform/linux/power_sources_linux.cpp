#include "platform/linux/power_sources_linux.h"

#include <algorithm>

#include "corvane/platform/text.h"
#include "platform/posix/file_lock.h"
#include "platform/power_sources_backends.h"

namespace corvane::platform {
namespace power_supply {
namespace {

class SysfsPowerSources final : public PowerSources {
 public:
  explicit SysfsPowerSources(std::filesystem::path sysRoot) : sysRoot_(std::move(sysRoot)) {}
  std::vector<PowerSourceDescription> sources() const override { return powerSourcesOf(scanSupplies(sysRoot_)); }

 private:
  std::filesystem::path sysRoot_;
};

bool isSystemBattery(const Supply& supply) { return supply.type == "Battery" && supply.scope != "Device"; }

}  // namespace

std::vector<PowerSourceDescription> powerSourcesOf(const std::vector<Supply>& supplies) {
  bool adapterKnown = false;
  bool adapterOnline = false;
  for (const auto& supply : supplies) {
    if (supply.type == "Battery" || supply.online.empty()) continue;
    adapterKnown = true;
    adapterOnline = adapterOnline || supply.online == "1";
  }
  std::vector<PowerSourceDescription> sources;
  for (const auto& supply : supplies) {
    if (!isSystemBattery(supply)) continue;
    const bool onMains = adapterKnown ? adapterOnline : supply.status != "Discharging";
    sources.push_back({onMains ? kACPower : kBatteryPower, supply.status == "Charging"});
  }
  return sources;
}

std::vector<Supply> scanSupplies(const std::filesystem::path& sysRoot) {
  const auto folder = sysRoot / "class" / "power_supply";
  std::vector<std::string> entries;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
    entries.push_back(it->path().filename().string());
  }
  std::sort(entries.begin(), entries.end());
  const auto value = [&](const std::string& entry, const char* file) {
    const auto text = posix::readWholeFile(folder / entry / file);
    return text ? std::string(text::trimmed(*text)) : std::string();
  };
  std::vector<Supply> supplies;
  for (const auto& entry : entries) {
    supplies.push_back({value(entry, "type"), value(entry, "scope"), value(entry, "online"), value(entry, "status")});
  }
  return supplies;
}

std::shared_ptr<PowerSources> makePowerSources(std::filesystem::path sysRoot) {
  return std::make_shared<SysfsPowerSources>(std::move(sysRoot));
}

}  // namespace power_supply

std::shared_ptr<PowerSources> nativePowerSources() { return power_supply::makePowerSources("/sys"); }

}  // namespace corvane::platform
