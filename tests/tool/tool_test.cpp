// The command line run as a process: options, the walk, the per-file pipeline and its output on
// standard output and standard error, and the exit status.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::Bytes;

struct Result {
  int status;
  std::string out;
  std::string err;
};

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

void Write(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Runs the tool in `cwd` with argv[0] "corvi"; standard output and error go to files.
Result RunTool(const std::string& cwd, const std::vector<std::string>& args) {
  std::string out_path = cwd + "/../stdout.txt";
  std::string err_path = cwd + "/../stderr.txt";
  pid_t pid = fork();
  if (pid == 0) {
    int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (out < 0 || err < 0 || chdir(cwd.c_str()) != 0) {
      _exit(127);
    }
    dup2(out, 1);
    dup2(err, 2);
    std::vector<char*> argv = {const_cast<char*>("corvi")};
    for (const std::string& a : args) {
      argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    execv(CORVI_TOOL_PATH, argv.data());
    _exit(126);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, Slurp(out_path), Slurp(err_path)};
}

const Bytes kSmallest = {0xFF, 0xD8, 0xFF, 0xD9};

std::string Report(const std::string& name, int identified, int length, int left) {
  return "Finished parsing " + name + " (identified " + std::to_string(identified) +
         " bytes out of " + std::to_string(length) + ", " + std::to_string(left) + " left).\n";
}

std::string Full(const std::string& name) {
  return "File " + name + " (length=4):\n" + Report(name, 4, 4, 0) + "\n";
}

std::string Quiet(const std::string& name) { return Report(name, 4, 4, 0) + "\n"; }

const std::string kUsage = "usage: corvi [-q] [-d] <file name> ...\n";

// work/ is the current directory of every run:
//   x.jpg, IMG.JPG, img.jPg, foo.jpeg   the 4-byte file FF D8 FF D9
//   trail.jpg                           the same with 10 bytes behind the EOI
//   text.jpg, empty.jpg, one.jpg        not JPEG streams
//   tree/a.jpg, tree/sub/deep/z.jpg     a walk
//   bad/p.jpg, bad/q.jpg                two failing files
//   d.jpg/                              a directory named like a JPEG, empty
//   \xE9t\xE9.jpg                       a name that is not UTF-8
class ToolTest : public testing::Test {
 protected:
  void SetUp() override {
    work = test::MakeTempDir() + "/work";
    mkdir(work.c_str(), 0755);
    for (const char* name : {"x.jpg", "IMG.JPG", "img.jPg", "foo.jpeg", "\xE9t\xE9.jpg"}) {
      Write(work + "/" + name, kSmallest);
    }
    Bytes trail = kSmallest;
    trail.insert(trail.end(), 10, 0x11);
    Write(work + "/trail.jpg", trail);
    Write(work + "/text.jpg", Bytes{'h', 'e', 'l', 'l', 'o', '\n'});
    Write(work + "/empty.jpg", {});
    Write(work + "/one.jpg", Bytes{0xFF});
    for (const char* dir : {"/tree", "/tree/sub", "/tree/sub/deep", "/bad", "/d.jpg"}) {
      mkdir((work + dir).c_str(), 0755);
    }
    Write(work + "/tree/a.jpg", kSmallest);
    Write(work + "/tree/notes.txt", kSmallest);
    Write(work + "/tree/sub/deep/z.jpg", kSmallest);
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
  const Case cases[] = {
      {"no arguments", {}, 0, "", ""},
      {"a lone dash", {"-"}, 0, "", ""},
      {"dump by default", {"x.jpg"}, 0, Full("x.jpg"), ""},
      {"quiet", {"-q", "x.jpg"}, 0, Quiet("x.jpg"), ""},
      {"an option acts on the names behind it", {"x.jpg", "-q", "IMG.JPG"}, 0,
       Full("x.jpg") + Quiet("IMG.JPG"), ""},
      {"bad letter after a name", {"x.jpg", "-x", "IMG.JPG"}, 1, Full("x.jpg"), kUsage},
      {"-qx sets quiet, then fails", {"-qx", "x.jpg"}, 1, "", kUsage},
      {"bad letter first", {"-z"}, 1, "", kUsage},
      {"any case of .jpg", {"-q", "IMG.JPG", "img.jPg"}, 0, Quiet("IMG.JPG") + Quiet("img.jPg"),
       ""},
      {".jpeg is not taken", {"-q", "foo.jpeg", "x.jpg"}, 0, Quiet("x.jpg"),
       "Cannot find a JPEG file with name foo.jpeg\n"},
      {"missing name", {"nothing.jpg"}, 0, "", "Cannot find a JPEG file with name nothing.jpg\n"},
      {"trailing bytes are left", {"-q", "trail.jpg"}, 0, Report("trail.jpg", 4, 14, 10) + "\n",
       ""},
      {"not a JPEG", {"text.jpg"}, 0, "Failed on text.jpg: Missing JPEG EOI\n\n", ""},
      {"one byte", {"one.jpg"}, 0, "Failed on one.jpg: Missing JPEG EOI\n\n", ""},
      {"empty file", {"empty.jpg"}, 0,
       "Failed on empty.jpg: File empty.jpg: failed on CreateFileMapping: Invalid argument\n\n",
       ""},
      {"a directory is walked", {"-q", "tree"}, 0, tree, ""},
      {"the prefix is kept as typed", {"-q", "./tree/sub"}, 0, Quiet("./tree/sub\\deep\\z.jpg"),
       ""},
      {"backslashes typed", {"-q", "tree\\a.jpg", "tree\\sub"}, 0,
       Quiet("tree\\a.jpg") + Quiet("tree\\sub\\deep\\z.jpg"), ""},
      {"a pattern", {"-q", "tree/*.jpg"}, 0, Quiet("tree/a.jpg"), ""},
      {"a pattern with a directory", {"-q", "tr*"}, 0, Report("trail.jpg", 4, 14, 10) + "\n" + tree,
       ""},
      {"a trailing separator names nothing", {"tree/"}, 0, "",
       "Cannot find a JPEG file with name tree/\n"},
      {"failing files still count", {"bad"}, 0,
       "Failed on bad\\p.jpg: Missing marker prefix\n\nFailed on bad\\q.jpg: Missing JPEG SOI\n\n",
       ""},
      {"an empty directory named like a JPEG", {"d.jpg"}, 0, "",
       "Cannot find a JPEG file with name d.jpg\n"},
      {"a name that is not UTF-8", {"-q", "\xE9t\xE9.jpg"}, 0, Quiet("\xE9t\xE9.jpg"), ""},
      {"a wildcard over a name that is not UTF-8", {"-q", "?t?.jpg"}, 0, Quiet("\xE9t\xE9.jpg"),
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Result r = RunTool(work, c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(r.out, c.out);
    EXPECT_EQ(r.err, c.err);
  }
}

TEST_F(ToolTest, OptionClustersSetBothFlags) {
  const std::string expected =
      Report("x.jpg", 4, 4, 0) + "Failed on x.jpg: No compressed image data\n\n";
  const std::vector<std::vector<std::string>> forms = {
      {"-qd", "x.jpg"}, {"-dq", "x.jpg"}, {"-q", "-d", "x.jpg"}, {"-d", "-", "-q", "x.jpg"}};
  for (const auto& args : forms) {
    SCOPED_TRACE(args[0]);
    Result r = RunTool(work, args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, expected);
    EXPECT_EQ(r.err, "");
  }
}

TEST_F(ToolTest, DotWalksTheCurrentDirectory) {
  Result r = RunTool(work + "/tree", {"-q", "."});
  EXPECT_EQ(r.out, Quiet("a.jpg") + Quiet("sub\\deep\\z.jpg"));
  EXPECT_EQ(r.err, "");
}

TEST_F(ToolTest, UnreadableFile) {
  std::string path = work + "/locked.jpg";
  Write(path, kSmallest);
  chmod(path.c_str(), 0);
  if (access(path.c_str(), R_OK) == 0) {
    GTEST_SKIP() << "running with rights that read any file";
  }
  Result r = RunTool(work, {"locked.jpg"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out,
            "Failed on locked.jpg: File locked.jpg: failed on CreateFile: Permission denied\n\n");
}

// The bytes behind the last EOI add to what is left, whatever the segments leave.
TEST_F(ToolTest, CorpusFileWithTrailingBytes) {
  if (!test::CorpusAvailable()) {
    GTEST_SKIP() << "corpus not available";
  }
  Bytes bytes = test::ReadFile(test::CorpusPath("derived-hx5v-444-trailing-10-bytes.jpg"));
  ASSERT_GT(bytes.size(), 10u);
  Write(work + "/long.jpg", bytes);
  bytes.resize(bytes.size() - 10);
  Write(work + "/short.jpg", bytes);
  Result r = RunTool(work, {"-q", "long.jpg", "short.jpg"});
  int length = static_cast<int>(bytes.size());
  int left = 0;
  ASSERT_EQ(std::sscanf(r.out.c_str() + r.out.find("short.jpg (identified "),
                        "short.jpg (identified %*d bytes out of %*d, %d left)", &left),
            1);
  EXPECT_EQ(r.out, Report("long.jpg", length - left, length + 10, left + 10) + "\n" +
                       Report("short.jpg", length - left, length, left) + "\n");
}

}  // namespace
}  // namespace corvi
