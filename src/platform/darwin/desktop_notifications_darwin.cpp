// macOS shows desktop notifications through the notification centre; a command-line process has
// no bundle to post user notifications from, so it asks the scripting host to display one.
#include <spawn.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "platform/desktop_notifications_backends.h"

extern char** environ;

namespace corvane::platform {
namespace {

// A string literal of the scripting language: quotes and backslashes escaped.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

class CentreDesktopNotifications final : public DesktopNotifications {
 public:
  bool notify(const std::string& summary, const std::string& body, std::string* error) override {
    std::string script = "display notification " + quoted(body) + " with title \"Corvane\" subtitle " + quoted(summary);
    std::vector<char*> argv{const_cast<char*>("/usr/bin/osascript"), const_cast<char*>("-e"), script.data(), nullptr};
    pid_t pid = 0;
    if (::posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
      if (error != nullptr) *error = "cannot run /usr/bin/osascript";
      return false;
    }
    int status = 0;
    if (::waitpid(pid, &status, 0) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      if (error != nullptr) *error = "the notification centre did not take the notification";
      return false;
    }
    return true;
  }
};

}  // namespace

std::shared_ptr<DesktopNotifications> nativeDesktopNotifications() {
  return std::make_shared<CentreDesktopNotifications>();
}

}  // namespace corvane::platform
