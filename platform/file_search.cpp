// Directory search over a name or a pattern whose last component may hold * and ?.
#include "platform/file_search.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <numeric>

#include "platform/file_map.h"
#include "platform/format.h"

namespace corvi {
namespace {

wchar_t FoldCase(wchar_t c) {
  return (c >= L'A' && c <= L'Z') ? static_cast<wchar_t>(c + 32) : c;
}

// Wildcard match as the Windows search does it: * any run, ? one character, ASCII letters in
// either case; "*.*" and "*" match every name.
bool Matches(const wchar_t* pattern, const wchar_t* name) {
  if (std::wcscmp(pattern, L"*.*") == 0 || std::wcscmp(pattern, L"*") == 0) {
    return true;
  }
  const wchar_t* star = nullptr;
  const wchar_t* resume = nullptr;
  while (*name != 0) {
    if (*pattern == L'*') {
      star = pattern++;
      resume = name;
    } else if (*pattern == L'?' || (*pattern != 0 && FoldCase(*pattern) == FoldCase(*name))) {
      ++pattern;
      ++name;
    } else if (star != nullptr) {
      pattern = star + 1;
      name = ++resume;
    } else {
      return false;
    }
  }
  while (*pattern == L'*') {
    ++pattern;
  }
  return *pattern == 0;
}

bool IsDirectory(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The path of `name` inside the directory at `directory`.
std::string Inside(const std::string& directory, const std::string& name) {
  return directory.empty() || directory.back() == '/' ? directory + name : directory + "/" + name;
}

// The entries of the directory at `path` whose names match `wildcard` (null: all), sorted.
bool List(const std::string& path, const wchar_t* wildcard, std::vector<DirectoryEntry>& entries) {
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) {
    return false;
  }
  std::vector<std::pair<std::wstring, std::string>> found;  // the name, and its bytes
  while (dirent* item = readdir(dir)) {
    const std::string bytes = item->d_name;
    if (bytes == "." || bytes == "..") {
      continue;
    }
    std::wstring name = DecodeUtf8(bytes.data(), bytes.size());
    if (wildcard == nullptr || Matches(wildcard, name.c_str())) {
      found.emplace_back(std::move(name), bytes);
    }
  }
  closedir(dir);
  std::sort(found.begin(), found.end());
  for (auto& [name, bytes] : found) {
    entries.push_back(DirectoryEntry{std::move(name), IsDirectory(Inside(path, bytes))});
  }
  return true;
}

// The entry that a plain name names, or false.
bool NamedEntry(const wchar_t* pattern, const std::wstring& last,
                std::vector<DirectoryEntry>& entries) {
  // "." and ".." stand for the directory's real name.
  const std::string path = ExistingPath(pattern);
  struct stat info;
  if (stat(path.c_str(), &info) != 0 && lstat(path.c_str(), &info) != 0) {
    return false;
  }
  std::wstring name = last;
  if (last == L"." || last == L"..") {
    char* real = realpath(path.c_str(), nullptr);
    if (real == nullptr) {
      return false;
    }
    const char* base = std::strrchr(real, '/');
    base = (base == nullptr || base[1] == 0) ? real : base + 1;
    name = DecodeUtf8(base, std::strlen(base));
    free(real);
  }
  entries.push_back(DirectoryEntry{std::move(name), S_ISDIR(info.st_mode)});
  return true;
}

}  // namespace

bool PlatformDirectoryId(const std::string& path, DirectoryId& id) {
  struct stat info;
  if (stat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
    return false;
  }
  id.device = static_cast<uint64_t>(info.st_dev);
  id.inode = static_cast<uint64_t>(info.st_ino);
  return true;
}

std::wstring DecodeArgument(const char* argument) {
  return DecodeUtf8(argument, std::strlen(argument));
}

WideArguments::WideArguments(int argc, char** argv) {
  storage.reserve(static_cast<size_t>(argc));
  for (int i = 0; i < argc; ++i) {
    storage.push_back(DecodeArgument(argv[i]));
  }
  for (std::wstring& argument : storage) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
}

bool SearchPattern(const wchar_t* pattern, std::vector<DirectoryEntry>& entries) {
  entries.clear();
  const std::wstring text(pattern);
  const size_t slash = text.find_last_of(L"/\\");
  const std::wstring last = slash == std::wstring::npos ? text : text.substr(slash + 1);
  if (last.empty()) {
    return false;
  }
  if (last.find_first_of(L"*?") == std::wstring::npos) {
    return NamedEntry(pattern, last, entries);
  }
  // The directory part as given, so that a directory whose name holds "\\" is found.
  std::string folder = ".";
  if (slash != std::wstring::npos) {
    folder = slash == 0 ? std::string("/") : ExistingPath(text.substr(0, slash).c_str());
  }
  return List(folder, last.c_str(), entries) && !entries.empty();
}

bool ListDirectory(const std::string& path, std::vector<DirectoryEntry>& entries) {
  entries.clear();
  return List(path, nullptr, entries);
}

}  // namespace corvi
