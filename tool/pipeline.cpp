// The walk over names and directories, the per-file pipeline and its decode stage.
#include "tool/pipeline.h"

#include <algorithm>
#include <cwchar>
#include <memory>
#include <vector>

#include "base/byte_coverage.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "platform/file_search.h"
#include "platform/format.h"

namespace corvi {

bool quiet = false;
bool decode = false;

namespace {

constexpr size_t kPathCapacity = 261;  // wide characters, terminator included

// The name test: at least 4 characters, ending in a dot and j, p, g in any case.
bool IsJpegName(const wchar_t* name) {
  size_t n = std::wcslen(name);
  if (n < 4) {
    return false;
  }
  const wchar_t* tail = name + n - 4;
  return tail[0] == L'.' && (tail[1] == L'j' || tail[1] == L'J') &&
         (tail[2] == L'p' || tail[2] == L'P') && (tail[3] == L'g' || tail[3] == L'G');
}

// Copies the directory prefix of `pattern` (up to and including its last "/" or "\\") into
// `path`; returns its length.
size_t CopyPrefix(const wchar_t* pattern, wchar_t* path) {
  size_t n = std::wcslen(pattern);
  size_t prefix = 0;
  for (size_t i = n; i > 0; --i) {
    if (pattern[i - 1] == L'/' || pattern[i - 1] == L'\\') {
      prefix = i;
      break;
    }
  }
  if (prefix >= kPathCapacity) {
    return kPathCapacity;  // does not fit: the caller skips the entry
  }
  std::wmemcpy(path, pattern, prefix);
  path[prefix] = 0;
  return prefix;
}

// Appends `text` behind `length` characters of `path`; false when the path would not fit.
bool AppendPath(wchar_t* path, size_t length, const wchar_t* text) {
  size_t n = std::wcslen(text);
  if (length >= kPathCapacity || n >= kPathCapacity - length) {
    return false;
  }
  std::wmemcpy(path + length, text, n + 1);
  return true;
}

// The directories being walked, outermost first: a link back to one of them is not followed,
// so a link to a parent cannot make the walk repeat itself.
std::vector<DirectoryId> walked;

// Walks into the directory `directory` through `pattern` unless it is being walked already.
int32_t WalkDirectory(const wchar_t* directory, const wchar_t* pattern) {
  DirectoryId id;
  const bool known = PlatformDirectoryId(directory, id);
  if (known && std::find(walked.begin(), walked.end(), id) != walked.end()) {
    return 0;
  }
  if (known) {
    walked.push_back(id);
  }
  const int32_t count = WalkPattern(pattern);
  if (known) {
    walked.pop_back();
  }
  return count;
}

}  // namespace

int32_t WalkPattern(const wchar_t* pattern) {
  FileSearch search;
  FindData entry;
  if (!search.First(pattern, entry)) {
    return 0;
  }
  int32_t count = 0;
  do {
    const wchar_t* name = entry.cFileName;
    if (std::wcscmp(name, L".") == 0 || std::wcscmp(name, L"..") == 0) {
      continue;
    }
    wchar_t path[kPathCapacity];
    if ((entry.dwFileAttributes & kDirectoryAttribute) != 0) {
      bool fits;
      wchar_t directory[kPathCapacity];
      if (std::wcscmp(pattern, L".") == 0) {
        fits = AppendPath(path, 0, L"*.*") && AppendPath(directory, 0, L".");
      } else {
        size_t prefix = CopyPrefix(pattern, path);
        fits = AppendPath(path, prefix, name) && AppendPath(directory, 0, path) &&
               AppendPath(path, std::wcslen(path), L"\\*.*");
      }
      // A path longer than the buffer is passed over.
      if (fits) {
        count += WalkDirectory(directory, path);
      }
      continue;
    }
    if (!IsJpegName(name)) {
      continue;
    }
    if (!AppendPath(path, CopyPrefix(pattern, path), name)) {
      continue;
    }
    ProcessFile(path);
    ++count;
  } while (search.Next(entry));
  search.Close();
  return count;
}

void DecodeStage(const MarkerList& markers) {
  auto layer = std::make_unique<RawLayer>();
  {
    auto state = std::make_unique<DecodeState>();
    SetToolDecoding(*state);
    DecodeImage(markers, *state, *layer, false);
  }
  OutStream& out = StdOut();
  Print(out, L"Decoded %d x %d pixels\n", layer->width, layer->height);
  layer->properties.PrintProperties(out);
}

void ProcessFile(const wchar_t* path) {
  OutStream& out = StdOut();
  try {
    JPEGReader reader(path);
    reader.limits = Limits::None();  // every file is reported as it is
    reader.Scan();
    if (!quiet) {
      reader.Dump(path, out);
    }
    uint32_t left = reader.coverage->LeftCount();
    uint32_t identified = reader.length - left;
    Print(out, L"Finished parsing %s (identified %d bytes out of %d, %d left).\n", path, identified,
          reader.length, left);
    if (decode) {
      out.Flush();  // the report line stands while a long decode runs
      DecodeStage(*reader.markers);
    }
  } catch (const RawLayerException& e) {
    Print(out, L"Failed on %s: %s\n", path, static_cast<const wchar_t*>(e.message));
  }
  out.PutAscii("\n", 1);
  out.Flush();
}

int RunTool(int argc, wchar_t** argv) {
  if (argc < 2) {
    return 0;
  }
  for (int i = 1; i < argc; ++i) {
    const wchar_t* argument = argv[i];
    if (argument[0] == L'-') {
      for (const wchar_t* p = argument + 1; *p != 0; ++p) {
        if (*p == L'd') {
          decode = true;
        } else if (*p == L'q') {
          quiet = true;
        } else {
          StdOut().Flush();
          Print(StdErr(), L"usage: %s [-q] [-d] <file name> ...\n",
                static_cast<const wchar_t*>(argv[0]));
          return 1;
        }
      }
      continue;
    }
    if (WalkPattern(argument) == 0) {
      StdOut().Flush();
      Print(StdErr(), L"Cannot find a JPEG file with name %s\n", argument);
    }
  }
  StdOut().Flush();
  return 0;
}

}  // namespace corvi
