// Font metrics the product lays text out with.
#pragma once

namespace corvane::fonts {

// A font's vertical metrics in points; the descender is negative below the baseline.
struct FontMetrics {
  double ascender = 0;
  double descender = 0;
  double leading = 0;
};

// The distance between baselines of consecutive lines: ascender − descender + leading.
constexpr double lineHeight(const FontMetrics& metrics) {
  return metrics.ascender - metrics.descender + metrics.leading;
}

}  // namespace corvane::fonts
