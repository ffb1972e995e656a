#include "corvane/platform/text.h"

namespace corvane::text {
namespace {

constexpr char kLowerDigits[] = "0123456789abcdef";

}  // namespace

std::optional<uint32_t> hexNumber(std::string_view text) {
  if (text.empty() || text.size() > 8) return std::nullopt;
  uint32_t value = 0;
  for (char c : text) {
    const int digit = hexDigit(c);
    if (digit < 0) return std::nullopt;
    value = (value << 4) | static_cast<uint32_t>(digit);
  }
  return value;
}

std::string hexFromBytes(const uint8_t* bytes, std::size_t size) {
  std::string hex;
  hex.reserve(2 * size);
  for (std::size_t i = 0; i < size; ++i) {
    hex += kLowerDigits[bytes[i] >> 4];
    hex += kLowerDigits[bytes[i] & 0x0F];
  }
  return hex;
}

std::optional<std::vector<uint8_t>> bytesFromHex(std::string_view hex) {
  if (hex.size() % 2 != 0) return std::nullopt;
  std::vector<uint8_t> bytes(hex.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = hexDigit(hex[2 * i]);
    const int low = hexDigit(hex[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes[i] = static_cast<uint8_t>(high * 16 + low);
  }
  return bytes;
}

std::string unpackFourCc(uint32_t code) {
  return {static_cast<char>(code >> 24), static_cast<char>(code >> 16), static_cast<char>(code >> 8),
          static_cast<char>(code)};
}

std::string statusText(int32_t status) {
  const auto bits = static_cast<uint32_t>(status);
  std::string text = "0x";
  for (int shift = 28; shift >= 0; shift -= 4) text += kLowerDigits[(bits >> shift) & 0x0F];
  return text;
}

}  // namespace corvane::text
