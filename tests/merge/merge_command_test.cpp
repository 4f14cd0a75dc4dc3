// corvi-merge run as a process: options, exit statuses and messages, the safe replacement of
// OUTPUT, and the result read back with the inspector and the decoder. The runs are pinned in
// tests/golden/merge_command.txt and merge_end_to_end.txt.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
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

using test::Bytes;

// work/ is the current directory of every run, with t.jpg (the 64x48 sample) in it.
class MergeCommandTest : public testing::Test {
 protected:
  void SetUp() override {
    work = test::MakeTempDir() + "/work";
    std::filesystem::create_directory(work);
    Write("t.jpg", test::MakeSampleJpeg());
  }
  void TearDown() override { std::filesystem::remove_all(work + "/.."); }

  void Write(const std::string& name, const Bytes& bytes) {
    std::ofstream(work + "/" + name, std::ios::binary) << std::string(bytes.begin(), bytes.end());
  }
  // A PAM RGB_ALPHA image of one colour.
  void WritePam(const std::string& name, int width, int height, std::array<uint8_t, 4> rgba) {
    const std::string header = "P7\nWIDTH " + std::to_string(width) + "\nHEIGHT " +
                               std::to_string(height) + "\nDEPTH 4\nMAXVAL 255\nENDHDR\n";
    Bytes bytes(header.begin(), header.end());
    for (int i = 0; i < width * height; ++i) {
      bytes.insert(bytes.end(), rgba.begin(), rgba.end());
    }
    Write(name, bytes);
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
      if (entry.path().filename() != "out.jpg") {
        names.push_back(entry.path().filename().string());
      }
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string work;
};

// Each run with no OUTPUT and over an old one: an error leaves OUTPUT as it was, and no run
// leaves a temporary file.
TEST_F(MergeCommandTest, RunsMatchGoldenTextAndLeaveNoTemporaryFile) {
  Write("text.jpg", {'n', 'o', 't'});
  Write("p3.ppm", {'P', '3', ' ', '1', ' ', '1', ' ', '1', ' ', '0'});
  Bytes progressive = test::TinyGrayJpeg();
  const uint8_t sof[] = {0xFF, 0xC0};
  std::search(progressive.begin(), progressive.end(), sof, sof + 2)[1] = 0xC2;
  Write("progressive.jpg", progressive);
  WritePam("green.pam", 64, 48, {0, 255, 0, 255});
  WritePam("blue.pam", 7, 5, {0, 0, 255, 255});  // resampled
  WritePam("clear.pam", 64, 48, {0, 0, 0, 0});
  std::istringstream cases(
      "|t.jpg|t.jpg a.jpg b.jpg|t.jpg -b 000000 out.jpg|t.jpg out.jpg -b|-x t.jpg out.jpg|"
      "--bogus t.jpg out.jpg|-hx t.jpg out.jpg|-p|-b 12345 t.jpg out.jpg|-bfffffg t.jpg out.jpg|"
      "-b fffffffffffff t.jpg out.jpg|-s Make t.jpg out.jpg|-sMaker=x t.jpg out.jpg|"
      "-s Make=corvi! t.jpg out.jpg|-p p3.ppm t.jpg out.jpg|-p green.pam progressive.jpg out.jpg|"
      "-p missing.ppm t.jpg out.jpg|text.jpg out.jpg|missing.jpg out.jpg|-h -x|--help -x|"
      "--version -x|-p green.pam t.jpg out.jpg|-p blue.pam t.jpg out.jpg|"
      "-p clear.pam t.jpg out.jpg|-bffff00000000 -p clear.pam t.jpg out.jpg|"
      "-b 00ff00 -b 000000 -p clear.pam t.jpg out.jpg");
  const std::vector<std::string> before = Listing();
  std::string golden;
  for (std::string c; std::getline(cases, c, '|');) {
    SCOPED_TRACE(c);
    std::vector<std::string> args;
    std::istringstream words(c);
    for (std::string word; words >> word;) {
      args.push_back(word);
    }
    golden += "$ corvi-merge " + c + "\n" + Run(args);
    EXPECT_EQ(Listing(), before);
    Write("out.jpg", {'o', 'l', 'd'});
    const std::string again = Run(args);
    EXPECT_EQ(again, golden.substr(golden.size() - again.size())) << "over an old OUTPUT";
    EXPECT_EQ(test::Slurp(work + "/out.jpg") == "old", again.find("Wrote") == std::string::npos);
    EXPECT_EQ(Listing(), before);
    std::filesystem::remove(work + "/out.jpg");
  }
  test::ExpectGolden("merge_command.txt", golden);
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
