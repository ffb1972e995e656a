// `corvane daemon`: this process becomes the daemon program installed beside corvane. Exec
// rather than a child: the pid the user sees, the signals it gets and the exit status are the
// daemon's own, and nothing of corvane stays mapped for the weeks a daemon runs.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "corvane/platform/platform.h"
#include "corvane/util/install_paths.h"

namespace corvane::cli {
namespace {

int becomeDaemon(const Context& context, const std::optional<std::string>& metrics) {
  // Beside this executable, never from PATH: `corvane daemon` runs the daemon of its own install.
  const auto program = platform::current().files().mainExecutableDirectory() / kDaemonProgram;
  // Started under corvane's name, so its messages read as corvane's own.
  std::vector<std::string> args{context.program};
  if (!context.machine.empty()) args.insert(args.end(), {"--machine", context.machine});
  if (context.dynamics) args.emplace_back("--dynamics");
  if (metrics) args.insert(args.end(), {"--metrics", *metrics});
  std::vector<char*> argv;
  for (auto& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  std::fflush(nullptr);
  ::execv(program.c_str(), argv.data());
  std::fprintf(stderr, "%s: cannot start %s: %s\n", context.program.c_str(), program.c_str(), std::strerror(errno));
  return kExitFailure;
}

}  // namespace

bool daemonIsRunning() {
  const auto path = files::appGroupURL() / "daemon.lock";
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;  // no daemon ever ran here
  // Taken and let go at once: only a daemon holds it for longer.
  const bool held = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  ::close(fd);
  return held;
}

void registerDaemonCommands(CLI::App& app, Context& context) {
  auto* daemon = app.add_subcommand("daemon", kDaemonDescription);
  daemon->footer(kDaemonFooter);
  // Checked by the daemon program itself, which says what is wrong with it.
  auto metrics = std::make_shared<std::optional<std::string>>();
  daemon->add_option("--metrics", *metrics, kDaemonMetricsHelp)->type_name("ADDRESS:PORT");
  daemon->callback([&context, metrics] { context.exitCode = becomeDaemon(context, *metrics); });
}

}  // namespace corvane::cli
