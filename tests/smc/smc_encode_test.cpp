// Numbers written back in a key's own type: what the decoder reads again, rounded to the type's
// step and held at its ends; types the codec does not know are refused.
#include <cmath>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "corvane/smc/smc_value.h"

namespace {

TEST(EncodeTest, DecodesBackToTheNearestValueTheTypeHolds) {
  // Type, size, number written; what reads back (nullopt: refused, the bytes left alone).
  using Case = std::tuple<const char*, uint32_t, double, std::optional<double>>;
  for (const auto& [type, size, number, decoded] :
       {Case{"sp78", 2, 38.5, 38.5}, Case{"sp78", 2, 38.3, 38.30078125}, Case{"sp78", 2, 200, 127.99609375},
        Case{"sp78", 2, -40, -40}, Case{"fpe2", 2, 2000.25, 2000.25}, Case{"fpe2", 2, -5, 0},
        Case{"flt ", 4, 1234.5, 1234.5}, Case{"ui8 ", 1, 300, 255}, Case{"ui16", 2, 1.6, 2}, Case{"si8 ", 1, -3.4, -3},
        Case{"{pwm", 2, 50, 50}, Case{"sp78", 4, 1, {}}, Case{"ch8*", 4, 1, {}}, Case{"flt ", 4, NAN, {}}}) {
    SMCValue value{};
    std::memcpy(value.dataType, type, 5);
    value.dataSize = size;
    std::memset(value.bytes, 0xAB, sizeof value.bytes);
    const SMCValue before = value;
    const bool encoded = corvane::smc::encodeValue(number, value);
    EXPECT_EQ(encoded ? corvane::smc::decodedValue(value) : std::nullopt, decoded) << type << " " << number;
    EXPECT_TRUE(encoded || std::memcmp(value.bytes, before.bytes, sizeof value.bytes) == 0) << type;
  }
}

}  // namespace
