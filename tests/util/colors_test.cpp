#include "corvane/util/colors.h"

#include <gtest/gtest.h>


namespace corvane::colors {
namespace {

TEST(HexColorTest, ScansLikeThePlatform) {
  struct Case {
    const char* text;
    int red, green, blue;
  };
  for (const auto& c : {Case{"FF9500", 255, 149, 0}, Case{"  0x46D875", 70, 216, 117}, Case{"12zz", 0, 0, 0x12},
                        Case{"80FF0000", 255, 0, 0},  // alpha bits above red are ignored
                        Case{"FFFFFFFFFF", 255, 255, 255}, Case{"#FF0000", 0, 0, 0}}) {
    EXPECT_EQ(colorWithHexString(c.text),
              (Color{c.red / 255.0, c.green / 255.0, c.blue / 255.0, 1.0, ColorSpace::CalibratedRGB}))
        << c.text;
  }
}

TEST(ColorsTest, DarkModeChosenAtCallTime) {
  bool dark = false;
  setDarkModeProvider([&dark] { return dark; });
  const Color light = appRedColor();
  const Color darkColor = appBlueColor();
  EXPECT_EQ(colorFromLightStyleColor(light, darkColor), light);
  EXPECT_EQ(appBoxBackgroundColor(), (Color{1, 1, 1, 1, ColorSpace::DeviceRGB}));
  dark = true;
  EXPECT_EQ(colorFromLightStyleColor(light, darkColor), darkColor);
  EXPECT_EQ(appBoxBackgroundColor(), (Color{30 / 255.0, 30 / 255.0, 30 / 255.0, 1, ColorSpace::DeviceRGB}));
  setDarkModeProvider(nullptr);
  EXPECT_FALSE(isDarkMode());
}

}  // namespace
}  // namespace corvane::colors
