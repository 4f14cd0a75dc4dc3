// The command line run as a process: whole outputs against golden files, options, the walk over
// names and directories, the failures, and the exit status.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/golden.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/process.h"

namespace corvi {
namespace {

// A run of the tool in `cwd` as text: the arguments, the exit status, stdout and stderr.
std::string Transcript(const std::string& cwd, const std::vector<std::string>& args) {
  const test::ProcessResult r = test::RunProgram(CORVI_TOOL_PATH, "corvi", cwd, args);
  std::string text = "$ corvi";
  for (const std::string& a : args) {
    text += " [" + a + "]";
  }
  return text + " -> " + std::to_string(r.status) + "\n" + r.out + "stderr:\n" + r.err + "\n";
}

// Each golden JPEG file, dumped and then decoded, run from the golden folder so that the names
// in the output stay the same: stderr and stdout must match tool_<name>.txt and tool_<name>_d.txt.
TEST(Tool, MatchesGoldenOutputs) {
  for (const std::string name :
       {"adobe_progressive", "jfif_baseline", "jfif_thumbnail", "sample"}) {
    for (const std::string option : {"", "-d"}) {
      const auto r = test::RunProgram(
          CORVI_TOOL_PATH, "corvi", CORVI_GOLDEN_DIR,
          option.empty() ? std::vector{name + ".jpg"} : std::vector{option, name + ".jpg"});
      EXPECT_EQ(r.status, 0) << name << option;
      test::ExpectGolden("tool_" + name + (option.empty() ? "" : "_d"), r.err + r.out);
    }
  }
}

// work/ holds the 4-byte file FF D8 FF D9 under several names, files that fail, a tree to walk
// with links back into it, a folder whose files all fail, an empty folder named like a JPEG, and
// names that hold "\\", which is allowed on this system. The runs, from work/ unless a folder
// is given, must match tool_command_lines.txt.
TEST(Tool, CommandLinesMatchTheirGoldenTranscript) {
  const std::string work = test::MakeTempDir() + "/work";
  for (const char* dir :
       {"", "/tree", "/tree/sub", "/tree/sub/deep", "/bad", "/d.jpg", "/a", "/d", "/d/x\\y"}) {
    mkdir((work + dir).c_str(), 0755);
  }
  for (const char* name :
       {"x.jpg", "IMG.JPG", "img.jPg", "foo.jpeg", "\xE9t\xE9.jpg", "tree/a.jpg", "tree/notes.txt",
        "tree/sub/deep/z.jpg", "a\\b.jpg", "d/a\\b.jpg", "d/x\\y/c.jpg"}) {
    std::ofstream(work + "/" + name) << "\xFF\xD8\xFF\xD9";
  }
  std::ofstream(work + "/text.jpg") << "hello\n";
  std::ofstream(work + "/empty.jpg");
  std::ofstream(work + "/a/b.jpg") << "A";
  std::ofstream(work + "/bad/p.jpg") << "A\xFF\xD9";
  std::ofstream(work + "/bad/q.jpg") << "\xFF\xE0\xFF\xD9";
  ASSERT_EQ(symlink("..", (work + "/tree/sub/up").c_str()), 0);
  ASSERT_EQ(symlink("../..", (work + "/tree/sub/deep/top").c_str()), 0);
  ASSERT_EQ(symlink("deep", (work + "/tree/sub/side").c_str()), 0);
  // clang-format off
  const char* const command_lines[] = {
      "", "-", "x.jpg -q IMG.JPG", "x.jpg -x IMG.JPG", "-qx x.jpg", "-qd x.jpg",
      "-q img.jPg foo.jpeg", "text.jpg", "empty.jpg", "-q tree", "-q ./tree",
      "-q t?ee ?.jpg ??.jpg *.t?t *M*.*", "bad", "d.jpg", "-q \xE9t\xE9.jpg ?t?.jpg", "-q a\\b.jpg d"};
  // clang-format on
  std::string transcript;
  for (const char* line : command_lines) {
    std::istringstream words(line);
    const std::vector<std::string> args(std::istream_iterator<std::string>(words), {});
    transcript += Transcript(work, args);
  }
  transcript += Transcript(work + "/tree", {"-q", "."});
  test::ExpectGolden("tool_command_lines", transcript);
}

// The walk composes paths of at most 260 characters: a file whose printed path holds 260 is
// processed, one of 261 is passed over, and so is everything in a directory whose path leaves
// no room for a name behind it.
TEST(Tool, WalkKeepsItsPathLimits) {
  const std::string work = test::MakeTempDir();
  const std::string outer = std::string(200, 'f');
  const std::string fits = outer + "/" + std::string(54, 'h');  // printed with "\\": 255
  const std::string full = outer + "/" + std::string(56, 'g');  // 257
  for (const std::string& dir : {outer, fits, full}) {
    ASSERT_EQ(mkdir((work + "/" + dir).c_str(), 0755), 0);
  }
  for (const std::string& name : {fits + "/.jpg", fits + "/a.jpg", full + "/.jpg"}) {
    std::ofstream(work + "/" + name) << "\xFF\xD8\xFF\xD9";
  }
  const test::ProcessResult r = test::RunProgram(CORVI_TOOL_PATH, "corvi", work, {"-q", "."});
  const std::string printed = outer + "\\" + std::string(54, 'h') + "\\.jpg";
  ASSERT_EQ(printed.size(), 260u);
  EXPECT_EQ(r.out, "Finished parsing " + printed + " (identified 4 bytes out of 4, 0 left).\n\n");
  EXPECT_EQ(r.err, "");
}

}  // namespace
}  // namespace corvi
