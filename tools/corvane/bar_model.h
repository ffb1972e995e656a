// What `corvane bar` prints, built by pure functions from the strips' active items and the latest
// figures: the loop around them only gathers the figures and writes the lines.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "corvane/monitors/cpu_load_reader.h"
#include "corvane/monitors/cpu_readers.h"
#include "corvane/settings/menu_items.h"
#include "corvane/store/entities.h"

namespace corvane::cli::bar {

// One strip as the menu bar would show it: nothing when it is switched off.
struct Strip {
  bool enabled = true;
  std::vector<HWMenuItem> items;
};

// The figures the items draw from. A sensor item whose key is missing from `sensors` shows "--".
struct Figures {
  std::map<std::string, std::shared_ptr<const HWSensorEntity>> sensors;
  std::optional<HWCPULoadInfo> load;
  std::optional<HWLoadAverages> averages;
};

struct Line {
  std::string text;     // every shown item, strips apart by " | "
  std::string tooltip;  // "title: value" of every item with a value, one a line
  std::string cssClass; // "critical", "warning" or "normal", from the shown sensors' statuses
};

// The text one item shows: a label its title, an icon a glyph for its image (nothing for an image
// without one), a spacer nothing (so a wider gap), a text or custom item its current value in the
// user's units ("--" without one; a custom item with its title before it).
std::string itemText(const HWMenuItem& item, const Figures& figures);

Line buildLine(const std::vector<Strip>& strips, const Figures& figures);

// One line of the JSON a waybar custom module reads: {"text":..., "tooltip":..., "class":...}.
std::string waybarLine(const Line& line);

}  // namespace corvane::cli::bar
