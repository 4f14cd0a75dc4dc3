// The directory search and the paths to open: plain names, wildcards, order and separators.
#include "platform/file_search.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <vector>

#include "platform/error_text.h"
#include "platform/file_map.h"
#include "platform/file_write.h"
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

const std::wstring kLatin1 = L"\xDCE9t\xDCE9.jpg";  // the name \xE9t\xE9.jpg, not UTF-8

// dir/ holds A.JPG, b.jpg, c.txt, sub/x.jpg, a name that is not UTF-8, and, as a name on this
// system may hold "\\", the file a\\b.jpg beside the directory a/b.jpg/ and the file c\\d.jpg.
class FileSearchTest : public testing::Test {
 protected:
  void SetUp() override {
    dir = test::MakeTempDir();
    for (const char* name : {"/sub", "/a", "/a/b.jpg"}) {
      mkdir((dir + name).c_str(), 0755);
    }
    for (const char* name :
         {"/b.jpg", "/A.JPG", "/c.txt", "/sub/x.jpg", "/\xE9t\xE9.jpg", "/a\\b.jpg", "/c\\d.jpg"}) {
      std::ofstream(dir + name) << "literal";
    }
  }
  Entries Search(const std::string& pattern) const {
    std::wstring wide = DecodeArgument((dir + pattern).c_str());
    Entries found;
    FileSearch search;
    FindData entry;
    for (bool more = search.First(wide.c_str(), entry); more; more = search.Next(entry)) {
      found.push_back({entry.cFileName, (entry.dwFileAttributes & kDirectoryAttribute) != 0});
    }
    return found;
  }
  std::wstring Wide(const std::string& name) const { return DecodeArgument((dir + name).c_str()); }
  std::string dir;
};

TEST_F(FileSearchTest, Patterns) {
  const Entries jpegs = {{L"A.JPG", false},
                         {L"a\\b.jpg", false},
                         {L"b.jpg", false},
                         {L"c\\d.jpg", false},
                         {kLatin1, false}};  // raw bytes last
  const std::pair<std::string, Entries> cases[] = {
      {"/b.jpg", {{L"b.jpg", false}}},
      {"/sub", {{L"sub", true}}},  // the directory's own entry, not its contents
      {"/sub/.", {{L"sub", true}}},
      {"\\sub\\x.jpg", {{L"x.jpg", false}}},
      {"/\xE9t\xE9.jpg", {{kLatin1, false}}},
      {"/missing.jpg", {}},
      {"/nowhere/b.jpg", {}},
      {"/", {}},          // an empty last component names nothing
      {"/*.jpg", jpegs},  // either case
      {"/?.jpg", {{L"A.JPG", false}, {L"b.jpg", false}}},
      {"/??.jpg", {}},
      {"/s?", {}},
      {"/???", {{L"sub", true}}},
      {"/*u*", {{L"sub", true}}},
      {"/*.t?t", {{L"c.txt", false}}},
      {"/sub/?.*", {{L"..", true}, {L"x.jpg", false}}},
      // An existing name is taken as given; the entry's name follows the last separator.
      {"/a\\b.jpg", {{L"b.jpg", false}}},
      {"\\c\\d.jpg", {{L"d.jpg", false}}},
      {"/e\\f.jpg", {}},
      {"/a\\b.j?g", {{L"b.jpg", true}}},  // wildcards: "\\" is read as "/"
      {"/a\\*", {{L".", true}, {L"..", true}, {L"b.jpg", true}}},
  };
  for (const auto& [pattern, found] : cases) {
    EXPECT_EQ(Search(pattern), found) << pattern;
  }
  EXPECT_EQ(Search("/*.*").size(), 10u);
  ASSERT_EQ(unlink((dir + "/a\\b.jpg").c_str()), 0);
  EXPECT_EQ(Search("/a\\b.jpg"), (Entries{{L"b.jpg", true}}));  // now the directory
}

TEST_F(FileSearchTest, RelativeDotNamesTheCurrentDirectory) {
  char* saved = getcwd(nullptr, 0);
  ASSERT_EQ(chdir((dir + "/sub").c_str()), 0);
  dir = "";
  EXPECT_EQ(Search("."), (Entries{{L"sub", true}}));
  EXPECT_EQ(Search("*.*"), (Entries{{L".", true}, {L"..", true}, {L"x.jpg", false}}));
  ASSERT_EQ(chdir(saved), 0);
  free(saved);
}

TEST_F(FileSearchTest, PathsToOpenTakeAnExistingNameAsGiven) {
  EXPECT_EQ(ExistingPath(Wide("/a\\b.jpg").c_str()), dir + "/a\\b.jpg");
  EXPECT_EQ(ExistingPath(Wide("/e\\f.jpg").c_str()), dir + "/e/f.jpg");
  EXPECT_EQ(ExistingPath(Wide("\\a/b.jpg").c_str()), dir + "/a/b.jpg");
  EXPECT_EQ(NativePath(L"\xDCE9\\a"), "\xE9/a");
  // Reading: the file a\\b.jpg; once it is gone, the directory a/b.jpg, which fails.
  int file = PlatformOpenRead(Wide("/a\\b.jpg").c_str());
  ASSERT_GE(file, 0);
  EXPECT_EQ(PlatformFileSize(file), 7u);
  PlatformCloseFile(file);
  ASSERT_EQ(unlink((dir + "/a\\b.jpg").c_str()), 0);
  EXPECT_EQ(PlatformOpenRead(Wide("/a\\b.jpg").c_str()), -1);
  EXPECT_EQ(LastPlatformError(), static_cast<uint32_t>(EISDIR));
  // Writing: an existing c\\d.jpg is opened; a missing name is created with "\\" read as "/".
  file = PlatformOpenWrite(Wide("/c\\d.jpg").c_str());
  EXPECT_EQ(PlatformFileSize(file), 7u);
  PlatformCloseFile(file);
  PlatformCloseFile(PlatformOpenWrite(Wide("/a\\new.bin").c_str()));
  struct stat info;
  EXPECT_EQ(stat((dir + "/a/new.bin").c_str(), &info), 0);
}

}  // namespace
}  // namespace corvi
