// Linux carries global notifications on the D-Bus session bus: each post is one broadcast signal
// "Posted" of interface "com.corvane.Notifications", with the name and the user info as JSON
// text (so the user info arrives whole, whatever it holds).
//
// Two connections, so that no connection is used from two threads: one sends (under a lock,
// from whichever thread posts), the other receives on an event-loop thread of its own, made when
// the first observer registers. The receiving connection hears this process's own posts too, as
// the distributed notification centre does. The loop is ours rather than the library's, so that
// a bus that goes away ends the loop instead of the process.
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include <sdbus-c++/sdbus-c++.h>

#include "platform/global_notifications_backends.h"
#include "platform/log.h"
#include "corvane/platform/text.h"

namespace corvane::platform {
namespace {

using text::hexDigit;

constexpr const char* kObjectPath = "/com/corvane/Notifications";
constexpr const char* kInterface = "com.corvane.Notifications";
constexpr const char* kMember = "Posted";

std::string matchRule() {
  return std::string("type='signal',interface='") + kInterface + "',member='" + kMember + "',path='" + kObjectPath +
         "'";
}

// An eventfd that wakes the loop thread to stop it.
class WakeFd {
 public:
  WakeFd() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~WakeFd() {
    if (fd_ >= 0) ::close(fd_);
  }
  WakeFd(const WakeFd&) = delete;
  WakeFd& operator=(const WakeFd&) = delete;
  int fd() const { return fd_; }
  void wake() const {
    const std::uint64_t one = 1;
    if (fd_ >= 0) (void)!::write(fd_, &one, sizeof one);
  }

 private:
  int fd_;
};

// Dispatches what `connection` receives until `wake` is signalled or the bus goes away.
void runEventLoop(sdbus::IConnection& connection, const WakeFd& wake) {
  try {
    while (true) {
      while (connection.processPendingRequest()) {
      }
      const auto data = connection.getEventLoopPollData();
      pollfd fds[2] = {{data.fd, data.events, 0}, {wake.fd(), POLLIN, 0}};
      const int ready = ::poll(fds, 2, data.getPollTimeout());
      if (ready < 0 && errno != EINTR) return;
      if (fds[1].revents != 0) return;
    }
  } catch (const std::exception&) {
    // The bus went away: nothing more will arrive.
  }
}

class BusNotifications final : public GlobalNotifications {
 public:
  BusNotifications(std::string address, std::unique_ptr<sdbus::IConnection> sender,
                   std::unique_ptr<sdbus::IObject> object)
      : address_(std::move(address)), sender_(std::move(sender)), object_(std::move(object)) {}

  ~BusNotifications() override {
    std::lock_guard guard(receiverLock_);
    if (loop_.joinable()) {
      wake_.wake();
      loop_.join();
    }
    match_.reset();
    receiver_.reset();
    object_.reset();
    sender_.reset();
  }

  void post(const std::string& name, const nlohmann::json& userInfo) override {
    const std::string text = userInfoObject(userInfo).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    std::lock_guard guard(senderLock_);
    try {
      auto signal = object_->createSignal(kInterface, kMember);
      signal << name << text;
      object_->emitSignal(signal);
      // Writes out whatever the socket did not take at once, and drops what the bus sent us.
      while (sender_->processPendingRequest()) {
      }
    } catch (const std::exception&) {
      // The bus went away: this process's own observers still hear of the change.
      registry_->deliver(name, userInfo);
    }
  }

  std::unique_ptr<Token> addObserver(std::optional<std::string> name, Observer observer) override {
    startReceiving();
    return registry_->add(std::move(name), std::move(observer));
  }

  bool crossesProcesses() const override { return true; }

 private:
  void startReceiving() {
    std::lock_guard guard(receiverLock_);
    if (receiver_ || receiverFailed_) return;
    if (wake_.fd() < 0) {
      receiverFailed_ = true;  // a loop that could not be stopped is not started
      return;
    }
    try {
      auto connection = sdbus::createSessionBusConnectionWithAddress(address_);
      std::weak_ptr<ObserverRegistry> registry = registry_;
      // Installed before the loop starts, and synchronously: once addObserver returns, the bus
      // routes every later post to this process.
      match_ = connection->addMatch(matchRule(), [registry](sdbus::Message& message) {
        auto live = registry.lock();
        if (!live) return;
        try {
          std::string name;
          std::string text;
          message >> name >> text;
          live->deliver(name, nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false));
        } catch (const std::exception&) {
          // Not one of ours after all (wrong arguments): ignored.
        }
      });
      receiver_ = std::move(connection);
      loop_ = std::thread([this] { runEventLoop(*receiver_, wake_); });
    } catch (const std::exception&) {
      match_.reset();
      receiverFailed_ = true;
    }
  }

