// The command line run as a process: options, the walk, the per-file pipeline and its output on
// standard output and standard error, and the exit status.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/segment_cases.h"

namespace corvi {
namespace {

using test::Bytes;

using Result = test::ProcessResult;

void Write(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// Runs the tool in `cwd` with argv[0] "corvi".
Result RunTool(const std::string& cwd, const std::vector<std::string>& args) {
  return test::RunProgram(CORVI_TOOL_PATH, "corvi", cwd, args);
}

const Bytes kSmallest = {0xFF, 0xD8, 0xFF, 0xD9};

std::string Report(const std::string& name, int identified, int length, int left) {
  return "Finished parsing " + name + " (identified " + std::to_string(identified) +
         " bytes out of " + std::to_string(length) + ", " + std::to_string(left) + " left).\n\n";
}
std::string Quiet(const std::string& name) {
  return Report(name, 4, 4, 0);
}

const std::string kUsage = "usage: corvi [-q] [-d] <file name> ...\n";

// work/ is the current directory of every run: the 4-byte file FF D8 FF D9 under several names,
// files that fail, a tree to walk, a directory whose files all fail, an empty directory named
// like a JPEG, and trail.jpg whose segment payload and 10 trailing bytes are left.
class ToolTest : public testing::Test {
 protected:
  void SetUp() override {
    work = test::MakeTempDir() + "/work";
    for (const char* dir : {"", "/tree", "/tree/sub", "/tree/sub/deep", "/bad", "/d.jpg"}) {
      mkdir((work + dir).c_str(), 0755);
    }
    for (const char* name : {"x.jpg", "IMG.JPG", "img.jPg", "foo.jpeg", "\xE9t\xE9.jpg",
                             "tree/a.jpg", "tree/notes.txt", "tree/sub/deep/z.jpg"}) {
      Write(work + "/" + name, kSmallest);
    }
    Write(work + "/trail.jpg",
          test::Concat({{0xFF, 0xD8, 0xFF, 0xE3, 0, 3, 0xAA, 0xFF, 0xD9}, Bytes(10, 0x11)}));
    Write(work + "/text.jpg", test::Text("hello\n"));
    Write(work + "/empty.jpg", {});
    Write(work + "/bad/p.jpg", Bytes{0x41, 0xFF, 0xD9});
    Write(work + "/bad/q.jpg", Bytes{0xFF, 0xE0, 0xFF, 0xD9});
  }
  std::string work;
};

TEST_F(ToolTest, CommandLines) {
  struct Case {
    const char* name;
    std::vector<std::string> args;
    int status;
    std::string out, err;
  };
  const std::string tree = Quiet("tree\\a.jpg") + Quiet("tree\\sub\\deep\\z.jpg");
  const std::string decoded =
      "Finished parsing x.jpg (identified 4 bytes out of 4, 0 left).\n"
      "Failed on x.jpg: No compressed image data\n\n";
  const std::string trail = Report("trail.jpg", 8, 19, 11);
  const std::string full = "File x.jpg (length=4):\n" + Quiet("x.jpg");
  const std::string missing = "Cannot find a JPEG file with name ";
  // clang-format off
  const Case cases[] = {
      {"no arguments", {}, 0, "", ""},
      {"a lone dash", {"-"}, 0, "", ""},
      {"an option acts on the names behind it", {"x.jpg", "-q", "IMG.JPG"}, 0,
       full + Quiet("IMG.JPG"), ""},
      {"bad letter after a name", {"x.jpg", "-x", "IMG.JPG"}, 1, full, kUsage},
      {"-qx sets quiet, then fails", {"-qx", "x.jpg"}, 1, "", kUsage},
      {"-qd", {"-qd", "x.jpg"}, 0, decoded, ""},
      {"-dq", {"-dq", "x.jpg"}, 0, decoded, ""},
      {"any case", {"-q", "IMG.JPG", "img.jPg"}, 0, Quiet("IMG.JPG") + Quiet("img.jPg"), ""},
      {".jpeg", {"-q", "foo.jpeg", "x.jpg"}, 0, Quiet("x.jpg"), missing + "foo.jpeg\n"},
      {"segment payload and trailing bytes are left", {"-q", "trail.jpg"}, 0, trail, ""},
      {"not a JPEG", {"text.jpg"}, 0, "Failed on text.jpg: Missing JPEG EOI\n\n", ""},
      {"empty file", {"empty.jpg"}, 0,
       "Failed on empty.jpg: File empty.jpg: failed on CreateFileMapping: Invalid argument\n\n",
       ""},
      {"a directory is walked", {"-q", "tree"}, 0, tree, ""},
      {"prefix kept as typed", {"-q", "./tree/sub"}, 0, Quiet("./tree/sub\\deep\\z.jpg"), ""},
      {"a pattern with a directory", {"-q", "tr*"}, 0, trail + tree, ""},
      {"failing files still count", {"bad"}, 0,
       "Failed on bad\\p.jpg: Missing marker prefix\n\nFailed on bad\\q.jpg: Missing JPEG SOI\n\n",
       ""},
      {"an empty directory named like a JPEG", {"d.jpg"}, 0, "", missing + "d.jpg\n"},
      {"a name that is not UTF-8", {"-q", "\xE9t\xE9.jpg"}, 0, Quiet("\xE9t\xE9.jpg"), ""},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Result r = RunTool(work, c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(r.err, c.err);
  }
}

TEST_F(ToolTest, DotWalksTheCurrentDirectory) {
  Result r = RunTool(work + "/tree", {"-q", "."});
  EXPECT_EQ(r.out, Quiet("a.jpg") + Quiet("sub\\deep\\z.jpg"));
  EXPECT_EQ(r.err, "");
}

// Links back to a directory being walked are not followed; other links are.
TEST_F(ToolTest, LinksBackToAWalkedDirectoryAreNotFollowed) {
  ASSERT_EQ(symlink("..", (work + "/tree/sub/up").c_str()), 0);
  ASSERT_EQ(symlink("../..", (work + "/tree/sub/deep/top").c_str()), 0);
  ASSERT_EQ(symlink("deep", (work + "/tree/sub/side").c_str()), 0);
  Result r = RunTool(work + "/tree", {"-q", "."});
  EXPECT_EQ(r.out, Quiet("a.jpg") + Quiet("sub\\deep\\z.jpg") + Quiet("sub\\side\\z.jpg"));
  r = RunTool(work, {"-q", "tree"});
  EXPECT_EQ(r.out, Quiet("tree\\a.jpg") + Quiet("tree\\sub\\deep\\z.jpg") +
                       Quiet("tree\\sub\\side\\z.jpg"));
}

// A name may hold "\\" on this system: the file of that name comes before the path a/b.jpg.
TEST_F(ToolTest, FileNamedWithABackslash) {
  Write(work + "/a\\b.jpg", kSmallest);
  mkdir((work + "/a").c_str(), 0755);
  Write(work + "/a/b.jpg", Bytes{0x41});
  Result r = RunTool(work, {"a\\b.jpg"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "File a\\b.jpg (length=4):\n" + Quiet("a\\b.jpg"));
  EXPECT_EQ(r.err, "");
}

// The walk joins names to their directories with "\\": a backslash is a separator where the path
// up to it is a directory, and part of a name elsewhere.
TEST_F(ToolTest, WalkFindsNamesAndDirectoriesWithBackslashes) {
  mkdir((work + "/d").c_str(), 0755);
  mkdir((work + "/d/x\\y").c_str(), 0755);
  Write(work + "/d/a\\b.jpg", kSmallest);
  Write(work + "/d/x\\y/c.jpg", kSmallest);
  Result r = RunTool(work, {"-q", "d"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, Quiet("d\\a\\b.jpg") + Quiet("d\\x\\y\\c.jpg"));
  EXPECT_EQ(r.err, "");
}

TEST_F(ToolTest, UnreadableFile) {
  chmod((work + "/x.jpg").c_str(), 0);
  if (access((work + "/x.jpg").c_str(), R_OK) == 0) {
    GTEST_SKIP() << "running with rights that read any file";
  }
  Result r = RunTool(work, {"x.jpg"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "Failed on x.jpg: File x.jpg: failed on CreateFile: Permission denied\n\n");
}

}  // namespace
}  // namespace corvi
