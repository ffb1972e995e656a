// Colours the product draws with: components in 0...1 and the colour space they are meant in.
#pragma once

#include <functional>
#include <string_view>

namespace corvane::colors {

// Calibrated RGB is the display-independent space; device RGB is the screen's own.
enum class ColorSpace { CalibratedRGB, DeviceRGB };

struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;
  ColorSpace space = ColorSpace::DeviceRGB;
  bool operator==(const Color&) const = default;
};

// `hex` read as a hexadecimal integer the way the platform's scanner does (leading blanks,
// optional "0x"; no digits reads as 0, too many as 0xFFFFFFFF): red from bits 16-23, green
// 8-15, blue 0-7, calibrated RGB, opaque. A leading "#" is not hexadecimal and reads as black.
Color colorWithHexString(std::string_view hex);

// `dark` when the dark-mode hook answers true at the time of the call, else `light`.
Color colorFromLightStyleColor(const Color& light, const Color& dark);

// Installs where dark mode comes from (the theme manager does, at start); default: never dark.
void setDarkModeProvider(std::function<bool()> provider);
// What the dark-mode hook answers now.
bool isDarkMode();

// The product colours, device RGB, opaque.
Color appLightBlueColor();
Color appBlueColor();
Color appGreenColor();
Color appOrangeColor();
Color appRedColor();
// White in light mode; 30, 30, 30 in dark mode (chosen when called).
Color appBoxBackgroundColor();

}  // namespace corvane::colors
