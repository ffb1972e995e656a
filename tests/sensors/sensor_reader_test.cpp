#include "corvane/sensors/sensor_reader.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/smc/smc.h"
#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using SensorList = HWSensorReader::SensorList;

constexpr const char* kIntel = "Intel(R) Core(TM) i9-9980HK CPU @ 2.40GHz";

// SMC keys as a profile lists them: [key, type, value bytes in hex].
using Keys = std::vector<nlohmann::json>;

nlohmann::json temperature(const std::string& key, double celsius) {
  char hex[8];
  std::snprintf(hex, sizeof hex, "%04x", static_cast<unsigned>(static_cast<int>(celsius * 256)) & 0xFFFFu);
  return {key, "sp78", hex};
}

// A float key's bytes, little-endian as the SMC hands them over.
nlohmann::json flt(const std::string& key, float value) {
  unsigned char bytes[4];
  std::memcpy(bytes, &value, sizeof bytes);
  char hex[9];
  std::snprintf(hex, sizeof hex, "%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2], bytes[3]);
  return {key, "flt ", hex};
}

Keys fans(std::vector<float> speeds) {
  char count[3];
  std::snprintf(count, sizeof count, "%02zx", speeds.size());
  Keys keys = {{"FNum", "ui8 ", count}};
  for (std::size_t i = 0; i < speeds.size(); ++i) {
    const std::string fan = "F" + std::to_string(i);
    keys.push_back(flt(fan + "Ac", speeds[i]));
    keys.push_back(flt(fan + "Mn", 1000.0f + 100.0f * static_cast<float>(i)));
    keys.push_back(flt(fan + "Mx", 5000.0f + 500.0f * static_cast<float>(i)));
  }
  return keys;
}

std::string machine(const std::string& brand, const Keys& keys, const std::string& hid = "") {
  nlohmann::json profile = {{"name", "Reader"}, {"sysctl", {{"machdep.cpu.brand_string", brand}}}, {"smc", keys}};
  if (!hid.empty()) profile["hid"] = nlohmann::json::parse(hid);
  return profile.dump();
}

// Records what the reader delivers and on which queue.
class Receiver : public HWSensorReader::Delegate {
 public:
  void readerDidReadWithResult(HWBaseReader<SensorList>&, const SensorList& list) override {
    ++calls;
    onMainQueue = dispatch::mainQueue()->isCurrent();
    received = list;
  }
  int calls = 0;
  bool onMainQueue = false;
  SensorList received;
};

class SensorReaderTest : public ::testing::Test {
 protected:
  void install(const std::string& json) {
    testing::installMachine(testing::profileFromJson(json), dir_.path());
    HWSystemDevice::reset();
    reader_ = HWSensorReader::create();
  }
  void TearDown() override {
    reader_.reset();
    SMCClose();
    HWSystemDevice::reset();
  }
  const SensorList& list() { return reader_->getAllSensors(); }
  std::shared_ptr<HWSensor> find(const std::string& key) {
    for (const auto& sensor : list()) {
      if (sensor->key() == key) return sensor;
    }
    return nullptr;
  }
  std::vector<std::string> names() {
    std::vector<std::string> result;
    for (const auto& sensor : list()) result.push_back(sensor->name());
    return result;
  }

  testing::TempDir dir_;
  std::shared_ptr<dispatch::VirtualTime> time_ = dispatch::installVirtualTime(1'700'000'000.0);
  std::shared_ptr<HWSensorReader> reader_;
};

TEST_F(SensorReaderTest, ListIsNamedComputedAndSortedByGroupWithUnknownLast) {
  Keys keys = fans({1200, 1800});
  // Core numbers are dense over the cores that read something: TC1C reads 0, so TC2C is core 2.
  for (const auto& key : {temperature("TZZZ", 40), temperature("TC2C", 60), temperature("TC0P", 47.5),
                          temperature("TC0C", 50), temperature("TC1C", 0), temperature("TG0P", 55),
                          nlohmann::json{"VP0R", "sp4b", "6000"}, temperature("TQQQ", 0)}) {
    keys.push_back(key);
  }
  install(machine(kIntel, keys));
  const std::vector<std::string> expected = {"CPU Proximity", "CPU Core 1",    "CPU Core 2", "Average CPU",
                                             "Hottest CPU",   "GPU Proximity", "PBus",       "Fan 1",
                                             "Fan 2",         "Fastest Fan",   "TZZZ"};
  EXPECT_EQ(names(), expected);
  EXPECT_TRUE(find("TC2C")->average() && find("TC2C")->group() == SensorGroup::kCPU);
  EXPECT_DOUBLE_EQ(find("AverageCPU")->value(), 55.0);
  EXPECT_DOUBLE_EQ(find("HottestCPU")->value(), 60.0);
  EXPECT_EQ(find("AverageGPU"), nullptr);  // no GPU temperature feeds the average on Intel
  const auto fastest = find("FastestFan");
  EXPECT_DOUBLE_EQ(fastest->value(), 1800.0);
  EXPECT_DOUBLE_EQ(fastest->maxLimitValue(), 5500.0);
  EXPECT_TRUE(find("TZZZ")->isUnknownSensor());
  EXPECT_EQ(find("TC1C"), nullptr);
  // Built once: the same records come back.
  EXPECT_EQ(&reader_->getAllSensors(), &reader_->getAllSensors());
  const auto first = list()[0];
  reader_->setAllSensors(std::nullopt);
  EXPECT_NE(list()[0], first);
}

TEST_F(SensorReaderTest, OneFanOrStoppedFansGetNoFastestFan) {
  install(machine(kIntel, fans({1200})));
  EXPECT_EQ(find("FastestFan"), nullptr);
  install(machine(kIntel, fans({0, 0})));
  EXPECT_EQ(find("FastestFan"), nullptr);
}

TEST_F(SensorReaderTest, ComputedFiguresWithoutContributorsReadMinusOneAndMinusOneIsNoMaximum) {
  install(machine(kIntel, {temperature("TC0C", 50), temperature("TC1C", 70), temperature("TC0P", 45)}));
  reader_->setShowComputedSensors(true);
  SensorList remaining;
  for (const auto& sensor : list()) {
    if (!sensor->average()) remaining.push_back(sensor);
  }
  ASSERT_EQ(remaining.size(), 3u);  // proximity, average, hottest
  reader_->setAllSensors(remaining);
  reader_->refreshValues();
  EXPECT_DOUBLE_EQ(find("AverageCPU")->value(), -1.0);
  EXPECT_DOUBLE_EQ(find("HottestCPU")->value(), -1.0);
  EXPECT_DOUBLE_EQ(reader_->getSensorValueByKey("Nonsense", SensorType::kTemperature, SourceType::kComputed, list()),
                   -1.0);
  // A first contributor reading -1 is no maximum to keep.
  const auto core = [](double value) {
    return HWSensor::instanceWithKey(
        {.key = "TC0C", .name = "Core", .value = value, .group = SensorGroup::kCPU, .average = true});
  };
  EXPECT_DOUBLE_EQ(
      reader_->getSensorValueByKey("HottestCPU", SensorType::kTemperature, SourceType::kComputed, {core(-1), core(-5)}),
      -5.0);
}

TEST_F(SensorReaderTest, AppleSiliconNamesHIDSensorsAndAveragesThem) {
  install(machine("Apple M1 Pro", {temperature("Tp01", 40)},
                  R"({"temperature": [["pACC MTR Temp Sensor3", 50], ["pACC MTR Temp Sensor0", 60],
                                      ["NAND CH0 temp", 35], ["mystery sensor", 33]], "voltage": []})"));
  ASSERT_NE(reader_->hid(), nullptr);
  EXPECT_EQ(find("pACC MTR Temp Sensor0")->name(), "CPU Performance Core 1");
  EXPECT_EQ(find("pACC MTR Temp Sensor3")->name(), "CPU Performance Core 2");
  EXPECT_EQ(find("NAND CH0 temp")->name(), "Disk 1s");
  EXPECT_DOUBLE_EQ(find("AverageCPU")->value(), 50.0);
  EXPECT_EQ(list().back()->key(), "mystery sensor");
}

// Which records a pass refreshes under each setting of the three switches.
TEST_F(SensorReaderTest, OnlyTheSensorsLetThroughAreRefreshed) {
  struct Switches {
    bool unknown, hid, computed;
  };
  for (const auto& c : {Switches{false, false, false}, Switches{true, false, false}, Switches{false, false, true},
                        Switches{true, true, true}}) {
    SCOPED_TRACE(std::to_string(c.unknown) + std::to_string(c.hid) + std::to_string(c.computed));
    install(machine("Apple M1 Pro", {temperature("Tp01", 40), temperature("TZZZ", 41)},
                    R"({"temperature": [["pACC MTR Temp Sensor0", 60], ["mystery sensor", 33]], "voltage": []})"));
    constexpr double kStale = -77.0;
    for (const auto& sensor : list()) sensor->setValue(kStale);
    reader_->setShowUnknownSensors(c.unknown);
    reader_->setShowHIDSensors(c.hid);
    reader_->setShowComputedSensors(c.computed);
    reader_->refreshValues();
    auto refreshed = [&](const char* key) { return find(key)->value() != kStale; };
    EXPECT_TRUE(refreshed("Tp01"));
    EXPECT_EQ(refreshed("TZZZ"), c.unknown);
    EXPECT_EQ(refreshed("pACC MTR Temp Sensor0"), c.hid);
    EXPECT_EQ(refreshed("mystery sensor"), c.unknown && c.hid);
    EXPECT_EQ(refreshed("AverageCPU"), c.computed);
    // Skipped contributors keep their stale values and still feed the average.
    if (c.computed) {
      EXPECT_DOUBLE_EQ(find("AverageCPU")->value(), c.hid ? 50.0 : (40.0 + kStale) / 2);
    }
  }
}

TEST_F(SensorReaderTest, ResultReachesTheDelegateOnTheMainQueue) {
  install(machine(kIntel, {temperature("TC0P", 45), temperature("TC0C", 50)}));
  EXPECT_EQ(reader_->hid(), nullptr);  // no HID on an Intel machine
  auto receiver = std::make_shared<Receiver>();
  reader_->setDelegate(receiver);
  for (const auto& sensor : list()) sensor->setValue(0);
  reader_->read();
  EXPECT_EQ(receiver->calls, 0);  // values are read at once, the delivery waits for the main queue
  EXPECT_DOUBLE_EQ(find("TC0P")->value(), 45.0);
  time_->runUntilIdle();
  EXPECT_EQ(receiver->calls, 1);
  EXPECT_TRUE(receiver->onMainQueue);
  ASSERT_EQ(receiver->received.size(), list().size());
  EXPECT_EQ(receiver->received[0], list()[0]);  // the same records, not copies
  receiver.reset();
  EXPECT_EQ(reader_->delegate(), nullptr) << "the reader does not keep its delegate alive";
}

}  // namespace
}  // namespace corvane
