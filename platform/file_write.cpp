// Files written by the rewriter: the platform calls behind OutputFile, and the few file-system
// operations that writing a result safely needs.
#include "platform/file_write.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/file_map.h"
#include "platform/format.h"

namespace corvi {

int PlatformOpenWrite(const wchar_t* name) {
  // A missing file is created under NativePath(name), never under a name holding "\\".
  std::string path = ExistingPath(name);
  int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) {
    return -1;
  }
  struct stat info;
  if (fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
    int saved = S_ISDIR(info.st_mode) ? EISDIR : errno;
    close(fd);
    errno = saved;
    return -1;
  }
  // Exclusive for as long as this open lives: a second open of the same file, from this process
  // too, fails like a sharing violation.
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    int saved = errno;
    close(fd);
    errno = saved;
    return -1;
  }
  return fd;
}

bool PlatformSeek(int file, uint32_t offset) {
  return lseek(file, static_cast<off_t>(offset), SEEK_SET) != static_cast<off_t>(-1);
}

bool PlatformTruncate(int file) {
  off_t here = lseek(file, 0, SEEK_CUR);
  return here != static_cast<off_t>(-1) && ftruncate(file, here) == 0;
}

int64_t PlatformWrite(int file, const uint8_t* bytes, uint32_t count) {
  uint64_t done = 0;
  while (done < count) {
    ssize_t n = write(file, bytes + done, count - done);
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      if (done == 0) {
        return -1;
      }
      break;  // what was written counts; the caller reports the short write
    }
    if (n == 0) {
      break;
    }
    done += static_cast<uint64_t>(n);
  }
  return static_cast<int64_t>(done);
}

bool PlatformDeleteFile(const wchar_t* name) {
  return unlink(NativePath(name).c_str()) == 0;
}

bool PlatformRenameFile(const wchar_t* from, const wchar_t* to) {
  return rename(NativePath(from).c_str(), NativePath(to).c_str()) == 0;
}

std::wstring PlatformMakeTempDirectory(const wchar_t* near) {
  std::string pattern;
  if (near != nullptr) {
    pattern = NativePath(near);
    const size_t slash = pattern.rfind('/');
    pattern.resize(slash == std::string::npos ? 0 : slash + 1);
    if (pattern.empty()) {
      pattern.assign("./");
    }
  } else {
    const char* tmp = std::getenv("TMPDIR");
    pattern.assign(tmp != nullptr && tmp[0] != 0 ? tmp : "/tmp");
    pattern.push_back('/');
  }
  pattern.append(".corvi-XXXXXX");
  if (mkdtemp(pattern.data()) == nullptr) {
    return std::wstring();
  }
  return DecodeUtf8(pattern.data(), pattern.size());
}

bool PlatformRemoveDirectory(const wchar_t* name) {
  return rmdir(NativePath(name).c_str()) == 0;
}

uint32_t PlatformDiskFullCode() {
  return ENOSPC;
}

}  // namespace corvi
