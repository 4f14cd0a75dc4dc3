// Directory search over a name or a pattern whose last component may hold * and ?.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvi {

constexpr uint32_t kDirectoryAttribute = 0x10;

// One entry of a search: the attribute bits (only the directory bit is set) and the bare name.
struct FindData {
  uint32_t dwFileAttributes = 0;
  wchar_t cFileName[260] = {};
};

// A search in progress; the destructor closes it. Both separators "/" and "\\" are read as "/".
// A plain name or a directory matches its own entry; one that names an existing entry exactly as
// given, "\\" kept, matches that entry first. A last component with wildcards lists the
// directory, "." and ".." included ("*.*" matches every name), sorted by name. An entry's name is
// what follows the pattern's last "/" or "\\", so that the directory part of the pattern and the
// name together give the path again.
class FileSearch {
 public:
  FileSearch() = default;
  FileSearch(const FileSearch&) = delete;
  FileSearch& operator=(const FileSearch&) = delete;
  ~FileSearch() { Close(); }

  // FindFirstFile: false when nothing matches.
  bool First(const wchar_t* pattern, FindData& entry);
  // FindNextFile: false at the end.
  bool Next(FindData& entry);
  // FindClose.
  void Close();

 private:
  bool Deliver(FindData& entry);
  std::vector<std::wstring> names;
  std::vector<uint32_t> attributes;
  size_t next = 0;
};

// Identity of a directory, the same under every name that reaches it (links included).
struct DirectoryId {
  uint64_t device = 0;
  uint64_t inode = 0;
  bool operator==(const DirectoryId&) const = default;
};
// False when `path` names no directory that can be examined.
bool PlatformDirectoryId(const wchar_t* path, DirectoryId& id);

// Decodes a command-line argument: UTF-8, with each byte of an invalid sequence as U+DC80 + byte.
std::wstring DecodeArgument(const char* argument);

// All of a main routine's arguments decoded, as a null-terminated array of wide strings that
// lives as long as this object.
class WideArguments {
 public:
  WideArguments(int argc, char** argv);
  wchar_t** data() { return pointers.data(); }

 private:
  std::vector<std::wstring> storage;
  std::vector<wchar_t*> pointers;
};

}  // namespace corvi
