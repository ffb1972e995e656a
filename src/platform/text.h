// Small text helpers for the parsers of every layer (hex digits in values and addresses, fields
// of /proc and /sys files, case-blind keywords). Kept here, at the bottom, so that each layer
// uses one copy.
#pragma once

#include <cstddef>
#include <string_view>

namespace corvane::text {

// The value of one hexadecimal digit (either case), or -1.
constexpr int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

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
