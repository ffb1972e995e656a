// The command line of the helper tool, checked before anything touches the SMC.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::helper {

// A write the tool was asked to make.
struct WriteRequest {
  std::string key;                  // four characters
  std::array<uint8_t, 32> bytes{};  // the value, in SMC byte order
  uint32_t size = 0;                // bytes in the value
};

// Parses exactly "-k KEY -w HEX" (either order, each once). On failure returns false and sets
// `error` to a one-line message.
bool parseArguments(const std::vector<std::string_view>& args, WriteRequest& request, std::string& error);

}  // namespace corvane::helper
