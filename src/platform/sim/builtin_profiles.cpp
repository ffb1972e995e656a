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

const embedded::EmbeddedFile* findEmbedded(std::string_view name) {
  for (std::size_t i = 0; i < embedded::kEmbeddedFileCount; ++i) {
    if (name == embedded::kEmbeddedFiles[i].name) return &embedded::kEmbeddedFiles[i];
  }
  return nullptr;
}

std::string builtinList() {
  std::string list;
  for (const auto& name : builtinProfileNames()) {
    if (!list.empty()) list += ", ";
    list += name;
  }
  return list;
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
    if (error != nullptr) {
      *error = "no built-in profile named '" + std::string(name) + "' (built-in: " + builtinList() + ")";
    }
    return nullptr;
  }
  std::lock_guard<std::mutex> hold(cacheLock());
  auto& parsed = cache();
  if (auto found = parsed.find(name); found != parsed.end()) return found->second;
  std::string_view text(reinterpret_cast<const char*>(file->data), file->size);
  auto profile = parseProfile(text, "built-in profile " + std::string(name), error);
  if (profile) parsed.emplace(std::string(name), profile);
  return profile;
}

std::shared_ptr<const MachineProfile> resolveMachine(std::string_view nameOrFile, std::string* error) {
  if (findEmbedded(nameOrFile) != nullptr) return loadBuiltinProfile(nameOrFile, error);
  const std::filesystem::path path{std::string(nameOrFile)};
  std::error_code ec;
  if (nameOrFile.empty() || !std::filesystem::exists(path, ec)) {
    if (error != nullptr) {
      *error = "no built-in machine or profile file named '" + std::string(nameOrFile) +
               "' (built-in: " + builtinList() + ")";
    }
    return nullptr;
  }
  auto unreadable = [&](const std::string& why) {
    if (error != nullptr) *error = "cannot read profile '" + std::string(nameOrFile) + "': " + why;
    return nullptr;
  };
  if (std::filesystem::is_directory(path, ec)) return unreadable("it is a folder");
  std::ifstream in(path, std::ios::binary);
  if (!in) return unreadable(std::strerror(errno));
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return unreadable("read error");
  return parseProfile(text, nameOrFile, error);
}

}  // namespace corvane::platform
