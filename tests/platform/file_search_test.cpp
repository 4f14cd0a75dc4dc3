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

std::vector<Entry> Search(const std::string& pattern) {
  std::wstring wide = DecodeUtf8(pattern.data(), pattern.size());
  std::vector<Entry> found;
  FileSearch search;
  FindData entry;
  if (search.First(wide.c_str(), entry)) {
    do {
      found.push_back({entry.cFileName, (entry.dwFileAttributes & kDirectoryAttribute) != 0});
    } while (search.Next(entry));
  }
  return found;
}

void Touch(const std::string& path) { std::ofstream(path) << "x"; }

// dir/ holds b.jpg, A.JPG, c.txt, sub/ (with x.jpg) and a name that is not UTF-8.
class FileSearchTest : public testing::Test {
 protected:
  void SetUp() override {
    root = test::MakeTempDir();
    dir = root + "/dir";
    mkdir(dir.c_str(), 0755);
    mkdir((dir + "/sub").c_str(), 0755);
    Touch(dir + "/b.jpg");
    Touch(dir + "/A.JPG");
    Touch(dir + "/c.txt");
    Touch(dir + "/sub/x.jpg");
    Touch(dir + "/\xE9t\xE9.jpg");
  }
  std::string root, dir;
};

TEST_F(FileSearchTest, PlainNamesMatchTheirOwnEntry) {
  EXPECT_EQ(Search(dir + "/b.jpg"), (std::vector<Entry>{{L"b.jpg", false}}));
  EXPECT_EQ(Search(dir + "/sub"), (std::vector<Entry>{{L"sub", true}}));  // not its contents
  EXPECT_EQ(Search(dir + "\\sub\\x.jpg"), (std::vector<Entry>{{L"x.jpg", false}}));
  EXPECT_EQ(Search(dir + "/\xE9t\xE9.jpg"), (std::vector<Entry>{{L"\xDCE9t\xDCE9.jpg", false}}));
  EXPECT_TRUE(Search(dir + "/missing.jpg").empty());
  EXPECT_TRUE(Search(root + "/nowhere/b.jpg").empty());
  EXPECT_TRUE(Search(dir + "/").empty());  // an empty last component names nothing
}

TEST_F(FileSearchTest, DotMatchesTheDirectoryUnderItsName) {
  EXPECT_EQ(Search(dir + "/sub/."), (std::vector<Entry>{{L"sub", true}}));
  char* saved = getcwd(nullptr, 0);
  ASSERT_EQ(chdir((dir + "/sub").c_str()), 0);
  EXPECT_EQ(Search("."), (std::vector<Entry>{{L"sub", true}}));
  EXPECT_EQ(Search("*.*"), (std::vector<Entry>{{L".", true}, {L"..", true}, {L"x.jpg", false}}));
  ASSERT_EQ(chdir(saved), 0);
  free(saved);
}

TEST_F(FileSearchTest, StarDotStarListsEverythingSorted) {
  const std::vector<Entry> all = {
      {L".", true},       {L"..", true},  {L"A.JPG", false},
      {L"b.jpg", false},  {L"c.txt", false}, {L"sub", true},
      {L"\xDCE9t\xDCE9.jpg", false},  // raw bytes sort behind ASCII
  };
  EXPECT_EQ(Search(dir + "/*.*"), all);
  EXPECT_EQ(Search(dir + "\\*.*"), all);
  EXPECT_EQ(Search(dir + "/*"), all);
}

TEST_F(FileSearchTest, Wildcards) {
  struct Case {
    const char* last;
    std::vector<std::wstring> names;
  };
  const Case cases[] = {
      {"*.jpg", {L"A.JPG", L"b.jpg", L"\xDCE9t\xDCE9.jpg"}},  // letters in either case
      {"?.jpg", {L"A.JPG", L"b.jpg"}},
      {"??.jpg", {}},
      {"s*", {L"sub"}},
      {"*u*", {L"sub"}},
      {"*.t?t", {L"c.txt"}},
      {"nothing*", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.last);
    std::vector<std::wstring> names;
    for (const Entry& e : Search(dir + "/" + c.last)) {
      names.push_back(e.name);
    }
    EXPECT_EQ(names, c.names);
  }
}

TEST_F(FileSearchTest, NativePathReadsBackslashAsSeparator) {
  std::wstring wide = DecodeUtf8(dir.data(), dir.size()) + L"\\sub\\x.jpg";
  EXPECT_EQ(NativePath(wide.c_str()), dir + "/sub/x.jpg");
  EXPECT_EQ(NativePath(L"\xDCE9\\a"), "\xE9/a");
}

TEST(DecodeArgument, KeepsInvalidBytes) {
  EXPECT_EQ(DecodeArgument("a\xFF.jpg"), L"a\xDCFF.jpg");
  EXPECT_EQ(DecodeArgument(""), L"");
}

}  // namespace
}  // namespace corvi
