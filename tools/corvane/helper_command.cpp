// `corvane helper install|status`: puts the helper tool where fan control runs it from, with the
// owner, group and mode that the permission check wants, or says exactly what is missing.
//
// Both work on the host's own file locations whatever --machine says: the tool is installed once
// per account, for every machine that account simulates or drives.
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "corvane/platform/file_attributes.h"
#include "corvane/platform/platform.h"
#include "corvane/platform/privileged_execution.h"
#include "corvane/platform/processes.h"
#include "corvane/util/install_paths.h"
#include "corvane/util/permission_helper.h"

namespace corvane::cli {
namespace {

namespace fs = std::filesystem;

struct HelperOptions {
  std::string from;  // install: the tool to install; empty means the one beside this program
  bool json = false;  // status
};

int failWith(int code, const std::string& message) {
  std::fprintf(stderr, "corvane: %s\n", message.c_str());
  return code;
}

// What keeps the installed tool from working, beyond its attributes: a link or folder in its
// place, and a file system on which set-user-ID has no effect.
std::vector<std::string> problemsOfInstalledTool(const std::string& path) {
  std::vector<std::string> problems = HWPermissionHelper::smcPermissionProblems();
  struct stat st;
  if (::lstat(path.c_str(), &st) != 0) return problems;
  if (!S_ISREG(st.st_mode)) problems.insert(problems.begin(), "it is not a plain file");
  struct statvfs volume;
  if (::statvfs(path.c_str(), &volume) == 0 && (volume.f_flag & ST_NOSUID) != 0) {
    problems.push_back("its file system is mounted nosuid, where set-user-ID has no effect");
  }
  return problems;
}

std::optional<std::string> contentsOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream text;
  text << in.rdbuf();
  return std::move(text).str();
}

// The tool this program was built with: beside it under its build name, or under the name it
// ships with in an application bundle.
fs::path shippedTool() {
  const fs::path beside = platform::current().files().mainExecutableDirectory() / "corvane-smc";
  std::error_code error;
  if (fs::exists(beside, error)) return beside;
  return files::smcExeSrcPath();
}

// True when `path` is the helper tool: a plain executable file that introduces itself as one.
// Nothing else may be given raised rights by this command.
bool isHelperTool(const fs::path& path, std::string& why) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) {
    why = path.string() + " is not a file";
    return false;
  }
  const auto ran = platform::current().service<platform::Processes>().run(path.string(), {"--version"}, nullptr);
  if (!ran || ran->exitCode != 0 || ran->out.rfind("corvane-smc ", 0) != 0) {
    why = path.string() + " is not the helper tool corvane-smc";
    return false;
  }
  return true;
}

// Gives `path` its owner, group and mode as root, on the opened file rather than its name, so
// that nothing put at that name in between is changed instead. The owner goes first: changing
// it clears the set-user-ID bit.
bool grantAsRoot(const std::string& path, std::string& why) {
  const std::string groupName = platform::current().files().adminGroupName();
  const group* admin = ::getgrnam(groupName.c_str());
  if (admin == nullptr) {
    why = "this system has no group " + groupName;
    return false;
  }
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  const bool granted = fd >= 0 && ::fchown(fd, 0, admin->gr_gid) == 0 &&
                       ::fchmod(fd, HWPermissionHelper::kRequiredPermissions) == 0;
  if (fd >= 0) ::close(fd);
  if (!granted) why = "cannot set the owner and mode of " + path;
  return granted;
}

// Through the system's consent dialog (pkexec here): chown, then chmod, as the permission
// request does.
bool grantWithConsent(const std::string& path, std::string& why) {
  auto& privileged = platform::current().service<platform::PrivilegedExecution>();
  if (!privileged.authorize()) {
    why = "cannot ask for an administrator's consent (is pkexec installed?); run this command as root instead";
    return false;
  }
  const auto& files = platform::current().files();
  const bool ran = privileged.run(privileged.chownTool(), {files.rootAccountName() + ":" + files.adminGroupName(), path}) &&
                   privileged.run(privileged.chmodTool(), {"6555", path});
  privileged.release();
  if (!ran) why = "cannot run " + privileged.chownTool() + " and " + privileged.chmodTool() + " with consent";
  return ran;
}

