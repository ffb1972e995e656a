// The power monitor's state codes, from the simulated machine's sources and from a Linux
// power-supply tree.
#include "corvane/monitors/power_monitor.h"

#include <gtest/gtest.h>

#include "corvane/platform/platform.h"
#include "platform/power_sources_backends.h"
#include "support/test_support.h"

#ifdef __linux__
#include "platform/linux/power_sources_linux.h"
#endif

namespace corvane {
namespace {

using platform::PowerSourceDescription;

TEST(PowerMonitor, FirstSourceDecidesTheState) {
  // The recorded sources, the model, the state code.
  struct Case {
    const char* sources;
    const char* model;
    std::uint64_t state;
  };
  for (const auto& c : {
           Case{R"([{"Power Source State": "AC Power", "Is Charging": true}])", "Mac14,3", 1},
           Case{R"([{"Power Source State": "Battery Power", "Is Charging": true}])", "Mac14,3", 2},
           Case{R"([{"Power Source State": "AC Power"}, {"Power Source State": "Battery Power"}])", "Mac14,3", 3},
           Case{R"([{"Power Source State": "UPS Power", "Is Charging": true}])", "Mac14,3", 0},
           Case{R"([7, {"Power Source State": "Battery Power"}])", "Mac14,3", 2},
           Case{"[]", "MacBookPro16,1", 0},
           Case{"null", "MacBookPro16,1", 3},  // a laptop on the charger, battery full
           Case{"null", "iMac19,2", 0},        // a desktop lists nothing
       }) {
    const auto sources = platform::sim::powerSourcesOfMachine(nlohmann::json::parse(c.sources), c.model);
    EXPECT_EQ(powerSourceStateOf(sources), c.state) << c.sources << " " << c.model;
  }
}

TEST(PowerMonitor, ReadsTheRecordedMachineNotWhatWasSet) {
  testing::TempDir dir;
  testing::installSimulated(testing::profileFromJson(R"({"name": "P", "sysctl": {}, "smc": [],
      "powerSources": [{"Power Source State": "Battery Power"}]})"), dir.path());
  HWPowerMonitor::shared()->setPowerSourceState(1);
  EXPECT_EQ(HWPowerMonitor::shared()->powerSourceState(), 2u);
}

#ifdef __linux__
TEST(PowerSupplyTree, SystemBatteriesOnTheAdapterOrNot) {
  // Entries as name/type/scope/online/status, the sources.
  struct Entry {
    const char *name, *type, *scope, *online, *status;
  };
  struct Case {
    std::vector<Entry> entries;
    std::vector<PowerSourceDescription> sources;
  };
  const std::vector<Case> cases = {
      {{{"AC", "Mains", "", "1\n", ""}, {"BAT0", "Battery\n", "", "", "Charging\n"}}, {{"AC Power", true}}},
      {{{"AC", "Mains", "", "0", ""}, {"BAT0", "Battery", "", "", "Not charging"}}, {{"Battery Power", false}}},
      {{{"ADP1", "USB", "", "1", ""}, {"BAT0", "Battery", "", "", "Full"}, {"hid-mouse", "Battery", "Device", "", "Discharging"}},
       {{"AC Power", false}}},
      {{{"BAT0", "Battery", "", "", "Discharging"}, {"BAT1", "Battery", "", "", "Full"}},
       {{"Battery Power", false}, {"AC Power", false}}},  // no adapter listed: each battery's own status
      {{{"AC", "Mains", "", "1", ""}}, {}},                // a desktop
      {{}, {}},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    testing::TempDir sys;
    for (const auto& e : cases[i].entries) {
      const auto folder = sys.path() / "class" / "power_supply" / e.name;
      testing::writeFile(folder / "type", e.type);
      if (*e.scope) testing::writeFile(folder / "scope", e.scope);
      if (*e.online) testing::writeFile(folder / "online", e.online);
      if (*e.status) testing::writeFile(folder / "status", e.status);
    }
    EXPECT_EQ(platform::power_supply::makePowerSources(sys.path())->sources(), cases[i].sources) << "case " << i;
  }
}
#endif

}  // namespace
}  // namespace corvane
