// The command line run as a process: whole outputs against golden files, options, the walk over
// names and directories, the failures, and the exit status.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "tests/support/jpeg_builder.h"
#include "tests/support/process.h"

namespace corvi {
namespace {

using Result = test::ProcessResult;

Result RunTool(const std::string& cwd, const std::vector<std::string>& args) {
  return test::RunProgram(CORVI_TOOL_PATH, "corvi", cwd, args);
}

// Each golden JPEG file, dumped and then decoded, run from the golden folder so that the names
// in the output stay the same: stdout must match tool_<name>.txt and tool_<name>_d.txt.
TEST(Tool, MatchesGoldenOutputs) {
  for (const std::string name :
       {"adobe_progressive", "jfif_baseline", "jfif_thumbnail", "sample"}) {
    for (const bool decode : {false, true}) {
      const std::string golden =
          std::string(CORVI_GOLDEN_DIR) + "/tool_" + name + (decode ? "_d" : "") + ".txt";
      SCOPED_TRACE(golden);
      Result r = RunTool(CORVI_GOLDEN_DIR, decode ? std::vector<std::string>{"-d", name + ".jpg"}
                                                  : std::vector<std::string>{name + ".jpg"});
      EXPECT_EQ(r.status, 0);
      EXPECT_EQ(r.err, "");
      EXPECT_EQ(r.out, test::Slurp(golden));
    }
  }
}

// The report on a 4-byte file, then `tail`.
std::string Quiet(const std::string& name, const std::string& tail = "\n") {
  return "Finished parsing " + name + " (identified 4 bytes out of 4, 0 left).\n" + tail;
}

// work/ is the current directory of every run: the 4-byte file FF D8 FF D9 under several names,
// files that fail, a tree to walk with links back into it, a folder whose files all fail, an
// empty folder named like a JPEG, and names that hold "\\", which is allowed on this system.
class ToolTest : public testing::Test {
 protected:
  void SetUp() override {
    work = test::MakeTempDir() + "/work";
    for (const char* dir :
         {"", "/tree", "/tree/sub", "/tree/sub/deep", "/bad", "/d.jpg", "/a", "/d", "/d/x\\y"}) {
      mkdir((work + dir).c_str(), 0755);
    }
    for (const char* name :
         {"x.jpg", "IMG.JPG", "img.jPg", "foo.jpeg", "\xE9t\xE9.jpg", "tree/a.jpg",
          "tree/notes.txt", "tree/sub/deep/z.jpg", "a\\b.jpg", "d/a\\b.jpg", "d/x\\y/c.jpg"}) {
      std::ofstream(work + "/" + name) << "\xFF\xD8\xFF\xD9";
    }
    std::ofstream(work + "/text.jpg") << "hello\n";
    std::ofstream(work + "/empty.jpg");
    std::ofstream(work + "/a/b.jpg") << "A";
    std::ofstream(work + "/bad/p.jpg") << "A\xFF\xD9";
    std::ofstream(work + "/bad/q.jpg") << "\xFF\xE0\xFF\xD9";
    ASSERT_EQ(symlink("..", (work + "/tree/sub/up").c_str()), 0);  // links back are not followed
    ASSERT_EQ(symlink("../..", (work + "/tree/sub/deep/top").c_str()), 0);
    ASSERT_EQ(symlink("deep", (work + "/tree/sub/side").c_str()), 0);
  }
  std::string work;
};

TEST_F(ToolTest, CommandLines) {
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string out, err;
  };
  const std::string usage = "usage: corvi [-q] [-d] <file name> ...\n";
  const std::string full = "File x.jpg (length=4):\n" + Quiet("x.jpg");
  const std::string missing = "Cannot find a JPEG file with name ";
  auto tree = [](const std::string& at) {  // links back are not followed, others are
    return Quiet(at + "a.jpg") + Quiet(at + "sub\\deep\\z.jpg") + Quiet(at + "sub\\side\\z.jpg");
  };
  // clang-format off
  const Case cases[] = {
      {{}, 0, "", ""},
      {{"-"}, 0, "", ""},
      {{"x.jpg", "-q", "IMG.JPG"}, 0, full + Quiet("IMG.JPG"), ""},  // an option acts behind it
      {{"x.jpg", "-x", "IMG.JPG"}, 1, full, usage},
      {{"-qx", "x.jpg"}, 1, "", usage},
      {{"-qd", "x.jpg"}, 0, Quiet("x.jpg", "Failed on x.jpg: No compressed image data\n\n"), ""},
      {{"-q", "img.jPg", "foo.jpeg"}, 0, Quiet("img.jPg"), missing + "foo.jpeg\n"},
      {{"text.jpg"}, 0, "Failed on text.jpg: Missing JPEG EOI\n\n", ""},
      {{"empty.jpg"}, 0,
       "Failed on empty.jpg: File empty.jpg: failed on CreateFileMapping: Invalid argument\n\n", ""},
      {{"-q", "tree"}, 0, tree("tree\\"), ""},
      {{"-q", "./tree"}, 0, tree("./tree\\"), ""},
      {{"-q", "t?ee", "?.jpg"}, 0, tree("tree\\") + Quiet("x.jpg"), ""},
      {{"bad"}, 0, "Failed on bad\\p.jpg: Missing marker prefix\n\n"
       "Failed on bad\\q.jpg: Missing JPEG SOI\n\n", ""},
      {{"d.jpg"}, 0, "", missing + "d.jpg\n"},
      {{"-q", "\xE9t\xE9.jpg"}, 0, Quiet("\xE9t\xE9.jpg"), ""},
      {{"-q", "a\\b.jpg", "d"}, 0, Quiet("a\\b.jpg") + Quiet("d\\a\\b.jpg") + Quiet("d\\x\\y\\c.jpg"), ""},
  };
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    Result r = RunTool(work, c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(r.err, c.err);
  }
  EXPECT_EQ(RunTool(work + "/tree", {"-q", "."}).out, tree(""));
}

}  // namespace
}  // namespace corvi
