#include "helper_args.h"
#include "corvane/platform/text.h"

#include <algorithm>
#include <cctype>

namespace corvane::helper {
namespace {

constexpr std::string_view kUsage = "usage: corvane-smc -k KEY -w HEX";

// Text the caller gave, fit to be repeated in a message: a short piece of it, with anything but
// printable ASCII (a terminal's escape sequences, for one) shown as '?'.
std::string shown(std::string_view text) {
  std::string safe;
  for (char c : text.substr(0, 70)) safe += (c >= 0x20 && c <= 0x7E) ? c : '?';
  if (text.size() > 70) safe += "...";
  return safe;
}

bool parseHex(std::string_view hex, WriteRequest& request, std::string& error) {
  if (hex.empty()) {
    error = "empty value; give the new value as hexadecimal digits, two per byte";
    return false;
  }
  if (hex.size() % 2 != 0) {
    error = "value '" + shown(hex) + "' has an odd number of hexadecimal digits";
    return false;
  }
  if (hex.size() > 2 * request.bytes.size()) {
    error = "value '" + shown(hex) + "' is longer than 32 bytes";
    return false;
  }
  const auto bytes = text::bytesFromHex(hex);
  if (!bytes) {
    error = "value '" + shown(hex) + "' is not hexadecimal";
    return false;
  }
  std::copy(bytes->begin(), bytes->end(), request.bytes.begin());
  request.size = static_cast<uint32_t>(bytes->size());
  return true;
}

}  // namespace

bool parseArguments(const std::vector<std::string_view>& args, WriteRequest& request, std::string& error) {
  std::string_view key;
  std::string_view hex;
  bool haveKey = false;
  bool haveValue = false;
  if (args.size() != 4) {
    error = std::string(kUsage);
    return false;
  }
  for (std::size_t i = 0; i < args.size(); i += 2) {
    if (args[i] == "-k" && !haveKey) {
      key = args[i + 1];
      haveKey = true;
    } else if (args[i] == "-w" && !haveValue) {
      hex = args[i + 1];
      haveValue = true;
    } else {
      error = std::string(kUsage);
      return false;
    }
  }
  if (key.size() != 4) {
    error = "key '" + shown(key) + "' is not four characters";
    return false;
  }
  for (char c : key) {
    if (c < 0x20 || c > 0x7E) {
      error = "key contains a character that is not printable ASCII";
      return false;
    }
  }
  request.key = std::string(key);
  return parseHex(hex, request, error);
}

}  // namespace corvane::helper
