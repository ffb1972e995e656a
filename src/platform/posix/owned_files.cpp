#include "platform/posix/owned_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

namespace corvane::platform::posix {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// The names of `file` below `home`; nothing when it is not below it or takes a detour ("." or
// ".."), which a name-by-name walk must not have to interpret.
std::optional<std::vector<std::string>> namesBelow(const std::filesystem::path& home,
                                                   const std::filesystem::path& file) {
  if (!home.is_absolute() || !file.is_absolute()) return std::nullopt;
  auto h = home.begin();
  auto f = file.begin();
  for (; h != home.end() && !h->empty(); ++h, ++f) {
    if (f == file.end() || *h != *f) return std::nullopt;
  }
  std::vector<std::string> names;
  for (; f != file.end(); ++f) {
    const std::string name = f->string();
    if (name.empty()) continue;  // a trailing separator
    if (name == "." || name == "..") return std::nullopt;
    names.push_back(name);
  }
  if (names.empty()) return std::nullopt;
  return names;
}

}  // namespace

OwnedTree::OwnedTree(std::filesystem::path home, uid_t owner) : home_(std::move(home)), owner_(owner) {}

UniqueFd OwnedTree::openParent(const std::filesystem::path& file, bool create, std::string& name) const {
  const auto names = namesBelow(home_, file);
  if (!names) return {};
  // The home folder comes from the account database, which only the administrator writes, so
  // the way to it may pass through links; from there on nothing may.
  UniqueFd folder(::open(home_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat st;
  if (folder.get() < 0 || ::fstat(folder.get(), &st) != 0 || st.st_uid != owner_) return {};
  for (std::size_t i = 0; i + 1 < names->size(); ++i) {
    const char* part = (*names)[i].c_str();
    UniqueFd next(::openat(folder.get(), part, kFolderFlags));
    if (next.get() < 0 && errno == ENOENT && create) {
      // Another process may make it at the same moment; the open below settles who did.
      if (::mkdirat(folder.get(), part, 0755) != 0 && errno != EEXIST) return {};
      next.reset(::openat(folder.get(), part, kFolderFlags));
    }
    if (next.get() < 0 || ::fstat(next.get(), &st) != 0 || st.st_uid != owner_) return {};
    folder = std::move(next);
  }
  name = names->back();
  return folder;
}

bool OwnedTree::ownedPlainFile(int fd) const {
  struct stat st;
  return ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == owner_;
}

std::optional<std::string> OwnedTree::read(const std::filesystem::path& file) const {
  std::string name;
  const UniqueFd folder = openParent(file, false, name);
  if (folder.get() < 0) return std::nullopt;
  // Non-blocking, so a named pipe planted in place of the file cannot hold the program.
  const UniqueFd fd(::openat(folder.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat st;
  if (fd.get() < 0 || !ownedPlainFile(fd.get()) || ::fstat(fd.get(), &st) != 0 ||
      static_cast<unsigned long long>(st.st_size) > kMaxFileSize) {
    return std::nullopt;
  }
  std::string text;
  char buffer[4096];
  for (;;) {
    const ssize_t got = ::read(fd.get(), buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    text.append(buffer, static_cast<std::size_t>(got));
    if (text.size() > kMaxFileSize) return std::nullopt;  // it grew while being read
  }
  return text;
}

bool OwnedTree::replace(const std::filesystem::path& file, std::string_view contents) const {
  std::string name;
  const UniqueFd folder = openParent(file, true, name);
  if (folder.get() < 0) return false;
  const std::string temporary = name + ".tmp." + std::to_string(::getpid());
  // Whatever sits under the temporary's name (a leftover, or a link planted there) is removed
  // rather than written through.
  ::unlinkat(folder.get(), temporary.c_str(), 0);
  const UniqueFd fd(
      ::openat(folder.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (fd.get() < 0) return false;
  const char* data = contents.data();
  std::size_t left = contents.size();
  while (left > 0) {
    const ssize_t written = ::write(fd.get(), data, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      ::unlinkat(folder.get(), temporary.c_str(), 0);
      return false;
    }
    data += written;
    left -= static_cast<std::size_t>(written);
  }
  ::fsync(fd.get());
  // Renaming replaces a link at the file's name with the new file; the link's target is untouched.
  if (::renameat(folder.get(), temporary.c_str(), folder.get(), name.c_str()) != 0) {
    ::unlinkat(folder.get(), temporary.c_str(), 0);
    return false;
  }
  return true;
}

std::unique_ptr<ExclusiveFileLock> OwnedTree::lock(const std::filesystem::path& file) const {
  std::string name;
  const UniqueFd folder = openParent(file, true, name);
  if (folder.get() < 0) return nullptr;
  UniqueFd fd(::openat(folder.get(), name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  if (fd.get() < 0 || !ownedPlainFile(fd.get())) return nullptr;
  auto held = std::make_unique<ExclusiveFileLock>(ExclusiveFileLock::Adopt{}, fd.release());
  return held->locked() ? std::move(held) : nullptr;
}

FileStamp OwnedTree::stamp(const std::filesystem::path& file) const {
  std::string name;
  const UniqueFd folder = openParent(file, false, name);
  struct stat st;
  if (folder.get() < 0 || ::fstatat(folder.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 ||
      !S_ISREG(st.st_mode) || st.st_uid != owner_) {
    return {};
  }
  return stampFrom(st);
}

}  // namespace corvane::platform::posix
