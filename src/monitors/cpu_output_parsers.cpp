#include "corvane/monitors/cpu_output_parsers.h"

#include <charconv>
#include <regex>

namespace corvane::cpu_text {
namespace {

bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

std::string_view firstLine(std::string_view text) { return text.substr(0, text.find('\n')); }

// Digits, then optionally a point or comma and more digits, read as a decimal number whatever
// the process's locale. Later marks and digits are ignored, as a lenient reader would. All the
// digits are gathered into one integer and divided once by a power of ten, which rounds exactly
// as a library conversion would while both stay exact in a double (the figures here are short).
double decimal(std::string_view text) {
  double digits = 0.0;
  double scale = 1.0;
  std::size_t i = 0;
  for (; i < text.size() && isDigit(text[i]); ++i) digits = digits * 10.0 + (text[i] - '0');
  if (i < text.size() && (text[i] == '.' || text[i] == ',')) {
    for (++i; i < text.size() && isDigit(text[i]); ++i, scale *= 10.0) digits = digits * 10.0 + (text[i] - '0');
  }
  return digits / scale;
}

// Length of "digits mark digits" at the start of `text`, 0 when it does not start so.
std::size_t decimalLength(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && isDigit(text[i])) ++i;
  if (i == 0 || i == text.size() || (text[i] != '.' && text[i] != ',')) return 0;
  const std::size_t mark = ++i;
  while (i < text.size() && isDigit(text[i])) ++i;
  return i == mark ? 0 : i;
}

}  // namespace

std::optional<std::array<double, 3>> loadAveragesFromUptime(std::string_view output) {
  const std::string line(trimmed(firstLine(output)));
  // Three decimals at the very end; the blanks between them are checked by the split below.
  static const std::regex kThreeAtEnd(R"((\d+(\.|,)\d+ *){3}$)");
  std::smatch match;
  if (!std::regex_search(line, match, kThreeAtEnd) || match.length(0) == 0) return std::nullopt;
  std::string_view rest(line.data() + match.position(0), static_cast<std::size_t>(match.length(0)));
  std::array<double, 3> values{};
  for (std::size_t k = 0; k < values.size(); ++k) {
    const auto blank = rest.find(' ');
    if ((blank == std::string_view::npos) != (k == 2)) return std::nullopt;
    const std::string_view part = rest.substr(0, blank);
    // Two blanks in a row would make an empty part: not the layout this reads.
    if (part.empty()) return std::nullopt;
    values[k] = decimal(part);
    rest = blank == std::string_view::npos ? std::string_view() : rest.substr(blank + 1);
  }
  return values;
}

std::optional<std::array<double, 3>> loadAveragesFromProcLoadavg(std::string_view text) {
  std::string_view rest = trimmed(firstLine(text));
  std::array<double, 3> values{};
  for (auto& value : values) {
    const std::size_t length = decimalLength(rest);
    if (length == 0 || (length < rest.size() && rest[length] != ' ')) return std::nullopt;
    value = decimal(rest.substr(0, length));
    rest = trimmed(rest.substr(length));
  }
  return values;
}

std::vector<HWCPUProcess> processesFromList(std::string_view output, std::int64_t count) {
  std::vector<HWCPUProcess> processes;
  if (count <= 0) return processes;
  bool heading = true;
  while (!output.empty() && static_cast<std::int64_t>(processes.size()) < count) {
    const auto end = output.find('\n');
    std::string_view line = trimmed(output.substr(0, end));
    output = end == std::string_view::npos ? std::string_view() : output.substr(end + 1);
    if (line.empty()) continue;
    if (heading) {
      heading = false;
      continue;
    }
    HWCPUProcess process;
    std::size_t digits = 0;
    while (digits < line.size() && isDigit(line[digits])) ++digits;
    std::from_chars(line.data(), line.data() + digits, process.pid);  // stays 0 when absent or too long
    line = trimmed(line.substr(digits));
    // A usage counts only when a blank follows it, so a bare number is taken for the command.
    std::size_t mark = 0;
    while (mark < line.size() && (isDigit(line[mark]) || line[mark] == '.' || line[mark] == ',')) ++mark;
    if (mark > 0 && mark < line.size() && line[mark] == ' ') {
      process.usage = decimal(line.substr(0, mark));
      line = trimmed(line.substr(mark + 1));
    }
    process.command = std::string(line);
    processes.push_back(std::move(process));
  }
  return processes;
}

namespace {

// The next blank-separated field of `text`, which moves past it.
std::string_view nextField(std::string_view& text) {
  const auto start = text.find_first_not_of(" \n");
  if (start == std::string_view::npos) {
    text = {};
    return {};
  }
  text.remove_prefix(start);
  const auto end = text.find_first_of(" \n");
  const auto field = text.substr(0, end);
  text = end == std::string_view::npos ? std::string_view() : text.substr(end);
  return field;
}

bool unsignedField(std::string_view field, std::uint64_t& value) {
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  return error == std::errc() && end == field.data() + field.size() && !field.empty();
}

}  // namespace

std::optional<ProcStat> procStat(std::string_view text) {
  // The command may itself hold ") " and blanks, so it ends at the last parenthesis.
  const auto open = text.find('(');
  const auto close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;
  ProcStat stat;
  std::uint64_t pid = 0;
  if (!unsignedField(trimmed(text.substr(0, open)), pid)) return std::nullopt;
  stat.pid = static_cast<std::int64_t>(pid);
  stat.command = std::string(text.substr(open + 1, close - open - 1));
  std::string_view rest = text.substr(close + 1);
  // After the command: state, then numbers; user and system time are the 12th and 13th fields
  // from the state on, the start time the 20th.
  std::uint64_t user = 0, system = 0;
  for (int index = 0; index <= 19; ++index) {
    const auto field = nextField(rest);
    if (field.empty()) return std::nullopt;
    if (index == 11 && !unsignedField(field, user)) return std::nullopt;
    if (index == 12 && !unsignedField(field, system)) return std::nullopt;
    if (index == 19 && !unsignedField(trimmed(field), stat.startTicks)) return std::nullopt;
  }
  stat.cpuTicks = user + system;
  return stat;
}

std::optional<double> uptimeSeconds(std::string_view text) {
  std::string_view rest = text;
  const auto field = trimmed(nextField(rest));
  double seconds = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), seconds);
  if (error != std::errc() || end != field.data() + field.size() || field.empty() || seconds < 0) return std::nullopt;
  return seconds;
}

}  // namespace corvane::cpu_text
