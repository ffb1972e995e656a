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

#include <nlohmann/json.hpp>

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

// True when `text` is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF).
bool isUtf8(std::string_view text);

// Text from outside the process (the SMC, profiles, /proc, the settings file) made safe to show
// and to print as JSON: every ill-formed UTF-8 sequence becomes U+FFFD and control characters
// (C0, DEL, C1) are dropped, so nothing read can move a terminal's cursor or break a JSON dump.
std::string cleaned(std::string_view text);

// How deep JSON read from outside may nest. Copies, dumps and walks of a JSON value recurse, so
// a document of a few thousand '[' would exhaust the stack; nothing the library reads nests
// beyond a handful of levels.
inline constexpr int kMaxJsonDepth = 64;

// `text` parsed as JSON; discarded when it is not JSON or nests deeper than kMaxJsonDepth.
// Never throws.
nlohmann::json parsedJson(std::string_view text);

// Every string of `value`, object keys included, cleaned as above. On keys that clean to the
// same text, the last one wins.
nlohmann::json cleanedStrings(const nlohmann::json& value);

}  // namespace corvane::text
