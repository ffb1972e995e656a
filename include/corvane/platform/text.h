// Small text helpers for every layer and the programs: hex digits and hex text of bytes,
// four-character codes, driver status codes, trimming, case-blind keywords. Kept here, at the
// bottom, so that each layer uses one copy. Pure functions; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::text {

// The value of one hexadecimal digit (either case), or -1.
constexpr int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// `text` read as one to eight hexadecimal digits (either case, nothing else); nothing otherwise.
std::optional<uint32_t> hexNumber(std::string_view text);

// `size` bytes as lower-case hexadecimal digits, two per byte, first byte first.
std::string hexFromBytes(const uint8_t* bytes, std::size_t size);

// The bytes of `hex` (digits of either case, two per byte, nothing else); nothing when the
// length is odd or a character is not a digit. Empty text gives no bytes.
std::optional<std::vector<uint8_t>> bytesFromHex(std::string_view hex);

// A four-character code (an SMC key or type) packed big-endian: the first character in the
// high byte. Shorter text packs what it has into the low bytes.
constexpr uint32_t packFourCc(std::string_view text) {
  uint32_t value = 0;
  for (char c : text) value = (value << 8) | static_cast<unsigned char>(c);
  return value;
}

// The four characters of a packed code, high byte first (NULs included as they are).
std::string unpackFourCc(uint32_t code);

// A driver status code as the programs print it: "0x" and eight lower-case hex digits.
std::string statusText(int32_t status);

// `text` without leading and trailing blanks, tabs and line ends.
constexpr std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kSpace = " \t\r\n\v\f";
  const auto first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  const auto last = text.find_last_not_of(kSpace);
  return text.substr(first, last - first + 1);
}

// True when `a` and `b` differ at most in the case of ASCII letters.
constexpr bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

}  // namespace corvane::text
