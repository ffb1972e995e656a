#include "platform/posix/system_folders.h"
#include "corvane/platform/text.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace corvane::platform::posix {

namespace {

using text::trimmed;

template <class Visit>
void forEachLine(std::string_view text, Visit visit) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    visit(text.substr(0, end));
    if (end == std::string_view::npos) break;
    text.remove_prefix(end + 1);
  }
}

// A double-quoted shell word without its quotes and with its backslash escapes undone; nothing
// when `value` is not one whole quoted word.
std::optional<std::string> unquote(std::string_view value) {
  if (value.size() < 2 || value.front() != '"') return std::nullopt;
  std::string out;
  for (std::size_t i = 1; i < value.size(); ++i) {
    const char c = value[i];
    if (c == '\\' && i + 1 < value.size()) {
      out.push_back(value[++i]);
    } else if (c == '"') {
      return i + 1 == value.size() ? std::optional<std::string>(out) : std::nullopt;
    } else {
      out.push_back(c);
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::filesystem::path> parseUserDir(std::string_view userDirsText, std::string_view variable,
                                                  const std::filesystem::path& home) {
  std::optional<std::filesystem::path> found;
  forEachLine(userDirsText, [&](std::string_view line) {
    line = trimmed(line);
    if (line.empty() || line.front() == '#') return;
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || trimmed(line.substr(0, equals)) != variable) return;
    auto value = unquote(trimmed(line.substr(equals + 1)));
    if (!value) return;
    constexpr std::string_view kHome = "$HOME";
    if (value->starts_with(kHome) && (value->size() == kHome.size() || (*value)[kHome.size()] == '/')) {
      const std::string rest = value->substr(kHome.size());
      found = rest.size() <= 1 ? home : home / rest.substr(1);
    } else if (value->starts_with("/")) {
      found = std::filesystem::path(*value);
    }
  });
  return found;
}

std::vector<std::string> parseGroupNames(std::string_view groupText) {
  std::vector<std::string> names;
  forEachLine(groupText, [&](std::string_view line) {
    line = trimmed(line);
    if (line.empty() || line.front() == '#') return;
    const std::size_t colon = line.find(':');
    // name:password:gid:members; a line without its fields is not a group.
    if (colon == 0 || colon == std::string_view::npos || line.find(':', colon + 1) == std::string_view::npos) return;
    names.emplace_back(line.substr(0, colon));
  });
  return names;
}

std::string chooseAdminGroup(const std::vector<std::string>& groups) {
  for (const char* candidate : {"sudo", "wheel"}) {
    if (std::find(groups.begin(), groups.end(), candidate) != groups.end()) return candidate;
  }
  return "admin";
}

std::string adminGroupFromFile(const std::filesystem::path& groupFile) {
  std::ifstream in(groupFile);
  if (!in) return "admin";
  const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return chooseAdminGroup(parseGroupNames(text));
}

}  // namespace corvane::platform::posix
