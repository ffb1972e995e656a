#include "corvane/sensors/sensor_catalogue.h"

#include <string_view>

#include "corvane/util/strings.h"

namespace corvane::catalogue {
namespace {

struct Template {
  const char* key;
  const char* name;
  SensorType type;
  SensorGroup group;
  std::uint64_t platform;
  bool average;
};

constexpr SensorType kT = SensorType::kTemperature;
constexpr SensorType kI = SensorType::kCurrent;
constexpr SensorType kV = SensorType::kVoltage;
constexpr SensorType kP = SensorType::kPower;
constexpr std::uint64_t kAll = kAllPlatforms;
using enum SensorGroup;

// Keys listed twice carry different meanings per platform; the sensor reader takes the first
// entry that survives the platform filter, so this order is part of the data.
constexpr Template kSMCTemplates[] = {
    // Temperatures: CPU. The first row is the CPU proximity sensor (isCPUProximityKey).
    {"TC0P", "CPU Proximity", kT, kCPU, kAll, false},
    {"TCXC", "CPU PECI Die", kT, kCPU, kAll, false},
    {"TCXc", "CPU PECI Die", kT, kCPU, kAll, false},
    {"TC0H", "CPU Heatsink", kT, kCPU, kAll, false},
    {"TC0D", "CPU Package", kT, kCPU, kAll, false},
    {"TC0E", "CPU SA Core", kT, kCPU, kAll, false},
    {"TC0F", "CPU SA Core", kT, kCPU, kAll, false},
    {"TCSA", "CPU SA Core", kT, kCPU, kAll, false},
    {"TCSC", "CPU SA Core", kT, kCPU, kAll, false},
    {"TCSc", "CPU SA Core", kT, kCPU, kAll, false},
    {"TC%C", "CPU Core %", kT, kCPU, kAll, true},
    {"TC%c", "CPU core %", kT, kCPU, kAll, true},
    {"TCAH", "CPU 1 Heatsink Alt.", kT, kCPU, kAll, false},
    {"TCAD", "CPU 1 Package Alt.", kT, kCPU, kAll, false},
    {"TC1P", "CPU 2 Proximity", kT, kCPU, kAll, false},
    {"TC1H", "CPU 2 Heatsink", kT, kCPU, kAll, false},
    {"TC1D", "CPU 2 Package", kT, kCPU, kAll, false},
    {"TC1E", "CPU 2", kT, kCPU, kAll, false},
    {"TC1F", "CPU 2", kT, kCPU, kAll, false},
    {"TCBH", "CPU 2 Heatsink Alt.", kT, kCPU, kAll, false},
    {"TCBD", "CPU 2 Package Alt.", kT, kCPU, kAll, false},
    {"Tp09", "CPU Efficiency Core 1", kT, kCPU, kM1Family, true},
    {"Tp0T", "CPU Efficiency Core 2", kT, kCPU, kM1Family, true},
    {"Tp01", "CPU Performance Core 1", kT, kCPU, kM1Family, true},
    {"Tp05", "CPU Performance Core 2", kT, kCPU, kM1Family, true},
    {"Tp0D", "CPU Performance Core 3", kT, kCPU, kM1Family, true},
    {"Tp0H", "CPU Performance Core 4", kT, kCPU, kM1Family, true},
    {"Tp0L", "CPU Performance Core 5", kT, kCPU, kM1Family, true},
    {"Tp0P", "CPU Performance Core 6", kT, kCPU, kM1Family, true},
    {"Tp0X", "CPU Performance Core 7", kT, kCPU, kM1Family, true},
    {"Tp0b", "CPU Performance Core 8", kT, kCPU, kM1Family, true},
    {"Tp05", "CPU Efficiency Core 1", kT, kCPU, kM2Only, true},
    {"Tp0D", "CPU Efficiency Core 2", kT, kCPU, kM2Only, true},
    {"Tp0j", "CPU Efficiency Core 3", kT, kCPU, kM2Only, true},
    {"Tp0r", "CPU Efficiency Core 4", kT, kCPU, kM2Only, true},
    {"Tp01", "CPU Performance Core 1", kT, kCPU, kM2Only, true},
    {"Tp09", "CPU Performance Core 2", kT, kCPU, kM2Only, true},
    {"Tp0f", "CPU Performance Core 3", kT, kCPU, kM2Only, true},
    {"Tp0n", "CPU Performance Core 4", kT, kCPU, kM2Only, true},
    // Temperatures: GPU.
    {"TCGC", "GPU Intel PECI", kT, kGPU, kAll, false},
    {"TCGc", "GPU Intel PECI", kT, kGPU, kAll, false},
    {"TG0P", "GPU {GPU} Proximity", kT, kGPU, kAll, false},
    {"TG0D", "GPU Die Analog", kT, kGPU, kAll, false},
    {"TG1D", "GPU Die Digital", kT, kGPU, kAll, false},
    {"TG0H", "GPU Heatsink", kT, kGPU, kAll, false},
    {"TG1H", "GPU Heatsink", kT, kGPU, kAll, false},
    {"TGVP", "GPU {GPU} Memory Proximity", kT, kGPU, kAll, false},
    {"TGDD", "GPU {GPU} PECI", kT, kGPU, kAll, false},
    {"Tg05", "GPU 1", kT, kGPU, kM1Family, true},
    {"Tg0D", "GPU 2", kT, kGPU, kM1Family, true},
    {"Tg0L", "GPU 3", kT, kGPU, kM1Family, true},
    {"Tg0T", "GPU 4", kT, kGPU, kM1Family, true},
    {"Tg0f", "GPU 1", kT, kGPU, kM2Only, true},
    {"Tg0n", "GPU 2", kT, kGPU, kM2Only, true},
    // Temperatures: memory.
    {"Ts0S", "Memory Proximity", kT, kMemory, kAll, false},
    {"TM0P", "Memory Bank A1", kT, kMemory, kAll, false},
    {"TM1P", "Memory Bank A2", kT, kMemory, kAll, false},
    {"TM8P", "Memory Bank B1", kT, kMemory, kAll, false},
    {"TM9P", "Memory Bank B2", kT, kMemory, kAll, false},
    {"TM0S", "Memory Module A1", kT, kMemory, kAll, false},
    {"TM1S", "Memory Module A2", kT, kMemory, kAll, false},
    {"TM8S", "Memory Module B1", kT, kMemory, kAll, false},
    {"TM9S", "Memory Module B2", kT, kMemory, kAll, false},
    // Temperatures: mainboard and chipset.
    {"TN0D", "Northbridge Die", kT, kMainboard, kAll, false},
    {"TN0P", "Northbridge Proximity 1", kT, kMainboard, kAll, false},
    {"TN1P", "Northbridge Proximity 2", kT, kMainboard, kAll, false},
    {"TN0C", "MCH Die", kT, kMainboard, kAll, false},
    {"TN0H", "MCH Heatsink", kT, kMainboard, kAll, false},
    {"TP0D", "PCH Die", kT, kMainboard, kAll, false},
    {"TPCD", "PCH Die", kT, kMainboard, kAll, false},
    {"TP0P", "PCH Proximity", kT, kMainboard, kAll, false},
    {"Th0H", "Heatpipe 1", kT, kMainboard, kIntelOnly, false},
    {"Th2H", "Left Fin Stack", kT, kMainboard, kIntelOnly, false},
    {"Th1H", "Right Fin Stack", kT, kMainboard, kIntelOnly, false},
    {"Tm0P", "Mainboard Proximity", kT, kMainboard, kAll, false},
    {"Ts0P", "Palm Rest", kT, kMainboard, kAll, false},
    {"Ts1P", "Palm Rest 2", kT, kMainboard, kAll, false},
    {"Tb0P", "BLC Proximity", kT, kMainboard, kAll, false},
    {"TS0C", "Expansion Slots", kT, kMainboard, kAll, false},
    {"TA0S", "PCI Slot 1 Pos 1", kT, kMainboard, kAll, false},
    {"TA1S", "PCI Slot 1 Pos 2", kT, kMainboard, kAll, false},
    {"TA2S", "PCI Slot 2 Pos 1", kT, kMainboard, kAll, false},
    {"TA3S", "PCI Slot 2 Pos 2", kT, kMainboard, kAll, false},
    {"TaLC", "Airflow Left", kT, kMainboard, kAll, false},
    {"TaRC", "Airflow Right", kT, kMainboard, kAll, false},
    {"TTLD", "Thunderbolt Left Proximity", kT, kMainboard, kAll, false},
    {"TTRD", "Thunderbolt Right Proximity", kT, kMainboard, kAll, false},
    {"TI%P", "Thunderbolt %", kT, kMainboard, kAll, false},
    {"TZ%C", "Thermal Zone %", kT, kMainboard, kAll, false},
    {"TH0x", "NAND", kT, kMainboard, kAppleSilicon, false},
    // Temperatures: airflow and wireless.
    {"TA%P", "Airflow %", kT, kAirflow, kAll, false},
    {"TW0P", "Airport Proximity", kT, kAirflow, kAll, false},
    {"TaLP", "Airflow left", kT, kAirflow, kAppleSilicon, false},
    {"TaRF", "Airflow right", kT, kAirflow, kAppleSilicon, false},
    // Temperatures: solid-state drives.
    {"TH%A", "SSD % (A)", kT, kSSD, kAll, false},
    {"TH%B", "SSD % (B)", kT, kSSD, kAll, false},
    {"TH%C", "SSD % (C)", kT, kSSD, kAll, false},
    {"TH%a", "SSD % (A)", kT, kSSD, kAll, false},
    {"TH%b", "SSD % (B)", kT, kSSD, kAll, false},
    {"TH%c", "SSD % (C)", kT, kSSD, kAll, false},
    // Temperatures: drive bays.
    {"TH0P", "HDD Bay 1", kT, kDriveBay, kAll, false},
    {"TH1P", "HDD Bay 2", kT, kDriveBay, kAll, false},
    {"TH2P", "HDD Bay 3", kT, kDriveBay, kAll, false},
    {"TH3P", "HDD Bay 4", kT, kDriveBay, kAll, false},
    {"TO0P", "Optical Drive", kT, kDriveBay, kAll, false},
    // Temperatures: battery.
    {"TB0T", "Battery Max", kT, kBattery, kAll, false},
    {"TB1T", "Battery 1", kT, kBattery, kAll, false},
    {"TB2T", "Battery 2", kT, kBattery, kAll, false},
    {"TB3T", "Battery", kT, kBattery, kAll, false},
    // Temperatures: power supply.
    {"Tp0P", "Powerboard Proximity", kT, kPowerSupply, kIntelOnly, false},
    {"Tp0C", "Power Supply 1 Alt.", kT, kPowerSupply, kAll, false},
    {"Tp1P", "Power Supply 2", kT, kPowerSupply, kAll, false},
    {"Tp1C", "Power Supply 2 Alt.", kT, kPowerSupply, kAll, false},
    {"Tp2P", "Power Supply 3", kT, kPowerSupply, kAll, false},
    {"Tp3P", "Power Supply 4", kT, kPowerSupply, kAll, false},
    {"Tp4P", "Power Supply 5", kT, kPowerSupply, kAll, false},
    {"Tp5P", "Power Supply 6", kT, kPowerSupply, kAll, false},
    // Temperatures: display.
    {"TL0P", "LCD Proximity", kT, kDisplay, kAll, false},
    // Currents: CPU.
    {"IC0C", "CPU Core", kI, kCPU, kAll, false},
    {"IC1C", "CPU VccIO", kI, kCPU, kAll, false},
    {"IC2C", "CPU VccSA", kI, kCPU, kAll, false},
    {"IC0R", "CPU Highside", kI, kCPU, kAll, false},
    {"IC5R", "CPU DRAM", kI, kCPU, kAll, false},
    {"IC8R", "CPU PLL", kI, kCPU, kAll, false},
    {"IC0G", "CPU GFX", kI, kCPU, kAll, false},
    {"IC0M", "CPU Memory", kI, kCPU, kAll, false},
    // Currents: GPU.
    {"IG0C", "GPU Rail", kI, kGPU, kAll, false},
    {"IG0R", "GPU (Core, FB, 1.0V)", kI, kGPU, kAll, false},
    {"IG1C", "GPU FB", kI, kGPU, kAll, false},
    // Currents: memory.
    {"IM0C", "Memory Controller", kI, kMemory, kAll, false},
    {"IM0R", "Memory Rail", kI, kMemory, kAll, false},
    // Currents: mainboard and chipset.
    {"IN0C", "MCH", kI, kMainboard, kAll, false},
    {"ID5R", "Mainboard S5 Rail", kI, kMainboard, kAll, false},
    {"IO0R", "Misc. Rail", kI, kMainboard, kAll, false},
    {"IHSC", "Thunderbolt", kI, kMainboard, kAll, false},
    {"IO3R", "Other 3.3V", kI, kMainboard, kAll, false},
    {"IO5R", "Other 5V", kI, kMainboard, kAll, false},
    // Currents: solid-state drives.
    {"IHDC", "SSD", kI, kSSD, kAll, false},
    // Currents: battery.
    {"IBAC", "Battery", kI, kBattery, kAll, false},
    {"IB0R", "Battery Rail", kI, kBattery, kAll, false},
    {"IPBR", "Charger BMON", kI, kBattery, kAll, false},
    // Currents: power supply.
    {"ID0R", "DC In", kI, kPowerSupply, kAll, false},
    // Voltages: CPU.
    {"VCAC", "CPU IA", kV, kCPU, kAll, false},
    {"VCSC", "CPU System Agent", kV, kCPU, kAll, false},
    {"VC%C", "CPU Core %", kV, kCPU, kAll, false},
    {"VV1R", "CPU VTT", kV, kCPU, kAll, false},
    // Voltages: GPU.
    {"VCTC", "GPU Intel", kV, kGPU, kAll, false},
    {"VG0C", "GPU Vcore", kV, kGPU, kAll, false},
    // Voltages: memory.
    {"VM0R", "Memory", kV, kMemory, kAll, false},
    // Voltages: mainboard and chipset.
    {"VN1R", "PCH", kV, kMainboard, kAll, false},
    {"VN0C", "MCH", kV, kMainboard, kAll, false},
    {"VD5R", "Mainboard S5 Rail", kV, kMainboard, kAll, false},
    {"VP0R", "PBus", kV, kMainboard, kAll, false},
    {"Vp0C", "12V Vcc", kV, kMainboard, kAll, false},
    {"VV2S", "Main 3V", kV, kMainboard, kAll, false},
    {"VR3R", "Main 3.3V", kV, kMainboard, kAll, false},
    {"VV1S", "Main 5V", kV, kMainboard, kAll, false},
    {"VH05", "Main 5V", kV, kMainboard, kAll, false},
    {"VV9S", "Main 12V", kV, kMainboard, kAll, false},
    {"VD2R", "Main 12V", kV, kMainboard, kAll, false},
    {"VV7S", "Auxiliary 3V", kV, kMainboard, kAll, false},
    {"VV3S", "Standby 3V", kV, kMainboard, kAll, false},
    {"VV8S", "Standby 5V", kV, kMainboard, kAll, false},
    {"VeES", "PCIe 12V", kV, kMainboard, kAll, false},
    // Voltages: battery.
    {"VBAT", "Battery", kV, kBattery, kAll, false},
    {"Vb0R", "CMOS Battery", kV, kBattery, kAll, false},
    // Voltages: power supply.
    {"VD0R", "DC In", kV, kPowerSupply, kAll, false},
    // Powers: CPU.
    {"PCPT", "CPU Package total", kP, kCPU, kAll, false},
    {"PC%C", "CPU Core %", kP, kCPU, kAll, false},
    {"PCPC", "CPU Cores", kP, kCPU, kAll, false},
    {"PCPG", "CPU GFX", kP, kCPU, kAll, false},
    {"PCPD", "CPU DRAM", kP, kCPU, kAll, false},
    {"PCTR", "CPU Total", kP, kCPU, kAll, false},
    {"PCPL", "CPU Total", kP, kCPU, kAll, false},
    {"PC1R", "CPU Rail", kP, kCPU, kAll, false},
    {"PC5R", "CPU S0 Rail", kP, kCPU, kAll, false},
    {"PC0G", "CPU GFX", kP, kCPU, kAll, false},
    {"PCEC", "CPU VccEDRAM", kP, kCPU, kAll, false},
    {"PCPR", "CPU Package total (SMC)", kP, kCPU, kAll, false},
    {"PCAM", "CPU Core (IMON)", kP, kCPU, kAll, false},
    // Powers: GPU.
    {"PGTR", "GPU Total", kP, kGPU, kAll, false},
    {"PG0R", "GPU Rail", kP, kGPU, kAll, false},
    {"PCGC", "Intel GPU", kP, kGPU, kAll, false},
    {"PCGM", "Intel GPU (IMON)", kP, kGPU, kAll, false},
    // Powers: memory.
    {"PM0R", "Memory Rail", kP, kMemory, kAll, false},
    {"PC3C", "Memory Rail", kP, kMemory, kAll, false},
    // Powers: mainboard and chipset.
    {"PN0C", "MCH", kP, kMainboard, kAll, false},
    {"PN1R", "PCH Rail", kP, kMainboard, kAll, false},
    {"PC0R", "Mainboard S0 Rail", kP, kMainboard, kAll, false},
    {"PD0R", "Mainboard S0 Rail", kP, kMainboard, kAll, false},
    {"PD5R", "Mainboard S5 Rail", kP, kMainboard, kAll, false},
    {"PH02", "Main 3.3V Rail", kP, kMainboard, kAll, false},
    {"PH05", "Main 5V Rail", kP, kMainboard, kAll, false},
    {"Pp0R", "12V Rail", kP, kMainboard, kAll, false},
    {"PD2R", "Main 12V Rail", kP, kMainboard, kAll, false},
    {"PO0R", "Misc. Rail", kP, kMainboard, kAll, false},
    {"PSTR", "System Total", kP, kMainboard, kAll, false},
    // Powers: battery.
    {"PBLC", "Battery Rail", kP, kBattery, kAll, false},
    {"PB0R", "Battery Rail", kP, kBattery, kAll, false},
    {"PPBR", "Battery Rail", kP, kBattery, kAll, false},
    // Powers: power supply.
    {"PDTR", "DC In Total", kP, kPowerSupply, kAll, false},
};
static_assert(std::size(kSMCTemplates) == kSMCTemplateCount);

constexpr Template kHIDTemplates[] = {
    {"pACC MTR Temp Sensor%", "CPU Performance Core %", kT, kCPU, kAll, true},
    {"eACC MTR Temp Sensor%", "CPU Efficiency Core %", kT, kCPU, kAll, true},
    {"GPU MTR Temp Sensor%", "GPU Core %", kT, kGPU, kAll, true},
    {"SOC MTR Temp Sensor%", "SOC Core %", kT, kMainboard, kAll, false},
    {"ANE MTR Temp Sensor%", "Neural Engine %", kT, kMainboard, kAll, false},
    // The image-signal-processor sensors are filed with airflow and wireless on purpose.
    {"ISP MTR Temp Sensor%", "Airport %", kT, kAirflow, kAll, false},
    // "Disk %s" keeps its stray "s": the count replaces only the "%".
    {"NAND CH% temp", "Disk %s", kT, kSSD, kAll, false},
    {"gas gauge battery", "Battery", kT, kBattery, kAll, false},
    {"PMGR SOC Die Temp Sensor%", "Power Manager Die %", kT, kPowerSupply, kAll, false},
    {"PMU tdev%", "Power Management Unit Dev %", kT, kPowerSupply, kAll, false},
    {"PMU tdie%", "Power Management Unit Die %", kT, kPowerSupply, kAll, false},
};

constexpr std::string_view kGPUPlaceholder = "{GPU}";

template <std::size_t N>
std::vector<std::shared_ptr<HWSensor>> build(const Template (&table)[N], bool hid) {
  std::vector<std::shared_ptr<HWSensor>> sensors;
  sensors.reserve(N);
  for (const auto& t : table) {
    sensors.push_back(HWSensor::instanceWithKey({.key = t.key,
                                                 .name = t.name,
                                                 .type = t.type,
                                                 .group = t.group,
                                                 .platform = t.platform,
                                                 .sourceType = hid ? SourceType::kHID : SourceType::kSMC,
                                                 .average = t.average}));
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

static_assert(std::string_view(kSMCTemplates[0].name) == "CPU Proximity");

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

bool isCPUProximityKey(std::string_view key) { return key == kSMCTemplates[0].key; }

}  // namespace corvane::catalogue
