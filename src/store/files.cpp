#include "store/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>

namespace korvane {

bool WriteFileAtomically(const std::string& given, const std::string& content) {
  // An operator's link stays a link, and the file keeps its permissions.
  std::string path = given;
  char resolved[PATH_MAX];
  if (realpath(given.c_str(), resolved)) path = resolved;
  struct stat old;
  mode_t mode = stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : 0644;
  std::string temporary = path + ".XXXXXX";
  int fd = mkstemp(temporary.data());
  if (fd < 0) return false;
  bool ok = fchmod(fd, mode) == 0;
  const char* next = content.data();
  std::size_t left = content.size();
  while (ok && left > 0) {
    ssize_t written = write(fd, next, left);
    if (written < 0) {
      if (errno == EINTR) continue;
      ok = false;
      break;
    }
    next += written;
    left -= static_cast<std::size_t>(written);
  }
  // Without the sync a crash after the rename could leave an empty file.
  if (ok) ok = fsync(fd) == 0;
  int savedErrno = errno;
  if (close(fd) != 0 && ok) {
    ok = false;
    savedErrno = errno;
  }
  if (ok && rename(temporary.c_str(), path.c_str()) != 0) {
    ok = false;
    savedErrno = errno;
  }
  if (!ok) {
    unlink(temporary.c_str());
    errno = savedErrno;
  }
  return ok;
}

std::optional<std::string> ReadWholeFile(const std::string& path) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  // Read straight into room for the whole file: a blocklist is tens of
  // megabytes, and copying it while the string grows costs more than the read.
  struct stat info {};
  std::string content;
  // One byte more, so that the end shows without growing the string. Files
  // that give no size (/proc) are read in one go: a sysctl file says nothing
  // to a read that does not start at its beginning.
  const bool sized = fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0;
  content.resize(sized ? static_cast<std::size_t>(info.st_size) + 1 : 65536);
  std::size_t filled = 0;
  for (;;) {
    if (filled == content.size()) content.resize(content.size() * 2);
    ssize_t got = read(fd, content.data() + filled, content.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {  // a directory, or a read error
      const int error = errno;
      close(fd);
      errno = error;
      return std::nullopt;
    }
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  close(fd);
  content.resize(filled);
  if (!sized) content.shrink_to_fit();
  return content;
}

std::optional<DateTime> FileModificationTime(const std::string& path) {
  struct stat info {};
  if (stat(path.c_str(), &info) != 0) return std::nullopt;
  return static_cast<DateTime>(info.st_mtim.tv_sec) + info.st_mtim.tv_nsec / 1e9;
}

}  // namespace korvane
