// corvi-merge run as a process: options, exit statuses and messages, the safe replacement of
// OUTPUT, and the result read back with the inspector and the decoder.
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
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::ProcessResult;
using test::Slurp;

void WriteBytes(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

const std::string kUsage =
    "usage: corvi-merge [-b COLOUR] [-p PIXELS] [-s NAME=VALUE]... TEMPLATE OUTPUT\n";
const std::string kOperands = "expected two operands, TEMPLATE and OUTPUT";

std::vector<std::string> Split(const char* text) {
  std::vector<std::string> words;
  std::istringstream in(text);
  for (std::string word; in >> word;) {
    words.push_back(word);
  }
  return words;
}

// A PAM RGB_ALPHA image: `rgba(x, y)` gives each pixel's samples, big-endian above 255.
template <typename F>
Bytes Pam(int width, int height, int maxval, F rgba) {
  const std::string header = "P7\nWIDTH " + std::to_string(width) + "\nHEIGHT " +
                             std::to_string(height) + "\nDEPTH 4\nMAXVAL " +
                             std::to_string(maxval) + "\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
  Bytes bytes(header.begin(), header.end());
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      for (int v : rgba(x, y)) {
        if (maxval > 255) {
          bytes.push_back(static_cast<uint8_t>(v >> 8));
        }
        bytes.push_back(static_cast<uint8_t>(v));
      }
    }
  }
  return bytes;
}

// work/ is the current directory of every run, with t.jpg (the 64x48 sample) in it.
class MergeCommandTest : public testing::Test {
 protected:
  void SetUp() override {
    work = test::MakeTempDir() + "/work";
    std::filesystem::create_directory(work);
    WriteBytes(work + "/t.jpg", test::MakeSampleJpeg());
  }
  void TearDown() override { std::filesystem::remove_all(work + "/.."); }

  ProcessResult Merge(const std::vector<std::string>& args) {
    return test::RunProgram(CORVI_MERGE_PATH, "corvi-merge", work, args);
  }
  std::string Dump(const std::string& file) {
    return test::RunProgram(CORVI_TOOL_PATH, "corvi", work, {"-d", file}).out;
  }

  std::vector<std::string> Listing() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(work)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  void ExpectWrote(const ProcessResult& r, const std::string& output, const std::string& err = "") {
    EXPECT_EQ(r.err, err);
    EXPECT_EQ(r.status, 0);
    const auto size = std::filesystem::file_size(work + "/" + output);
    EXPECT_EQ(r.out, "Wrote " + output + " (" + std::to_string(size) + " bytes)\n");
  }

  std::string work;
};

TEST_F(MergeCommandTest, ErrorsLeaveOutputAsItWasAndNoTemporaryFile) {
  WriteBytes(work + "/text.jpg", {'n', 'o', 't'});
  WriteBytes(work + "/p3.ppm", {'P', '3', ' ', '1', ' ', '1', ' ', '1', ' ', '0'});
  WriteBytes(work + "/red.pam", Pam(4, 4, 255, [](int, int) {
               return std::array{255, 0, 0, 255};
             }));
  WriteBytes(work + "/progressive.jpg", test::GrayTemplate(8, {}, 0xC2));
  struct Case {
    const char* args;     // split at blanks
    int status;           // 2: a usage error
    std::string message;  // empty: any one line
  };
  const Case cases[] = {
      {"", 2, kOperands},
      {"t.jpg", 2, kOperands},
      {"t.jpg a.jpg b.jpg", 2, kOperands},
      {"t.jpg -b 000000 o.jpg", 2, kOperands},
      {"t.jpg o.jpg -b", 2, kOperands},
      {"-x t.jpg o.jpg", 2, "unknown option -x"},
      {"--bogus t.jpg o.jpg", 2, "unknown option --bogus"},
      {"-hx t.jpg o.jpg", 2, "unknown option -hx"},
      {"-p", 2, "option -p needs an argument"},
      {"-b 12345 t.jpg o.jpg", 2, "colour \"12345\" is not 6 or 12 hex digits"},
      {"-bfffffg t.jpg o.jpg", 2, "colour \"fffffg\" is not 6 or 12 hex digits"},
      {"-b fffffffffffff t.jpg o.jpg", 2, "colour \"fffffffffffff\" is not 6 or 12 hex digits"},
      {"-s Make t.jpg o.jpg", 2, "-s takes NAME=VALUE, not \"Make\""},
      {"-sMaker=x t.jpg o.jpg", 2, "\"Maker=x\": NAME is neither a property name nor a tag number"},
      {"-s Make=corvi! t.jpg out.jpg", 1, "Value for Make does not fit: at most 5 characters"},
      {"-p p3.ppm t.jpg out.jpg", 1, "Netpbm format P3 is not supported: only P5, P6 and P7"},
      {"-p red.pam progressive.jpg out.jpg", 1, "Merge only supports baseline Huffman"},
      {"-p missing.ppm t.jpg out.jpg", 1, ""},
      {"text.jpg out.jpg", 1, ""},
      {"missing.jpg out.jpg", 1, ""},
  };
  const std::vector<std::string> before = Listing();
  for (bool exists : {false, true}) {
    if (exists) {
      WriteBytes(work + "/out.jpg", {'o', 'l', 'd'});
    }
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.args) + (exists ? " over old" : ""));
      const ProcessResult r = Merge(Split(c.args));
      EXPECT_EQ(r.status, c.status);
      EXPECT_EQ(r.out, "");
      if (c.status == 2) {
        EXPECT_EQ(r.err, "corvi-merge: " + c.message + "\n" + kUsage);
      } else if (c.message.empty()) {
        EXPECT_EQ(r.err.substr(0, 19), "Failed on out.jpg: ");
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
      } else {
        EXPECT_EQ(r.err, "Failed on out.jpg: " + c.message + "\n");
      }
      std::vector<std::string> expected = before;
      if (exists) {
        EXPECT_EQ(Slurp(work + "/out.jpg"), "old");
        expected.push_back("out.jpg");
        std::sort(expected.begin(), expected.end());
      }
      EXPECT_EQ(Listing(), expected);
    }
  }
}

