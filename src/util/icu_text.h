// Conversions between the library's UTF-8 strings and ICU's UTF-16 strings (internal).
#pragma once

#include <string>
#include <string_view>

#include <unicode/stringpiece.h>
#include <unicode/unistr.h>

namespace corvane::icutext {

inline icu::UnicodeString toUnicode(std::string_view text) {
  return icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

inline std::string toUtf8(const icu::UnicodeString& text) {
  std::string out;
  text.toUTF8String(out);
  return out;
}

}  // namespace corvane::icutext
