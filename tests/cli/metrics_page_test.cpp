// The daemon's metrics page, built from a sensor reader's passes over simulated machines and
// collected as the web server collects it, on the virtual clock.
#include "daemon_metrics.h"

#include <cmath>
#include <map>
#include <tuple>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/smc/smc.h"
#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane::cli {
namespace {

using Labels = std::map<std::string, std::string>;

class MetricsPageTest : public ::testing::Test {
 protected:
  void TearDown() override {
    reader_.reset();
    SMCClose();
    HWSystemDevice::reset();
  }
  void install(std::shared_ptr<const platform::MachineProfile> machine, bool hid, bool computed) {
    SMCClose();  // so that the next open reaches the new machine
    testing::installMachine(std::move(machine), dir_.path());
    HWSystemDevice::reset();
    reader_ = HWSensorReader::create();
    reader_->setShowHIDSensors(hid);
    reader_->setShowComputedSensors(computed);
  }
  MetricsPage read(const std::string& machine = "Test Mac") {
    reader_->refreshValues();
    return buildMetricsPage({.machine = machine, .reader = reader_.get(), .sensors = &reader_->getAllSensors()});
  }
  // Every series of the family `name` by its "key" label (or its only one under ""): labels and value.
  static std::map<std::string, std::pair<Labels, double>> series(const std::vector<prometheus::MetricFamily>& page,
                                                                 const std::string& name) {
    std::map<std::string, std::pair<Labels, double>> found;
    for (const auto& family : page) {
      if (family.name != name) continue;
      for (const auto& metric : family.metric) {
        Labels labels;
        for (const auto& label : metric.label) labels[label.name] = label.value;
        const double value =
            family.type == prometheus::MetricType::Counter ? metric.counter.value : metric.gauge.value;
        found[labels["key"]] = {labels, value};
      }
    }
    return found;
  }

  testing::TempDir dir_;
  std::shared_ptr<dispatch::VirtualTime> clock_ = dispatch::installVirtualTime(1'700'000'000.0);
  std::shared_ptr<HWSensorReader> reader_;
};

// Each record the pass read is one series of its type's family, in the type's base unit, with
// the labels that tell it apart; sources the reader's switches leave out are not on the page.
TEST_F(MetricsPageTest, EachReadSensorIsOneSeriesOfItsTypesFamily) {
  // Apple silicon with HID services, as the reader's own tests describe one.
  const auto m1 = testing::profileFromJson(
      R"({"name": "M1", "sysctl": {"machdep.cpu.brand_string": "Apple M1 Pro"}, "smc": [["Tp01", "sp78", "2800"]],
          "hid": {"temperature": [["pACC MTR Temp Sensor0", 60], ["NAND CH0 temp", 35]], "voltage": []}})");
  const auto intel = testing::builtinMachine("MacBookPro16,1");
  const struct {
    std::shared_ptr<const platform::MachineProfile> machine;
    bool hid, computed;
  } cases[] = {{intel, false, false}, {intel, false, true}, {m1, true, true}, {m1, false, false}};
  const char* families[] = {"corvane_temperature_celsius", "corvane_fan_speed_rpm", "corvane_voltage_volts",
                            "corvane_current_amperes", "corvane_power_watts"};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.machine->name + (c.hid ? " hid" : "") + (c.computed ? " computed" : ""));
    install(c.machine, c.hid, c.computed);
    const auto page = read(c.machine->name);
    std::size_t onPage = 0, hid = 0, computed = 0;
    for (const auto& sensor : reader_->getAllSensors()) {
      const auto found = series(page.readings, families[toNumber(sensor->type())]);
      const auto it = found.find(sensor->key());
      if (it == found.end()) continue;
      ++onPage;
      hid += sensor->sourceType() == SourceType::kHID;
      computed += sensor->sourceType() == SourceType::kComputed;
      EXPECT_EQ(it->second.second, sensor->value()) << sensor->key();
      EXPECT_EQ(it->second.first.at("name"), sensor->name());
      EXPECT_EQ(it->second.first.at("machine"), c.machine->name);
    }
    std::size_t total = 0;
    for (const auto* name : families) total += series(page.readings, name).size();
    EXPECT_EQ(onPage, total) << "a series on the page that no record explains";
    EXPECT_EQ(hid > 0, c.hid);
    EXPECT_EQ(computed > 0, c.computed);
  }
  install(intel, false, false);
  const auto proximity = series(read().readings, "corvane_temperature_celsius").at("TC0P");
  EXPECT_EQ(proximity.first, (Labels{{"key", "TC0P"}, {"name", "CPU Proximity"}, {"group", "cpu"},
                                     {"source", "smc"}, {"machine", "Test Mac"}}));
  EXPECT_EQ(proximity.second, 0x2630 / 256.0);  // sp78 "2630" as recorded
}

