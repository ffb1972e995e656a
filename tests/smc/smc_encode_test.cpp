// Numbers written back in a key's own type: what the decoder reads again, rounded to the type's
// step and held at its ends; types the codec does not know are refused.
#include <cmath>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "corvane/smc/smc_value.h"

namespace {

TEST(EncodeTest, DecodesBackToTheNearestValueTheTypeHolds) {
  struct Case {
    const char* type;
    uint32_t size;
    double number;
    bool encodes;
    double decoded;
  };
  for (const Case& c : {Case{"sp78", 2, 38.5, true, 38.5}, Case{"sp78", 2, 38.3, true, 38.30078125},
                        Case{"sp78", 2, 200, true, 127.99609375}, Case{"sp78", 2, -40, true, -40},
                        Case{"fpe2", 2, 2000.25, true, 2000.25}, Case{"fpe2", 2, -5, true, 0},
                        Case{"flt ", 4, 1234.5, true, 1234.5}, Case{"ui8 ", 1, 300, true, 255},
                        Case{"ui16", 2, 1.6, true, 2}, Case{"si8 ", 1, -3.4, true, -3},
                        Case{"{pwm", 2, 50, true, 50}, Case{"sp78", 4, 1, false, 0}, Case{"ch8*", 4, 1, false, 0},
                        Case{"flt ", 4, NAN, false, 0}}) {
    SCOPED_TRACE(std::string(c.type) + " " + std::to_string(c.number));
    SMCValue value{};
    std::memcpy(value.dataType, c.type, 5);
    value.dataSize = c.size;
    std::memset(value.bytes, 0xAB, sizeof value.bytes);
    const SMCValue before = value;
    ASSERT_EQ(corvane::smc::encodeValue(c.number, value), c.encodes);
    if (!c.encodes) {
      EXPECT_EQ(std::memcmp(value.bytes, before.bytes, sizeof value.bytes), 0);
      continue;
    }
    EXPECT_DOUBLE_EQ(*corvane::smc::decodedValue(value), c.decoded);
  }
}

}  // namespace
