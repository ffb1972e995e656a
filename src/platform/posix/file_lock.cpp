#include "platform/posix/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

namespace corvane::platform::posix {

ExclusiveFileLock::ExclusiveFileLock(const std::filesystem::path& path)
    : ExclusiveFileLock(Adopt{}, ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {}

ExclusiveFileLock::ExclusiveFileLock(Adopt, int fd) : fd_(fd) {
  if (fd_ < 0) {
    return;
  }
  while (::flock(fd_, LOCK_EX) != 0) {
    if (errno != EINTR) {
      ::close(fd_);
      fd_ = -1;
      return;
    }
  }
}

ExclusiveFileLock::~ExclusiveFileLock() {
  if (fd_ >= 0) {
    ::flock(fd_, LOCK_UN);
    ::close(fd_);
  }
}

bool replaceFileAtomically(const std::filesystem::path& path, std::string_view contents, std::string* error) {
  const std::filesystem::path temporary = path.string() + ".tmp." + std::to_string(::getpid());
  const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    if (error) *error = "cannot create " + temporary.string() + ": " + std::strerror(errno);
    return false;
  }
  const char* data = contents.data();
  std::size_t left = contents.size();
  while (left > 0) {
    const ssize_t written = ::write(fd, data, left);
    if (written < 0) {
      if (errno == EINTR) continue;
      if (error) *error = "cannot write " + temporary.string() + ": " + std::strerror(errno);
      ::close(fd);
      ::unlink(temporary.c_str());
      return false;
    }
    data += written;
    left -= static_cast<std::size_t>(written);
  }
  ::fsync(fd);
  ::close(fd);
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    if (error) *error = "cannot replace " + path.string() + ": " + std::strerror(errno);
    ::unlink(temporary.c_str());
    return false;
  }
  return true;
}

std::optional<std::string> readWholeFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return std::nullopt;
  }
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

FileStamp stampOf(const std::filesystem::path& path) {
  struct stat st;
  if (::stat(path.c_str(), &st) != 0) {
    return {};
  }
  return stampFrom(st);
}

FileStamp stampFrom(const struct stat& st) {
#ifdef __APPLE__
  const long long ns = static_cast<long long>(st.st_mtimespec.tv_sec) * 1000000000LL + st.st_mtimespec.tv_nsec;
#else
  const long long ns = static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
#endif
  return {static_cast<long long>(st.st_ino), static_cast<long long>(st.st_size), ns};
}

}  // namespace corvane::platform::posix
