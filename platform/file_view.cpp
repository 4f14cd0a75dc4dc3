// A regular file mapped read-only by a path of bytes.
#include "platform/file_view.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace corvi {

FileView::~FileView() {
  if (mapping != nullptr) {
    munmap(mapping, static_cast<size_t>(length));
  }
  if (fd >= 0) {
    close(fd);
  }
}

std::string SystemErrorText(int code) {
  char text[256];
  // The GNU strerror_r returns its text, which may not be in `text`.
  const char* message = strerror_r(code, text, sizeof text);
  return message != nullptr ? message : "Unknown error";
}

bool FileView::Open(const std::string& path, std::string& error) {
  // Non-blocking: opening a FIFO for reading would wait for a writer.
  fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    error = SystemErrorText(errno);
    return false;
  }
  struct stat info;
  if (fstat(fd, &info) != 0) {
    error = SystemErrorText(errno);
    return false;
  }
  if (S_ISDIR(info.st_mode)) {
    error = SystemErrorText(EISDIR);
    return false;
  }
  if (!S_ISREG(info.st_mode)) {
    error = "Not a regular file";
    return false;
  }
  length = static_cast<uint64_t>(info.st_size);
  if (length == 0) {
    return true;
  }
  mapping = mmap(nullptr, static_cast<size_t>(length), PROT_READ, MAP_PRIVATE, fd, 0);
  if (mapping == MAP_FAILED) {
    mapping = nullptr;
    error = SystemErrorText(errno);
    return false;
  }
  // The file is read once from front to back.
  madvise(mapping, static_cast<size_t>(length), MADV_SEQUENTIAL);
  bytes = static_cast<const uint8_t*>(mapping);
  return true;
}

}  // namespace corvi
