// The helper tool's argument checks on any argument vector (NUL-separated arguments): a request
// they accept is a four-character key and a value of 1 to 32 bytes.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "../../tools/corvane-smc/helper_args.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  std::vector<std::string_view> args;
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find('\0', start), text.size());
    args.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  corvane::helper::WriteRequest request;
  std::string error;
  if (corvane::helper::parseArguments(args, request, error)) {
    if (request.key.size() != 4 || request.size == 0 || request.size > request.bytes.size()) std::abort();
  } else if (error.empty()) {
    std::abort();
  }
  return 0;
}
