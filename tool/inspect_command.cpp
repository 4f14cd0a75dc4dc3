// corvi: the walk over the names given and the directories among them, each file through the
// pipeline.
#include "tool/inspect_command.h"

#include <algorithm>
#include <cstdint>
#include <cwchar>
#include <string>
#include <vector>

#include "platform/file_map.h"
#include "platform/file_search.h"
#include "platform/format.h"
#include "report/pipeline.h"

namespace corvi {
namespace {

// The walk's limits: a path it composes holds at most 260 characters, an entry's name at most
// 259; longer ones are passed over. A directory is walked only while its path leaves room for a
// separator and three more characters.
constexpr size_t kMaxPath = 260;
constexpr size_t kMaxName = 259;
constexpr size_t kDirectoryRoom = 4;

// The name test: at least 4 characters, ending in a dot and j, p, g in any case.
bool IsJpegName(const std::wstring& name) {
  const size_t n = name.size();
  if (n < 4) {
    return false;
  }
  const wchar_t* tail = name.c_str() + n - 4;
  return tail[0] == L'.' && (tail[1] == L'j' || tail[1] == L'J') &&
         (tail[2] == L'p' || tail[2] == L'P') && (tail[3] == L'g' || tail[3] == L'G');
}

class Walk {
 public:
  explicit Walk(const PipelineOptions& pipeline_options) : options(pipeline_options) {}

  // Processes every JPEG file that `pattern` (a name as given, whose last component may hold
  // wildcards) reaches; returns how many were handed to the pipeline.
  int32_t Pattern(const wchar_t* pattern);

 private:
  // An entry reached: printed as `path`, found at `native` (as the system takes it).
  int32_t Entry(const DirectoryEntry& entry, const std::wstring& path, const std::string& native);
  // The entries of the directory at `native`, printed behind `prefix`, unless the directory is
  // being walked already: a link back to one of them is not followed.
  int32_t Directory(const std::wstring& prefix, const std::string& native);
  // Maps, scans, dumps and reports one file, then the blank line.
  void File(const std::wstring& path, const std::string& native);

  const PipelineOptions& options;
  std::vector<DirectoryId> walked;  // the directories being walked, outermost first
};

int32_t Walk::Pattern(const wchar_t* pattern) {
  std::vector<DirectoryEntry> entries;
  if (!SearchPattern(pattern, entries)) {
    return 0;
  }
  // The printed paths keep the pattern's directory part as typed, separators and all.
  const std::wstring text(pattern);
  const size_t slash = text.find_last_of(L"/\\");
  const std::wstring prefix = slash == std::wstring::npos ? L"" : text.substr(0, slash + 1);
  int32_t count = 0;
  for (const DirectoryEntry& entry : entries) {
    if (entry.directory && text == L".") {
      // "." names the current directory under its real name: the one case that walks it.
      count += Directory(L"", ".");
      continue;
    }
    const std::wstring path = prefix + entry.name;
    count += Entry(entry, path, ExistingPath(path.c_str()));
  }
  return count;
}

int32_t Walk::Entry(const DirectoryEntry& entry, const std::wstring& path,
                    const std::string& native) {
  if (entry.name.size() > kMaxName) {
    return 0;
  }
  if (entry.directory) {
    return path.size() + kDirectoryRoom <= kMaxPath ? Directory(path + L"\\", native) : 0;
  }
  if (!IsJpegName(entry.name) || path.size() > kMaxPath) {
    return 0;
  }
  File(path, native);
  return 1;
}

int32_t Walk::Directory(const std::wstring& prefix, const std::string& native) {
  DirectoryId id;
  const bool known = PlatformDirectoryId(native, id);
  if (known && std::find(walked.begin(), walked.end(), id) != walked.end()) {
    return 0;
  }
  std::vector<DirectoryEntry> entries;
  if (!ListDirectory(native, entries)) {
    return 0;
  }
  if (known) {
    walked.push_back(id);
  }
  const std::string folder = !native.empty() && native.back() == '/' ? native : native + "/";
  int32_t count = 0;
  for (const DirectoryEntry& entry : entries) {
    count += Entry(entry, prefix + entry.name, folder + EncodeUtf8(entry.name.c_str()));
  }
  if (known) {
    walked.pop_back();
  }
  return count;
}

void Walk::File(const std::wstring& path, const std::string& native) {
  RunFile(path.c_str(), native, options);
  OutStream& out = StdOut();
  out.PutAscii("\n", 1);
  out.Flush();
}

}  // namespace

int RunTool(int argc, wchar_t** argv) {
  if (argc < 2) {
    return 0;
  }
  PipelineOptions options;
  options.dump = true;
  options.out = &StdOut();
  Walk walk(options);
  for (int i = 1; i < argc; ++i) {
    const wchar_t* argument = argv[i];
    if (argument[0] == L'-') {
      for (const wchar_t* p = argument + 1; *p != 0; ++p) {
        if (*p == L'd') {
          options.decode = true;
        } else if (*p == L'q') {
          options.dump = false;
        } else {
          StdOut().Flush();
          Print(StdErr(), L"usage: %s [-q] [-d] <file name> ...\n",
                static_cast<const wchar_t*>(argv[0]));
          return 1;
        }
      }
      continue;
    }
    if (walk.Pattern(argument) == 0) {
      StdOut().Flush();
      Print(StdErr(), L"Cannot find a JPEG file with name %s\n", argument);
    }
  }
  StdOut().Flush();
  return 0;
}

}  // namespace corvi
