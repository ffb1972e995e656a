#include <cctype>
#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "corvane/smc/smc.h"
#include "corvane/smc/smc_value.h"

namespace {

SMCValue makeValue(const char* type, std::vector<unsigned char> bytes, int size = -1) {
  SMCValue value;
  std::memset(&value, 0, sizeof value);
  std::memcpy(value.dataType, type, std::strlen(type) + 1 > 5 ? 5 : std::strlen(type) + 1);
  value.dataSize = size >= 0 ? static_cast<uint32_t>(size) : static_cast<uint32_t>(bytes.size());
  if (!bytes.empty()) std::memcpy(value.bytes, bytes.data(), bytes.size());
  return value;
}

struct DecodeCase {
  const char* type;
  std::vector<unsigned char> bytes;
  int size;  // -1: the number of bytes
  float expected;
};

void PrintTo(const DecodeCase& c, std::ostream* os) { *os << '"' << c.type << "\" -> " << c.expected; }

class DecodeTest : public ::testing::TestWithParam<DecodeCase> {};

TEST_P(DecodeTest, DecodesAsTheTableSays) {
  const DecodeCase& c = GetParam();
  EXPECT_FLOAT_EQ(SMCConvertValueToNumber(makeValue(c.type, c.bytes, c.size)), c.expected)
      << "type '" << c.type << "' size " << (c.size >= 0 ? c.size : static_cast<int>(c.bytes.size()));
}

INSTANTIATE_TEST_SUITE_P(
    EveryTypeAndSize, DecodeTest,
    ::testing::Values(
        // Unsigned integers: big-endian, size not checked against the type.
        DecodeCase{"ui8 ", {0x05}, -1, 5.0f}, DecodeCase{"ui16", {0x01, 0x2C}, -1, 300.0f},
        DecodeCase{"ui32", {0x00, 0x00, 0x01, 0x2C}, -1, 300.0f},
        DecodeCase{"ui8 ", {0x01, 0x00}, -1, 256.0f},  // reported with size 2: a 16-bit number
        DecodeCase{"ui32", {0xFF, 0xFF, 0xFF, 0xFF}, -1, 4294967295.0f},
        // Bytes beyond the fourth wrap into the low bits.
        DecodeCase{"ui32", {0x00, 0x00, 0x00, 0x01, 0x02}, -1, 258.0f},
        // Floats in host byte order.
        DecodeCase{"flt ", {0x00, 0x00, 0x28, 0x42}, -1, 42.0f},
        DecodeCase{"flt ", {0x00, 0x00, 0xFA, 0x44}, -1, 2000.0f},
        DecodeCase{"si8 ", {0xFF}, -1, -1.0f}, DecodeCase{"si8 ", {0x7F}, -1, 127.0f},
        DecodeCase{"si8 ", {0x80}, -1, -128.0f},
        // Unsigned fixed point.
        DecodeCase{"fp1f", {0x80, 0x00}, -1, 1.0f}, DecodeCase{"fp4c", {0x10, 0x00}, -1, 1.0f},
        DecodeCase{"fp5b", {0x08, 0x00}, -1, 1.0f}, DecodeCase{"fp6a", {0x04, 0x00}, -1, 1.0f},
        DecodeCase{"fp79", {0x02, 0x00}, -1, 1.0f}, DecodeCase{"fp88", {0x01, 0x80}, -1, 1.5f},
        DecodeCase{"fpa6", {0x00, 0x40}, -1, 1.0f}, DecodeCase{"fpc4", {0x00, 0x18}, -1, 1.5f},
        DecodeCase{"fpe2", {0x1F, 0x40}, -1, 2000.0f}, DecodeCase{"fpe2", {0xFF, 0xFF}, -1, 16383.75f},
        // Signed fixed point.
        DecodeCase{"sp1e", {0xC0, 0x00}, -1, -1.0f}, DecodeCase{"sp3c", {0x10, 0x00}, -1, 1.0f},
        DecodeCase{"sp4b", {0x08, 0x00}, -1, 1.0f}, DecodeCase{"sp5a", {0xFC, 0x00}, -1, -1.0f},
        DecodeCase{"sp69", {0x02, 0x00}, -1, 1.0f}, DecodeCase{"sp78", {0x2A, 0x80}, -1, 42.5f},
        DecodeCase{"sp78", {0xFF, 0x00}, -1, -1.0f}, DecodeCase{"sp78", {0xE2, 0x00}, -1, -30.0f},
        DecodeCase{"sp87", {0x01, 0x00}, -1, 2.0f}, DecodeCase{"sp96", {0x00, 0x40}, -1, 1.0f},
        DecodeCase{"spb4", {0xFF, 0xF0}, -1, -1.0f},
        // Named signed, decoded unsigned.
        DecodeCase{"spf0", {0xFF, 0xFF}, -1, 65535.0f}, DecodeCase{"si16", {0xFF, 0xFE}, -1, 65534.0f},
        DecodeCase{"{pwm", {0x80, 0x00}, -1, 50.0f}, DecodeCase{"{pwm", {0xFF, 0xFF}, -1, 99.998474f},
        // Size zero is 0.0 for every type, known or not.
        DecodeCase{"sp78", {}, 0, 0.0f}, DecodeCase{"ch8*", {}, 0, 0.0f}, DecodeCase{"ui32", {}, 0, 0.0f},
        // Unknown pairs give the sentinel.
        DecodeCase{"fp88", {0x01, 0x00, 0x00, 0x00}, -1, -1.0f}, DecodeCase{"sp78", {0x2A}, -1, -1.0f},
        DecodeCase{"flt ", {0, 0, 0, 0, 0, 0, 0, 0}, -1, -1.0f}, DecodeCase{"flag", {0x01}, -1, -1.0f},
        DecodeCase{"ch8*", {'a', 'b'}, -1, -1.0f}, DecodeCase{"fp2e", {0x40, 0x00}, -1, -1.0f},
        DecodeCase{"si8 ", {0x01, 0x02}, -1, -1.0f}, DecodeCase{"hex_", {0x01, 0x02}, -1, -1.0f},
        DecodeCase{"ioft", {1, 2, 3, 4, 5, 6, 7, 8}, -1, -1.0f},
        // Type comparison includes the terminating NUL: "ui8" is not "ui8 ".
        DecodeCase{"ui8", {0x05}, -1, -1.0f}),
    [](const ::testing::TestParamInfo<DecodeCase>& info) {
      // "sp78_size2_3": the type with blanks and symbols dropped, the size, and the case number.
      std::string name;
      for (const char* c = info.param.type; *c != '\0'; ++c) {
        if (std::isalnum(static_cast<unsigned char>(*c))) name += *c;
      }
      const int size = info.param.size >= 0 ? info.param.size : static_cast<int>(info.param.bytes.size());
      return name + "_size" + std::to_string(size) + "_" + std::to_string(info.index);
    });

// The exported decoder folds a failure into -1; inside the library a failure is an empty optional,
// so a key that really reads -1 stays a reading.
TEST(SmcCodec, DecodedValueTellsARealMinusOneFromAFailure) {
  EXPECT_EQ(corvane::smc::decodedValue(makeValue("si8 ", {0xFF})), -1.0f);
  EXPECT_EQ(corvane::smc::decodedValue(makeValue("sp78", {0xFF, 0x00})), -1.0f);
  EXPECT_EQ(corvane::smc::decodedValue(makeValue("ui8 ", {})), 0.0f);
  EXPECT_EQ(corvane::smc::decodedValue(makeValue("flag", {0x01})), std::nullopt);
  EXPECT_EQ(corvane::smc::decodedValue(makeValue("si8 ", {0x01, 0x02})), std::nullopt);
  EXPECT_EQ(corvane::smc::decodedValue(makeValue("ui8", {0x05})), std::nullopt);
}

TEST(SmcCodec, NanIsNotTheSentinel) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  unsigned char bytes[4];
  std::memcpy(bytes, &nan, 4);
  EXPECT_TRUE(std::isnan(SMCConvertValueToNumber(makeValue("flt ", {bytes[0], bytes[1], bytes[2], bytes[3]}))));
}

