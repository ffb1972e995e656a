// Displays on Linux: the DRM connectors under /sys/class/drm whose status is "connected". The
// panel of a laptop sits on an embedded connector (eDP, LVDS or DSI); everything else is
// external. The sysfs root is a parameter so tests use fixture trees.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "corvane/platform/displays.h"

namespace corvane::platform::drm {

// True for the connector types of built-in panels ("eDP", "LVDS", "DSI").
bool isBuiltInConnector(std::string_view connectorType);

// The display on connector entry `entryName` ("card0-eDP-1") whose status file holds `status`;
// nothing when the entry is not a connector or nothing is connected. The identifier is left 0.
std::optional<Display> displayOnConnector(std::string_view entryName, std::string_view status);

// The connected displays under `sysRoot`, in connector-name order; identifiers are the
// connector ids when the kernel gives them, else the 1-based position.
std::vector<Display> scanDisplays(const std::filesystem::path& sysRoot);

std::shared_ptr<Displays> makeDisplays(std::filesystem::path sysRoot);

}  // namespace corvane::platform::drm
