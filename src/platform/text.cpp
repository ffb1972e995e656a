#include "corvane/platform/text.h"

#include <cstdint>

#include <unicode/utf8.h>

namespace corvane::text {
namespace {

constexpr char kLowerDigits[] = "0123456789abcdef";

bool isControl(UChar32 c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

// ICU walks text with int32_t offsets. Nothing the library reads comes near 2 GiB, so longer
// text counts as ill-formed, and is cut there when cleaned.
constexpr std::size_t kLongest = INT32_MAX;

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

bool isUtf8(std::string_view text) {
  if (text.size() > kLongest) return false;
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  for (int32_t at = 0; at < length;) {
    UChar32 c = 0;
    U8_NEXT(bytes, at, length, c);
    if (c < 0) return false;
  }
  return true;
}

std::string cleaned(std::string_view text) {
  if (text.size() > kLongest) text = text.substr(0, kLongest);
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  std::string out;
  out.reserve(text.size());
  for (int32_t at = 0; at < length;) {
    const int32_t start = at;
    UChar32 c = 0;
    U8_NEXT(bytes, at, length, c);
    if (c < 0) {
      out += "\xEF\xBF\xBD";
    } else if (!isControl(c)) {
      out.append(text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(at - start)));
    }
  }
  return out;
}

nlohmann::json parsedJson(std::string_view text) {
  bool tooDeep = false;
  // Returning false drops a value before it is built, so a deep document costs no stack.
  const auto limit = [&tooDeep](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
    if (depth > kMaxJsonDepth) tooDeep = true;
    return !tooDeep;
  };
  nlohmann::json value = nlohmann::json::parse(text.begin(), text.end(), limit, /*allow_exceptions=*/false);
  if (tooDeep) return nlohmann::json(nlohmann::json::value_t::discarded);
  return value;
}

nlohmann::json cleanedStrings(const nlohmann::json& value) {
  if (value.is_string()) return cleaned(value.get_ref<const std::string&>());
  if (value.is_array()) {
    nlohmann::json out = nlohmann::json::array();
    for (const auto& element : value) out.push_back(cleanedStrings(element));
    return out;
  }
  if (value.is_object()) {
    nlohmann::json out = nlohmann::json::object();
    for (const auto& [key, element] : value.items()) out[cleaned(key)] = cleanedStrings(element);
    return out;
  }
  return value;
}

}  // namespace corvane::text
