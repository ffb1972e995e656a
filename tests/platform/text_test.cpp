#include "corvane/platform/text.h"

#include <cctype>

#include <gtest/gtest.h>

namespace corvane::text {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(HexBytes, ReadStrictlyAndWriteBackInLowerCase) {
  struct HexCase {
    const char* hex;
    std::optional<Bytes> bytes;
  };

  for (const HexCase& c : std::initializer_list<HexCase>{{"", Bytes{}},
                                                         {"00c0A944", Bytes{0x00, 0xC0, 0xA9, 0x44}},
                                                         {"ff", Bytes{0xFF}},
                                                         {"abc", std::nullopt},
                                                         {"0g", std::nullopt},
                                                         {" 1", std::nullopt},
                                                         {"+1", std::nullopt}}) {
    const auto bytes = bytesFromHex(c.hex);
    EXPECT_EQ(bytes, c.bytes) << c.hex;
    if (bytes) {
      std::string lower = c.hex;
      for (auto& ch : lower) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
      EXPECT_EQ(hexFromBytes(bytes->data(), bytes->size()), lower);
    }
  }
}

TEST(Text, NumbersCodesAndStatuses) {
  EXPECT_EQ(hexNumber("E00002c2"), 0xE00002C2u);
  EXPECT_EQ(hexNumber(""), std::nullopt);
  EXPECT_EQ(hexNumber("100000000"), std::nullopt);  // nine digits do not fit
  EXPECT_EQ(hexNumber("1x"), std::nullopt);
  static_assert(packFourCc("#KEY") == 0x234B4559u);
  EXPECT_EQ(unpackFourCc(packFourCc("F0Ac")), "F0Ac");
  EXPECT_EQ(unpackFourCc(packFourCc("ui8 ")), "ui8 ");
  EXPECT_EQ(statusText(static_cast<int32_t>(0xE00002C2u)), "0xe00002c2");
  EXPECT_EQ(statusText(0), "0x00000000");
}

}  // namespace
}  // namespace corvane::text
