// corvi-merge run as a process: options, exit statuses and messages, the safe replacement of
// OUTPUT, and the result read back with the inspector and the decoder. The command lines and their
// runs are kept in tests/golden/merge_command.txt and merge_end_to_end.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "tests/support/merge_support.h"
#include "tests/support/process.h"
#include "tests/support/sample_jpeg.h"

namespace corvi {
namespace {

// work/ is the current directory of every run, with t.jpg (the 64x48 sample) in it.
class MergeCommandTest : public testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::create_directory(work);
    Write("t.jpg", test::MakeSampleJpeg());
  }
  void TearDown() override { std::filesystem::remove_all(work + "/.."); }

  void Write(const std::string& name, const test::Bytes& bytes) {
    std::ofstream(work + "/" + name, std::ios::binary) << std::string(bytes.begin(), bytes.end());
  }
  // A PAM RGB_ALPHA image of one colour.
  void WritePam(const std::string& name, int width, int height, const std::string& rgba) {
    std::string pam = "P7\nWIDTH " + std::to_string(width) + "\nHEIGHT " + std::to_string(height) +
                      "\nDEPTH 4\nMAXVAL 255\nENDHDR\n";
    for (int i = 0; i < width * height; ++i) {
      pam += rgba;
    }
    std::ofstream(work + "/" + name, std::ios::binary) << pam;
  }
  // The run's status, output and errors, with the colour at the centre of OUTPUT when it wrote.
  std::string Run(const std::vector<std::string>& args) {
    const test::ProcessResult r = test::RunProgram(CORVI_MERGE_PATH, "corvi-merge", work, args);
    std::ostringstream text;
    text << "status " << r.status << "\n" << r.out << r.err;
    RawLayer decoded;
    if (r.out.rfind("Wrote", 0) == 0 &&
        test::DecodeBytes(test::ReadFile(work + "/out.jpg"), decoded)) {
      const uint16_t* p =
          decoded.pixels + (decoded.height / 2 * decoded.width + decoded.width / 2) * 4;
      text << "centre " << (p[0] >> 8) << " " << (p[1] >> 8) << " " << (p[2] >> 8) << "\n";
    }
    return text.str();
  }
  // The files of work/ but OUTPUT (out.jpg).
  std::vector<std::string> Listing() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(work)) {
      names.push_back(entry.path().filename().string());
    }
    names.erase(std::remove(names.begin(), names.end(), "out.jpg"), names.end());
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string work = test::MakeTempDir() + "/work";
};

// Each run with no OUTPUT and over an old one: an error leaves OUTPUT as it was, and no run
// leaves a temporary file.
TEST_F(MergeCommandTest, RunsMatchGoldenTextAndLeaveNoTemporaryFile) {
  Write("text.jpg", {'n', 'o', 't'});
  Write("p3.ppm", {'P', '3', ' ', '1', ' ', '1', ' ', '1', ' ', '0'});
  test::Bytes progressive = test::TinyGrayJpeg();
  const uint8_t sof[] = {0xFF, 0xC0};
  std::search(progressive.begin(), progressive.end(), sof, sof + 2)[1] = 0xC2;
  Write("progressive.jpg", progressive);
  WritePam("green.pam", 64, 48, {0, '\xFF', 0, '\xFF'});
  WritePam("blue.pam", 7, 5, {0, 0, '\xFF', '\xFF'});  // resampled
  WritePam("clear.pam", 64, 48, std::string(4, '\0'));
  const std::vector<std::string> before = Listing();
  test::ExpectGoldenCases("merge_command.txt", [&](const std::string& line) {
    SCOPED_TRACE(line);
    std::vector<std::string> args;
    std::istringstream words(line.substr(13));  // behind "$ corvi-merge"
    for (std::string word; words >> word;) {
      args.push_back(word);
    }
    const std::string first = Run(args);
    EXPECT_EQ(Listing(), before);
    Write("out.jpg", {'o', 'l', 'd'});
    EXPECT_EQ(Run(args), first) << "over an old OUTPUT";
    EXPECT_EQ(test::Slurp(work + "/out.jpg") == "old", first.find("Wrote") == std::string::npos);
    EXPECT_EQ(Listing(), before);
    std::filesystem::remove(work + "/out.jpg");
    return first;
  });
}

// OUTPUT names TEMPLATE and PIXELS at once, and the thumbnail is made outside the working
// directory. The dump shows the rebuilt DHT segments, the overrides (one dropped with a warning:
// the template has no GPS directory), the new thumbnail and its size, the decoded properties.
TEST_F(MergeCommandTest, OutputMayNameTheTemplateAndThePixels) {
  std::filesystem::rename(work + "/t.jpg", work + "/x.jpg");
  std::string text = Run({"-b", "204060", "-s", "model =golden", "-s0x11a=300/1", "-s", "0x30001=S",
                          "-p", "x.jpg", "--", "x.jpg", "x.jpg"});
  EXPECT_EQ(Listing(), std::vector<std::string>{"x.jpg"});
  text += test::RunProgram(CORVI_TOOL_PATH, "corvi", work, {"-d", "x.jpg"}).out;
  test::ExpectGolden("merge_end_to_end.txt", text);
}

}  // namespace
}  // namespace corvi
