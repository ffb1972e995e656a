#include "corvane/store/entities.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace corvane {
namespace {

class EntitiesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    stack = HWCoreDataStack::create(dir.path() / "Database.sqlite", true);
    for (const char* name : {"Temperature", "Fan", "Voltage", "Current", "Power", "Other"}) {
      auto category = std::static_pointer_cast<HWSensorCategoryEntity>(stack->insertNewObjectOf(HWEntity::kCategory));
      category->setName(name);
      category->setType(static_cast<std::int16_t>(categories.size()));
      categories.push_back(category);
    }
  }
  void TearDown() override {
    setUnitPreferencesProvider(nullptr);
    setEntitySettingsProvider(nullptr);
  }
  std::shared_ptr<HWSensorEntity> sensor(int type, const std::string& key, double value, double min = 0,
                                         double max = 0) {
    auto s = std::static_pointer_cast<HWSensorEntity>(stack->insertNewObjectOf(HWEntity::kSensor));
    s->setKey(key);
    s->setName(key + " name");
    s->setValue(value);
    s->setMinValue(min);
    s->setMaxValue(max);
    s->setCategory(categories[static_cast<std::size_t>(type)]);
    return s;
  }
  void point(const std::shared_ptr<HWSensorEntity>& s, HWTimeRange range, double y) {
    auto p = std::static_pointer_cast<HWGraphPointEntity>(stack->insertNewObjectOf(HWEntity::kGraphPoint));
    p->setSensor(s);
    p->setTimeRange(static_cast<std::int16_t>(range));
    p->setPointY(y);
  }

  testing::TempDir dir;
  std::shared_ptr<HWCoreDataStack> stack;
  std::vector<std::shared_ptr<HWSensorCategoryEntity>> categories;
};

TEST_F(EntitiesTest, StatusFollowsTheCategoryThresholds) {
  struct Case {
    int type;
    const char* key;
    double value, min, max;
    bool custom;
    int64_t status;
  };
  const Case cases[] = {
      {0, "TC0P", 100, 0, 0, false, 3},    {0, "TA0P", 99.9, 0, 0, false, 2}, {0, "TA0P", 89.9, 0, 0, false, 1},
      {0, "TC0P", 70, 0, 0, false, 2},     {0, "AverageCPU", 69.9, 0, 0, false, 1},
      {0, "TA0P", -123.9, 0, 0, false, 1}, {0, "TA0P", -128, 0, 0, false, 10}, {0, "TA0P", -127, 0, 0, false, 9},
      {0, "TA0P", -126, 0, 0, false, 11},  {0, "TA0P", -125, 0, 0, false, 12}, {0, "TA0P", -124, 0, 0, false, 13},
      {0, "TA0P", -200, 0, 0, false, 14},  {1, "0", 0, 1000, 5000, false, 4},  {1, "0", 4600, 1000, 5000, false, 7},
      {1, "0", 4000, 1000, 5000, false, 6}, {1, "0", 3999, 1000, 5000, false, 5},
      {2, "VP0R", 0, 0, 0, false, 8},      {2, "VP0R", -0.1, 0, 0, false, 14}, {3, "IC0R", 0, 0, 0, true, 0},
      {4, "PC0R", 0.5, 0, 0, true, 8},
  };
  for (const auto& c : cases) {
    auto s = sensor(c.type, c.key, c.value, c.min, c.max);
    s->setIsCustom(c.custom);
    EXPECT_EQ(s->statusEnum(), c.status) << c.type << " " << c.key << " " << c.value;
    const int64_t normal = c.type == 0 ? 1 : c.type == 1 ? 5 : 8;
    EXPECT_EQ(s->isNormalCondition(), c.status == normal);
  }
}

TEST_F(EntitiesTest, ConvertedValuesAndGraphLimitsFollowTheUnits) {
  setUnitPreferencesProvider([] { return UnitPreferences{false, 1}; });  // Fahrenheit, fans in percent
  auto fan = sensor(1, "0", 500, 1000, 5000);
  EXPECT_EQ(fan->convertedValue(), 0.0);  // below its minimum
  fan->setValue(6000);
  EXPECT_EQ(fan->convertedValue(), 1.0);  // above its maximum
  fan->setValue(2000);
  EXPECT_DOUBLE_EQ(fan->convertedValue(), 0.25);
  EXPECT_EQ(fan->graphMinValue(), 0.0);
  EXPECT_EQ(fan->graphMaxValue(), 1.0);

  auto temp = sensor(0, "TA0P", 50, 10, 100);
  EXPECT_DOUBLE_EQ(temp->convertedValue(), 122);
  EXPECT_DOUBLE_EQ(temp->graphMinValue(), 50);  // nothing recorded: the limit alone
  temp->setRecordedMinValue(0);
  temp->setRecordedMaxValue(105);
  EXPECT_DOUBLE_EQ(temp->graphMinValue(), 32);
  EXPECT_DOUBLE_EQ(temp->graphMaxValue(), 221);

  setUnitPreferencesProvider([] { return UnitPreferences{true, 0}; });
  EXPECT_EQ(fan->convertedValue(), 2000);
  EXPECT_EQ(fan->graphMinValue(), 1000);
  ASSERT_TRUE(stack->saveViewContext());
  point(fan, HWTimeRange::kDay, 2500);
  ASSERT_TRUE(stack->saveViewContext());
  setUnitPreferencesProvider([] { return UnitPreferences{true, 1}; });
  EXPECT_DOUBLE_EQ(fan->dayGraphPoints().at(0)->convertedPointY(), 0.5);  // against the maximum alone
}

