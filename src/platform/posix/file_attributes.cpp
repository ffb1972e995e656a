#include "corvane/platform/file_attributes.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

namespace corvane::platform {

namespace {

// The re-entrant account lookups want a caller's buffer; grow it until the entry fits.
std::optional<std::string> userNameOf(unsigned id) {
  std::vector<char> buffer(1024);
  while (buffer.size() <= (1u << 20)) {
    passwd entry{};
    passwd* result = nullptr;
    const int code = getpwuid_r(static_cast<uid_t>(id), &entry, buffer.data(), buffer.size(), &result);
    if (code == ERANGE) {
      buffer.resize(buffer.size() * 4);
      continue;
    }
    if (code != 0 || result == nullptr || result->pw_name == nullptr) return std::nullopt;
    return std::string(result->pw_name);
  }
  return std::nullopt;
}

std::optional<std::string> groupNameOf(unsigned id) {
  std::vector<char> buffer(1024);
  while (buffer.size() <= (1u << 20)) {
    group entry{};
    group* result = nullptr;
    const int code = getgrgid_r(static_cast<gid_t>(id), &entry, buffer.data(), buffer.size(), &result);
    if (code == ERANGE) {
      buffer.resize(buffer.size() * 4);
      continue;
    }
    if (code != 0 || result == nullptr || result->gr_name == nullptr) return std::nullopt;
    return std::string(result->gr_name);
  }
  return std::nullopt;
}

}  // namespace

FileAttributes fileAttributesFromStat(const StatFields& fields,
                                      const std::function<std::optional<std::string>(unsigned)>& userName,
                                      const std::function<std::optional<std::string>(unsigned)>& groupName) {
  FileAttributes attributes;
  attributes.ownerAccountName = userName(fields.userId).value_or(std::to_string(fields.userId));
  attributes.groupOwnerAccountName = groupName(fields.groupId).value_or(std::to_string(fields.groupId));
  attributes.posixPermissions = fields.mode & 07777u;
  return attributes;
}

std::optional<FileAttributes> readFileAttributes(const std::filesystem::path& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return std::nullopt;
  return fileAttributesFromStat(StatFields{static_cast<unsigned>(info.st_uid), static_cast<unsigned>(info.st_gid),
                                           static_cast<unsigned>(info.st_mode)},
                                userNameOf, groupNameOf);
}

}  // namespace corvane::platform
