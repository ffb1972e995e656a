#include "platform/linux/processor_load_linux.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <set>
#include <string>
#include <system_error>

#include "platform/posix/file_lock.h"
#include "platform/processor_load_backends.h"

namespace corvane::platform {
namespace procfs {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t'; }

// The next unsigned number of `line` after blanks; nothing at the end or on anything else.
std::optional<std::uint64_t> nextNumber(std::string_view& line) {
  std::size_t start = 0;
  while (start < line.size() && isBlank(line[start])) ++start;
  std::uint64_t value = 0;
  const char* first = line.data() + start;
  const char* last = line.data() + line.size();
  const auto [end, ec] = std::from_chars(first, last, value);
  if (ec != std::errc() || end == first || (end != last && !isBlank(*end))) return std::nullopt;
  line.remove_prefix(static_cast<std::size_t>(end - line.data()));
  return value;
}

// Fields after user, nice, system and idle, each optional on older kernels.
constexpr int kOptionalFields = 4;  // iowait, irq, softirq, steal

bool ticksOf(std::string_view rest, std::uint32_t* out) {
  std::uint64_t fields[4 + kOptionalFields] = {};
  int count = 0;
  while (count < 4 + kOptionalFields) {
    auto value = nextNumber(rest);
    if (!value) break;
    fields[count++] = *value;
  }
  if (count < 4) return false;
  // Counters are 64 bits here and 32 on the Mac; differences survive the cut as long as less
  // than 2^32 ticks pass between two readings.
  out[kUserTicks] = static_cast<std::uint32_t>(fields[0]);
  out[kNiceTicks] = static_cast<std::uint32_t>(fields[1]);
  out[kSystemTicks] = static_cast<std::uint32_t>(fields[2] + fields[5] + fields[6]);
  out[kIdleTicks] = static_cast<std::uint32_t>(fields[3] + fields[4]);
  return true;
}

}  // namespace

bool parseProcStat(std::string_view text, ProcessorTickSample& sample) {
  sample.machine.reset();
  sample.processors.clear();
  bool any = false;
  while (!text.empty()) {
    const auto end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (!line.starts_with("cpu")) {
      // The processor lines come first; nothing after them is wanted.
      if (any) break;
      continue;
    }
    line.remove_prefix(3);
    std::uint32_t ticks[kTicksPerProcessor] = {};
    if (!line.empty() && isBlank(line.front())) {
      if (ticksOf(line, ticks)) {
        sample.machine.emplace();
        std::copy(ticks, ticks + kTicksPerProcessor, sample.machine->begin());
        any = true;
      }
      continue;
    }
    std::uint64_t number = 0;
    const auto [numberEnd, ec] = std::from_chars(line.data(), line.data() + line.size(), number);
    if (ec != std::errc() || number > kMaxProcessorNumber) continue;
    line.remove_prefix(static_cast<std::size_t>(numberEnd - line.data()));
    if (line.empty() || !isBlank(line.front()) || !ticksOf(line, ticks)) continue;
    const std::size_t at = static_cast<std::size_t>(number) * kTicksPerProcessor;
    if (sample.processors.size() < at + kTicksPerProcessor) sample.processors.resize(at + kTicksPerProcessor, 0);
    std::copy(ticks, ticks + kTicksPerProcessor, sample.processors.begin() + static_cast<std::ptrdiff_t>(at));
    any = true;
  }
  return any;
}

std::vector<ProcessorCore> coresWithKinds(std::vector<CoreFacts> facts) {
  std::sort(facts.begin(), facts.end(), [](const CoreFacts& a, const CoreFacts& b) { return a.id < b.id; });
  std::vector<ProcessorCore> cores;
  cores.reserve(facts.size());
  for (const auto& fact : facts) cores.push_back({fact.id, "cpu" + std::to_string(fact.id), 0});

  // A kind is told only from a measure that every core has and that does not read the same on all.
  auto classify = [&](auto measure) {
    std::set<std::uint64_t> values;
    for (const auto& fact : facts) {
      auto value = measure(fact);
      if (!value) return false;
      values.insert(*value);
    }
    if (values.size() < 2) return false;
    for (std::size_t i = 0; i < facts.size(); ++i) cores[i].type = *measure(facts[i]) == *values.begin() ? 1 : 2;
    return true;
  };
  if (classify([](const CoreFacts& f) { return f.capacity; })) return cores;
  std::set<std::int64_t> clusters;
  for (const auto& fact : facts) {
    if (fact.clusterId) clusters.insert(*fact.clusterId);
  }
  if (clusters.size() > 1) classify([](const CoreFacts& f) { return f.maxFrequency; });
  return cores;
}

namespace {

template <class Number>
std::optional<Number> numberIn(const std::filesystem::path& path) {
  auto text = posix::readWholeFile(path);
  if (!text) return std::nullopt;
  auto value = singleValue(*text);
  if (!value) return std::nullopt;
  Number number{};
  const auto [end, ec] = std::from_chars(value->data(), value->data() + value->size(), number);
  if (ec != std::errc() || end != value->data() + value->size()) return std::nullopt;
  return number;
}

class LinuxProcessorLoad final : public ProcessorLoad {
 public:
  explicit LinuxProcessorLoad(Roots roots) : roots_(std::move(roots)), statPath_((roots_.proc / "stat").string()) {}

  bool sample(ProcessorTickSample& sample) const override {
    // Read with one buffer per thread: the file is read at every load tick, and a stream and a
    // fresh string each time would cost more than the parsing.
    thread_local std::string buffer;
    const int fd = ::open(statPath_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    if (buffer.size() < 16384) buffer.resize(16384);
    std::size_t used = 0;
    for (;;) {
      if (used == buffer.size()) buffer.resize(buffer.size() * 2);
      const ssize_t got = ::read(fd, buffer.data() + used, buffer.size() - used);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) break;
      used += static_cast<std::size_t>(got);
    }
    ::close(fd);
    return parseProcStat(std::string_view(buffer.data(), used), sample);
  }

  std::optional<std::vector<ProcessorCore>> cores() const override {
    const auto root = roots_.sys / "devices/system/cpu";
    std::error_code error;
    std::vector<CoreFacts> facts;
    for (const auto& entry : std::filesystem::directory_iterator(root, error)) {
      const std::string name = entry.path().filename().string();
      if (name.size() < 4 || !name.starts_with("cpu")) continue;
      CoreFacts fact;
      const auto [end, ec] = std::from_chars(name.data() + 3, name.data() + name.size(), fact.id);
      if (ec != std::errc() || end != name.data() + name.size()) continue;
      fact.capacity = numberIn<std::uint64_t>(entry.path() / "cpu_capacity");
      fact.clusterId = numberIn<std::int64_t>(entry.path() / "topology/cluster_id");
      fact.maxFrequency = numberIn<std::uint64_t>(entry.path() / "cpufreq/cpuinfo_max_freq");
      facts.push_back(fact);
    }
    if (error || facts.empty()) return std::nullopt;
    return coresWithKinds(std::move(facts));
  }

 private:
  Roots roots_;
  std::string statPath_;
};

}  // namespace

std::shared_ptr<ProcessorLoad> makeProcessorLoad(Roots roots) {
  return std::make_shared<LinuxProcessorLoad>(std::move(roots));
}

}  // namespace procfs

std::shared_ptr<ProcessorLoad> nativeProcessorLoad() { return procfs::makeProcessorLoad({}); }

}  // namespace corvane::platform
