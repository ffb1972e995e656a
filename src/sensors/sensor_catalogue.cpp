#include "corvane/sensors/sensor_catalogue.h"

#include <string_view>

#include "corvane/util/strings.h"

namespace corvane::catalogue {
namespace {

struct Template {
  const char* key;
  const char* name;
  std::uint64_t type;
  std::uint64_t group;
  std::uint64_t platform;
  bool average;
};

constexpr std::uint64_t kT = sensor_type::kTemperature;
constexpr std::uint64_t kI = sensor_type::kCurrent;
constexpr std::uint64_t kV = sensor_type::kVoltage;
constexpr std::uint64_t kP = sensor_type::kPower;
constexpr std::uint64_t kAll = kAllPlatforms;

// Keys listed twice carry different meanings per platform; the sensor reader takes the first
// entry that survives the platform filter, so this order is part of the data.
constexpr Template kSMCTemplates[] = {
    // Temperatures, group 1 (CPU).
    {"TC0P", "CPU Proximity", kT, 1, kAll, false},
    {"TCXC", "CPU PECI Die", kT, 1, kAll, false},
    {"TCXc", "CPU PECI Die", kT, 1, kAll, false},
    {"TC0H", "CPU Heatsink", kT, 1, kAll, false},
    {"TC0D", "CPU Package", kT, 1, kAll, false},
    {"TC0E", "CPU SA Core", kT, 1, kAll, false},
    {"TC0F", "CPU SA Core", kT, 1, kAll, false},
    {"TCSA", "CPU SA Core", kT, 1, kAll, false},
    {"TCSC", "CPU SA Core", kT, 1, kAll, false},
    {"TCSc", "CPU SA Core", kT, 1, kAll, false},
    {"TC%C", "CPU Core %", kT, 1, kAll, true},
    {"TC%c", "CPU core %", kT, 1, kAll, true},
    {"TCAH", "CPU 1 Heatsink Alt.", kT, 1, kAll, false},
    {"TCAD", "CPU 1 Package Alt.", kT, 1, kAll, false},
    {"TC1P", "CPU 2 Proximity", kT, 1, kAll, false},
    {"TC1H", "CPU 2 Heatsink", kT, 1, kAll, false},
    {"TC1D", "CPU 2 Package", kT, 1, kAll, false},
    {"TC1E", "CPU 2", kT, 1, kAll, false},
    {"TC1F", "CPU 2", kT, 1, kAll, false},
    {"TCBH", "CPU 2 Heatsink Alt.", kT, 1, kAll, false},
    {"TCBD", "CPU 2 Package Alt.", kT, 1, kAll, false},
    {"Tp09", "CPU Efficiency Core 1", kT, 1, kM1Family, true},
    {"Tp0T", "CPU Efficiency Core 2", kT, 1, kM1Family, true},
    {"Tp01", "CPU Performance Core 1", kT, 1, kM1Family, true},
    {"Tp05", "CPU Performance Core 2", kT, 1, kM1Family, true},
    {"Tp0D", "CPU Performance Core 3", kT, 1, kM1Family, true},
    {"Tp0H", "CPU Performance Core 4", kT, 1, kM1Family, true},
    {"Tp0L", "CPU Performance Core 5", kT, 1, kM1Family, true},
    {"Tp0P", "CPU Performance Core 6", kT, 1, kM1Family, true},
    {"Tp0X", "CPU Performance Core 7", kT, 1, kM1Family, true},
    {"Tp0b", "CPU Performance Core 8", kT, 1, kM1Family, true},
    {"Tp05", "CPU Efficiency Core 1", kT, 1, kM2Only, true},
    {"Tp0D", "CPU Efficiency Core 2", kT, 1, kM2Only, true},
    {"Tp0j", "CPU Efficiency Core 3", kT, 1, kM2Only, true},
    {"Tp0r", "CPU Efficiency Core 4", kT, 1, kM2Only, true},
    {"Tp01", "CPU Performance Core 1", kT, 1, kM2Only, true},
    {"Tp09", "CPU Performance Core 2", kT, 1, kM2Only, true},
    {"Tp0f", "CPU Performance Core 3", kT, 1, kM2Only, true},
    {"Tp0n", "CPU Performance Core 4", kT, 1, kM2Only, true},
    // Temperatures, group 2 (GPU).
    {"TCGC", "GPU Intel PECI", kT, 2, kAll, false},
    {"TCGc", "GPU Intel PECI", kT, 2, kAll, false},
    {"TG0P", "GPU {GPU} Proximity", kT, 2, kAll, false},
    {"TG0D", "GPU Die Analog", kT, 2, kAll, false},
    {"TG1D", "GPU Die Digital", kT, 2, kAll, false},
    {"TG0H", "GPU Heatsink", kT, 2, kAll, false},
    {"TG1H", "GPU Heatsink", kT, 2, kAll, false},
    {"TGVP", "GPU {GPU} Memory Proximity", kT, 2, kAll, false},
    {"TGDD", "GPU {GPU} PECI", kT, 2, kAll, false},
    {"Tg05", "GPU 1", kT, 2, kM1Family, true},
    {"Tg0D", "GPU 2", kT, 2, kM1Family, true},
    {"Tg0L", "GPU 3", kT, 2, kM1Family, true},
    {"Tg0T", "GPU 4", kT, 2, kM1Family, true},
    {"Tg0f", "GPU 1", kT, 2, kM2Only, true},
    {"Tg0n", "GPU 2", kT, 2, kM2Only, true},
    // Temperatures, group 3 (memory).
    {"Ts0S", "Memory Proximity", kT, 3, kAll, false},
    {"TM0P", "Memory Bank A1", kT, 3, kAll, false},
    {"TM1P", "Memory Bank A2", kT, 3, kAll, false},
    {"TM8P", "Memory Bank B1", kT, 3, kAll, false},
    {"TM9P", "Memory Bank B2", kT, 3, kAll, false},
    {"TM0S", "Memory Module A1", kT, 3, kAll, false},
    {"TM1S", "Memory Module A2", kT, 3, kAll, false},
    {"TM8S", "Memory Module B1", kT, 3, kAll, false},
    {"TM9S", "Memory Module B2", kT, 3, kAll, false},
    // Temperatures, group 4 (mainboard and chipset).
    {"TN0D", "Northbridge Die", kT, 4, kAll, false},
    {"TN0P", "Northbridge Proximity 1", kT, 4, kAll, false},
    {"TN1P", "Northbridge Proximity 2", kT, 4, kAll, false},
    {"TN0C", "MCH Die", kT, 4, kAll, false},
    {"TN0H", "MCH Heatsink", kT, 4, kAll, false},
    {"TP0D", "PCH Die", kT, 4, kAll, false},
    {"TPCD", "PCH Die", kT, 4, kAll, false},
    {"TP0P", "PCH Proximity", kT, 4, kAll, false},
    {"Th0H", "Heatpipe 1", kT, 4, kIntelOnly, false},
    {"Th2H", "Left Fin Stack", kT, 4, kIntelOnly, false},
    {"Th1H", "Right Fin Stack", kT, 4, kIntelOnly, false},
    {"Tm0P", "Mainboard Proximity", kT, 4, kAll, false},
    {"Ts0P", "Palm Rest", kT, 4, kAll, false},
    {"Ts1P", "Palm Rest 2", kT, 4, kAll, false},
    {"Tb0P", "BLC Proximity", kT, 4, kAll, false},
    {"TS0C", "Expansion Slots", kT, 4, kAll, false},
    {"TA0S", "PCI Slot 1 Pos 1", kT, 4, kAll, false},
    {"TA1S", "PCI Slot 1 Pos 2", kT, 4, kAll, false},
    {"TA2S", "PCI Slot 2 Pos 1", kT, 4, kAll, false},
    {"TA3S", "PCI Slot 2 Pos 2", kT, 4, kAll, false},
    {"TaLC", "Airflow Left", kT, 4, kAll, false},
    {"TaRC", "Airflow Right", kT, 4, kAll, false},
    {"TTLD", "Thunderbolt Left Proximity", kT, 4, kAll, false},
    {"TTRD", "Thunderbolt Right Proximity", kT, 4, kAll, false},
    {"TI%P", "Thunderbolt %", kT, 4, kAll, false},
    {"TZ%C", "Thermal Zone %", kT, 4, kAll, false},
    {"TH0x", "NAND", kT, 4, kAppleSilicon, false},
    // Temperatures, group 5 (airflow and wireless).
    {"TA%P", "Airflow %", kT, 5, kAll, false},
    {"TW0P", "Airport Proximity", kT, 5, kAll, false},
    {"TaLP", "Airflow left", kT, 5, kAppleSilicon, false},
    {"TaRF", "Airflow right", kT, 5, kAppleSilicon, false},
    // Temperatures, group 6 (solid-state drives).
    {"TH%A", "SSD % (A)", kT, 6, kAll, false},
    {"TH%B", "SSD % (B)", kT, 6, kAll, false},
    {"TH%C", "SSD % (C)", kT, 6, kAll, false},
    {"TH%a", "SSD % (A)", kT, 6, kAll, false},
    {"TH%b", "SSD % (B)", kT, 6, kAll, false},
    {"TH%c", "SSD % (C)", kT, 6, kAll, false},
    // Temperatures, group 7 (drive bays).
    {"TH0P", "HDD Bay 1", kT, 7, kAll, false},
    {"TH1P", "HDD Bay 2", kT, 7, kAll, false},
    {"TH2P", "HDD Bay 3", kT, 7, kAll, false},
    {"TH3P", "HDD Bay 4", kT, 7, kAll, false},
    {"TO0P", "Optical Drive", kT, 7, kAll, false},
    // Temperatures, group 8 (battery).
    {"TB0T", "Battery Max", kT, 8, kAll, false},
    {"TB1T", "Battery 1", kT, 8, kAll, false},
    {"TB2T", "Battery 2", kT, 8, kAll, false},
    {"TB3T", "Battery", kT, 8, kAll, false},
    // Temperatures, group 9 (power supply).
    {"Tp0P", "Powerboard Proximity", kT, 9, kIntelOnly, false},
    {"Tp0C", "Power Supply 1 Alt.", kT, 9, kAll, false},
    {"Tp1P", "Power Supply 2", kT, 9, kAll, false},
    {"Tp1C", "Power Supply 2 Alt.", kT, 9, kAll, false},
    {"Tp2P", "Power Supply 3", kT, 9, kAll, false},
    {"Tp3P", "Power Supply 4", kT, 9, kAll, false},
    {"Tp4P", "Power Supply 5", kT, 9, kAll, false},
    {"Tp5P", "Power Supply 6", kT, 9, kAll, false},
    // Temperatures, group 10 (display).
    {"TL0P", "LCD Proximity", kT, 10, kAll, false},
    // Currents, group 1 (CPU).
    {"IC0C", "CPU Core", kI, 1, kAll, false},
    {"IC1C", "CPU VccIO", kI, 1, kAll, false},
    {"IC2C", "CPU VccSA", kI, 1, kAll, false},
    {"IC0R", "CPU Highside", kI, 1, kAll, false},
    {"IC5R", "CPU DRAM", kI, 1, kAll, false},
    {"IC8R", "CPU PLL", kI, 1, kAll, false},
    {"IC0G", "CPU GFX", kI, 1, kAll, false},
    {"IC0M", "CPU Memory", kI, 1, kAll, false},
    // Currents, group 2 (GPU).
    {"IG0C", "GPU Rail", kI, 2, kAll, false},
    {"IG0R", "GPU (Core, FB, 1.0V)", kI, 2, kAll, false},
    {"IG1C", "GPU FB", kI, 2, kAll, false},
    // Currents, group 3 (memory).
    {"IM0C", "Memory Controller", kI, 3, kAll, false},
    {"IM0R", "Memory Rail", kI, 3, kAll, false},
    // Currents, group 4 (mainboard and chipset).
    {"IN0C", "MCH", kI, 4, kAll, false},
    {"ID5R", "Mainboard S5 Rail", kI, 4, kAll, false},
    {"IO0R", "Misc. Rail", kI, 4, kAll, false},
    {"IHSC", "Thunderbolt", kI, 4, kAll, false},
    {"IO3R", "Other 3.3V", kI, 4, kAll, false},
    {"IO5R", "Other 5V", kI, 4, kAll, false},
    // Currents, group 6 (solid-state drives).
    {"IHDC", "SSD", kI, 6, kAll, false},
    // Currents, group 8 (battery).
    {"IBAC", "Battery", kI, 8, kAll, false},
    {"IB0R", "Battery Rail", kI, 8, kAll, false},
    {"IPBR", "Charger BMON", kI, 8, kAll, false},
    // Currents, group 9 (power supply).
    {"ID0R", "DC In", kI, 9, kAll, false},
    // Voltages, group 1 (CPU).
    {"VCAC", "CPU IA", kV, 1, kAll, false},
    {"VCSC", "CPU System Agent", kV, 1, kAll, false},
    {"VC%C", "CPU Core %", kV, 1, kAll, false},
    {"VV1R", "CPU VTT", kV, 1, kAll, false},
    // Voltages, group 2 (GPU).
    {"VCTC", "GPU Intel", kV, 2, kAll, false},
    {"VG0C", "GPU Vcore", kV, 2, kAll, false},
    // Voltages, group 3 (memory).
    {"VM0R", "Memory", kV, 3, kAll, false},
    // Voltages, group 4 (mainboard and chipset).
    {"VN1R", "PCH", kV, 4, kAll, false},
    {"VN0C", "MCH", kV, 4, kAll, false},
    {"VD5R", "Mainboard S5 Rail", kV, 4, kAll, false},
    {"VP0R", "PBus", kV, 4, kAll, false},
    {"Vp0C", "12V Vcc", kV, 4, kAll, false},
    {"VV2S", "Main 3V", kV, 4, kAll, false},
    {"VR3R", "Main 3.3V", kV, 4, kAll, false},
    {"VV1S", "Main 5V", kV, 4, kAll, false},
    {"VH05", "Main 5V", kV, 4, kAll, false},
    {"VV9S", "Main 12V", kV, 4, kAll, false},
    {"VD2R", "Main 12V", kV, 4, kAll, false},
    {"VV7S", "Auxiliary 3V", kV, 4, kAll, false},
    {"VV3S", "Standby 3V", kV, 4, kAll, false},
    {"VV8S", "Standby 5V", kV, 4, kAll, false},
    {"VeES", "PCIe 12V", kV, 4, kAll, false},
    // Voltages, group 8 (battery).
    {"VBAT", "Battery", kV, 8, kAll, false},
    {"Vb0R", "CMOS Battery", kV, 8, kAll, false},
    // Voltages, group 9 (power supply).
    {"VD0R", "DC In", kV, 9, kAll, false},
    // Powers, group 1 (CPU).
    {"PCPT", "CPU Package total", kP, 1, kAll, false},
    {"PC%C", "CPU Core %", kP, 1, kAll, false},
    {"PCPC", "CPU Cores", kP, 1, kAll, false},
    {"PCPG", "CPU GFX", kP, 1, kAll, false},
    {"PCPD", "CPU DRAM", kP, 1, kAll, false},
    {"PCTR", "CPU Total", kP, 1, kAll, false},
    {"PCPL", "CPU Total", kP, 1, kAll, false},
    {"PC1R", "CPU Rail", kP, 1, kAll, false},
    {"PC5R", "CPU S0 Rail", kP, 1, kAll, false},
    {"PC0G", "CPU GFX", kP, 1, kAll, false},
    {"PCEC", "CPU VccEDRAM", kP, 1, kAll, false},
    {"PCPR", "CPU Package total (SMC)", kP, 1, kAll, false},
    {"PCAM", "CPU Core (IMON)", kP, 1, kAll, false},
    // Powers, group 2 (GPU).
    {"PGTR", "GPU Total", kP, 2, kAll, false},
    {"PG0R", "GPU Rail", kP, 2, kAll, false},
    {"PCGC", "Intel GPU", kP, 2, kAll, false},
    {"PCGM", "Intel GPU (IMON)", kP, 2, kAll, false},
    // Powers, group 3 (memory).
    {"PM0R", "Memory Rail", kP, 3, kAll, false},
    {"PC3C", "Memory Rail", kP, 3, kAll, false},
    // Powers, group 4 (mainboard and chipset).
    {"PN0C", "MCH", kP, 4, kAll, false},
    {"PN1R", "PCH Rail", kP, 4, kAll, false},
    {"PC0R", "Mainboard S0 Rail", kP, 4, kAll, false},
    {"PD0R", "Mainboard S0 Rail", kP, 4, kAll, false},
    {"PD5R", "Mainboard S5 Rail", kP, 4, kAll, false},
    {"PH02", "Main 3.3V Rail", kP, 4, kAll, false},
    {"PH05", "Main 5V Rail", kP, 4, kAll, false},
    {"Pp0R", "12V Rail", kP, 4, kAll, false},
    {"PD2R", "Main 12V Rail", kP, 4, kAll, false},
    {"PO0R", "Misc. Rail", kP, 4, kAll, false},
    {"PSTR", "System Total", kP, 4, kAll, false},
    // Powers, group 8 (battery).
    {"PBLC", "Battery Rail", kP, 8, kAll, false},
    {"PB0R", "Battery Rail", kP, 8, kAll, false},
    {"PPBR", "Battery Rail", kP, 8, kAll, false},
    // Powers, group 9 (power supply).
    {"PDTR", "DC In Total", kP, 9, kAll, false},
};
static_assert(std::size(kSMCTemplates) == kSMCTemplateCount);

constexpr Template kHIDTemplates[] = {
    {"pACC MTR Temp Sensor%", "CPU Performance Core %", kT, sensor_group::kCPU, kAll, true},
    {"eACC MTR Temp Sensor%", "CPU Efficiency Core %", kT, sensor_group::kCPU, kAll, true},
    {"GPU MTR Temp Sensor%", "GPU Core %", kT, sensor_group::kGPU, kAll, true},
    {"SOC MTR Temp Sensor%", "SOC Core %", kT, sensor_group::kMainboard, kAll, false},
    {"ANE MTR Temp Sensor%", "Neural Engine %", kT, sensor_group::kMainboard, kAll, false},
    // The image-signal-processor sensors are filed with airflow and wireless on purpose.
    {"ISP MTR Temp Sensor%", "Airport %", kT, sensor_group::kAirflow, kAll, false},
    // "Disk %s" keeps its stray "s": the count replaces only the "%".
    {"NAND CH% temp", "Disk %s", kT, sensor_group::kSSD, kAll, false},
    {"gas gauge battery", "Battery", kT, sensor_group::kBattery, kAll, false},
    {"PMGR SOC Die Temp Sensor%", "Power Manager Die %", kT, sensor_group::kPowerSupply, kAll, false},
    {"PMU tdev%", "Power Management Unit Dev %", kT, sensor_group::kPowerSupply, kAll, false},
    {"PMU tdie%", "Power Management Unit Die %", kT, sensor_group::kPowerSupply, kAll, false},
};

constexpr std::string_view kGPUPlaceholder = "{GPU}";

template <std::size_t N>
std::vector<std::shared_ptr<HWSensor>> build(const Template (&table)[N], bool hid) {
  std::vector<std::shared_ptr<HWSensor>> sensors;
  sensors.reserve(N);
  for (const auto& t : table) {
    sensors.push_back(hid ? HWSensor::hidSensorWithKey(t.key, t.name, t.type, t.group, t.platform,
                                                       t.average)
                          : HWSensor::instanceWithKey(t.key, t.name, t.type, t.group, t.platform,
                                                      t.average));
  }
  return sensors;
}

std::optional<std::string> dedicatedGPUField(
    const std::vector<HWGPUInfo>& gpus,
    std::optional<std::string> (*field)(const HWGPUInfo&)) {
  // Only the usual integrated-plus-discrete pair of a laptop names a dedicated GPU.
  if (gpus.size() != 2) return std::nullopt;
  const HWGPUInfo* dedicated = nullptr;
  for (const auto& gpu : gpus) {
    if (gpu.isDedicated()) dedicated = &gpu;
  }
  if (dedicated == nullptr) return std::nullopt;
  auto value = field(*dedicated);
  if (!value || value->empty()) return std::nullopt;
  return value;
}

}  // namespace

std::vector<std::shared_ptr<HWSensor>> smcTemplates() { return build(kSMCTemplates, false); }

std::vector<std::shared_ptr<HWSensor>> getDefaultSMCSensors(
    std::uint64_t platform, const std::optional<std::string>& dedicatedGPUName,
    const std::optional<std::string>& dedicatedGPUShortName) {
  const std::string fullGPU = dedicatedGPUName.value_or("");
  const std::string shortGPU = dedicatedGPUShortName.value_or("");
  std::vector<std::shared_ptr<HWSensor>> kept;
  for (auto& sensor : smcTemplates()) {
    if ((platform & sensor->platform()) != platform) continue;
    if (sensor->name().find(kGPUPlaceholder) != std::string::npos) {
      sensor->setName(strings::trimWhitespace(strings::replace(sensor->name(), kGPUPlaceholder, shortGPU)));
      sensor->setFullName(
          strings::trimWhitespace(strings::replace(sensor->fullName(), kGPUPlaceholder, fullGPU)));
    }
    kept.push_back(std::move(sensor));
  }
  return kept;
}

std::vector<std::shared_ptr<HWSensor>> getDefaultHIDSensors() { return build(kHIDTemplates, true); }

std::optional<std::string> dedicatedGPUName(const std::vector<HWGPUInfo>& gpus) {
  return dedicatedGPUField(gpus, [](const HWGPUInfo& gpu) -> std::optional<std::string> {
    return gpu.modelName();
  });
}

std::optional<std::string> dedicatedGPUShortName(const std::vector<HWGPUInfo>& gpus) {
  return dedicatedGPUField(gpus, [](const HWGPUInfo& gpu) { return gpu.shortModelName(); });
}

}  // namespace corvane::catalogue
