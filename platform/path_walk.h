// The walk of corvi-check: each name given, and the JPEG files in the directories among them.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace corvi {

// One name the walk delivers: a regular file to check, or a name that cannot be checked.
struct WalkItem {
  enum Kind : uint8_t {
    kFile,        // a regular file, or a link to one
    kNotRegular,  // a FIFO, socket or device: never opened
    kFailed,      // the name could not be examined or the directory could not be read
  };
  std::string path;  // the name as given, or a directory's path and the entry's name
  Kind kind = kFile;
  int error = 0;  // kFailed: the errno of the call that failed
};

// True for a name ending in .jpg, .jpeg, .jpe or .jfif, in any case.
bool HasJpegExtension(const std::string& name);

// Walks the names given to it one after another. A name that is a directory is walked depth
// first, each directory's entries in byte order of their names, taking regular files (or links
// to them) with a JPEG extension; anything else is delivered itself, whatever its name. Each
// directory is entered once in the walk's life, whatever name or link reaches it. The walk keeps
// its own stack: one level per directory being walked, holding that directory's entry names and
// nothing more, with no directory left open, so any depth the system's paths reach works.
// Entries are examined with stat only: nothing is opened but directories.
class PathWalk {
 public:
  // Starts on a name. Names left from the previous one are dropped.
  void Start(const std::string& name);
  // The next name to check; false when the name given last is done.
  bool Next(WalkItem& item);

 private:
  struct Entry {
    std::string name;
    uint8_t type;  // d_type: DT_UNKNOWN where the file system does not tell
  };
  struct Level {
    std::string path;  // ends in "/"
    std::vector<Entry> entries;
    size_t next = 0;
  };
  // Reads the directory at `path` onto the stack unless it was entered before; false with
  // `item` set when it cannot be read.
  bool Enter(const std::string& path, WalkItem& item);

  std::vector<Level> levels;
  std::set<std::pair<uint64_t, uint64_t>> entered;  // (device, inode) of each directory
  WalkItem first;
  bool has_first = false;
};

}  // namespace corvi
