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

}  // namespace

bool PlatformDirectoryId(const wchar_t* path, DirectoryId& id) {
  struct stat info;
  if (stat(ExistingPath(path).c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
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

bool FileSearch::First(const wchar_t* pattern, FindData& entry) {
  Close();
  std::wstring text(pattern);
  std::replace(text.begin(), text.end(), L'\\', L'/');
  size_t slash = text.rfind(L'/');
  std::wstring directory = slash == std::wstring::npos ? L"" : text.substr(0, slash + 1);
  std::wstring last = slash == std::wstring::npos ? text : text.substr(slash + 1);
  if (last.empty()) {
    return false;
  }
  if (last.find_first_of(L"*?") == std::wstring::npos) {
    // A plain name matches its own entry; "." and ".." stand for the directory's real name. A
    // name of this system may hold "\\": the pattern as given comes first.
    std::string path = ExistingPath(pattern);
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
    names.push_back(name);
    attributes.push_back(S_ISDIR(info.st_mode) ? kDirectoryAttribute : 0);
    return Deliver(entry);
  }
  // The directory part as given, so that a directory whose name holds "\\" is found.
  std::string folder = ".";
  if (!directory.empty()) {
    const std::wstring given(pattern, slash + 1);
    folder = given.size() == 1 ? std::string("/") : ExistingPath(given.substr(0, slash).c_str());
  }
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) {
    return false;
  }
  std::vector<std::wstring> found;
  while (dirent* item = readdir(dir)) {
    std::wstring name = DecodeUtf8(item->d_name, std::strlen(item->d_name));
    if (Matches(last.c_str(), name.c_str())) {
      found.push_back(std::move(name));
    }
  }
  closedir(dir);
  std::sort(found.begin(), found.end());
  for (const std::wstring& name : found) {
    std::string path = EncodeUtf8((directory + name).c_str());
    names.push_back(name);
    attributes.push_back(IsDirectory(path) ? kDirectoryAttribute : 0);
  }
  return Deliver(entry);
}

bool FileSearch::Next(FindData& entry) {
  return Deliver(entry);
}

void FileSearch::Close() {
  names.clear();
  attributes.clear();
  next = 0;
}

bool FileSearch::Deliver(FindData& entry) {
  while (next < names.size()) {
    const std::wstring& name = names[next];
    entry.dwFileAttributes = attributes[next];
    ++next;
    if (name.size() >= 260) {
      continue;  // longer than a search entry can hold
    }
    std::wmemcpy(entry.cFileName, name.c_str(), name.size() + 1);
    return true;
  }
  return false;
}

}  // namespace corvi
