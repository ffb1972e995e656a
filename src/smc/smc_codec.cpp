// Decoding of SMC four-character codes and values. Pure functions, no allocation: the decoder
// runs once per key on every refresh.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "corvane/platform/text.h"
#include "corvane/smc/smc.h"
#include "corvane/smc/smc_value.h"

namespace {

using corvane::text::packFourCc;

// Only the bytes a value record can hold are ever read, whatever size the SMC reported.
constexpr uint32_t kMaxBytes = sizeof(SMCValue::bytes);

uint32_t unsignedBigEndian(const unsigned char* bytes, uint32_t size) {
  uint32_t total = 0;
  if (size <= 4) {  // the common case: no byte wraps, so shifting in is the same sum
    for (uint32_t i = 0; i < size; ++i) total = (total << 8) | bytes[i];
    return total;
  }
  const uint32_t n = size < kMaxBytes ? size : kMaxBytes;
  for (uint32_t i = 0; i < n; ++i) {
    total += static_cast<uint32_t>(bytes[i]) << ((8 * (size - 1 - i)) % 32);
  }
  return total;
}

float unsigned16(const unsigned char* b, int fractionBits) {
  const unsigned raw = (static_cast<unsigned>(b[0]) << 8) | b[1];
  return static_cast<float>(static_cast<double>(raw) / static_cast<double>(1u << fractionBits));
}

float signed16(const unsigned char* b, int fractionBits) {
  const auto raw = static_cast<int16_t>(static_cast<uint16_t>((b[0] << 8) | b[1]));
  return static_cast<float>(static_cast<double>(raw) / static_cast<double>(1u << fractionBits));
}

}  // namespace

extern "C" {

uint32_t SMCConvertStringToNumber(const char* str, int size, int base) {
  uint32_t total = 0;
  for (int i = 0; i < size; ++i) {
    const unsigned shift = static_cast<unsigned>(8 * (size - 1 - i)) % 32;
    // With base 16 the byte is taken as a signed char, so a high byte sets the bits above it.
    const uint32_t term = base == 16
                              ? static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(str[i])))
                              : static_cast<uint32_t>(static_cast<unsigned char>(str[i]));
    total += term << shift;
  }
  return total;
}

int SMCConvertNumberToString(char* dst, uint32_t n) {
  const std::string text = corvane::text::unpackFourCc(n);
  std::memcpy(dst, text.data(), 4);
  dst[4] = '\0';
  return 4;
}

float _strtof(const unsigned char* str, int size, int e) {
  float total = 0;
  for (int i = 0; i < size; ++i) {
    if (i == size - 1) {
      total += static_cast<float>(str[i] >> e);
    } else {
      total += static_cast<float>(static_cast<unsigned>(str[i])
                                   << (static_cast<unsigned>((size - 1 - i) * (8 - e)) % 32));
    }
  }
  // Only the two lowest fraction bits survive, in quarters: good for fpe2-style values only.
  total += static_cast<float>(str[size - 1] & 0x03) * 0.25f;
  return total;
}

float SMCConvertValueToNumber(SMCValue value) {
  // The exported contract: -1 for a value the codec cannot convert.
  return corvane::smc::decodedValue(value).value_or(-1.0f);
}

}  // extern "C"

namespace corvane::smc {

std::optional<float> decodedValue(const SMCValue& value) {
  if (value.dataSize == 0) {
    return 0.0f;
  }
  // Types compare as four characters plus the terminating NUL, so "ui8" never matches "ui8 ".
  if (value.dataType[4] != '\0') {
    return std::nullopt;
  }
  uint32_t type;
  std::memcpy(&type, value.dataType, 4);
  type = (type >> 24) | ((type >> 8) & 0xFF00u) | ((type << 8) & 0xFF0000u) | (type << 24);
  const unsigned char* b = value.bytes;

  switch (type) {
    case packFourCc("ui8 "):
    case packFourCc("ui16"):
    case packFourCc("ui32"):
      return static_cast<float>(unsignedBigEndian(b, value.dataSize));
    default:
      break;
  }

  switch (value.dataSize) {
    case 4:
      if (type == packFourCc("flt ")) {
        float f;  // host byte order, as the SMC hands it over
        std::memcpy(&f, b, sizeof f);
        return f;
      }
      return std::nullopt;
    case 1:
      if (type == packFourCc("si8 ")) {
        return static_cast<float>(static_cast<signed char>(b[0]));
      }
      return std::nullopt;
    case 2:
      switch (type) {
        case packFourCc("fp1f"): return unsigned16(b, 15);
        case packFourCc("fp4c"): return unsigned16(b, 12);
        case packFourCc("fp5b"): return unsigned16(b, 11);
        case packFourCc("fp6a"): return unsigned16(b, 10);
        case packFourCc("fp79"): return unsigned16(b, 9);
        case packFourCc("fp88"): return unsigned16(b, 8);
        case packFourCc("fpa6"): return unsigned16(b, 6);
        case packFourCc("fpc4"): return unsigned16(b, 4);
        case packFourCc("fpe2"): return unsigned16(b, 2);
        case packFourCc("sp1e"): return signed16(b, 14);
        case packFourCc("sp3c"): return signed16(b, 12);
        case packFourCc("sp4b"): return signed16(b, 11);
        case packFourCc("sp5a"): return signed16(b, 10);
        case packFourCc("sp69"): return signed16(b, 9);
        case packFourCc("sp78"): return signed16(b, 8);
        case packFourCc("sp87"): return signed16(b, 7);
        case packFourCc("sp96"): return signed16(b, 6);
        case packFourCc("spb4"): return signed16(b, 4);
        // Named signed, but machines report them unsigned, and the exported decoder would
        // turn a full-scale value read as signed into its failure value -1.
        case packFourCc("spf0"):
        case packFourCc("si16"): return unsigned16(b, 0);
        case packFourCc("{pwm"):
          return static_cast<float>(static_cast<double>((b[0] << 8) | b[1]) * 100.0 / 65536.0);
        default: return std::nullopt;
      }
    default:
      return std::nullopt;
  }
}

}  // namespace corvane::smc