// This computer's own inputs join the same families under source "host"; one that cannot be read stays off.
TEST_F(MetricsPageTest, HostSensorsShareTheFamilies) {
  auto input = [](const char* chip, const char* feature, const char* label, platform::HostSensorKind kind,
                  double value) {
    platform::HostSensorReading reading;
    std::tie(reading.chip, reading.feature, reading.label, reading.kind, reading.value) =
        std::tuple(chip, feature, label, kind, value);
    return reading;
  };
  const std::vector<platform::HostSensorReading> host{
      input("coretemp-isa-0000", "temp1", "Package id 0", platform::HostSensorKind::kTemperature, 47.5),
      input("nct6775-isa-0290", "fan2", "fan2", platform::HostSensorKind::kFan, std::nan("")),
      input("nct6775-isa-0290", "in0", "Vcore", platform::HostSensorKind::kVoltage, 1.1)};
  const auto page = buildMetricsPage({.machine = "m", .cpu = {}, .loadAverages = {}, .host = &host});
  EXPECT_EQ(series(page.readings, "corvane_temperature_celsius").at("coretemp-isa-0000/temp1"),
            std::make_pair(Labels{{"key", "coretemp-isa-0000/temp1"}, {"name", "Package id 0"}, {"group", "host"},
                                  {"source", "host"}, {"machine", "m"}}, 47.5));
  EXPECT_TRUE(series(page.readings, "corvane_fan_speed_rpm").empty());
  EXPECT_EQ(series(page.readings, "corvane_voltage_volts").at("nct6775-isa-0290/in0").second, 1.1);
}

// A key that stops reading leaves the page at once (its value would read 0) and its failures
// are counted; the others stay.
TEST_F(MetricsPageTest, ASensorThatStopsReadingLeavesThePage) {
  auto recorded = testing::builtinMachine("MacBookPro16,1");
  install(recorded, false, false);
  const auto before = series(read().readings, "corvane_temperature_celsius");
  ASSERT_EQ(before.count("TC0P"), 1u);

  auto broken = std::make_shared<platform::MachineProfile>(*recorded);
  constexpr std::uint32_t kTC0P = 'T' << 24 | 'C' << 16 | '0' << 8 | 'P';
  for (auto& entry : broken->smc) {
    if (entry.key == kTC0P) entry.status = static_cast<std::int32_t>(0xE00002C7);  // the driver call fails
  }
  SMCClose();
  testing::installMachine(broken, dir_.path());  // under the same reader
  for (int pass = 1; pass <= 2; ++pass) {
    const auto page = read();
    const auto after = series(page.readings, "corvane_temperature_celsius");
    EXPECT_EQ(after.count("TC0P"), 0u);
    EXPECT_EQ(after.size(), before.size() - 1);
    const auto errors = series(page.counters, "corvane_sensor_read_errors_total");
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_EQ(errors.at("TC0P").second, pass);
  }
}

// A scrape gets the last page published; once its readings are older than their expiry only the
// counters are left.
TEST_F(MetricsPageTest, CollectServesTheLastPageAndDropsExpiredReadings) {
  install(testing::builtinMachine("MacBookPro16,1"), false, false);
  MetricsCollectable collectable;
  EXPECT_TRUE(collectable.Collect().empty());
  reader_->refreshValues();
  collectable.publish(buildMetricsPage({.machine = "m", .reader = reader_.get(), .sensors = &reader_->getAllSensors(),
                                        .cpu = {}, .loadAverages = {}, .fanControlMode = 2, .readings = 7}),
                      clock_->now() + 6);
  for (const bool fresh : {true, false}) {
    clock_->advance(std::chrono::seconds(fresh ? 5 : 2));
    const auto page = collectable.Collect();
    EXPECT_EQ(series(page, "corvane_temperature_celsius").empty(), !fresh);
    EXPECT_EQ(series(page, "corvane_fan_control_mode").size(), fresh ? 1u : 0u);  // three series, no key
    EXPECT_EQ(series(page, "corvane_readings_total").at("").second, 7);
  }
}

TEST(MetricsAddressTest, LoopbackUnlessAnotherAddressIsNamed) {
  const struct {
    const char* text;
    const char* listen;  // null: refused
  } cases[] = {{"9101", "127.0.0.1:9101"}, {"localhost:0", "127.0.0.1:0"}, {"0.0.0.0:80", "0.0.0.0:80"},
               {"127.0.0.1:65536", nullptr}, {"127.0.0.1:", nullptr}, {"1.2.3:80", nullptr},
               {"[::1]:9101", nullptr}, {"127.0.0.1:-1", nullptr}};
  for (const auto& c : cases) {
    std::string error;
    const auto listen = parseMetricsAddress(c.text, &error);
    EXPECT_EQ(listen.value_or("refused"), c.listen != nullptr ? c.listen : "refused") << c.text;
    EXPECT_EQ(error.empty(), c.listen != nullptr) << c.text;
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }
}

}  // namespace
}  // namespace corvane::cli
