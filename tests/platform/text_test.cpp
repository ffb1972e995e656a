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

}  // namespace
}  // namespace corvane::text
