// The directory search: plain names, a directory's own entry, wildcards, order and separators.
#include "platform/file_search.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/file_map.h"
#include "platform/format.h"
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

struct Entry {
  std::wstring name;
  bool directory;
  bool operator==(const Entry&) const = default;
};
using Entries = std::vector<Entry>;

Entries Search(const std::string& pattern) {
  std::wstring wide = DecodeUtf8(pattern.data(), pattern.size());
  Entries found;
  FileSearch search;
  FindData entry;
  if (search.First(wide.c_str(), entry)) {
    do {
      found.push_back({entry.cFileName, (entry.dwFileAttributes & kDirectoryAttribute) != 0});
    } while (search.Next(entry));
  }
  return found;
}

const std::wstring kLatin1 = L"\xDCE9t\xDCE9.jpg";  // the name \xE9t\xE9.jpg, not UTF-8

// dir/ holds b.jpg, A.JPG, c.txt, sub/ (with x.jpg) and a name that is not UTF-8.
class FileSearchTest : public testing::Test {
 protected:
  void SetUp() override {
    dir = test::MakeTempDir() + "/dir";
    mkdir(dir.c_str(), 0755);
    mkdir((dir + "/sub").c_str(), 0755);
    for (const char* name : {"/b.jpg", "/A.JPG", "/c.txt", "/sub/x.jpg", "/\xE9t\xE9.jpg"}) {
      std::ofstream(dir + name) << "x";
    }
  }
  std::string dir;
};

TEST_F(FileSearchTest, Patterns) {
  const Entries all = {{L".", true},      {L"..", true},  {L"A.JPG", false}, {L"b.jpg", false},
                       {L"c.txt", false}, {L"sub", true}, {kLatin1, false}};  // raw bytes last
  struct Case {
    std::string pattern;
    Entries found;
  };
  const Case cases[] = {
      {"/b.jpg", {{L"b.jpg", false}}},
      {"/sub", {{L"sub", true}}},  // the directory's own entry, not its contents
      {"/sub/.", {{L"sub", true}}},
      {"\\sub\\x.jpg", {{L"x.jpg", false}}},
      {"/\xE9t\xE9.jpg", {{kLatin1, false}}},
      {"/missing.jpg", {}},
      {"/nowhere/b.jpg", {}},
      {"/", {}},  // an empty last component names nothing
      {"/*.*", all},
      {"\\*", all},
      {"/*.jpg", {{L"A.JPG", false}, {L"b.jpg", false}, {kLatin1, false}}},  // either case
      {"/?.jpg", {{L"A.JPG", false}, {L"b.jpg", false}}},
      {"/??.jpg", {}},
      {"/*u*", {{L"sub", true}}},
      {"/*.t?t", {{L"c.txt", false}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.pattern);
    EXPECT_EQ(Search(dir + c.pattern), c.found);
  }
}

TEST_F(FileSearchTest, RelativeDotNamesTheCurrentDirectory) {
  char* saved = getcwd(nullptr, 0);
  ASSERT_EQ(chdir((dir + "/sub").c_str()), 0);
  EXPECT_EQ(Search("."), (Entries{{L"sub", true}}));
  EXPECT_EQ(Search("*.*"), (Entries{{L".", true}, {L"..", true}, {L"x.jpg", false}}));
  ASSERT_EQ(chdir(saved), 0);
  free(saved);
}

TEST(NativePath, ReadsBackslashAsSeparatorAndKeepsRawBytes) {
  EXPECT_EQ(NativePath(L"d\\sub/x.jpg"), "d/sub/x.jpg");
  EXPECT_EQ(NativePath(L"\xDCE9\\a"), "\xE9/a");
  EXPECT_EQ(DecodeArgument("a\xFF.jpg"), L"a\xDCFF.jpg");
}

}  // namespace
}  // namespace corvi
