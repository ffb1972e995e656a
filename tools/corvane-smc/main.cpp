// corvane-smc ("Corvane SMC"): the privileged helper that writes fan keys to the SMC.
//
//   corvane-smc -k KEY -w HEX
//
// It runs with raised rights, so it trusts nothing: the key must be a fan key that fan control
// writes, the key must exist, and the value must have exactly the key's size. It never starts
// another program. Exit status 0 means the SMC accepted the write.
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/platform.h"
#include "corvane/platform/text.h"
#include "corvane/smc/smc.h"
#include "helper_args.h"

namespace {

using corvane::text::statusText;

constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;

int fail(int code, const std::string& message) {
  std::fprintf(stderr, "corvane-smc: %s\n", message.c_str());
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace corvane;
  std::vector<std::string_view> args(argv + 1, argv + argc);
  helper::WriteRequest request;
  std::string error;
  if (!helper::parseArguments(args, request, error)) return fail(kExitUsage, error);
  if (!helper::isWritableFanKey(request.key)) {
    return fail(kExitRefused, "key '" + request.key + "' is not a fan key; this tool writes only fan mode, target and minimum keys");
  }

  // Where the host has no SMC, write to the machine the calling processes simulate.
  platform::NativeOptions options;
  options.followAnnouncedMachine = true;
  platform::install(platform::native(options));
  if (SMCOpen() != 0) return fail(kExitRefused, "cannot open the SMC");

  SMCValue current;
  const kern_return_t read = SMCReadKey(request.key.c_str(), &current);
  if (read != 0) {
    SMCClose();
    return fail(kExitRefused, "no key '" + request.key + "' on this SMC (" + statusText(read) + ")");
  }
  if (current.dataSize != request.size) {
    SMCClose();
    return fail(kExitRefused, "key '" + request.key + "' holds " + std::to_string(current.dataSize) +
                                  " bytes, the value has " + std::to_string(request.size));
  }
  if (!helper::isExpectedType(request.key, current.dataType)) {
    SMCClose();
    return fail(kExitRefused, "key '" + request.key + "' has type '" + current.dataType + "', not a fan value type");
  }

  SMCValue value;
  std::memset(&value, 0, sizeof value);
  std::memcpy(value.key, request.key.c_str(), 4);
  std::memcpy(value.dataType, current.dataType, sizeof value.dataType);
  value.dataSize = request.size;
  std::memcpy(value.bytes, request.bytes.data(), request.size);
  const kern_return_t written = SMCWriteKey(value);
  SMCClose();
  if (written != 0) return fail(kExitRefused, "writing '" + request.key + "' failed (" + statusText(written) + ")");
  return 0;
}
