// corvane-smc ("Corvane SMC"): the privileged helper that writes fan keys to the SMC.
//
//   corvane-smc -k KEY -w HEX
//   corvane-smc --help | --version
//
// It runs with raised rights, so it trusts nothing: the key must be a fan key that fan control
// writes, the key must exist, and the value must have exactly the key's size. It never starts
// another program. Exit status 0 means the SMC accepted the write.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/auxv.h>
#endif

#include <cstdio>
#include <cstdlib>
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

extern char** environ;

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

// True when the kernel started this program with more rights than its caller has (the
// set-user-ID or set-group-ID bit, or file capabilities): then nothing the caller handed over
// may steer it.
bool startedWithRaisedRights() {
#ifdef AT_SECURE
  if (getauxval(AT_SECURE) != 0) return true;
#endif
  return getuid() != geteuid() || getgid() != getegid();
}

// A caller may start the tool with its standard streams closed, so that the first file the tool
// opens becomes its error output and a message lands inside that file. The three are held open
// on /dev/null before anything else is opened.
bool holdStandardStreams() {
  for (int fd = 0; fd <= 2; ++fd) {
    if (fcntl(fd, F_GETFD) != -1) continue;
    const int opened = open("/dev/null", fd == 0 ? O_RDONLY : O_WRONLY);
    if (opened != fd) return false;  // something else owns the lowest slot: give up
  }
  return true;
}

// Gives up the raised rights for good, becoming the caller, and checks that they cannot be taken
// back. A simulated SMC is a file of the caller's: touched with raised rights, it would let any
// caller create or replace files wherever it points the tool.
bool becomeTheCaller() {
  const gid_t group = getgid();
  const uid_t user = getuid();
#ifdef __linux__
  if (setresgid(group, group, group) != 0 || setresuid(user, user, user) != 0) return false;
  uid_t ruid, euid, suid;
  gid_t rgid, egid, sgid;
  if (getresuid(&ruid, &euid, &suid) != 0 || getresgid(&rgid, &egid, &sgid) != 0) return false;
  if (ruid != user || euid != user || suid != user || rgid != group || egid != group || sgid != group) return false;
#else
  if (setregid(group, group) != 0 || setreuid(user, user) != 0) return false;
  if (getegid() != group || geteuid() != user) return false;
#endif
  // Had the saved ids kept root, this would succeed; it must not.
  if (user != 0 && (setuid(0) == 0 || seteuid(0) == 0)) return false;
  return true;
}

// Drops every environment variable of the caller's.
void forgetEnvironment() {
#ifdef __linux__
  clearenv();
#else
  static char* none[] = {nullptr};
  environ = none;
#endif
}

int run(int argc, char** argv) {
  using namespace corvane;
  if (!holdStandardStreams()) return kExitRefused;
  const bool raised = startedWithRaisedRights();
  if (raised) {
    // Locale, time zone, data folders, bus addresses, library search paths: whatever the
    // libraries below would look up in the environment, the caller chose. None of it is kept.
    forgetEnvironment();
    umask(022);
  }
  // Where the host has no SMC, the write goes to the machine the calling processes simulate,
  // which needs no more rights than they have; so the rights go before any file is touched.
  if (!platform::hostHasSmc() && !becomeTheCaller()) return fail(kExitRefused, "cannot give up raised rights");
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

  platform::NativeOptions options;
  options.followAnnouncedMachine = true;
  options.untrustedCaller = raised;
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
    // The type is not repeated: on a simulated machine it comes from a file the caller named.
    return fail(kExitRefused, "key '" + request.key + "' does not hold a fan value type");
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
