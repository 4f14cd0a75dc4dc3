// The directory search and the paths to open: plain names, wildcards, order and separators.
#include "platform/file_search.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>

#include "platform/error_text.h"
#include "platform/file_map.h"
#include "platform/file_write.h"
#include "platform/format.h"
#include "tests/support/golden.h"
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

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
  // The names found, each behind a space and each directory's with a "/" behind it.
  std::string Search(const std::string& pattern) const {
    std::string found;
    std::vector<DirectoryEntry> entries;
    const bool any = SearchPattern(Wide(pattern).c_str(), entries);
    EXPECT_EQ(any, !entries.empty()) << pattern;
    for (const DirectoryEntry& entry : entries) {
      (found += " ") += EncodeUtf8(entry.name.c_str());
      found += entry.directory ? "/" : "";
    }
    return found;
  }
  std::wstring Wide(const std::string& name) const { return DecodeArgument((dir + name).c_str()); }
  std::string dir = test::MakeTempDir();
};

// Each line of base_file_search.txt: a pattern under dir, then the names found. A directory
// gives its own entry, not its contents; an empty last component names nothing; either case
// matches, raw bytes sort last. An existing name is taken as given, and the entry's name follows
// the last separator; in wildcards "\\" is read as "/". Paths to open take an existing name as
// given too, and read "\\" as "/" otherwise.
TEST_F(FileSearchTest, PatternsAndPathsToOpen) {
  std::string text;
  for (const char* pattern :
       {"/b.jpg",         "/sub",   "/sub/.",   "\\sub\\x.jpg", "/\xE9t\xE9.jpg", "/missing.jpg",
        "/nowhere/b.jpg", "/",      "/*.jpg",   "/?.jpg",       "/??.jpg",        "/s?",
        "/???",           "/*.t?t", "/sub/?.*", "/a\\b.jpg",    "\\c\\d.jpg",     "/e\\f.jpg",
        "/a\\b.j?g",      "/a\\*",  "/*.*"}) {
    ((text += pattern) += " ->") += Search(pattern) + "\n";
  }
  test::ExpectGolden("base_file_search", text);
  // A directory's listing: every entry but "." and "..", sorted, each directory known.
  std::vector<DirectoryEntry> listed;
  ASSERT_TRUE(ListDirectory(dir, listed));
  std::string names;
  for (const DirectoryEntry& entry : listed) {
    names += " " + EncodeUtf8(entry.name.c_str()) + (entry.directory ? "/" : "");
  }
  EXPECT_EQ(names, " A.JPG a/ a\\b.jpg b.jpg c.txt c\\d.jpg sub/ \xE9t\xE9.jpg");
  EXPECT_FALSE(ListDirectory(dir + "/missing", listed));
  EXPECT_EQ(ExistingPath(Wide("/a\\b.jpg").c_str()), dir + "/a\\b.jpg");
  EXPECT_EQ(ExistingPath(Wide("/e\\f.jpg").c_str()), dir + "/e/f.jpg");
  EXPECT_EQ(ExistingPath(Wide("\\a/b.jpg").c_str()), dir + "/a/b.jpg");
  EXPECT_EQ(NativePath(L"\xDCE9\\a"), "\xE9/a");
  // Reading: the file a\\b.jpg; once it is gone, the directory a/b.jpg, which fails.
  int file = PlatformOpenRead(Wide("/a\\b.jpg").c_str());
  EXPECT_EQ(PlatformFileSize(file), 7u);
  PlatformCloseFile(file);
  ASSERT_EQ(unlink((dir + "/a\\b.jpg").c_str()), 0);
  EXPECT_EQ(Search("/a\\b.jpg"), " b.jpg/");
  EXPECT_EQ(PlatformOpenRead(Wide("/a\\b.jpg").c_str()), -1);
  EXPECT_EQ(LastPlatformError(), static_cast<uint32_t>(EISDIR));
  // Writing: an existing c\\d.jpg is opened; a missing name is created with "\\" read as "/".
  file = PlatformOpenWrite(Wide("/c\\d.jpg").c_str());
  EXPECT_EQ(PlatformFileSize(file), 7u);
  PlatformCloseFile(file);
  PlatformCloseFile(PlatformOpenWrite(Wide("/a\\new.bin").c_str()));
  EXPECT_EQ(access((dir + "/a/new.bin").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace corvi
