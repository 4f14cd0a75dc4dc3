// The walk of corvi-check: each name given, and the JPEG files in the directories among them.
#include "platform/path_walk.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace corvi {
namespace {

char LowerAscii(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

bool EndsWith(const std::string& name, const char* suffix) {
  const size_t n = std::strlen(suffix);
  if (name.size() < n) {
    return false;
  }
  for (size_t i = 0; i < n; ++i) {
    if (LowerAscii(name[name.size() - n + i]) != suffix[i]) {
      return false;
    }
  }
  return true;
}

// Types that are never taken whatever their name, known without a stat.
bool IsPipeSocketOrDevice(uint8_t type) {
  return type == DT_FIFO || type == DT_SOCK || type == DT_CHR || type == DT_BLK;
}

}  // namespace

bool HasJpegExtension(const std::string& name) {
  return EndsWith(name, ".jpg") || EndsWith(name, ".jpeg") || EndsWith(name, ".jpe") ||
         EndsWith(name, ".jfif");
}

void PathWalk::Start(const std::string& name) {
  levels.clear();
  has_first = false;
  struct stat info;
  if (stat(name.c_str(), &info) != 0) {
    const int error = errno;
    first = WalkItem{name, WalkItem::kFailed, error};
    has_first = true;
  } else if (S_ISDIR(info.st_mode)) {
    has_first = Enter(name, first);
  } else {
    first = WalkItem{name, S_ISREG(info.st_mode) ? WalkItem::kFile : WalkItem::kNotRegular, 0};
    has_first = true;
  }
}

bool PathWalk::Next(WalkItem& item) {
  if (has_first) {
    has_first = false;
    item = std::move(first);
    return true;
  }
  while (!levels.empty()) {
    Level& level = levels.back();
    if (level.next == level.entries.size()) {
      levels.pop_back();
      continue;
    }
    const Entry& entry = level.entries[level.next++];
    const bool jpeg = HasJpegExtension(entry.name);
    if (IsPipeSocketOrDevice(entry.type) || (entry.type == DT_REG && !jpeg)) {
      continue;
    }
    std::string path = level.path + entry.name;
    const bool said_directory = entry.type == DT_DIR;
    // `level` and `entry` are not used past this point: entering a directory grows the stack.
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
      const int error = errno;
      // A dangling link named like a JPEG file, or a directory too deep for a path: said, so
      // that nothing the walk was asked to take is left out silently.
      if (jpeg || said_directory) {
        item = WalkItem{std::move(path), WalkItem::kFailed, error};
        return true;
      }
      continue;
    }
    if (S_ISDIR(info.st_mode)) {
      if (Enter(path, item)) {
        return true;
      }
      continue;
    }
    if (S_ISREG(info.st_mode) && jpeg) {
      item = WalkItem{std::move(path), WalkItem::kFile, 0};
      return true;
    }
  }
  return false;
}

bool PathWalk::Enter(const std::string& path, WalkItem& item) {
  DIR* dir = opendir(path.c_str());
  if (dir == nullptr) {
    const int error = errno;
    item = WalkItem{path, WalkItem::kFailed, error};
    return true;
  }
  // The identity of the directory opened, not of whatever the name leads to now.
  struct stat info;
  if (fstat(dirfd(dir), &info) != 0 ||
      !entered.emplace(static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino))
           .second) {
    closedir(dir);
    return false;
  }
  Level level;
  level.path = path.back() == '/' ? path : path + "/";
  int error = 0;
  while (true) {
    errno = 0;  // readdir tells its end from a failure only by errno
    const dirent* found = readdir(dir);
    if (found == nullptr) {
      error = errno;
      break;
    }
    if (std::strcmp(found->d_name, ".") != 0 && std::strcmp(found->d_name, "..") != 0) {
      level.entries.push_back(Entry{found->d_name, found->d_type});
    }
  }
  closedir(dir);
  if (error != 0) {
    item = WalkItem{path, WalkItem::kFailed, error};
    return true;
  }
  // Byte order, as strcmp gives it: std::string compares its chars as unsigned.
  std::sort(level.entries.begin(), level.entries.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  levels.push_back(std::move(level));
  return false;
}

}  // namespace corvi