// Copies `source` to `target` under a temporary name first, so that a half-written tool never
// sits where fan control runs it from.
bool copyInto(const fs::path& source, const fs::path& target, std::string& why) {
  const fs::path temporary = target.string() + ".new";
  std::error_code error;
  fs::remove(temporary, error);
  if (!fs::copy_file(source, temporary, fs::copy_options::overwrite_existing, error) ||
      (fs::rename(temporary, target, error), error)) {
    fs::remove(temporary, error);
    why = "cannot copy " + source.string() + " to " + target.string();
    return false;
  }
  return true;
}

int runInstall(const HelperOptions& options) {
  const fs::path source = options.from.empty() ? shippedTool() : fs::absolute(options.from);
  std::string why;
  if (!isHelperTool(source, why)) return failWith(options.from.empty() ? kExitFailure : kExitBadInput, why);
  const auto target = files::smcExePath();
  if (!target) return failWith(kExitFailure, "this account has no folder to install the helper tool in");

  std::error_code error;
  const bool same = fs::is_regular_file(fs::symlink_status(*target, error)) && contentsOf(*target) == contentsOf(source);
  if (same && problemsOfInstalledTool(*target).empty()) {
    std::printf("The helper tool is installed already: %s\n", target->c_str());
    return kExitOk;
  }
  if (!same) {
    // An older or foreign file is replaced (it may be root's; its folder is this account's).
    fs::remove(*target, error);
    if (!copyInto(source, *target, why)) return failWith(kExitFailure, why);
  }
  const bool granted = ::geteuid() == 0 ? grantAsRoot(*target, why) : grantWithConsent(*target, why);
  if (!granted) return failWith(kExitFailure, why);

  const auto problems = problemsOfInstalledTool(*target);
  if (!problems.empty()) {
    std::string text;
    for (const auto& problem : problems) text += (text.empty() ? "" : ", ") + problem;
    return failWith(kExitFailure, "installed " + *target + ", but " + text);
  }
  const auto& files = platform::current().files();
  std::printf("Installed the helper tool: %s (%s:%s, mode 6555)\n", target->c_str(), files.rootAccountName().c_str(),
              files.adminGroupName().c_str());
  return kExitOk;
}

int runStatus(const HelperOptions& options) {
  const std::string path = files::smcExePath().value_or("");
  const auto problems = path.empty() ? HWPermissionHelper::smcPermissionProblems() : problemsOfInstalledTool(path);
  if (options.json) {
    nlohmann::ordered_json out{{"path", path.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(path)},
                               {"isSMCPermissionGranted", HWPermissionHelper::isSMCPermissionGranted()},
                               {"ready", problems.empty()},
                               {"problems", problems}};
    std::printf("%s\n", out.dump(2).c_str());
  } else {
    std::printf("Helper tool: %s\n", path.empty() ? "(no folder for it)" : path.c_str());
    if (problems.empty()) {
      std::printf("Ready: fan control can write the SMC through it.\n");
    } else {
      for (const auto& problem : problems) std::printf("Missing: %s\n", problem.c_str());
      std::printf("Fix: corvane helper install\n");
    }
  }
  return problems.empty() ? kExitOk : kExitFailure;
}

}  // namespace

void registerHelperCommand(CLI::App& app, Context& context) {
  auto options = std::make_shared<HelperOptions>();
  CLI::App* helper = app.add_subcommand(
      "helper", "Install the helper tool that writes fan speeds (set-user-ID root), or check that it is ready");
  helper->require_subcommand(1, 1);
  helper->footer("The tool goes into this account's product folder, where fan control runs it from; it must be "
                 "owned by root and the administrators' group with mode 6555.");

  CLI::App* install = helper->add_subcommand(
      "install", "Copy the helper tool into place and give it its owner, group and mode (as root directly, "
                 "otherwise through pkexec, which asks for an administrator's password)");
  install->add_option("--from", options->from, "The tool to install (default: corvane-smc beside this program)")
      ->type_name("PATH");
  install->callback([&context, options] {
    platform::install(platform::native());
    context.exitCode = runInstall(*options);
  });

  CLI::App* status = helper->add_subcommand(
      "status", "Say whether the installed helper tool is ready, and if not, exactly what is missing "
                "(exit status 0 when ready, 1 when not)");
  status->add_flag("--json", options->json, "Print JSON: path, isSMCPermissionGranted, ready, problems");
  status->callback([&context, options] {
    platform::install(platform::native());
    context.exitCode = runStatus(*options);
  });
}

}  // namespace corvane::cli
