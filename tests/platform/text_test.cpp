#include "corvane/platform/text.h"

#include <tuple>

#include <gtest/gtest.h>

namespace corvane::text {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(HexBytes, ReadStrictlyAndWriteBackInLowerCase) {
  // Text, its bytes (nothing: refused), and how the bytes are written back.
  using Case = std::tuple<const char*, std::optional<Bytes>, const char*>;
  for (const auto& [hex, bytes, written] : {Case{"", Bytes{}, ""},
                                            Case{"00c0A944", Bytes{0x00, 0xC0, 0xA9, 0x44}, "00c0a944"},
                                            Case{"ff", Bytes{0xFF}, "ff"},
                                            Case{"abc", std::nullopt, ""},
                                            Case{"0g", std::nullopt, ""},
                                            Case{" 1", std::nullopt, ""},
                                            Case{"+1", std::nullopt, ""}}) {
    const auto read = bytesFromHex(hex);
    EXPECT_EQ(read, bytes) << hex;
    if (read) {
      EXPECT_EQ(hexFromBytes(read->data(), read->size()), written);
    }
  }
}

}  // namespace
}  // namespace corvane::text