namespace corvane::smc {
namespace {

// The two-byte fixed-point types: signedness and fraction bits, as the decoder reads them.
struct FixedPoint {
  uint32_t type;
  bool isSigned;
  int fractionBits;
};
constexpr FixedPoint kFixedPoints[] = {
    {packFourCc("fp1f"), false, 15}, {packFourCc("fp4c"), false, 12}, {packFourCc("fp5b"), false, 11},
    {packFourCc("fp6a"), false, 10}, {packFourCc("fp79"), false, 9},  {packFourCc("fp88"), false, 8},
    {packFourCc("fpa6"), false, 6},  {packFourCc("fpc4"), false, 4},  {packFourCc("fpe2"), false, 2},
    {packFourCc("sp1e"), true, 14},  {packFourCc("sp3c"), true, 12},  {packFourCc("sp4b"), true, 11},
    {packFourCc("sp5a"), true, 10},  {packFourCc("sp69"), true, 9},   {packFourCc("sp78"), true, 8},
    {packFourCc("sp87"), true, 7},   {packFourCc("sp96"), true, 6},   {packFourCc("spb4"), true, 4},
    {packFourCc("spf0"), false, 0},  {packFourCc("si16"), false, 0},
};

// Rounds `scaled` into [low, high] and stores it big-endian in `size` bytes.
void putBigEndian(double scaled, double low, double high, unsigned char* bytes, uint32_t size) {
  const auto raw = static_cast<int64_t>(std::llround(std::clamp(scaled, low, high)));
  const auto bits = static_cast<uint64_t>(raw);
  for (uint32_t i = 0; i < size; ++i) bytes[i] = static_cast<unsigned char>(bits >> (8 * (size - 1 - i)));
}

}  // namespace

bool encodeValue(double number, SMCValue& value) {
  if (!std::isfinite(number) || value.dataType[4] != '\0') return false;
  uint32_t type;
  std::memcpy(&type, value.dataType, 4);
  type = (type >> 24) | ((type >> 8) & 0xFF00u) | ((type << 8) & 0xFF0000u) | (type << 24);
  const uint32_t size = value.dataSize;
  if (type == packFourCc("ui8 ") || type == packFourCc("ui16") || type == packFourCc("ui32")) {
    if (size < 1 || size > 4) return false;
    putBigEndian(number, 0, std::ldexp(1.0, static_cast<int>(8 * size)) - 1, value.bytes, size);
    return true;
  }
  if (type == packFourCc("flt ") && size == 4) {
    const auto f = static_cast<float>(number);  // host byte order, as the SMC hands it over
    std::memcpy(value.bytes, &f, sizeof f);
    return true;
  }
  if (type == packFourCc("si8 ") && size == 1) {
    putBigEndian(number, -128, 127, value.bytes, 1);
    return true;
  }
  if (size != 2) return false;
  if (type == packFourCc("{pwm")) {
    putBigEndian(number * 65536.0 / 100.0, 0, 65535, value.bytes, 2);
    return true;
  }
  for (const FixedPoint& format : kFixedPoints) {
    if (format.type != type) continue;
    const double scaled = std::ldexp(number, format.fractionBits);
    putBigEndian(scaled, format.isSigned ? -32768 : 0, format.isSigned ? 32767 : 65535, value.bytes, 2);
    return true;
  }
  return false;
}

platform::SimValueCodec simValueCodec() {
  platform::SimValueCodec codec;
  const auto record = [](uint32_t type, uint32_t size) {
    SMCValue value{};
    value.dataSize = size;
    for (int i = 0; i < 4; ++i) value.dataType[i] = static_cast<char>(type >> (24 - 8 * i));  // no allocation per read
    return value;
  };
  codec.decode = [record](uint32_t type, uint32_t size, const uint8_t* bytes) -> std::optional<double> {
    if (size > sizeof(SMCValue::bytes)) return std::nullopt;
    SMCValue value = record(type, size);
    std::memcpy(value.bytes, bytes, size);
    return decodedValue(value);
  };
  codec.encode = [record](uint32_t type, uint32_t size, double number, uint8_t* bytes) {
    if (size > sizeof(SMCValue::bytes)) return false;
    SMCValue value = record(type, size);
    std::memcpy(value.bytes, bytes, size);
    if (!encodeValue(number, value)) return false;
    std::memcpy(bytes, value.bytes, size);
    return true;
  };
  return codec;
}

}  // namespace corvane::smc
