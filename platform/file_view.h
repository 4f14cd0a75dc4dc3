// A regular file mapped read-only by a path of bytes, for readers that must never block: a FIFO
// or a device is refused before any byte is read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvi {

class FileView {
 public:
  FileView() = default;
  FileView(const FileView&) = delete;
  FileView& operator=(const FileView&) = delete;
  ~FileView();  // the mapping, then the file

  // Opens and maps `path`. False with the system's text in `error` when it is missing, not
  // readable or not a regular file; an empty file opens with no mapping.
  bool Open(const std::string& path, std::string& error);

  const uint8_t* data() const { return bytes; }
  uint64_t size() const { return length; }

 private:
  int fd = -1;
  const uint8_t* bytes = nullptr;
  uint64_t length = 0;
  void* mapping = nullptr;
};

// The system's text for an error number: "No such file or directory".
std::string SystemErrorText(int code);

}  // namespace corvi
