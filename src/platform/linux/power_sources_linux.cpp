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

std::optional<int64_t> wholeNumber(const std::string& text) {
  if (text.empty() || text.size() > 18) return std::nullopt;
  int64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

std::optional<int64_t> thousandths(const std::string& text) {
  const auto value = wholeNumber(text);
  return value ? std::optional<int64_t>(*value / 1000) : std::nullopt;
}

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

SmartBattery smartBatteryOf(const std::vector<Supply>& supplies) {
  SmartBattery battery;
  const auto found = std::find_if(supplies.begin(), supplies.end(), isSystemBattery);
  if (found == supplies.end()) return battery;
  battery.cycleCount = wholeNumber(found->cycleCount);
  // Mixing a charge with an energy would make the health meaningless: use the pair that has
  // its design value, charge first.
  const bool byCharge = wholeNumber(found->chargeFullDesign).has_value() || !wholeNumber(found->energyFullDesign);
  battery.maxCapacity = thousandths(byCharge ? found->chargeFull : found->energyFull);
  battery.appleRawMaxCapacity = battery.maxCapacity;
  battery.designCapacity = thousandths(byCharge ? found->chargeFullDesign : found->energyFullDesign);
  return battery;
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
    supplies.push_back({value(entry, "type"), value(entry, "scope"), value(entry, "online"), value(entry, "status"),
                        value(entry, "cycle_count"), value(entry, "charge_full"), value(entry, "charge_full_design"),
                        value(entry, "energy_full"), value(entry, "energy_full_design")});
  }
  return supplies;
}

std::shared_ptr<PowerSources> makePowerSources(std::filesystem::path sysRoot) {
  return std::make_shared<SysfsPowerSources>(std::move(sysRoot));
}

}  // namespace power_supply

std::shared_ptr<PowerSources> nativePowerSources() { return power_supply::makePowerSources("/sys"); }

}  // namespace corvane::platform
