#include "bar_model.h"

#include <cmath>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "corvane/sensors/value_formatter.h"
#include "corvane/util/json_text.h"

namespace corvane::cli::bar {
namespace {

// The images of the product's resource lists, as characters a status bar can draw.
const std::map<std::string, std::string>& glyphs() {
  static const std::map<std::string, std::string> table = {{"thermometer", "\U0001F321"}, {"cpu", "\u25A6"}};
  return table;
}

std::string percent(double share) {
  if (!std::isfinite(share)) return "--";
  char text[16];
  std::snprintf(text, sizeof text, "%.0f%%", std::fmax(0.0, std::fmin(share, 1.0)) * 100.0);
  return text;
}

// The value of a text item, or nothing when the item names no figure this program knows.
std::optional<std::string> liveValue(const HWMenuItem& item, const Figures& figures) {
  const std::string& id = item.identifier();
  if (item.sourceType() == static_cast<std::uint64_t>(HWMenuItemSourceType::kCPU)) {
    if (id == "cpu_load_average") {
      if (!figures.averages) return "--";
      char text[16];
      std::snprintf(text, sizeof text, "%.2f", (*figures.averages)[0]);
      return text;
    }
    const bool loadItem = id == "cpu_total_usage" || id == "cpu_user_usage" || id == "cpu_system_usage";
    if (!loadItem) return std::nullopt;
    if (!figures.load) return "--";
    const auto& load = *figures.load;
    return percent(id == "cpu_total_usage" ? load.totalUsage : id == "cpu_user_usage" ? load.userLoad : load.systemLoad);
  }
  const auto found = figures.sensors.find(id);
  if (found == figures.sensors.end() || !found->second) return std::nullopt;
  const HWSensorEntity& sensor = *found->second;
  if (!std::isfinite(sensor.value())) return "--";
  std::string tidy = HWSensorFormatter::tidyStringValueFromSensor(sensor);
  return tidy.empty() ? "--" : tidy;
}

std::string valueText(const HWMenuItem& item, const Figures& figures) {
  if (auto value = liveValue(item, figures)) return *value;
  // An item this program has no figure for shows what its writer last stored in it.
  return item.value() && !item.value()->empty() ? *item.value() : "--";
}

bool showsValue(const HWMenuItem& item) {
  return item.type() == static_cast<std::uint64_t>(HWMenuItemType::kText) ||
         item.type() == static_cast<std::uint64_t>(HWMenuItemType::kCustom);
}

}  // namespace

std::string itemText(const HWMenuItem& item, const Figures& figures) {
  switch (static_cast<HWMenuItemType>(item.type())) {
    case HWMenuItemType::kLabel: return item.title().value_or("");
    case HWMenuItemType::kIcon: {
      const auto found = item.imageName() ? glyphs().find(*item.imageName()) : glyphs().end();
      return found == glyphs().end() ? "" : found->second;
    }
    case HWMenuItemType::kSpacer: return "";
    case HWMenuItemType::kCustom: {
      const std::string title = item.title().value_or("");
      return title.empty() ? valueText(item, figures) : title + " " + valueText(item, figures);
    }
    case HWMenuItemType::kText:
    default: return valueText(item, figures);
  }
}

Line buildLine(const std::vector<Strip>& strips, const Figures& figures) {
  Line line;
  int severity = 0;
  for (const auto& strip : strips) {
    if (!strip.enabled) continue;
    std::string text;
    bool any = false;
    for (const auto& item : strip.items) {
      const std::string piece = itemText(item, figures);
      // An icon without a glyph takes no room; a spacer is an empty piece, so a double gap.
      if (piece.empty() && item.type() != static_cast<std::uint64_t>(HWMenuItemType::kSpacer)) continue;
      if (any) text += ' ';
      text += piece;
      any = true;
      if (!showsValue(item)) continue;
      if (!line.tooltip.empty()) line.tooltip += '\n';
      line.tooltip += item.title().value_or(item.identifier()) + ": " + valueText(item, figures);
      const auto sensor = figures.sensors.find(item.identifier());
      if (item.sourceType() != 0 || sensor == figures.sensors.end() || !sensor->second) continue;
      // Temperatures at 100 degrees or fans near their top are critical; hot or fast, a warning.
      const auto status = sensor->second->statusEnum();
      severity = std::max(severity, status == 3 || status == 7 ? 2 : status == 2 || status == 6 ? 1 : 0);
    }
    // A spacer at either end of a strip would only pad it.
    text.erase(0, text.find_first_not_of(' '));
    while (!text.empty() && text.back() == ' ') text.pop_back();
    if (text.empty()) continue;
    if (!line.text.empty()) line.text += " | ";
    line.text += text;
  }
  line.cssClass = severity == 2 ? "critical" : severity == 1 ? "warning" : "normal";
  return line;
}

std::string waybarLine(const Line& line) {
  nlohmann::ordered_json object = {{"text", line.text}, {"tooltip", line.tooltip}, {"class", line.cssClass}};
  return json_text::dump(object);
}

}  // namespace corvane::cli::bar
