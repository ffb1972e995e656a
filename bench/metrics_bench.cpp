// Cost of the daemon's metrics page on the largest simulated machine, every sensor shown:
// building the page after a reading (the monitor's share); collecting it (the copy a scrape
// makes) and rendering it as text (the web server's share); and a whole scrape over the loopback
// interface, with gzip as Prometheus asks for it and without, in the CPU time of the process
// (server and client threads).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <prometheus/exposer.h>
#include <prometheus/text_serializer.h>

#include "daemon_metrics.h"
#include "corvane/platform/machine_profile.h"
#include "corvane/platform/platform.h"
#include "corvane/smc/smc.h"
#include "corvane/sysinfo/system_device.h"

namespace {

using namespace corvane;

struct Machine {
  std::shared_ptr<HWSensorReader> reader;
  cli::MetricsInput input;
  std::size_t series = 0;
};

Machine& machine() {
  static Machine made = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "corvane-metrics-bench-XXXXXX").string();
    platform::SimulatedOptions options;
    options.root = ::mkdtemp(pattern.data()) != nullptr ? pattern : "/tmp/corvane-metrics-bench";
    std::string error;
    platform::install(platform::simulated(platform::loadBuiltinProfile("M2-Max", &error), options));
    HWSystemDevice::reset();
    SMCOpen();
    Machine m;
    m.reader = HWSensorReader::create();
    m.reader->setShowHIDSensors(true);
    m.reader->setShowComputedSensors(true);
    m.reader->setShowUnknownSensors(true);
    m.reader->refreshValues();
    m.input = {.machine = "M2-Max", .reader = m.reader.get(), .sensors = &m.reader->getAllSensors()};
    m.input.loadAverages = HWLoadAverages{1, 2, 3};
    for (const auto& family : cli::buildMetricsPage(m.input).readings) m.series += family.metric.size();
    return m;
  }();
  return made;
}

std::shared_ptr<cli::MetricsCollectable> published() {
  auto collectable = std::make_shared<cli::MetricsCollectable>();
  collectable->publish(cli::buildMetricsPage(machine().input), 1e18);
  return collectable;
}

void BM_BuildPage(benchmark::State& state) {
  auto& m = machine();
  for (auto _ : state) benchmark::DoNotOptimize(cli::buildMetricsPage(m.input));
  state.counters["series"] = static_cast<double>(m.series);
}
BENCHMARK(BM_BuildPage)->Unit(benchmark::kMicrosecond);

void BM_CollectAndRender(benchmark::State& state) {
  const auto collectable = published();
  const prometheus::TextSerializer serializer;
  std::size_t bytes = 0;
  for (auto _ : state) {
    const auto text = serializer.Serialize(collectable->Collect());
    bytes = text.size();
    benchmark::DoNotOptimize(text.data());
  }
  state.counters["series"] = static_cast<double>(machine().series);
  state.counters["page_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_CollectAndRender)->Unit(benchmark::kMicrosecond);

void BM_Collect(benchmark::State& state) {
  const auto collectable = published();
  for (auto _ : state) benchmark::DoNotOptimize(collectable->Collect());
}
BENCHMARK(BM_Collect)->Unit(benchmark::kMicrosecond);

// One GET of /metrics on a fresh connection, read to its end; the response size in bytes.
std::size_t scrape(int port, bool gzip) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const std::string request =
      std::string("GET /metrics HTTP/1.0\r\nHost: 127.0.0.1\r\n") + (gzip ? "Accept-Encoding: gzip\r\n" : "") + "\r\n";
  std::size_t total = 0;
  if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
    char chunk[16384];
    for (ssize_t got = 0; (got = ::recv(fd, chunk, sizeof chunk, 0)) > 0;) total += static_cast<std::size_t>(got);
  }
  ::close(fd);
  return total;
}

void BM_HttpScrape(benchmark::State& state) {
  const auto collectable = published();
  prometheus::Exposer exposer("127.0.0.1:0", 2);
  exposer.RegisterCollectable(collectable);
  const int port = exposer.GetListeningPorts().front();
  std::size_t bytes = 0;
  for (auto _ : state) bytes = scrape(port, state.range(0) != 0);
  if (bytes < 1000) state.SkipWithError("the scrape answered nothing");
  state.counters["series"] = static_cast<double>(machine().series);
  state.counters["bytes"] = static_cast<double>(bytes);
}
// With gzip (as Prometheus asks) and without.
BENCHMARK(BM_HttpScrape)->Arg(1)->Arg(0)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime();

}  // namespace

BENCHMARK_MAIN();
