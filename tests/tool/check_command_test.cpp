// corvi-check run as a process: the names it reports and their order, the walk, lists of names,
// the workers, memory over a long list, the exit status and the usage.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "platform/cpu_count.h"
#include "report/report_format.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/process.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using Names = std::vector<std::string>;
using namespace std::string_literals;

test::ProcessResult Check(const std::string& cwd, const Names& args) {
  return test::RunProgram(CORVI_CHECK_PATH, "corvi-check", cwd, args);
}

// The names of a text output's reports, in order: each report's first line, "NAME: VERDICT"
// (its issues follow indented), up to the verdict.
Names ReportedNames(const std::string& text) {
  Names names;
  for (size_t start = 0, end; start < text.size(); start = end + 1) {
    end = std::min(text.find('\n', start), text.size());
    const std::string line = text.substr(start, end - start);
    if (!line.empty() && line[0] != ' ') {
      names.push_back(line.substr(0, line.rfind(": ")));
    }
  }
  return names;
}

size_t CountLines(const std::string& text) {
  return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

void WriteBytes(const std::string& path, const test::Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

// corvi-check run by the shell as `script` says ("$0" the tool, "$@" the arguments), for a
// standard input or a limit.
test::ProcessResult CheckThroughShell(const std::string& cwd, const std::string& script,
                                      Names args) {
  args.insert(args.begin(), {"-c", script, CORVI_CHECK_PATH});
  return test::RunProgram("/bin/sh", "sh", cwd, args);
}

// Feeds `count` names of one missing file, each over 200 bytes long, through a pipe to a run
// that reads its list from standard input. Once all were reported, the list still open (so they
// were checked as they came): the run's peak memory (VmHWM) in KiB.
long PeakAfterNames(const std::string& cwd, size_t count) {
  const std::string out_path = test::MakeTempDir() + "/out";
  const int out = open(out_path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
  int input[2];
  if (out < 0 || pipe2(input, O_CLOEXEC) != 0) {
    return 0;
  }
  signal(SIGPIPE, SIG_IGN);  // a run that died fails the test, not the test program
  const pid_t pid = fork();
  if (pid == 0) {
    // Under AddressSanitizer freed memory is reused at once, so that it does not count as used.
    const char* options = getenv("ASAN_OPTIONS");
    const std::string asan =
        std::string(options != nullptr ? options : "") + ":quarantine_size_mb=0";
    setenv("ASAN_OPTIONS", asan.c_str(), 1);
    const int to = open(out_path.c_str(), O_WRONLY);
    if (to < 0 || chdir(cwd.c_str()) != 0 || dup2(input[0], 0) < 0 || dup2(to, 1) < 0) {
      _exit(127);
    }
    alarm(60);
    execl(CORVI_CHECK_PATH, "corvi-check", "--json", "-j", "4", "--files-from", "-", nullptr);
    _exit(126);
  }
  close(input[0]);
  std::string block;
  for (int i = 0; i < 1000; ++i) {
    block += std::string(200, 'n') + ".jpg\n";
  }
  for (size_t i = 0; i < count; i += 1000) {
    EXPECT_EQ(write(input[1], block.data(), block.size()), static_cast<ssize_t>(block.size()));
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  size_t lines = 0;
  char buffer[1 << 16];
  while (lines < count && std::chrono::steady_clock::now() < deadline) {
    const ssize_t n = read(out, buffer, sizeof buffer);
    lines += n > 0 ? static_cast<size_t>(std::count(buffer, buffer + n, '\n')) : 0;
    if (n <= 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  EXPECT_EQ(lines, count) << "reports written before the list ended";
  long peak = 0;
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    peak = line.starts_with("VmHWM:") ? std::stol(line.substr(6)) : peak;
  }
  close(input[1]);
  close(out);
  int exit_status = 0;
  waitpid(pid, &exit_status, 0);
  EXPECT_EQ(exit_status, 2 << 8);  // exited with 2: the names could not be opened
  return peak;
}

// work/tree: JPEG names in either case, names that are not taken, a link to a file, a directory
// named like a JPEG file and reached again through a link, a link back up, a dangling link, a
// FIFO. Every file holds a small clean JPEG stream.
std::string MakeTree() {
  const std::string work = test::MakeTempDir();
  for (const char* dir : {"/tree", "/tree/sub", "/tree/z.jpg"}) {
    mkdir((work + dir).c_str(), 0755);
  }
  for (const char* name : {"b.jpg", "a.JPEG", "c.jpe", "d.JFIF", "A.jpg", "e.txt", "f.jpgx",
                           "sub/x.jpg", "z.jpg/y.jpg", "../two words.jpg"}) {
    WriteBytes(work + "/tree/" + name, test::TinyGrayJpeg());
  }
  const std::string tree = work + "/tree/";
  EXPECT_EQ(symlink("..", (tree + "sub/loop").c_str()), 0);
  EXPECT_EQ(symlink("../z.jpg", (tree + "sub/again").c_str()), 0);
  EXPECT_EQ(symlink("sub/x.jpg", (tree + "link.jpg").c_str()), 0);
  EXPECT_EQ(symlink("nowhere", (tree + "dangling.jpg").c_str()), 0);
  EXPECT_EQ(mkfifo((tree + "fifo.jpg").c_str(), 0644), 0);
  return work;
}

struct WalkCase {
  Names args;
  Names reported;
  int status;
};

TEST(CheckCommand, WalksDirectoriesAndReportsEveryNameGiven) {
  const std::string work = MakeTree();
  const WalkCase cases[] = {
      // Byte order ("A" before "a"), the four extensions in any case, a link to a file taken,
      // the FIFO and other names left out, the dangling link said. z.jpg is walked once, through
      // sub/again, which comes first; sub/loop leads back into tree, entered already.
      {{"tree"},
       {"tree/A.jpg", "tree/a.JPEG", "tree/b.jpg", "tree/c.jpe", "tree/d.JFIF", "tree/dangling.jpg",
        "tree/link.jpg", "tree/sub/again/y.jpg", "tree/sub/x.jpg"},
       2},
      // Names given are checked whatever they are; the FIFO is not opened, and it and a missing
      // name still get their lines, saying why in the system's words.
      {{"tree/e.txt", "tree/fifo.jpg", "tree/f.jpgx", "gone.jpg", "two words.jpg"},
       {"tree/e.txt", "tree/fifo.jpg", "tree/f.jpgx", "gone.jpg", "two words.jpg"},
       2},
      // One directory under two names is walked once; a "/" given is not doubled.
      {{"tree/z.jpg/", "-j", "2", "tree/sub/again"}, {"tree/z.jpg/y.jpg"}, 0},
      {{"-q", "tree/b.jpg", "gone.jpg", "tree/c.jpe"}, {"gone.jpg"}, 2},
      {{"--", "-q"}, {"-q"}, 2},
  };
  for (const WalkCase& c : cases) {
    SCOPED_TRACE(testing::Message() << c.args[0] << " " << c.args.back());
    const test::ProcessResult r = Check(work, c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(ReportedNames(r.out), c.reported);
    if (c.args[0] == "tree/e.txt") {
      EXPECT_NE(r.out.find("Not a regular file\n"), std::string::npos) << r.out;
      EXPECT_NE(r.out.find("No such file or directory\n"), std::string::npos) << r.out;
    }
  }
}

TEST(CheckCommand, OutputIsTheSameForAnyNumberOfJobs) {
  const std::string work = test::MakeTempDir();
  mkdir((work + "/many").c_str(), 0755);
  const test::Bytes tiny = test::TinyGrayJpeg();
  // Whole, cut, empty and foreign files, missing names, and with the corpus a few photos that
  // take long to decode, so that the files finish out of order.
  const test::Bytes contents[] = {
      tiny, test::Bytes(tiny.begin(), tiny.begin() + 60), {}, {'G', 'I', 'F', '8', '9', 'a'}};
  std::string list;
  Names expected;
  for (int i = 0; i < 300; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "many/f%03d.jpg", i);
    WriteBytes(work + "/" + name, contents[i % 4]);
    expected.push_back(name);
    if (i % 7 == 3) {
      expected.push_back("many/gone" + std::to_string(i) + ".jpg");
    }
    if (i % 100 == 1 && test::CorpusAvailable()) {
      expected.push_back(
          test::CorpusPath(i < 100 ? "canon-powershot-a80-440.jpg" : "sony-dsc-hx5v.jpg"));
    }
  }
  for (const std::string& name : expected) {
    list += name + "\n";
  }
  std::ofstream(work + "/list.txt") << list;
  for (const Names& format : {Names{}, Names{"--json"}, Names{"--csv"}, Names{"--decode", "-q"}}) {
    test::ProcessResult first;
    for (const char* jobs : {"1", "2", "7"}) {
      SCOPED_TRACE(testing::Message() << (format.empty() ? "text" : format[0]) << " -j " << jobs);
      Names args = format;
      args.insert(args.end(), {"-j", jobs, "--files-from", "list.txt"});
      const test::ProcessResult r = Check(work, args);
      EXPECT_EQ(r.status, 2);
      if (jobs[0] != '1') {
        EXPECT_EQ(r.out, first.out);
        EXPECT_EQ(r.err, first.err);
        continue;
      }
      first = r;
      if (format.empty()) {
        EXPECT_EQ(ReportedNames(r.out), expected);
      } else if (format[0] == "--json") {
        EXPECT_EQ(CountLines(r.out), expected.size());
      } else if (format[0] == "--csv") {
        EXPECT_EQ(CountLines(r.out), expected.size() + 1);
        EXPECT_EQ(r.out.substr(0, ReportCsvHeader().size()), ReportCsvHeader());
      }
    }
  }
  // The folder walked: its files in name order.
  const Names walked = ReportedNames(Check(work, {"-j", "5", "many"}).out);
  ASSERT_EQ(walked.size(), 300u);
  EXPECT_EQ(walked[0], "many/f000.jpg");
  EXPECT_EQ(walked[299], "many/f299.jpg");
  EXPECT_TRUE(std::is_sorted(walked.begin(), walked.end()));
}

struct ListCase {
  std::string list;
  Names args;
  Names reported;
  int status;
};

TEST(CheckCommand, ReadsNamesFromAListAsTheyCome) {
  const std::string work = MakeTree();
  WriteBytes(work + "/new\nline.jpg", test::TinyGrayJpeg());
  const ListCase cases[] = {
      // One name a line, empty lines skipped, a directory walked; command-line names first.
      {"tree/b.jpg\n\ntree/z.jpg\ngone.jpg",
       {"tree/c.jpe", "--files-from", "list"},
       {"tree/c.jpe", "tree/b.jpg", "tree/z.jpg/y.jpg", "gone.jpg"},
       2},
      {"two words.jpg\n", {"--files-from=-"}, {"two words.jpg"}, 0},
      // -0: names end in a NUL byte, and a line end is part of a name: the file "new\nline.jpg"
      // exists (status 0), and its report's first line shows in two.
      {"tree/b.jpg\0\0new\nline.jpg\0tree/c.jpe"s,
       {"-0", "--files-from", "-"},
       {"tree/b.jpg", "new", "line.jpg", "tree/c.jpe"},
       0},
  };
  for (const ListCase& c : cases) {
    SCOPED_TRACE(c.args.back());
    std::ofstream(work + "/list") << c.list;
    const test::ProcessResult r = CheckThroughShell(work, "exec \"$0\" \"$@\" < list", c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_EQ(ReportedNames(r.out), c.reported);
  }
}

TEST(CheckCommand, ChecksAListOfNamesInFlatMemory) {
  const std::string work = test::MakeTempDir();
  const long small = PeakAfterNames(work, 10000);
  const long large = PeakAfterNames(work, 100000);
  ASSERT_GT(small, 0);
  // Holding the names or their reports would take over 20 MB more.
  EXPECT_LT(large, small + 4096);
  EXPECT_LT(large, 40 * 1024);
}

// 2000 directories deep (a path just under the system's limit), walked on a stack of 512 KiB.
TEST(CheckCommand, WalksATreeThousandsDeepOnASmallStack) {
  const std::string work = test::MakeTempDir();
  std::string deep = "deep";
  for (int depth = 0; depth <= 2000; ++depth) {
    ASSERT_EQ(mkdir((work + "/" + deep).c_str(), 0755), 0) << depth;
    deep += "/d";
  }
  deep.resize(deep.size() - 2);
  WriteBytes(work + "/" + deep + "/x.jpg", test::TinyGrayJpeg());
  const test::ProcessResult r = CheckThroughShell(work, "ulimit -s 512 && exec \"$0\" deep", {});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(ReportedNames(r.out), Names{deep + "/x.jpg"});
}

struct StatusCase {
  Names args;
  int status;
  const char* out;  // regular expressions the whole output must match
  const char* err;
};

TEST(CheckCommand, ExitStatusUsageAndCounts) {
  const std::string work = test::MakeTempDir();
  WriteBytes(work + "/tiny.jpg", test::TinyGrayJpeg());
  std::ofstream(work + "/list.txt") << "tiny.jpg\n";
  const char* usage = "usage: corvi-check \\[--json[\\s\\S]*";
  const StatusCase cases[] = {
      {{"tiny.jpg"},
       0,
       "tiny\\.jpg: clean\n( .*\n)*",
       "corvi-check: 1 file: 1 clean, 0 benign, 0 unsupported, 0 damaged, 0 broken\n"},
      {{"-q", "tiny.jpg", "gone.jpg", "tiny.jpg"},
       2,
       "gone\\.jpg: broken\n( .*\n)*",
       "corvi-check: 3 files: 2 clean, 0 benign, 0 unsupported, 0 damaged, 1 broken\n"},
      {{"--json", "--full", "--decode", "--strict", "-j3", "--files-from=list.txt"},
       0,
       "\\{.*\"tiny\\.jpg\".*\\}\n",
       ""},
      {{"--csv", "-q", "-j", "64", "tiny.jpg", "--files-from", "list.txt"}, 0, "[^\n]*\n", ""},
      {{"--files-from", "none.txt", "tiny.jpg"},
       2,
       "",
       "corvi-check: cannot read the list none.txt: No such file or directory\n"},
      {{"--help"}, 0, usage, ""},
      {{"--version"}, 0, "corvi-check [0-9]+\\.[0-9]+\\.[0-9]+\n", ""},
      {{}, 2, "", "corvi-check: no file named\n[\\s\\S]*"},
      {{"-j", "0", "tiny.jpg"},
       2,
       "",
       "corvi-check: -j takes a number from 1, not \"0\"\n[\\s\\S]*"},
      {{"-j2x", "tiny.jpg"}, 2, "", "corvi-check: -j takes [\\s\\S]*"},
      {{"tiny.jpg", "-j"}, 2, "", "corvi-check: -j needs a number\n[\\s\\S]*"},
      {{"--full", "tiny.jpg"}, 2, "", "corvi-check: --full goes with --json\n[\\s\\S]*"},
      {{"--csv", "--json", "tiny.jpg"}, 2, "", "corvi-check: --json and --csv [\\s\\S]*"},
      {{"-0", "tiny.jpg"}, 2, "", "corvi-check: -0 goes with --files-from\n[\\s\\S]*"},
      {{"tiny.jpg", "--jobs"}, 2, "", "corvi-check: unknown option --jobs\nusage: [\\s\\S]*"},
  };
  for (const StatusCase& c : cases) {
    SCOPED_TRACE(testing::Message() << (c.args.empty() ? "" : c.args[0]) << " ... "
                                    << (c.args.empty() ? "" : c.args.back()));
    const test::ProcessResult r = Check(work, c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_TRUE(std::regex_match(r.out, std::regex(c.out))) << r.out;
    EXPECT_TRUE(std::regex_match(r.err, std::regex(c.err))) << r.err;
  }
}

// A photo cut in half is damaged or broken; an arithmetic frame, whose process is not checked,
// is unsupported, which only --strict counts against the run.
TEST(CheckCommand, VerdictsSetTheExitStatus) {
  CORVI_NEED(test::CorpusAvailable(), "the shared corpus");
  const test::Bytes photo = test::ReadFile(test::CorpusPath("derived-hx5v-420.jpg"));
  const std::string half = test::WriteTempFile(
      "half.jpg", test::Bytes(photo.begin(), photo.begin() + static_cast<long>(photo.size() / 2)));
  const std::string arithmetic = test::CorpusPath("arithmetic-sof9.jpg");
  const struct {
    Names args;
    int status;
  } cases[] = {
      {{half}, 1}, {{"-q", arithmetic}, 0}, {{"--strict", arithmetic}, 1}, {{arithmetic, half}, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args.back());
    EXPECT_EQ(Check("/", c.args).status, c.status);
  }
}

TEST(CpuCount, QuotaIsRoundedUpAndMaxSetsNoLimit) {
  const struct {
    const char* text;
    uint32_t count;
  } cases[] = {{"max 100000", 0},  {"200000 100000", 2}, {"150000 100000", 2},
               {"1000 100000", 1}, {"100000 0", 0},      {"", 0},
               {"100000", 0},      {"x 100000", 0},      {"100000 100000 7", 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(CpuQuotaCount(c.text), c.count) << c.text;
  }
  EXPECT_GE(UsableCpuCount(), 1u);
  EXPECT_LE(UsableCpuCount(), static_cast<uint32_t>(sysconf(_SC_NPROCESSORS_CONF)));
}

}  // namespace
}  // namespace corvi
