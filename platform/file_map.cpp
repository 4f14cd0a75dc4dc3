// Read-only file mapping: the platform calls behind MappedFile.
#include "platform/file_map.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/format.h"

namespace corvi {

std::string NativePath(const wchar_t* name) {
  std::string path = EncodeUtf8(name);
  for (char& c : path) {
    if (c == '\\') {
      c = '/';
    }
  }
  return path;
}

std::string ExistingPath(const wchar_t* name) {
  std::string path = EncodeUtf8(name);
  if (path.find('\\') == std::string::npos) {
    return path;
  }
  struct stat info;
  if (lstat(path.c_str(), &info) == 0) {
    return path;
  }
  // Mixed: the walk joins a name that holds "\\" to its directory with "\\". Each backslash is a
  // separator where the path up to it is a directory, and part of a name where it is not.
  std::string mixed;
  size_t start = 0;
  for (size_t at = path.find('\\'); at != std::string::npos; at = path.find('\\', at + 1)) {
    const std::string head = mixed + path.substr(start, at - start);
    if (stat(head.empty() ? "/" : head.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
      mixed = head + "/";
      start = at + 1;
    }
  }
  mixed += path.substr(start);
  if (lstat(mixed.c_str(), &info) == 0) {
    return mixed;
  }
  return NativePath(name);
}

int PlatformOpenRead(const wchar_t* name) {
  return PlatformOpenPath(ExistingPath(name));
}

int PlatformOpenPath(const std::string& path) {
  // Non-blocking, so that a pipe named like a JPEG cannot hang the walk.
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) {
    return -1;
  }
  struct stat info;
  if (fstat(fd, &info) != 0) {
    int saved = errno;
    close(fd);
    errno = saved;
    return -1;
  }
  if (S_ISDIR(info.st_mode)) {
    close(fd);
    errno = EISDIR;
    return -1;
  }
  return fd;
}

uint64_t PlatformFileSize64(int file) {
  struct stat info;
  if (fstat(file, &info) != 0) {
    return UINT64_MAX;
  }
  return static_cast<uint64_t>(info.st_size);
}

uint32_t PlatformFileSize(int file) {
  struct stat info;
  if (fstat(file, &info) != 0) {
    return 0xFFFFFFFF;
  }
  return static_cast<uint32_t>(static_cast<uint64_t>(info.st_size));
}

void* PlatformCreateMapping(int file, uint32_t length) {
  if (length == 0) {
    errno = EINVAL;  // what mmap gives for an empty range
    return nullptr;
  }
  void* p = mmap(nullptr, length, PROT_READ, MAP_PRIVATE, file, 0);
  if (p == MAP_FAILED) {
    return nullptr;
  }
  return p;
}

const uint8_t* PlatformMapView(void* mapping, uint32_t /*length*/) {
  return static_cast<const uint8_t*>(mapping);
}

void PlatformUnmapView(const uint8_t* /*view*/) {}

void PlatformCloseMapping(void* mapping, uint32_t length) {
  munmap(mapping, length);
}

void PlatformCloseFile(int file) {
  close(file);
}

}  // namespace corvi
