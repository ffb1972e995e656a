// The profiles compiled into the library, and choosing a machine by name or by file.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "corvane/platform/machine_profile.h"
#include "platform/embedded_file.h"

namespace corvane::platform {

namespace embedded {
// Generated at build time from profiles/*.json.
using corvane::EmbeddedFile;
extern const EmbeddedFile kEmbeddedFiles[];
extern const std::size_t kEmbeddedFileCount;
}  // namespace embedded

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// The exact name first, so that two names differing only in case would both stay reachable.
const embedded::EmbeddedFile* findEmbedded(std::string_view name) {
  for (std::size_t i = 0; i < embedded::kEmbeddedFileCount; ++i) {
    if (name == embedded::kEmbeddedFiles[i].name) return &embedded::kEmbeddedFiles[i];
  }
  for (std::size_t i = 0; i < embedded::kEmbeddedFileCount; ++i) {
    if (equalIgnoringCase(name, embedded::kEmbeddedFiles[i].name)) return &embedded::kEmbeddedFiles[i];
  }
  return nullptr;
}

// Edits (insertions, deletions, substitutions) from `a` to `b`, letter case ignored.
std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// "no built-in machine named 'x'", with the few closest names when some are close enough to be
// a slip of the keyboard (within a third of the longer name, at least two edits).
std::string unknownNameMessage(std::string_view name) {
  constexpr std::size_t kMostSuggestions = 3;
  struct Candidate {
    std::size_t distance;
    std::size_t sharedStart;  // among equally close names, a slip near the end is likelier
    std::string name;
  };
  std::vector<Candidate> close;
  const auto names = builtinProfileNames();
  for (const auto& candidate : names) {
    const std::size_t distance = editDistance(name, candidate);
    if (distance > std::max<std::size_t>(2, std::max(name.size(), candidate.size()) / 3)) continue;
    std::size_t shared = 0;
    while (shared < name.size() && shared < candidate.size() && lower(name[shared]) == lower(candidate[shared])) {
      ++shared;
    }
    close.push_back({distance, shared, candidate});
  }
  std::stable_sort(close.begin(), close.end(), [](const Candidate& a, const Candidate& b) {
    return a.distance != b.distance ? a.distance < b.distance : a.sharedStart > b.sharedStart;
  });
  if (close.size() > kMostSuggestions) close.resize(kMostSuggestions);
  std::string message = "no built-in machine named '" + std::string(name) + "'";
  if (close.empty()) return message + " (" + std::to_string(names.size()) + " built-in machines; `corvane profile list` shows them)";
  message += "; did you mean ";
  for (std::size_t i = 0; i < close.size(); ++i) {
    if (i != 0) message += i + 1 == close.size() ? " or " : ", ";
    message += close[i].name;
  }
  return message + "?";
}

// Parsed once per process; profiles are immutable, so every caller shares the same one.
std::mutex& cacheLock() {
  static std::mutex lock;
  return lock;
}

std::map<std::string, std::shared_ptr<const MachineProfile>, std::less<>>& cache() {
  static std::map<std::string, std::shared_ptr<const MachineProfile>, std::less<>> parsed;
  return parsed;
}

}  // namespace

std::vector<std::string> builtinProfileNames() {
  std::vector<std::string> names;
  for (std::size_t i = 0; i < embedded::kEmbeddedFileCount; ++i) {
    names.emplace_back(embedded::kEmbeddedFiles[i].name);
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::shared_ptr<const MachineProfile> loadBuiltinProfile(std::string_view name, std::string* error) {
  const embedded::EmbeddedFile* file = findEmbedded(name);
  if (file == nullptr) {
    if (error != nullptr) *error = unknownNameMessage(name);
    return nullptr;
  }
  const std::string canonical(file->name);
  std::lock_guard<std::mutex> hold(cacheLock());
  auto& parsed = cache();
  if (auto found = parsed.find(canonical); found != parsed.end()) return found->second;
  std::string_view text(reinterpret_cast<const char*>(file->data), file->size);
  auto profile = parseProfile(text, "built-in profile " + canonical, error, canonical);
  if (profile) parsed.emplace(canonical, profile);
  return profile;
}

bool isProfileFileName(std::string_view nameOrFile) {
  return nameOrFile.find('/') != std::string_view::npos || nameOrFile.ends_with(".json");
}

std::shared_ptr<const MachineProfile> resolveMachine(std::string_view nameOrFile, std::string* error) {
  const std::filesystem::path path{std::string(nameOrFile)};
  std::error_code ec;
  if (!isProfileFileName(nameOrFile)) {
    auto profile = loadBuiltinProfile(nameOrFile, error);
    if (!profile && error != nullptr && std::filesystem::is_regular_file(path, ec)) {
      *error += " (for the file of that name, write ./" + std::string(nameOrFile) + ")";
    }
    return profile;
  }
  auto unreadable = [&](const std::string& why) {
    if (error != nullptr) *error = "cannot read profile '" + std::string(nameOrFile) + "': " + why;
    return nullptr;
  };
  if (!std::filesystem::exists(path, ec)) return unreadable("no such file");
  if (std::filesystem::is_directory(path, ec)) return unreadable("it is a folder");
  std::ifstream in(path, std::ios::binary);
  if (!in) return unreadable(std::strerror(errno));
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return unreadable("read error");
  return parseProfile(text, nameOrFile, error, path.stem().string());
}

}  // namespace corvane::platform
