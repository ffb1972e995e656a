#include "bar_model.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace corvane::cli::bar {
namespace {

std::shared_ptr<const HWSensorEntity> sensor(std::int16_t type, double value, double max = 0) {
  auto category = std::make_shared<HWSensorCategoryEntity>();
  category->setType(type);
  auto entity = std::make_shared<HWSensorEntity>();
  entity->setCategory(category);
  entity->setMaxValue(max);
  entity->setValue(value);
  return entity;
}

HWMenuItem item(std::string id, HWMenuItemType type, std::uint64_t source = 0, std::string title = "",
                std::string value = "", std::string image = "") {
  return HWMenuItem(std::move(id), static_cast<std::uint64_t>(type), source, title, value, image);
}

TEST(BarLine, EachKindOfItemShowsItsTextInTheUsersUnits) {
  Figures figures;
  figures.sensors["TC0P"] = sensor(0, 62.4);
  figures.sensors["F0Ac"] = sensor(1, 1800, 6000);
  HWCPULoadInfo load;
  load.totalUsage = 0.456;
  figures.load = load;
  figures.averages = HWLoadAverages{1.5, 1, 0.5};
  struct Case {
    HWMenuItem item;
    std::string text;
  };
  for (const auto& c : std::vector<Case>{
           {item("l", HWMenuItemType::kLabel, 0, "Temp"), "Temp"},
           {item("i", HWMenuItemType::kIcon, 0, "", "", "thermometer"), "\U0001F321"},
           {item("i2", HWMenuItemType::kIcon, 0, "", "", "no-glyph"), ""},
           {item("TC0P", HWMenuItemType::kText), "62°"},
           {item("F0Ac", HWMenuItemType::kCustom, 0, "Fan"), "Fan 1800"},
           {item("gone", HWMenuItemType::kText, 0, "", "51°"), "51°"},  // no figure: as last stored
           {item("gone2", HWMenuItemType::kText), "--"},
           {item("cpu_total_usage", HWMenuItemType::kText, 1), "46%"},
           {item("cpu_load_average", HWMenuItemType::kText, 1), "1.50"},
       }) {
    EXPECT_EQ(itemText(c.item, figures), c.text) << c.item.identifier();
  }
  // Without a reading the CPU figures are unknown, not zero.
  EXPECT_EQ(itemText(item("cpu_user_usage", HWMenuItemType::kText, 1), Figures{}), "--");
}

TEST(BarLine, StripsJoinInOrderAndWaybarGetsTextTooltipAndAClassFromTheStatuses) {
  Figures figures;
  figures.sensors["TC0P"] = sensor(0, 95);
  const std::vector<Strip> strips{
      {true, {item("sp0", HWMenuItemType::kSpacer), item("i", HWMenuItemType::kIcon, 0, "", "", "thermometer"),
              item("TC0P", HWMenuItemType::kText, 0, "CPU"),
              item("sp", HWMenuItemType::kSpacer), item("l", HWMenuItemType::kLabel, 0, "T")}},
      {false, {item("cpu_total_usage", HWMenuItemType::kText, 1, "CPU")}},
      {true, {item("cpu_total_usage", HWMenuItemType::kText, 1, "CPU")}},
  };
  const Line line = buildLine(strips, figures);
  EXPECT_EQ(line.text, "\U0001F321 95°  T | --");
  const auto json = nlohmann::json::parse(waybarLine(line));
  EXPECT_EQ(json, (nlohmann::json{{"text", line.text}, {"tooltip", "CPU: 95°\nCPU: --"}, {"class", "warning"}}));
  figures.sensors["TC0P"] = sensor(0, 101);
  EXPECT_EQ(buildLine(strips, figures).cssClass, "critical");
  figures.sensors["TC0P"] = sensor(0, 40);
  EXPECT_EQ(buildLine(strips, figures).cssClass, "normal");
}

}  // namespace
}  // namespace corvane::cli::bar
