// Directory search over a name or a pattern whose last component may hold * and ?, the listing
// of a directory, and the command line as wide strings.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvi {

// One entry found: its bare name, and whether it is a directory (or a link to one).
struct DirectoryEntry {
  std::wstring name;
  bool directory = false;
};

// The entries that a name reaches, sorted by name. Both separators "/" and "\\" end a
// component. A last component without * or ? names one entry, a directory included (it is not
// listed); its name is what follows the last separator, and "." and ".." give the real name of the
// directory they stand for. A name of this system may hold "\\": one that exists exactly as given
// is that entry. A last component with wildcards (* any run, ? one character, ASCII letters in
// either case) lists the directory in front of it, "." and ".." left out. False when nothing
// matches.
bool SearchPattern(const wchar_t* pattern, std::vector<DirectoryEntry>& entries);

// The entries of the directory at `path` (as the system takes it), sorted by name, "." and ".."
// left out. False when it cannot be read.
bool ListDirectory(const std::string& path, std::vector<DirectoryEntry>& entries);

// Identity of a directory, the same under every name that reaches it (links included).
struct DirectoryId {
  uint64_t device = 0;
  uint64_t inode = 0;
  bool operator==(const DirectoryId&) const = default;
};
// False when `path` (as the system takes it) names no directory that can be examined.
bool PlatformDirectoryId(const std::string& path, DirectoryId& id);

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
