#include "corvane/sysinfo/device_model.h"

#include <array>
#include <cctype>
#include <chrono>
#include <map>
#include <set>
#include <tuple>

#include <gtest/gtest.h>

#include "corvane/dispatch/dispatch.h"
#include "corvane/sysinfo/system_device.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

// Every row must agree with what its identifier and name say about it: the identifier's prefix
// names the family (the newer "Mac" identifiers and the iMac Pro excepted), the name begins with
// the family's product name, years lie in the table's span, and only Apple-silicon names, which
// carry their chip in parentheses, are from 2020 on.
TEST(ModelTable, EveryRowIsConsistent) {
  const std::map<std::int64_t, std::string> kNameStarts = {{1, "MacBook"},  {2, "MacBook Pro "}, {3, "MacBook Air "},
                                                           {4, "iMac "},    {5, "iMac Pro"},     {6, "Mac Pro"},
                                                           {7, "Mac mini"}, {9, "Mac Studio "}};
  const auto table = device::defaultModelDict();
  EXPECT_EQ(table.size(), 72u);
  std::set<std::int64_t> families;
  for (const auto& [id, info] : table) {
    SCOPED_TRACE(id);
    ASSERT_TRUE(info.name.has_value());
    ASSERT_TRUE(kNameStarts.count(info.family));
    EXPECT_EQ(info.name->rfind(kNameStarts.at(info.family), 0), 0u);
    const bool newIdentifier =
        id.starts_with("Mac") && id.size() > 3 && std::isdigit(static_cast<unsigned char>(id[3])) != 0;
    if (!newIdentifier && id != "iMacPro1,1") {
      EXPECT_EQ(device::familyFromModelId(id), info.family);
    }
    EXPECT_GE(info.year, 2010);
    EXPECT_LE(info.year, 2023);
    if (info.name->find("(M") != std::string::npos) {
      EXPECT_GE(info.year, 2020);
    }
    families.insert(info.family);
  }
  EXPECT_EQ(families.size(), 8u);  // every family but Xserve and unknown has a row
}

struct ModelCase {
  const char* modelId;
  std::optional<std::string> name;
  std::int64_t year;
  std::int64_t family;
  std::optional<std::string> familyName;
  const char* icon;
  bool t2;
};

// Rows read off the product's model list, and identifiers it lacks (named from the profile).
TEST(ModelTable, SampleRowsAndFallback) {
  const HWHardwareProfile profile{"MacBook Pro", "Apple M3 Pro", "Z1AF", "C02XYZ"};
  const ModelCase cases[] = {
      {"MacBookPro18,3", "MacBook Pro 14-inch (M1 Pro)", 2021, 2, "MacBook Pro", "ico_macbookpro_5thgen", true},
      {"MacBookPro16,3", "MacBook Pro 13-inch", 2020, 2, "MacBook Pro", "ico_macbookpro", true},
      {"MacBookPro14,3", "MacBook Pro 15-inch", 2017, 2, "MacBook Pro", "ico_macbookpro", false},
      {"iMacPro1,1", "iMac Pro", 2017, 5, std::nullopt, "ico_imacpro", false},
      {"Mac13,2", "Mac Studio (M1 Ultra)", 2022, 9, std::nullopt, "ico_macstudio", true},
      {"MacPro7,1", "Mac Pro", 2019, 6, "Mac Pro", "ico_macpro_2019", true},
      {"MacPro6,1", "Mac Pro", 2016, 6, "Mac Pro", "ico_macpro", false},
      {"Macmini9,1", "Mac mini (M1)", 2020, 7, "Mac Mini", "ico_macmini", true},
      {"Mac14,2", "MacBook Air 13-inch (M2)", 2022, 3, "MacBook Air", "ico_macbookair_4thgen", true},
      {"MacBookAir10,1", "MacBook Air 13-inch (M1)", 2020, 3, "MacBook Air", "ico_macbookair", true},
      {"Mac15,3", "MacBook Pro (M3 Pro)", 2031, 0, "Unknown", "ico_macbook", true},
      {"iMacPro2,1", "MacBook Pro (M3 Pro)", 2031, 4, "iMac", "ico_imac", true},
      {"Xserve3,1", "MacBook Pro (M3 Pro)", 2031, 8, "Xserve", "ico_macbook", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.modelId);
    const auto info = device::modelInfoFor(c.modelId, profile, 4321, 2031);
    EXPECT_EQ(std::tie(info.name, info.year, info.family), std::tie(c.name, c.year, c.family));
    EXPECT_EQ(info.familyName(), c.familyName);
    EXPECT_EQ(info.familyIcon(), c.icon);
    EXPECT_EQ(info.isT2ChipSupport(), c.t2);
    EXPECT_EQ(std::make_pair(info.serial, info.endianness),
              std::make_pair(std::optional<std::string>("C02XYZ"), std::int64_t{1}));
  }
  // Without a profile an unknown model has no name and year; the table still names known ones.
  const auto bare = device::modelInfoFor("Mac15,3", std::nullopt, 1234, 2031);
  EXPECT_EQ(std::make_tuple(bare.name, bare.year, bare.endianness),
            std::make_tuple(std::optional<std::string>(), std::int64_t{0}, std::int64_t{0}));
  const auto known = device::modelInfoFor("MacPro5,1", std::nullopt, 0, 2031);
  EXPECT_EQ(std::make_pair(known.name, known.endianness),
            std::make_pair(std::optional<std::string>("Mac Pro"), std::int64_t{2}));
  EXPECT_EQ(HWDeviceModelInfo::objectWithName("x", 2020, 42).familyName(), std::nullopt);
}