  std::string address_;
  std::shared_ptr<ObserverRegistry> registry_ = std::make_shared<ObserverRegistry>();
  std::mutex senderLock_;
  std::unique_ptr<sdbus::IConnection> sender_;
  std::unique_ptr<sdbus::IObject> object_;
  std::mutex receiverLock_;
  std::unique_ptr<sdbus::IConnection> receiver_;
  sdbus::Slot match_;
  WakeFd wake_;
  std::thread loop_;
  bool receiverFailed_ = false;
};

// A value of a D-Bus address with its %XX escapes resolved.
std::string unescaped(std::string_view value) {
  std::string text;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '%' && i + 2 < value.size() && hexDigit(value[i + 1]) >= 0 && hexDigit(value[i + 2]) >= 0) {
      text += static_cast<char>(hexDigit(value[i + 1]) * 16 + hexDigit(value[i + 2]));
      i += 2;
    } else {
      text += value[i];
    }
  }
  return text;
}

// Whether a client can connect to `socket` now.
bool accepts(const BusSocket& socket) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::size_t offset = socket.abstract ? 1 : 0;
  if (socket.name.size() + offset >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path + offset, socket.name.data(), socket.name.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + offset + socket.name.size() +
                                             (socket.abstract ? 0 : 1));
  const bool connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), length) == 0;
  ::close(fd);
  return connected;
}

// Why nobody can be listening at `address`, or "" when someone may be. The bus library is asked
// only then: it leaks its connection object when the connection fails.
std::string unreachableReason(const std::string& address) {
  const auto entries = parseBusAddress(address);
  if (entries.empty()) return "no usable entry in the address \"" + address + "\"";
  for (const auto& entry : entries) {
    if (!entry || accepts(*entry)) return {};
  }
  return "nothing accepts connections at " + address;
}

}  // namespace

std::vector<std::optional<BusSocket>> parseBusAddress(std::string_view address) {
  std::vector<std::optional<BusSocket>> entries;
  while (!address.empty()) {
    const auto end = address.find(';');
    const std::string_view entry = address.substr(0, end);
    address = end == std::string_view::npos ? std::string_view() : address.substr(end + 1);
    if (entry.empty()) continue;
    const auto colon = entry.find(':');
    if (colon == std::string_view::npos || entry.substr(0, colon) != "unix") {
      entries.emplace_back(std::nullopt);
      continue;
    }
    std::optional<BusSocket> socket;
    for (std::string_view pairs = entry.substr(colon + 1); !pairs.empty();) {
      const auto comma = pairs.find(',');
      const std::string_view pair = pairs.substr(0, comma);
      pairs = comma == std::string_view::npos ? std::string_view() : pairs.substr(comma + 1);
      const auto equals = pair.find('=');
      if (equals == std::string_view::npos) continue;
      const std::string_view name = pair.substr(0, equals);
      if (name == "path") socket = BusSocket{unescaped(pair.substr(equals + 1)), false};
      if (name == "abstract") socket = BusSocket{unescaped(pair.substr(equals + 1)), true};
    }
    entries.push_back(socket);
  }
  return entries;
}

std::shared_ptr<GlobalNotifications> busNotifications(const std::string& address, std::string* error) {
  if (std::string reason = unreachableReason(address); !reason.empty()) {
    if (error != nullptr) *error = reason;
    return nullptr;
  }
  try {
    auto sender = sdbus::createSessionBusConnectionWithAddress(address);
    // Waits until the bus has accepted the connection, so that the first post is not left
    // queued behind the handshake.
    (void)sender->getUniqueName();
    auto object = sdbus::createObject(*sender, kObjectPath);
    return std::make_shared<BusNotifications>(address, std::move(sender), std::move(object));
  } catch (const std::exception& e) {
    if (error != nullptr) *error = e.what();
    return nullptr;
  }
}

std::shared_ptr<GlobalNotifications> busOrInProcessNotifications(const char* address) {
  std::string error = "DBUS_SESSION_BUS_ADDRESS is not set";
  if (address != nullptr && address[0] != '\0') {
    if (auto bus = busNotifications(address, &error)) return bus;
  }
  static std::once_flag said;
  std::call_once(said, [&] {
    log("No D-Bus session bus (" + error + "); change announcements stay inside this process");
  });
  return GlobalNotifications::inProcess();
}

std::shared_ptr<GlobalNotifications> nativeGlobalNotifications() {
  return busOrInProcessNotifications(std::getenv("DBUS_SESSION_BUS_ADDRESS"));
}

}  // namespace corvane::platform
