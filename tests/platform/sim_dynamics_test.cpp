// A simulated machine's dynamics: off, the recorded bytes exactly; on, temperatures that follow
// a scripted load on the virtual clock within their range, and fans that ramp to their targets.
#include "corvane/platform/sim_dynamics.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/platform/hid_event_system.h"
#include "corvane/platform/text.h"
#include "corvane/smc/smc_value.h"
#include "platform/sim/sim_dynamics.h"
#include "support/test_support.h"

namespace corvane {
namespace {

class SimDynamicsTest : public ::testing::Test {
 protected:
  void install(const char* machine) { install(testing::builtinMachine(machine)); }
  void install(std::shared_ptr<const platform::MachineProfile> profile) {
    testing::installMachine(std::move(profile), dir.path());
    clock = dispatch::installVirtualTime(1'700'000'000);
  }
  bool enable(double rise = 35) {
    platform::SimDynamicsOptions options;
    options.clock = [] { return dispatch::now(); };
    options.load = [this] { return load; };
    options.codec = smc::simValueCodec();
    options.fullLoadRise = rise;
    return platform::enableSimDynamics(platform::current(), std::move(options));
  }
  void advance(double seconds) { clock->advance(std::chrono::milliseconds(static_cast<long>(seconds * 1000))); }
  static double number(const char* key) {
    SMCValue value{};
    EXPECT_EQ(SMCReadKey(key, &value), 0) << key;
    return smc::decodedValue(value).value_or(NAN);
  }
  static std::vector<double> hidTemperatures() {
    std::vector<double> values;
    const auto services = platform::current().service<platform::HidEventSystem>().services(
        platform::kHidTemperatureUsagePage, platform::kHidTemperatureUsage, platform::kHidTemperatureEventType);
    for (const auto& service : services.value_or(std::vector<platform::HidService>{})) values.push_back(*service.value);
    return values;
  }
  void TearDown() override { SMCClose(); }

  testing::TempDir dir;
  std::shared_ptr<dispatch::VirtualTime> clock;
  double load = 0;
};

// Off, a minute at full load changes no byte of any key nor any HID reading; on, the same
// minute warms the machine, through the SMC and through HID alike.
TEST_F(SimDynamicsTest, OffReadsTheRecordedBytesOnWarmsUp) {
  // No built-in machine records HID temperatures, so one is made here.
  const auto withHid = testing::profileFromJson(R"({"name": "Hid", "sysctl": {}, "smc": [["Tp01", "flt ", "00003442"]],
      "hid": {"temperature": [["PMU tdie1", 45.5], ["PMU tdev2", -127]], "voltage": []}})");
  for (const auto& [machine, hasHid] : {std::pair{testing::builtinMachine(), false}, std::pair{withHid, true}}) {
    SCOPED_TRACE(machine->name);
    install(machine);
    const auto moved = [&profile = *machine] {  // keys, then HID temperatures, that differ from the recording
      std::pair<int, int> count{0, 0};
      for (const auto& entry : profile.smc) {
        SMCValue value{};
        if (SMCReadKey(text::unpackFourCc(entry.key).c_str(), &value) != 0) continue;
        count.first += std::memcmp(value.bytes, entry.bytes.data(), entry.size) != 0;
      }
      const auto hid = hidTemperatures();
      for (std::size_t i = 0; i < hid.size(); ++i) count.second += hid[i] != profile.hidTemperature[i].value;
      return count;
    };
    load = 1;
    for (bool on : {false, true}) {
      ASSERT_TRUE(!on || enable());
      EXPECT_EQ(moved(), std::make_pair(0, 0));  // every value starts where it was recorded
      advance(60);
      const auto [keys, hid] = moved();
      EXPECT_EQ(std::make_pair(keys > 0, hid > 0), std::make_pair(on, on && hasHid));
    }
    SMCClose();
  }
}

TEST_F(SimDynamicsTest, TemperaturesFollowTheLoadWithALagAndStayInRange) {
  install("MacBookPro16,1");
  const double cpu = number("TC0P");
  // Key, rise at full load, and where it settles under load: recorded + rise, held at 105.
  for (const auto& [key, rise, ceiling] : {std::tuple{"TC0P", 35.0, cpu + 35}, std::tuple{"TC2C", 80.0, 105.0}}) {
    SCOPED_TRACE(key);
    ASSERT_TRUE(enable(rise));
    load = 0;
    const double recorded = number(key);
    // Under load it climbs without overshoot; once the load goes it falls back, never below
    // the recorded value by more than the margin.
    for (const auto& [phase, settles] : {std::pair{1.0, ceiling}, std::pair{0.0, recorded}}) {
      load = phase;
      double previous = number(key);
      for (int step = 0; step < 20; ++step) {
        advance(10);
        const double now = number(key);
        EXPECT_LE((now - previous) * (phase > 0 ? -1 : 1), 0);
        EXPECT_TRUE(phase > 0 ? now <= ceiling + 0.01 : now >= recorded - 3.01) << now;
        EXPECT_TRUE(step > 0 || std::fabs(now - settles) > 5) << "no lag";
        previous = now;
      }
      EXPECT_NEAR(previous, settles, 0.1);
    }
  }
}

TEST_F(SimDynamicsTest, FanRampsToANewTargetInBoundedSteps) {
  install("MacBookPro16,1");
  ASSERT_TRUE(enable());
  const double minimum = number("F0Mn"), maximum = number("F0Mx");
  const auto write = [](const char* key, double value) {
    SMCValue record{};
    ASSERT_EQ(SMCReadKey(key, &record), 0);
    ASSERT_TRUE(smc::encodeValue(value, record));
    ASSERT_EQ(SMCWriteKey(record), 0);
  };
  write("F0Md", 1);
  // Target written, and where it settles within the fan's range.
  const double middle = (minimum + maximum) / 2;
  for (const auto& [target, settles] :
       {std::pair{maximum + 1000, maximum}, {middle, middle}, {minimum - 500, minimum}}) {
    write("F0Tg", target);
    double previous = number("F0Ac");
    for (int step = 0; step < 12; ++step) {
      advance(1);
      const double now = number("F0Ac");
      EXPECT_LE(std::fabs(now - previous), 500 + 0.5);
      EXPECT_LE(std::fabs(now - settles), std::fabs(previous - settles) + 1e-3);  // always closer
      previous = now;
    }
    EXPECT_NEAR(previous, settles, 0.5);
  }
}

TEST(CpuTimesTest, ParsesTheMachineLine) {
  using Times = std::optional<std::pair<std::uint64_t, std::uint64_t>>;  // busy, total
  for (const auto& [text, expected] :
       {std::pair<const char*, Times>{"cpu  100 5 20 1000 7 1 2 3 0 0\ncpu0 1 1 1 1\n", std::pair{131, 1138}},
        {"cpu  4 0 6 90\n", std::pair{10, 100}},  // an old kernel's four fields
        {"cpu  4 0 6\n", {}},
        {"cpu0 4 0 6 90\n", {}},
        {"cpu  4 x 6 90\n", {}}}) {
    const auto times = platform::sim::parseCpuTimes(text);
    EXPECT_EQ(times ? Times(std::pair{times->busy, times->total}) : std::nullopt, expected) << text;
  }
}

}  // namespace
}  // namespace corvane
