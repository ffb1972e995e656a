// The files one account keeps under its home folder, opened for a program that runs on behalf of
// that account but must not be steered by it: the helper tool started with raised rights.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/file_lock.h"
#include "platform/posix/process.h"

namespace corvane::platform::posix {

// Every file is reached from `home` one name at a time, each folder opened relative to the one
// before it and none through a symbolic link; a folder or file that is not owned by `owner`
// (a foreign file hard-linked in, a folder handed over by someone else) is refused as if it
// were missing. Paths outside `home`, or with "." or ".." in them, are refused. Thread-safe.
class OwnedTree {
 public:
  // Files bigger than this are not read: the product's own state files are a few kilobytes.
  static constexpr std::size_t kMaxFileSize = 1 << 20;

  OwnedTree(std::filesystem::path home, uid_t owner);

  const std::filesystem::path& home() const { return home_; }
  uid_t owner() const { return owner_; }

  // The whole file, or nothing when it is missing, refused, not a plain file or too big.
  std::optional<std::string> read(const std::filesystem::path& file) const;
  // Replaces `file` with `contents` (a temporary beside it renamed over it), creating the folders
  // on the way; false when refused or when writing failed.
  bool replace(const std::filesystem::path& file, std::string_view contents) const;
  // An exclusive lock on `file` (created when missing), or null when refused.
  std::unique_ptr<ExclusiveFileLock> lock(const std::filesystem::path& file) const;
  // The stamp of `file`; the default when it is missing or refused.
  FileStamp stamp(const std::filesystem::path& file) const;

 private:
  // The folder holding `file`, and the file's own name; an invalid descriptor when refused.
  UniqueFd openParent(const std::filesystem::path& file, bool create, std::string& name) const;
  bool ownedPlainFile(int fd) const;

  std::filesystem::path home_;
  uid_t owner_;
};

}  // namespace corvane::platform::posix
