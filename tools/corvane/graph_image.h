// Draws the data of a sensor's graph into an image file with cairo.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "graph_data.h"

namespace corvane::cli {

enum class ImageFormat { kPng, kSvg };

// The format named by the file's extension (".png" or ".svg", letter case ignored); nothing for
// any other.
std::optional<ImageFormat> imageFormatForPath(const std::filesystem::path& path);

// Writes `data` as a PNG or SVG picture to `path`, replacing it. False with `error` set (and no
// file left behind) when the file cannot be written.
bool writeGraphImage(const GraphData& data, const std::filesystem::path& path, ImageFormat format, std::string* error);

}  // namespace corvane::cli
