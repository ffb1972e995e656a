#include <cstring>
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

TEST(DecodeTest, DecodesAsTheTableSays) {
  struct DecodeCase {
    const char* type;
    std::vector<unsigned char> bytes;
    int size;  // -1: the number of bytes
    float expected;
  };

  for (const DecodeCase& c :
       std::initializer_list<DecodeCase>{// Unsigned integers: big-endian, size not checked against the type.
                                         {"ui8 ", {0x05}, -1, 5.0f},
                                         {"ui16", {0x01, 0x2C}, -1, 300.0f},
                                         {"ui8 ", {0x01, 0x00}, -1, 256.0f},  // reported with size 2: a 16-bit number
                                         {"ui32", {0xFF, 0xFF, 0xFF, 0xFF}, -1, 4294967295.0f},
                                         // Bytes beyond the fourth wrap into the low bits.
                                         {"ui32", {0x00, 0x00, 0x00, 0x01, 0x02}, -1, 258.0f},
                                         // Floats in host byte order.
                                         {"flt ", {0x00, 0x00, 0x28, 0x42}, -1, 42.0f},
                                         {"si8 ", {0x80}, -1, -128.0f},
                                         // Unsigned fixed point.
                                         {"fp1f", {0x80, 0x00}, -1, 1.0f},
                                         {"fp6a", {0x04, 0x00}, -1, 1.0f},
                                         {"fp88", {0x01, 0x80}, -1, 1.5f},
                                         {"fpe2", {0xFF, 0xFF}, -1, 16383.75f},
                                         // Signed fixed point.
                                         {"sp1e", {0xC0, 0x00}, -1, -1.0f},
                                         {"sp5a", {0xFC, 0x00}, -1, -1.0f},
                                         {"sp78", {0x2A, 0x80}, -1, 42.5f},
                                         {"sp78", {0xE2, 0x00}, -1, -30.0f},
                                         {"sp87", {0x01, 0x00}, -1, 2.0f},
                                         {"spb4", {0xFF, 0xF0}, -1, -1.0f},
                                         // Named signed, decoded unsigned.
                                         {"spf0", {0xFF, 0xFF}, -1, 65535.0f},
                                         {"si16", {0xFF, 0xFE}, -1, 65534.0f},
                                         {"{pwm", {0x80, 0x00}, -1, 50.0f},
                                         // Size zero is 0.0 for every type, known or not.
                                         {"sp78", {}, 0, 0.0f},
                                         {"ch8*", {}, 0, 0.0f},
                                         // Unknown pairs give the sentinel.
                                         {"fp88", {0x01, 0x00, 0x00, 0x00}, -1, -1.0f},
                                         {"sp78", {0x2A}, -1, -1.0f},
                                         {"flt ", {0, 0, 0, 0, 0, 0, 0, 0}, -1, -1.0f},
                                         {"flag", {0x01}, -1, -1.0f},
                                         {"fp2e", {0x40, 0x00}, -1, -1.0f},
                                         {"si8 ", {0x01, 0x02}, -1, -1.0f},
                                         // Type comparison includes the terminating NUL: "ui8" is not "ui8 ".
                                         {"ui8", {0x05}, -1, -1.0f}}) {
    EXPECT_FLOAT_EQ(SMCConvertValueToNumber(makeValue(c.type, c.bytes, c.size)), c.expected)
        << "type '" << c.type << "' size " << (c.size >= 0 ? c.size : static_cast<int>(c.bytes.size()));
  }
}

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

TEST(SmcCodec, AnOversizedSizeNeverReadsPastTheValue) {
  // A key may report more bytes than a record holds; only the record is read.
  SMCValue value = makeValue("ui32", {0x00, 0x00, 0x00, 0x07}, 200);
  EXPECT_GE(SMCConvertValueToNumber(value), 0.0f);
}

TEST(SmcCodec, PacksAndUnpacksFourCharacterCodes) {
  EXPECT_EQ(SMCConvertStringToNumber("TC0P", 4, 16), 0x54433050u);
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
