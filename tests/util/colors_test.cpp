#include "corvane/util/colors.h"

#include <gtest/gtest.h>

#include "corvane/util/fonts.h"

namespace corvane::colors {
namespace {

struct HexCase {
  const char* text;
  int red, green, blue;
};

class HexColorTest : public ::testing::TestWithParam<HexCase> {};
TEST_P(HexColorTest, ScansLikeThePlatform) {
  const Color color = colorWithHexString(GetParam().text);
  EXPECT_EQ(color, (Color{GetParam().red / 255.0, GetParam().green / 255.0, GetParam().blue / 255.0, 1.0,
                          ColorSpace::CalibratedRGB}))
      << GetParam().text;
}
INSTANTIATE_TEST_SUITE_P(Cases, HexColorTest,
                         ::testing::Values(HexCase{"FF9500", 255, 149, 0}, HexCase{"0b96f6", 11, 150, 246},
                                           HexCase{"0x46D875", 70, 216, 117}, HexCase{"  1E1E1E", 30, 30, 30},
                                           HexCase{"ff", 0, 0, 255}, HexCase{"12zz", 0, 0, 0x12},
                                           // Alpha bits above blue are ignored.
                                           HexCase{"80FF0000", 255, 0, 0},
                                           HexCase{"FFFFFFFFFF", 255, 255, 255},
                                           HexCase{"#FF0000", 0, 0, 0}, HexCase{"", 0, 0, 0}));

struct ProductColorCase {
  Color (*make)();
  int red, green, blue;
};

class ProductColorTest : public ::testing::TestWithParam<ProductColorCase> {};
TEST_P(ProductColorTest, FixedComponents) {
  EXPECT_EQ(GetParam().make(), (Color{GetParam().red / 255.0, GetParam().green / 255.0, GetParam().blue / 255.0, 1.0,
                                      ColorSpace::DeviceRGB}));
}
INSTANTIATE_TEST_SUITE_P(Cases, ProductColorTest,
                         ::testing::Values(ProductColorCase{appLightBlueColor, 11, 150, 246},
                                           ProductColorCase{appBlueColor, 11, 130, 250},
                                           ProductColorCase{appGreenColor, 70, 216, 117},
                                           ProductColorCase{appOrangeColor, 255, 149, 0},
                                           ProductColorCase{appRedColor, 255, 59, 48}));

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

TEST(FontsTest, LineHeight) {
  EXPECT_DOUBLE_EQ(fonts::lineHeight({12.0, -3.5, 1.0}), 16.5);
  EXPECT_DOUBLE_EQ(fonts::lineHeight({10.0, 0.0, 0.0}), 10.0);
}

}  // namespace
}  // namespace corvane::colors