TEST(SmcCodec, AnOversizedSizeNeverReadsPastTheValue) {
  // A key may report more bytes than a record holds; only the record is read.
  SMCValue value = makeValue("ui32", {0x00, 0x00, 0x00, 0x07}, 200);
  EXPECT_GE(SMCConvertValueToNumber(value), 0.0f);
}

TEST(SmcCodec, PacksAndUnpacksFourCharacterCodes) {
  EXPECT_EQ(SMCConvertStringToNumber("TC0P", 4, 16), 0x54433050u);
  EXPECT_EQ(SMCConvertStringToNumber("#KEY", 4, 16), 0x234B4559u);
  EXPECT_EQ(SMCConvertStringToNumber("ab", 0, 16), 0u);
  EXPECT_EQ(SMCConvertStringToNumber("\x01\x02", 2, 10), 0x0102u);
  // With base 16 a high byte is sign-extended over the bits above it; otherwise it is not.
  EXPECT_EQ(SMCConvertStringToNumber("\x80", 1, 16), 0xFFFFFF80u);
  EXPECT_EQ(SMCConvertStringToNumber("\x80", 1, 10), 0x80u);
  EXPECT_EQ(SMCConvertStringToNumber("A\x80", 2, 16), 0x4180u + 0xFFFFFF00u);

  char text[5];
  EXPECT_EQ(SMCConvertNumberToString(text, 0x464E756D), 4);
  EXPECT_STREQ(text, "FNum");
  SMCConvertNumberToString(text, SMCConvertStringToNumber("F0Tg", 4, 16));
  EXPECT_STREQ(text, "F0Tg");
}

TEST(SmcCodec, FixedPointDecoderKeepsQuarters) {
  const unsigned char fpe2[] = {0x1F, 0x41};  // 2000.25 in fpe2
  EXPECT_FLOAT_EQ(_strtof(fpe2, 2, 2), 2000.25f);
  const unsigned char one[] = {0x07};
  EXPECT_FLOAT_EQ(_strtof(one, 1, 2), 1.75f);
}

}  // namespace
