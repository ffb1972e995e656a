#include "corvane/util/colors.h"
#include "corvane/platform/text.h"
#include "util/hook.h"

#include <cstdint>
#include <mutex>

namespace corvane::colors {

namespace {

using text::hexDigit;

Hook<bool>& darkMode() {
  static Hook<bool> hook;
  return hook;
}

// The platform scanner's hexadecimal read of an unsigned 32-bit integer.
std::uint32_t scanHex(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t' || text[i] == '\n' || text[i] == '\r')) ++i;
  const std::string_view rest = text.substr(i);
  if ((rest.starts_with("0x") || rest.starts_with("0X")) && rest.size() > 2 && hexDigit(rest[2]) >= 0) i += 2;
  std::uint64_t value = 0;
  for (; i < text.size() && hexDigit(text[i]) >= 0; ++i) {
    value = value * 16 + static_cast<std::uint64_t>(hexDigit(text[i]));
    if (value > 0xFFFFFFFFull) return 0xFFFFFFFFu;
  }
  return static_cast<std::uint32_t>(value);
}

Color device(int red, int green, int blue) {
  return Color{red / 255.0, green / 255.0, blue / 255.0, 1.0, ColorSpace::DeviceRGB};
}

}  // namespace

Color colorWithHexString(std::string_view hex) {
  const std::uint32_t value = scanHex(hex);
  return Color{((value >> 16) & 0xFF) / 255.0, ((value >> 8) & 0xFF) / 255.0, (value & 0xFF) / 255.0, 1.0,
               ColorSpace::CalibratedRGB};
}

void setDarkModeProvider(std::function<bool()> provider) { darkMode().set(std::move(provider)); }

bool isDarkMode() { return darkMode().get(false); }

Color colorFromLightStyleColor(const Color& light, const Color& dark) { return isDarkMode() ? dark : light; }

Color appLightBlueColor() { return device(11, 150, 246); }
Color appBlueColor() { return device(11, 130, 250); }
Color appGreenColor() { return device(70, 216, 117); }
Color appOrangeColor() { return device(255, 149, 0); }
Color appRedColor() { return device(255, 59, 48); }
Color appBoxBackgroundColor() { return colorFromLightStyleColor(device(255, 255, 255), device(30, 30, 30)); }

}  // namespace corvane::colors