TEST_F(MergeCommandTest, HelpAndVersionGoToStandardOutput) {
  for (const char* option : {"-h", "--help", "--version"}) {
    const ProcessResult r = Merge({option, "-x"});  // stops at the option
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.substr(0, kUsage.size()), option[2] == 'v' ? "corvi-merge 0.1\n" : kUsage);
  }
}

TEST_F(MergeCommandTest, PixelsComeFromNetpbmWithTheBackgroundBehindTransparency) {
  struct Case {
    const char* options;  // split at blanks
    int width, height;
    std::array<int, 4> rgba;
    std::array<int, 3> expected;
  };
  const Case cases[] = {
      {"", 64, 48, {0, 255, 0, 255}, {0, 255, 0}},
      {"", 7, 5, {0, 0, 255, 255}, {0, 0, 255}},  // resampled
      {"", 64, 48, {0, 0, 0, 0}, {255, 255, 255}},
      {"-bffff00000000", 64, 48, {0, 0, 0, 0}, {255, 0, 0}},
      {"-b 00ff00 -b 000000", 64, 48, {255, 255, 255, 0}, {0, 0, 0}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.rgba) + c.options);
    WriteBytes(work + "/in.pam", Pam(c.width, c.height, 255, [&](int, int) { return c.rgba; }));
    std::vector<std::string> args = Split(c.options);
    args.insert(args.end(), {"-p", "in.pam", "t.jpg", "out.jpg"});
    ExpectWrote(Merge(args), "out.jpg");
    RawLayer decoded;
    ASSERT_TRUE(test::DecodeBytes(test::ReadFile(work + "/out.jpg"), decoded));
    for (int k = 0; k < 3; ++k) {
      EXPECT_NEAR(decoded.pixels[(24 * decoded.width + 32) * 4 + k] >> 8, c.expected[k], 8) << k;
    }
  }
}

// OUTPUT names TEMPLATE and PIXELS at once; the thumbnail is made outside the working directory.
TEST_F(MergeCommandTest, OutputMayNameTheTemplateAndThePixels) {
  const Bytes exif = test::MakeExifThumbnail(false, test::TinyGrayJpeg());
  WriteBytes(work + "/x.jpg", test::JpegWithApp1(exif));
  ExpectWrote(Merge({"-s", "Make=New", "-p", "x.jpg", "x.jpg", "x.jpg"}), "x.jpg");
  EXPECT_EQ(Listing(), (std::vector<std::string>{"t.jpg", "x.jpg"}));
  const std::string dump = Dump("x.jpg");
  EXPECT_EQ(dump.find("Failed on"), std::string::npos) << dump;
  EXPECT_NE(dump.find("Make: \"New\"\n"), std::string::npos);
  EXPECT_NE(dump.find("ThumbnailLength"), std::string::npos);
  EXPECT_NE(dump.find("Decoded 8 x 8 pixels\n"), std::string::npos);
}

// The whole dump of a rewrite: the rebuilt DHT segments, no DRI, the overrides (one dropped with
// a warning: the template has no GPS directory), the new thumbnail and its size, the decoded
// properties.
TEST_F(MergeCommandTest, RewriteDumpMatchesGoldenText) {
  Bytes jpeg = test::MakeSampleTemplate();  // with a restart interval before its (last) SOS
  for (size_t i = jpeg.size() - 2; i > 2; --i) {
    if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA) {
      jpeg.insert(jpeg.begin() + static_cast<std::ptrdiff_t>(i), {0xFF, 0xDD, 0, 4, 0, 4});
      break;
    }
  }
  WriteBytes(work + "/template.jpg", jpeg);
  // 40x30 in 16 bits: colour ramps, a transparent band and a half-transparent one.
  WriteBytes(work + "/ramp.pam", Pam(40, 30, 65535, [](int x, int y) {
               return std::array{x * 1600, y * 2100, (x + y) * 900,
                                 y >= 12 && y < 16 ? 0 : (x >= 30 ? 32768 : 65535)};
             }));
  ExpectWrote(Merge({"-b", "204060", "-p", "ramp.pam", "-s", "model =golden", "-s0x11a=300/1", "-s",
                     "0x30001=S", "--", "template.jpg", "out.jpg"}),
              "out.jpg",
              "corvi-merge: warning: No Exif entry holds Latitude Ref: the override is dropped\n");
  EXPECT_EQ(Listing(), (std::vector<std::string>{"out.jpg", "ramp.pam", "t.jpg", "template.jpg"}));
  const std::string dump = Dump("out.jpg");
  EXPECT_EQ(dump.find("DRI"), std::string::npos);
  test::ExpectGolden("merge_end_to_end.txt", dump);
}

}  // namespace
}  // namespace corvi
