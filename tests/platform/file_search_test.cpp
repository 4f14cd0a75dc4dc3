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

using Entries = std::vector<std::wstring>;  // names, each directory's with a "/" behind it

const std::wstring kLatin1 = L"\xDCE9t\xDCE9.jpg";  // the name \xE9t\xE9.jpg, not UTF-8

// dir/ holds A.JPG, b.jpg, c.txt, sub/x.jpg, a name that is not UTF-8, and, as a name on this
// system may hold "\\", the file a\\b.jpg beside the directory a/b.jpg/ and the file c\\d.jpg.
class FileSearchTest : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"/sub", "/a", "/a/b.jpg"}) {
      mkdir((dir + name).c_str(), 0755);
    }
    for (const char* name :
         {"/b.jpg", "/A.JPG", "/c.txt", "/sub/x.jpg", "/\xE9t\xE9.jpg", "/a\\b.jpg", "/c\\d.jpg"}) {
      std::ofstream(dir + name) << "literal";
    }
  }
  Entries Search(const std::string& pattern) const {
    Entries found;
    FileSearch search;
    FindData entry;
    for (bool more = search.First(Wide(pattern).c_str(), entry); more; more = search.Next(entry)) {
      found.push_back(entry.cFileName +
                      std::wstring((entry.dwFileAttributes & kDirectoryAttribute) ? L"/" : L""));
    }
    return found;
  }
  std::wstring Wide(const std::string& name) const { return DecodeArgument((dir + name).c_str()); }
  std::string dir = test::MakeTempDir();
};

TEST_F(FileSearchTest, Patterns) {
  const std::pair<std::string, Entries> cases[] = {
      {"/b.jpg", {L"b.jpg"}},
      {"/sub", {L"sub/"}},  // the directory's own entry, not its contents
      {"/sub/.", {L"sub/"}},
      {"\\sub\\x.jpg", {L"x.jpg"}},
      {"/\xE9t\xE9.jpg", {kLatin1}},
      {"/missing.jpg", {}},
      {"/nowhere/b.jpg", {}},
      {"/", {}},  // an empty last component names nothing
      // Either case, raw bytes last.
      {"/*.jpg", {L"A.JPG", L"a\\b.jpg", L"b.jpg", L"c\\d.jpg", kLatin1}},
      {"/?.jpg", {L"A.JPG", L"b.jpg"}},
      {"/??.jpg", {}},
      {"/s?", {}},
      {"/???", {L"sub/"}},
      {"/*.t?t", {L"c.txt"}},
      {"/sub/?.*", {L"../", L"x.jpg"}},
      // An existing name is taken as given; the entry's name follows the last separator.
      {"/a\\b.jpg", {L"b.jpg"}},
      {"\\c\\d.jpg", {L"d.jpg"}},
      {"/e\\f.jpg", {}},
      {"/a\\b.j?g", {L"b.jpg/"}},  // wildcards: "\\" is read as "/"
      {"/a\\*", {L"./", L"../", L"b.jpg/"}},
  };
  for (const auto& [pattern, found] : cases) {
    EXPECT_EQ(Search(pattern), found) << pattern;
  }
  EXPECT_EQ(Search("/*.*").size(), 10u);
  ASSERT_EQ(unlink((dir + "/a\\b.jpg").c_str()), 0);
  EXPECT_EQ(Search("/a\\b.jpg"), (Entries{L"b.jpg/"}));  // now the directory
}

TEST_F(FileSearchTest, PathsToOpenTakeAnExistingNameAsGiven) {
  EXPECT_EQ(ExistingPath(Wide("/a\\b.jpg").c_str()), dir + "/a\\b.jpg");
  EXPECT_EQ(ExistingPath(Wide("/e\\f.jpg").c_str()), dir + "/e/f.jpg");
  EXPECT_EQ(ExistingPath(Wide("\\a/b.jpg").c_str()), dir + "/a/b.jpg");
  EXPECT_EQ(NativePath(L"\xDCE9\\a"), "\xE9/a");
  // Reading: the file a\\b.jpg; once it is gone, the directory a/b.jpg, which fails.
  int file = PlatformOpenRead(Wide("/a\\b.jpg").c_str());
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
