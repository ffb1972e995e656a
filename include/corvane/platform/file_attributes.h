// The ownership and mode of a file, as the product checks its privileged helper tool.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace corvane::platform {

// Owner and group by account name, and the POSIX permission bits (including set-user-ID,
// set-group-ID and sticky: mode & 07777).
struct FileAttributes {
  std::string ownerAccountName;
  std::string groupOwnerAccountName;
  unsigned posixPermissions = 0;
  bool operator==(const FileAttributes&) const = default;
};

// What stat reports, before the ids are named.
struct StatFields {
  unsigned userId = 0;
  unsigned groupId = 0;
  unsigned mode = 0;  // st_mode, file type bits included
};

// The attributes of `fields`, naming the ids with `userName` / `groupName`; an id without a
// name is written as its number, as the system's tools do.
FileAttributes fileAttributesFromStat(const StatFields& fields,
                                      const std::function<std::optional<std::string>(unsigned)>& userName,
                                      const std::function<std::optional<std::string>(unsigned)>& groupName);

// The attributes of the file at `path` (symbolic links not followed), named through the
// system's account databases; nothing when the file is missing or cannot be read.
std::optional<FileAttributes> readFileAttributes(const std::filesystem::path& path);

}  // namespace corvane::platform