TEST_F(EntitiesTest, FinalRecordedExtremesComeFromAllSavedPoints) {
  auto s = sensor(0, "TA0P", 50);
  s->setRecordedMaxValue(77);
  ASSERT_TRUE(stack->saveViewContext());
  EXPECT_EQ(s->finalRecordedMaxValue(), 77);  // no points: the recorded value
  point(s, HWTimeRange::kHour, 41);
  point(s, HWTimeRange::kWeek, 63);
  point(s, HWTimeRange::kDay, 12);
  ASSERT_TRUE(stack->saveViewContext());
  EXPECT_EQ(s->finalRecordedMaxValue(), 63);
  EXPECT_EQ(s->finalRecordedMinValue(), 12);
  EXPECT_EQ(s->hourGraphPoints().size(), 1u);
  EXPECT_EQ(s->graphPointCount(HWTimeRange::kWeek), 1);
}

TEST_F(EntitiesTest, FanLimitsOnlyWidenAndRecordsRoundTrip) {
  struct Case {
    double storedMin, storedMax, readMin, readMax, min, max;
  };
  const Case cases[] = {
      {1200, 6000, 1000, 5000, 1000, 6000},  // lower minimum taken, larger stored maximum kept
      {0, 0, 1000, 5000, 1000, 5000},        // nothing stored yet
      {900, 4000, 1000, 5000, 900, 5000},
  };
  for (const auto& c : cases) {
    auto fan = sensor(1, "1", 0, c.storedMin, c.storedMax);
    auto read = HWSensor::instanceWithKey({.key = "1", .name = "Right", .minLimitValue = c.readMin,
                                           .maxLimitValue = c.readMax, .type = SensorType::kFan});
    fan->updateFromSensor(*read, true);
    EXPECT_EQ(fan->minValue(), c.min);
    EXPECT_EQ(fan->maxValue(), c.max);
  }
  auto volts = sensor(2, "VP0R", 0, 1, 20);
  volts->updateFromSensor(*HWSensor::instanceWithKey({.key = "VP0R", .name = "Rail", .value = 12.1,
                                                      .minLimitValue = 5, .maxLimitValue = 15,
                                                      .group = SensorGroup::kPowerSupply,
                                                      .sourceType = SourceType::kSMC, .average = true}),
                          false);
  auto record = volts->toSensor();
  EXPECT_EQ(record->type(), SensorType::kVoltage);
  EXPECT_EQ(record->group(), SensorGroup::kPowerSupply);
  EXPECT_EQ(record->minLimitValue(), 5);
  EXPECT_EQ(record->value(), 12.1);
  EXPECT_TRUE(record->average());
}

TEST_F(EntitiesTest, CategoriesFilterAndNameAndFanSetsArchive) {
  auto known = sensor(0, "TC0P", 40);
  known->setFullName("CPU Proximity");
  known->setGroup(1);
  auto unknown = sensor(0, "Tx9Z", 40);
  unknown->setName("Tx9Z");
  unknown->setFullName("Tx9Z");
  auto hid = sensor(0, "PMU tdie1", 40);
  hid->setSourceType(1);
  auto computed = sensor(0, "AverageCPU", 40);
  computed->setSourceType(2);
  ASSERT_TRUE(stack->saveViewContext());
  auto keys = [&] {
    std::vector<std::string> out;
    for (const auto& s : categories[0]->filterSensors()) out.push_back(s->key());
    return out;
  };
  EXPECT_EQ(keys(), (std::vector<std::string>{"TC0P", "AverageCPU"}));
  setEntitySettingsProvider([] { return HWEntitySettings{true, true, false, std::string("17")}; });
  EXPECT_EQ(keys(), (std::vector<std::string>{"TC0P", "Tx9Z", "PMU tdie1"}));

  auto set = std::static_pointer_cast<HWFanSetEntity>(stack->insertNewObjectOf(HWEntity::kFanSet));
  set->setIdentifier("17");
  set->setName("Manual");
  set->setValueDict({{"0", 1200.0}, {"1", 1300.5}});
  auto condition = std::static_pointer_cast<HWFanConditionEntity>(stack->insertNewObjectOf(HWEntity::kFanCondition));
  condition->setFanSet(set);
  condition->setSensorKey("nowhere");
  condition->setThreshold(71.9);
  ASSERT_TRUE(stack->saveViewContext());
  auto reread = HWCoreDataStack::create(dir.path() / "Database.sqlite", false);
  auto stored = std::static_pointer_cast<HWFanSetEntity>(reread->objectsOf(HWEntity::kFanSet).at(0));
  EXPECT_EQ(stored->valueDict(), (nlohmann::json{{"0", 1200.0}, {"1", 1300.5}}));
  EXPECT_TRUE(stored->isManualFanSet());
  EXPECT_EQ(condition->sensor(), nullptr);
  condition->setSensorKey("TC0P");
  EXPECT_EQ(condition->sensor(), known);
  EXPECT_EQ(condition->description(), "Fan set: Manual\nSensor: TC0P\nThreshold: 71\nBattery State: 0\nExternal Display: 0");
}

}  // namespace
}  // namespace corvane
