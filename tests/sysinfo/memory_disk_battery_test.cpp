#include <cstdint>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "corvane/platform/io_registry.h"
#include "corvane/platform/startup_disk.h"
#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

TEST(MemoryText, BinaryUnitsWithFewerDecimalsForSmallerUnits) {
  struct Case {
    uint64_t bytes;
    const char* text;
  };
  for (const auto& c : {Case{0, "Zero KB"}, Case{1, "1 byte"}, Case{1000, "1,000 bytes"}, Case{1024, "1 KB"},
                        Case{1047552, "1,023 KB"}, Case{1310720, "1.3 MB"}, Case{1610612736, "1.5 GB"},
                        Case{17179869184, "16 GB"}, Case{25280000000, "23.54 GB"}, Case{1099511627776, "1 TB"}}) {
    EXPECT_EQ(memory::byteCountText(c.bytes), c.text) << c.bytes;
  }
}

TEST(BatteryHealth, PercentOfDesignFlooredAndClamped) {
  struct Case {
    int64_t max, design, health;
  };
  for (const auto& c : {Case{4200, 5000, 84}, Case{5100, 5000, 100}, Case{0, 5000, 0}, Case{4999, 5000, 99},
                        Case{49, 5000, 0}, Case{4200, 0, 0}, Case{0, 0, 0}, Case{-100, 5000, 0}}) {
    EXPECT_EQ((HWBatteryInfo{0, c.max, c.design}).health(), c.health) << c.max << "/" << c.design;
  }
}

TEST(BatteryRecord, IntelReadsMaxCapacityOthersTheRawOneAbsentIsZero) {
  const platform::SmartBattery registry{1000, 4100, 4200, 5000};
  struct Case {
    platform::SmartBattery battery;
    uint64_t cpuPlatform;
    HWBatteryInfo expected;
  };
  for (const auto& c : {Case{registry, cpu_platform::kIntel, {1000, 4100, 5000}},
                        Case{registry, cpu_platform::kM1Pro, {1000, 4200, 5000}},
                        Case{registry, cpu_platform::kUnknown, {1000, 4200, 5000}},
                        Case{{}, cpu_platform::kM2, {0, 0, 0}},
                        Case{{0x100000005LL, 4200, std::nullopt, std::nullopt}, cpu_platform::kIntel, {5, 4200, 0}}}) {
    const auto info = battery::batteryInfoFrom(c.battery, c.cpuPlatform);
    EXPECT_TRUE(info.cycleCount == c.expected.cycleCount && info.maxCapacity == c.expected.maxCapacity &&
                info.designedCapacity == c.expected.designedCapacity)
        << info.cycleCount << " " << info.maxCapacity << " " << info.designedCapacity;
  }
}

TEST(DiskRecord, ModelThenNameThenUnknownAndNoRecordForRemovableMedia) {
  struct Case {
    platform::StartupDiskDescription disk;
    std::optional<std::string> displayName;
  };
  for (const auto& c : {Case{{"APPLE SSD AP0512M Media", "  APPLE SSD AP0512M \n", 500277790720, false}, "APPLE SSD AP0512M"},
                        Case{{"APPLE SSD AP0512M Media", "   ", 1, false}, "APPLE SSD AP0512M Media"},
                        Case{{std::nullopt, std::nullopt, 0, false}, "Unknown"},
                        Case{{"Untitled", "USB Stick", 8000000000, true}, std::nullopt}}) {
    const auto info = disk::diskInfoFrom(c.disk);
    EXPECT_EQ(info ? std::optional(info->displayName()) : std::nullopt, c.displayName);
    if (info) {
      EXPECT_EQ(info->size, c.disk.mediaSize);
    }
  }
}

class MemoryDiskBatteryOfMachine : public testing::MachineTest {
 protected:
  void SetUp() override { HWSystemDevice::reset(); }
  void TearDown() override {
    HWSystemDevice::reset();
    MachineTest::TearDown();
  }
};

TEST_F(MemoryDiskBatteryOfMachine, RecordedMachineDescribesItselfAndAnUnrecordedOneGivesTheDefaults) {
  install(R"({"name": "Laptop", "smc": [], "sysctl": {"machdep.cpu.brand_string": "Apple M1 Pro", "hw.memsize": 17179869184},
      "ioreg": {"battery": {"CycleCount": 312, "MaxCapacity": 1, "AppleRawMaxCapacity": 4200, "DesignCapacity": 5000}},
      "startupDisk": {"mediaName": "APPLE SSD AP0512M Media", "deviceModel": "APPLE SSD AP0512M ",
                      "mediaSize": 500277790720, "removable": false}})");
  auto device = HWSystemDevice::device();
  EXPECT_EQ(device->memoryInfo().physicalMemory, "16 GB");
  EXPECT_EQ(device->batteryInfo().health(), 84);
  EXPECT_EQ(device->batteryInfo().cycleCount, 312);
  ASSERT_TRUE(device->diskInfo().has_value());
  EXPECT_EQ(device->diskInfo()->model, "APPLE SSD AP0512M");

  HWSystemDevice::reset();
  install(R"({"name": "Desktop", "smc": [], "sysctl": {"machdep.cpu.brand_string": "Intel"},
      "ioreg": {"battery": {"DesignCapacity": "5000"}}})");
  device = HWSystemDevice::device();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(device->memoryInfo().physicalMemory, "Zero KB");
  EXPECT_NE(::testing::internal::GetCapturedStderr().find("getting page size"), std::string::npos);
  EXPECT_EQ(device->batteryInfo().designedCapacity, 0);
  EXPECT_EQ(device->batteryInfo().health(), 0);
  EXPECT_FALSE(device->diskInfo().has_value());
}

}  // namespace
}  // namespace corvane
