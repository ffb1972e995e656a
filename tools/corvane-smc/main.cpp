// corvane-smc ("Corvane SMC"): the privileged helper that writes fan keys to the SMC.
//
//   corvane-smc -k KEY -w HEX
//   corvane-smc --help | --version
//
// It runs with raised rights, so it trusts nothing: the key must be a fan key that fan control
// writes, the key must exist, and the value must have exactly the key's size. It never starts
// another program. Exit status 0 means the SMC accepted the write.
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/platform.h"
#include "corvane/platform/text.h"
#include "corvane/smc/fan_keys.h"
#include "corvane/smc/smc.h"
#include "corvane/util/error.h"
#include "helper_args.h"

namespace {

using corvane::text::statusText;

constexpr int kExitRefused = 1;
constexpr int kExitUsage = 2;

constexpr const char* kHelp =
    "usage: corvane-smc -k KEY -w HEX\n"
    "\n"
    "Writes HEX (two hexadecimal digits per byte, in the SMC's byte order) to the fan key KEY.\n"
    "Only fan mode, target and minimum keys (F<n>Md, F<n>Tg, F<n>Mn) and FS! are written, and\n"
    "only a value of exactly the key's size. Exit status 0 means the SMC accepted the write.\n"
    "\n"
    "  -h, --help   print this help and exit\n"
    "  --version    print the version and exit\n";

int fail(int code, const std::string& message) {
  std::fprintf(stderr, "corvane-smc: %s\n", message.c_str());
  return code;
}

// Gives up the raised rights for good, becoming the caller. A simulated SMC is a file of the
// caller's, found through the caller's environment: touched with raised rights, that would let
// any caller create or replace files wherever it points the tool.
bool becomeTheCaller() {
  const gid_t group = getgid();
  const uid_t user = getuid();
  if (setregid(group, group) != 0 || setreuid(user, user) != 0) return false;
  return getegid() == group && geteuid() == user;
}

int run(int argc, char** argv) {
  using namespace corvane;
  // A caller may start the tool with no arguments at all, not even its name (argc 0).
  if (argc < 1) return fail(kExitUsage, "usage: corvane-smc -k KEY -w HEX");
  std::vector<std::string_view> args(argv + 1, argv + argc);
  // Answered before anything else is looked at: no platform, no files, no environment.
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
    std::fputs(kHelp, stdout);
    return 0;
  }
  if (args.size() == 1 && args[0] == "--version") {
    std::fputs("corvane-smc " CORVANE_VERSION "\n", stdout);
    return 0;
  }
  helper::WriteRequest request;
  std::string error;
  if (!helper::parseArguments(args, request, error)) return fail(kExitUsage, error);
  if (!smc::isFanControlKey(request.key)) {
    return fail(kExitRefused, "key '" + request.key + "' is not a fan key; this tool writes only fan mode, target and minimum keys");
  }

  // Where the host has no SMC, write to the machine the calling processes simulate, with no
  // more rights than they have.
  if (!platform::hostHasSmc() && !becomeTheCaller()) return fail(kExitRefused, "cannot give up raised rights");
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
  if (!smc::isFanControlType(request.key, current.dataType)) {
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

}  // namespace

int main(int argc, char** argv) {
  corvane::errors::installLastResortHandler("corvane-smc");
  try {
    return run(argc, argv);
  } catch (...) {
    return corvane::errors::reportInternalError("corvane-smc");
  }
}
