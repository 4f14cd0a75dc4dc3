// The directory search: plain names, a directory's own entry, wildcards, order and separators.
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

// A name on this system may hold "\\". In `dir`: the file a\\b.jpg beside the directory a/ that
// holds the directory b.jpg/; the file c\\d.jpg with no directory c/.
class BackslashNameTest : public testing::Test {
 protected:
  void SetUp() override {
    dir = test::MakeTempDir();
    mkdir((dir + "/a").c_str(), 0755);
    mkdir((dir + "/a/b.jpg").c_str(), 0755);
    std::ofstream(dir + "/a\\b.jpg") << "literal";
    std::ofstream(dir + "/c\\d.jpg") << "x";
  }
  std::wstring Wide(const std::string& name) const {
    const std::string path = dir + name;
    return DecodeUtf8(path.data(), path.size());
  }
  std::string dir;
};

TEST_F(BackslashNameTest, SearchTakesAnExistingNameAsGiven) {
  struct Case {
    std::string pattern;
    Entries found;
  };
  // The entry's name is what follows the last separator of either kind.
  const Case cases[] = {
      {"/a\\b.jpg", {{L"b.jpg", false}}},  // the file, not the directory a/b.jpg
      {"/c\\d.jpg", {{L"d.jpg", false}}},
      {"\\c\\d.jpg", {{L"d.jpg", false}}},  // a separator after a directory, a name part after c
      {"/e\\f.jpg", {}},
      {"/a\\b.j?g", {{L"b.jpg", true}}},  // wildcards: "\\" is read as "/"
      {"/a\\*", {{L".", true}, {L"..", true}, {L"b.jpg", true}}},
      {"/*.jpg", {{L"a\\b.jpg", false}, {L"c\\d.jpg", false}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.pattern);
    EXPECT_EQ(Search(dir + c.pattern), c.found);
  }
  ASSERT_EQ(unlink((dir + "/a\\b.jpg").c_str()), 0);
  EXPECT_EQ(Search(dir + "/a\\b.jpg"), (Entries{{L"b.jpg", true}}));  // now the directory
}

TEST_F(BackslashNameTest, PathsToOpenTakeAnExistingNameAsGiven) {
  const std::string literal = dir + "/a\\b.jpg";
  EXPECT_EQ(ExistingPath(Wide("/a\\b.jpg").c_str()), literal);
  EXPECT_EQ(ExistingPath(Wide("/e\\f.jpg").c_str()), dir + "/e/f.jpg");
  EXPECT_EQ(ExistingPath(Wide("/a/b.jpg").c_str()), dir + "/a/b.jpg");
  EXPECT_EQ(ExistingPath(Wide("\\a/b.jpg").c_str()), dir + "/a/b.jpg");

  // Reading: the file a\\b.jpg; once it is gone, the directory a/b.jpg, which fails.
  char text[16] = {};
  int file = PlatformOpenRead(Wide("/a\\b.jpg").c_str());
  ASSERT_GE(file, 0);
  EXPECT_EQ(read(file, text, sizeof text - 1), 7);
  EXPECT_STREQ(text, "literal");
  PlatformCloseFile(file);
  ASSERT_EQ(unlink(literal.c_str()), 0);
  EXPECT_EQ(PlatformOpenRead(Wide("/a\\b.jpg").c_str()), -1);
  EXPECT_EQ(LastPlatformError(), static_cast<uint32_t>(EISDIR));

  // Writing: an existing c\\d.jpg is opened; a missing name is created with "\\" read as "/".
  file = PlatformOpenWrite(Wide("/c\\d.jpg").c_str());
  ASSERT_GE(file, 0);
  EXPECT_EQ(PlatformFileSize(file), 1u);
  PlatformCloseFile(file);
  file = PlatformOpenWrite(Wide("/a\\new.bin").c_str());
  ASSERT_GE(file, 0);
  PlatformCloseFile(file);
  struct stat info;
  EXPECT_EQ(stat((dir + "/a/new.bin").c_str(), &info), 0);
  EXPECT_NE(stat((dir + "/a\\new.bin").c_str(), &info), 0);
}

TEST(NativePath, ReadsBackslashAsSeparatorAndKeepsRawBytes) {
  EXPECT_EQ(NativePath(L"d\\sub/x.jpg"), "d/sub/x.jpg");
  EXPECT_EQ(NativePath(L"\xDCE9\\a"), "\xE9/a");
  EXPECT_EQ(DecodeArgument("a\xFF.jpg"), L"a\xDCFF.jpg");
}

}  // namespace
}  // namespace corvi
