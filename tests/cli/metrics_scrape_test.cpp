// `corvane daemon --metrics` scraped by a real Prometheus server, both private to the test: the
// daemon on a simulated machine with its own session bus, the server on the loopback interface
// with its own configuration and storage. Real processes take real time: every wait is bounded.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "corvane/smc/smc.h"
#include "corvane/smc/smc_wrapper.h"
#include "support/process_support.h"
#include "support/test_support.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using testing::eventually;

constexpr const char* kPrometheus = "/usr/bin/prometheus";
constexpr const char* kMachine = "MacBookPro16,1";

// A port nobody listens on now (the system's choice for port 0, let go at once).
int freePort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  int port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
    port = ntohs(address.sin_port);
  }
  ::close(fd);
  return port;
}

// The body of GET `target` from 127.0.0.1:`port`, or "" when there is no answer within 2 s.
std::string httpGet(int port, const std::string& target) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string response;
  const std::string request = "GET " + target + " HTTP/1.0\r\n\r\n";
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
    char chunk[4096];
    pollfd ready{fd, POLLIN, 0};
    for (ssize_t got = 0; ::poll(&ready, 1, 2000) > 0 && (got = ::recv(fd, chunk, sizeof chunk, 0)) > 0;) {
      response.append(chunk, static_cast<std::size_t>(got));
    }
  }
  ::close(fd);
  const auto body = response.find("\r\n\r\n");
  return response.find(" 200 ") < body && body != std::string::npos ? response.substr(body + 4) : "";
}

class MetricsScrapeTest : public ::testing::Test {
 protected:
  std::unique_ptr<testing::ChildProcess> daemon(const std::filesystem::path& home, const std::string& metrics,
                                                const std::string& errors) {
    return std::make_unique<testing::ChildProcess>(
        CORVANE_CLI_PATH, std::vector<std::string>{"daemon", "--machine", kMachine, "--metrics", metrics},
        std::map<std::string, std::string>{{"XDG_DATA_HOME", home.string()}, {"DBUS_SESSION_BUS_ADDRESS", bus_.address()}},
        errors);
  }

  testing::PrivateBus bus_;
  testing::TempDir home_;
  testing::TempDir server_;
};

TEST_F(MetricsScrapeTest, PrometheusScrapesTheSimulatedReading) {
  if (!std::filesystem::exists(kPrometheus)) GTEST_SKIP() << kPrometheus << " is missing: install the prometheus package";
  ASSERT_TRUE(bus_.running()) << "dbus-daemon did not start";
  const auto wrong = testing::runProgram(CORVANE_CLI_PATH, {"daemon", "--metrics", "localhost:70000"}, home_.path());
  EXPECT_EQ(wrong.exitCode, 2);
  EXPECT_EQ(wrong.err, "corvane: --metrics wants ADDRESS:PORT with a port from 0 to 65535, not 'localhost:70000'\n");

  // The value the simulated machine reads for the CPU proximity sensor.
  testing::TempDir machineDir;
  testing::installMachine(testing::builtinMachine(kMachine), machineDir.path());
  const auto expected = SMCWrapper().getSensorValueByKey("TC0P", SensorType::kTemperature);
  SMCClose();
  ASSERT_TRUE(expected.has_value());

  auto corvane = daemon(home_.path(), "127.0.0.1:0", (server_.path() / "daemon.err").string());
  ASSERT_TRUE(corvane->readLine(20s).has_value()) << testing::readFile(server_.path() / "daemon.err");
  int metricsPort = 0;
  ASSERT_EQ(std::sscanf(corvane->readLine(5s).value_or("").c_str(), "corvane: metrics at http://127.0.0.1:%d/metrics",
                        &metricsPort),
            1);

  const int port = freePort();
  testing::writeFile(server_.path() / "prometheus.yml",
                     "global:\n  scrape_interval: 1s\n  scrape_timeout: 1s\n"
                     "scrape_configs:\n  - job_name: corvane\n    static_configs:\n"
                     "      - targets: ['127.0.0.1:" + std::to_string(metricsPort) + "']\n");
  const auto log = server_.path() / "prometheus.log";
  testing::ChildProcess prometheus(
      kPrometheus,
      {"--config.file=" + (server_.path() / "prometheus.yml").string(),
       "--storage.tsdb.path=" + (server_.path() / "data").string(),
       "--web.listen-address=127.0.0.1:" + std::to_string(port), "--log.level=warn"},
      {}, log.string());
  ASSERT_TRUE(eventually([&] { return !httpGet(port, "/-/ready").empty(); }, 30s)) << testing::readFile(log);

  nlohmann::json result;
  const bool scraped = eventually(
      [&] {
        const auto answer = nlohmann::json::parse(
            httpGet(port, "/api/v1/query?query=corvane_temperature_celsius%7Bkey%3D%22TC0P%22%7D"), nullptr, false);
        if (!answer.is_object() || answer["data"]["result"].empty()) return false;
        result = answer["data"]["result"];
        return true;
      },
      8s);
  ASSERT_TRUE(scraped) << "no scrape within 8 s\n" << testing::readFile(log);
  ASSERT_EQ(result.size(), 1u) << result;
  EXPECT_EQ(std::stod(result[0]["value"][1].get<std::string>()), *expected);
  EXPECT_EQ(result[0]["metric"]["machine"], kMachine);

  // A second daemon (of another user's folder) cannot take a port already in use: one line, status 1.
  testing::TempDir otherHome;
  const auto refusedErr = (server_.path() / "refused.err").string();
  auto refused = daemon(otherHome.path(), "127.0.0.1:" + std::to_string(port), refusedErr);
  EXPECT_EQ(refused->wait(30s), 1);
  EXPECT_THAT(testing::readFile(refusedErr),
              ::testing::EndsWith("corvane: metrics: cannot listen on 127.0.0.1:" + std::to_string(port) +
                                  " (in use, or not an address of this machine)\n"));
}

}  // namespace
}  // namespace corvane
