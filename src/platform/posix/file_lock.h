// Advisory whole-file locks and atomic replacement, for files several processes share.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::platform::posix {

// Holds an exclusive flock on `path` (created if missing) for the object's life. Blocks until
// the lock is had; `locked()` is false when the file could not be opened.
class ExclusiveFileLock {
 public:
  explicit ExclusiveFileLock(const std::filesystem::path& path);
  // Locks `fd`, a file opened by the caller, and closes it with the lock.
  struct Adopt {};
  ExclusiveFileLock(Adopt, int fd);
  ~ExclusiveFileLock();
  ExclusiveFileLock(const ExclusiveFileLock&) = delete;
  ExclusiveFileLock& operator=(const ExclusiveFileLock&) = delete;
  bool locked() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// Replaces `path` with `contents` so that readers see the old file or the new one, never a
// part: written to a temporary beside it, flushed, then renamed over it.
bool replaceFileAtomically(const std::filesystem::path& path, std::string_view contents, std::string* error);

// The whole file, or nothing when it cannot be read.
std::optional<std::string> readWholeFile(const std::filesystem::path& path);

// What identifies one version of a file: changes whenever the file is replaced or rewritten.
struct FileStamp {
  long long inode = -1;
  long long size = -1;
  long long mtimeNs = -1;
  bool operator==(const FileStamp&) const = default;
};

// The stamp of `path`; the default (all -1) when it does not exist.
FileStamp stampOf(const std::filesystem::path& path);
// The stamp of a file already looked at (fstat of an open file, fstatat under a folder).
FileStamp stampFrom(const struct stat& st);

}  // namespace corvane::platform::posix
