#include "backends/raopFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace vessord {
namespace raop {

bool remove_own(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0) return errno == ENOENT;
  if (!S_ISLNK(st.st_mode) && st.st_uid != ::geteuid()) return false;
  return ::unlink(path.c_str()) == 0 || errno == ENOENT;
}

bool prepare_own(const std::string& path) {
  if (!remove_own(path)) return false;
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

int open_own(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != ::geteuid()) {
    ::close(fd);
    return -1;
  }
  return fd;
}

bool own_socket_at(const std::string& path) {
  struct stat st {};
  return ::lstat(path.c_str(), &st) == 0 && S_ISSOCK(st.st_mode) && st.st_uid == ::geteuid();
}

}  // namespace raop
}  // namespace vessord
