#include "graph_image.h"

#include <algorithm>
#include <cctype>
#include <memory>

#include <cairo-svg.h>
#include <cairo.h>

namespace corvane::cli {
namespace {

constexpr double kWidth = 900;
constexpr double kHeight = 420;
constexpr double kLeft = 80;    // room for the value labels
constexpr double kRight = 110;  // room for the minimum and maximum labels
constexpr double kTop = 48;
constexpr double kBottom = 44;

struct SurfaceDeleter {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct ContextDeleter {
  void operator()(cairo_t* cr) const { cairo_destroy(cr); }
};
using SurfacePtr = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;
using ContextPtr = std::unique_ptr<cairo_t, ContextDeleter>;

// Maps the data's time and value axes onto the plot area.
struct Frame {
  double t0, t1, v0, v1;
  double x(double time) const { return kLeft + (time - t0) / (t1 - t0) * (kWidth - kLeft - kRight); }
  double y(double value) const { return kHeight - kBottom - (value - v0) / (v1 - v0) * (kHeight - kTop - kBottom); }
};

void text(cairo_t* cr, double x, double y, const std::string& s, double alignX) {
  cairo_text_extents_t extents;
  cairo_text_extents(cr, s.c_str(), &extents);
  cairo_move_to(cr, x - extents.width * alignX - extents.x_bearing, y - extents.height / 2 - extents.y_bearing);
  cairo_show_text(cr, s.c_str());
}

void limitLine(cairo_t* cr, const Frame& frame, double value, const std::string& label, double r, double g, double b) {
  const double y = frame.y(value);
  const double dashes[] = {6, 4};
  cairo_set_source_rgb(cr, r, g, b);
  cairo_set_line_width(cr, 1);
  cairo_set_dash(cr, dashes, 2, 0);
  cairo_move_to(cr, kLeft, y);
  cairo_line_to(cr, kWidth - kRight, y);
  cairo_stroke(cr);
  cairo_set_dash(cr, nullptr, 0, 0);
  text(cr, kWidth - kRight + 8, y, label, 0);
}

void draw(cairo_t* cr, const GraphData& data) {
  const Frame frame{data.timeLabels.front().time, data.timeLabels.back().time, data.valueTicks.front().value,
                    data.valueTicks.back().value};
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);

  cairo_set_font_size(cr, 15);
  cairo_set_source_rgb(cr, 0.1, 0.1, 0.1);
  std::string title = data.title + ", last " + timeRangeName(data.range);
  if (!data.unit.empty()) title += " (" + data.unit + ")";
  text(cr, kLeft, kTop / 2, title, 0);

  cairo_set_font_size(cr, 11);
  cairo_set_line_width(cr, 1);
  for (const auto& tick : data.valueTicks) {
    const double y = frame.y(tick.value);
    cairo_set_source_rgb(cr, 0.88, 0.88, 0.88);
    cairo_move_to(cr, kLeft, y);
    cairo_line_to(cr, kWidth - kRight, y);
    cairo_stroke(cr);
    cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
    text(cr, kLeft - 8, y, tick.label, 1);
  }
  for (const auto& label : data.timeLabels) {
    const double x = frame.x(label.time);
    cairo_set_source_rgb(cr, 0.88, 0.88, 0.88);
    cairo_move_to(cr, x, kTop);
    cairo_line_to(cr, x, kHeight - kBottom);
    cairo_stroke(cr);
    cairo_set_source_rgb(cr, 0.3, 0.3, 0.3);
    text(cr, x, kHeight - kBottom + 16, label.label, 0.5);
  }

  if (data.samples.empty()) return;
  limitLine(cr, frame, data.highest.value, "max " + data.highestText, 0.8, 0.2, 0.15);
  limitLine(cr, frame, data.lowest.value, "min " + data.lowestText, 0.15, 0.5, 0.2);

  cairo_set_source_rgb(cr, 0.1, 0.35, 0.75);
  cairo_set_line_width(cr, 1.8);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
  cairo_new_path(cr);  // text leaves a current point behind; the line must not start there
  if (data.samples.size() == 1) {
    cairo_arc(cr, frame.x(data.samples[0].time), frame.y(data.samples[0].value), 3, 0, 6.2832);
    cairo_fill(cr);
    return;
  }
  for (const auto& sample : data.samples) cairo_line_to(cr, frame.x(sample.time), frame.y(sample.value));
  cairo_stroke(cr);
}

}  // namespace

std::optional<ImageFormat> imageFormatForPath(const std::filesystem::path& path) {
  std::string extension = path.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (extension == ".png") return ImageFormat::kPng;
  if (extension == ".svg") return ImageFormat::kSvg;
  return std::nullopt;
}

bool writeGraphImage(const GraphData& data, const std::filesystem::path& path, ImageFormat format, std::string* error) {
  if (data.timeLabels.empty() || data.valueTicks.empty()) {
    if (error) *error = "nothing to draw";
    return false;
  }
  // Drawn beside the target and moved over it at the end, so a failure never leaves half a picture.
  std::filesystem::path partial = path;
  partial += ".partial";
  cairo_status_t status;
  {
    SurfacePtr surface(format == ImageFormat::kSvg
                           ? cairo_svg_surface_create(partial.c_str(), kWidth, kHeight)
                           : cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(kWidth),
                                                        static_cast<int>(kHeight)));
    {
      ContextPtr cr(cairo_create(surface.get()));
      draw(cr.get(), data);
      status = cairo_status(cr.get());
    }
    if (status == CAIRO_STATUS_SUCCESS && format == ImageFormat::kPng) {
      status = cairo_surface_write_to_png(surface.get(), partial.c_str());
    }
    cairo_surface_finish(surface.get());
    if (status == CAIRO_STATUS_SUCCESS) status = cairo_surface_status(surface.get());
  }
  std::error_code ec;
  if (status == CAIRO_STATUS_SUCCESS) std::filesystem::rename(partial, path, ec);
  if (status != CAIRO_STATUS_SUCCESS || ec) {
    std::filesystem::remove(partial, ec);
    if (error) *error = status != CAIRO_STATUS_SUCCESS ? cairo_status_to_string(status) : "the file cannot be replaced";
    return false;
  }
  return true;
}

}  // namespace corvane::cli
