#include "platform/posix/process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <thread>

#ifdef __APPLE__
#include <crt_externs.h>
#else
extern char** environ;
#endif

namespace corvane::platform::posix {
namespace {

// The environment children inherit. A framework on a Mac cannot name `environ` directly.
char** currentEnvironment() {
#ifdef __APPLE__
  return *_NSGetEnviron();
#else
  return environ;
#endif
}

std::string describeErrno(int code) { return std::strerror(code); }

bool makePipe(UniqueFd& readEnd, UniqueFd& writeEnd) {
  int fds[2];
#ifdef __APPLE__
  if (::pipe(fds) != 0) return false;
  ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#else
  // Close-on-exec from the start, so that a command started by another thread meanwhile does
  // not inherit our ends and keep them open.
  if (::pipe2(fds, O_CLOEXEC) != 0) return false;
#endif
  readEnd.reset(fds[0]);
  writeEnd.reset(fds[1]);
  return true;
}

// The file actions and attributes of one spawn, destroyed with it.
class SpawnSetup {
 public:
  SpawnSetup() {
    actionsOk_ = posix_spawn_file_actions_init(&actions_) == 0;
    attributesOk_ = posix_spawnattr_init(&attributes_) == 0;
  }
  ~SpawnSetup() {
    if (actionsOk_) posix_spawn_file_actions_destroy(&actions_);
    if (attributesOk_) posix_spawnattr_destroy(&attributes_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  bool ok() const { return actionsOk_ && attributesOk_; }
  posix_spawn_file_actions_t* actions() { return &actions_; }
  posix_spawnattr_t* attributes() { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
  bool actionsOk_ = false;
  bool attributesOk_ = false;
};

// Spawns `path`; 0 on success with `pid` set, else the errno-style code.
int spawn(const std::string& path, const std::vector<std::string>& arguments, SpawnSetup& setup, pid_t& pid) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 2);
  argv.push_back(const_cast<char*>(path.c_str()));
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  return posix_spawn(&pid, path.c_str(), setup.actions(), setup.attributes(), argv.data(), currentEnvironment());
}

// Why `path` cannot be started, or "" when it looks startable. posix_spawn reports a missing
// program only after forking on some systems; this gives the same answer everywhere.
std::string launchProblem(const std::string& path) {
  struct stat info {};
  if (path.empty() || ::stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || ::access(path.c_str(), X_OK) != 0) {
    return "launch path not accessible: " + path;
  }
  return {};
}

int waitFor(pid_t pid, int& status) {
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

}  // namespace

void UniqueFd::reset(int fd) {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

std::optional<ProcessResult> runProcess(const std::string& path, const std::vector<std::string>& arguments,
                                        std::string* error) {
  auto fail = [&](std::string reason) -> std::optional<ProcessResult> {
    if (error != nullptr) *error = std::move(reason);
    return std::nullopt;
  };
  if (std::string problem = launchProblem(path); !problem.empty()) return fail(std::move(problem));

  UniqueFd outRead, outWrite, errRead, errWrite;
  if (!makePipe(outRead, outWrite) || !makePipe(errRead, errWrite))
    return fail("cannot make pipes: " + describeErrno(errno));

  SpawnSetup setup;
  if (!setup.ok() || posix_spawn_file_actions_addopen(setup.actions(), STDIN_FILENO, "/dev/null", O_RDONLY, 0) != 0 ||
      posix_spawn_file_actions_adddup2(setup.actions(), outWrite.get(), STDOUT_FILENO) != 0 ||
      posix_spawn_file_actions_adddup2(setup.actions(), errWrite.get(), STDERR_FILENO) != 0) {
    return fail("cannot prepare the launch of " + path);
  }
  pid_t pid = -1;
  if (int code = spawn(path, arguments, setup, pid); code != 0) {
    return fail("cannot launch " + path + ": " + describeErrno(code));
  }
  // Only the child writes now; our copies would keep the pipes from ever reaching their end.
  outWrite.reset();
  errWrite.reset();

  ProcessResult result;
  pollfd fds[2] = {{outRead.get(), POLLIN, 0}, {errRead.get(), POLLIN, 0}};
  std::string* sinks[2] = {&result.out, &result.err};
  int open = 2;
  char buffer[16384];
  while (open > 0) {
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      const ssize_t count = ::read(fds[i].fd, buffer, sizeof buffer);
      if (count > 0) {
        sinks[i]->append(buffer, static_cast<size_t>(count));
      } else if (count == 0 || errno != EINTR) {
        fds[i].fd = -1;  // poll skips negative descriptors
        --open;
      }
    }
  }
  outRead.reset();
  errRead.reset();

  int status = 0;
  if (waitFor(pid, status) != 0) return fail("lost the process of " + path);
  if (WIFEXITED(status)) {
    result.exitCode = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  return result;
}

pid_t launchDetached(const std::string& path, const std::vector<std::string>& arguments, std::string* error) {
  auto fail = [&](std::string reason) -> pid_t {
    if (error != nullptr) *error = std::move(reason);
    return -1;
  };
  if (std::string problem = launchProblem(path); !problem.empty()) return fail(std::move(problem));

  SpawnSetup setup;
  bool prepared = setup.ok() &&
                  posix_spawn_file_actions_addopen(setup.actions(), STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
                  posix_spawn_file_actions_addopen(setup.actions(), STDOUT_FILENO, "/dev/null", O_WRONLY, 0) == 0 &&
                  posix_spawn_file_actions_addopen(setup.actions(), STDERR_FILENO, "/dev/null", O_WRONLY, 0) == 0;
#ifdef POSIX_SPAWN_SETSID
  // Its own session: it outlives our terminal and our process group's signals.
  prepared = prepared && posix_spawnattr_setflags(setup.attributes(), POSIX_SPAWN_SETSID) == 0;
#endif
  if (!prepared) return fail("cannot prepare the launch of " + path);

  pid_t pid = -1;
  if (int code = spawn(path, arguments, setup, pid); code != 0) {
    return fail("cannot launch " + path + ": " + describeErrno(code));
  }
  std::thread([pid] {
    int status = 0;
    waitFor(pid, status);
  }).detach();
  return pid;
}

}  // namespace corvane::platform::posix