TEST(HardwareProfile, ReadsTheFirstEntryOnly) {
  const auto profile = device::hardwareProfileFromJson(
      R"({"SPHardwareDataType": [{"machine_name": "Mac Studio", "chip_type": "Apple M2 Max",
          "serial_number": 7}, {"model_number": "X"}]})");
  ASSERT_TRUE(profile);
  EXPECT_EQ(std::tie(profile->machineName, profile->chipType), std::make_tuple("Mac Studio", "Apple M2 Max"));
  EXPECT_FALSE(profile->modelNumber || profile->serialNumber);  // the serial is not a string
  for (const char* bad : {"", "[]", R"({"SPHardwareDataType": []})", R"({"SPHardwareDataType": {}})", "{"}) {
    EXPECT_FALSE(device::hardwareProfileFromJson(bad)) << bad;
  }
}

TEST(OSInfo, NamesVersionsAndBuilds) {
  // Text; name, version and build read from it.
  const std::array<std::string, 4> cases[] = {
      {"Version 14.0 (Build 23A344)", "Sonoma", "14.0.0", "23A344"},
      {"Version 15.1.1 (Build 24B91)", "Sequoia", "15.1.1", "24B91"},
      {"Version 10.16 (Build 20A1)", "Unknown", "10.16.0", "20A1"},
      {"Version 10.13.6 (Build 17G66)", "High Sierra", "10.13.6", "17G66"},
      {"11.2", "Big Sur", "11.2.0", "Unknown"},
      {"16.0", "Unknown", "16.0.0", "Unknown"},
      {"Version (odd)", "Unknown", "0.0.0", "odd"},
  };
  for (const auto& c : cases) {
    const auto info = device::osInfoFromVersionText(c[0]);
    EXPECT_EQ((std::array{c[0], info.name(), info.versionString(), info.build}), c);
  }
}

TEST(UptimeText, WordsDaysHoursAndMinutesInTheLocale) {
  const std::chrono::system_clock::time_point boot{seconds(1'700'000'000)};
  struct Case {
    std::chrono::seconds span;
    const char* locale;
    std::optional<std::string> text;
  };
  for (const auto& c : std::initializer_list<Case>{
           {hours(50) + minutes(5) + seconds(59), "en_US", "2 days, 2 hours, 5 minutes"},
           {hours(24), "en", "1 day"},
           {hours(1) + minutes(1), "en", "1 hour, 1 minute"},
           {seconds(59), "en", "0 minutes"},
           {hours(26) + minutes(3), "de_DE", "1 Tag, 2 Stunden und 3 Minuten"},
           {seconds(-60), "en", "--"},
       }) {
    EXPECT_EQ(device::uptimeText(boot, boot + c.span, c.locale), c.text) << c.span.count() << " " << c.locale;
  }
  EXPECT_EQ(device::uptimeText(std::nullopt, boot, "en"), std::nullopt);
}

// The whole device on a recorded machine, measured to the virtual clock.
class SystemDeviceTest : public testing::MachineTest {
 protected:
  void TearDown() override {
    HWSystemDevice::reset();
    HWSystemDevice::setLocaleCodeProvider(nullptr);
    testing::MachineTest::TearDown();
  }
};

TEST_F(SystemDeviceTest, DescribesTheRecordedMachine) {
  install(R"({"name": "Lab", "sysctl": {"hw.model": "MacBookPro18,3", "hw.byteorder": 1234, "kern.boottime": 1700000000,
      "kern.hostname": "lab-mac", "kern.osproductversion": "14.1.1", "kern.osversion": "23B81"}, "smc": []})");
  auto clock = dispatch::installVirtualTime(1'700'000'000 + 3 * 3600 + 120);
  HWSystemDevice::reset();
  HWSystemDevice::setLocaleCodeProvider([] { return std::string("en_GB"); });
  auto device = HWSystemDevice::device();
  EXPECT_EQ(device->hostName(), "lab-mac");
  EXPECT_EQ(device->modelInfo().name, "MacBook Pro 14-inch (M1 Pro)");
  EXPECT_EQ(std::make_tuple(device->osInfo().name(), device->osInfo().build), std::make_tuple("Sonoma", "23B81"));
  EXPECT_EQ(device->getUptimeValue(), "3 hours, 2 minutes");
  clock->advance(std::chrono::hours(24));
  EXPECT_EQ(device->getUptimeValue(), "1 day, 3 hours, 2 minutes");
}

}  // namespace
}  // namespace corvane
