// corvi-merge run as a process: options, exit statuses and messages, the safe replacement of
// OUTPUT, and the result read back with the inspector and the decoder.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "platform/format.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/process.h"
#include "tests/support/sample_jpeg.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;

using Result = test::ProcessResult;
using test::Slurp;

void WriteBytes(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

void WriteText(const std::string& path, const std::string& text) {
  WriteBytes(path, Bytes(text.begin(), text.end()));
}

const std::string kUsage =
    "usage: corvi-merge [-b COLOUR] [-p PIXELS] [-s NAME=VALUE]... TEMPLATE OUTPUT\n";

// A netpbm image of one colour: PPM when `alpha` is negative, else PAM RGB_ALPHA.
Bytes SolidImage(int width, int height, uint8_t r, uint8_t g, uint8_t b, int alpha = -1) {
  std::string header =
      alpha < 0 ? "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n"
                : "P7\nWIDTH " + std::to_string(width) + "\nHEIGHT " + std::to_string(height) +
                      "\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
  Bytes bytes(header.begin(), header.end());
  for (int i = 0; i < width * height; ++i) {
    bytes.insert(bytes.end(), {r, g, b});
    if (alpha >= 0) {
      bytes.push_back(static_cast<uint8_t>(alpha));
    }
  }
  return bytes;
}

// An 8x8 grey file whose Exif APP1 holds Make "Cam" and a thumbnail of its own.
Bytes TemplateWithThumbnail() {
  test::TiffBuilder b(false);
  auto dir = b.Directory(
      {{0x10F, 2, 4, test::TiffBuilder::Ascii("Cam")}, {0x201, 4, 1, {}, 0}, {0x202, 4, 1, {}, 0}});
  Bytes thumbnail = test::TinyGrayJpeg();
  uint32_t at = b.Append(thumbnail);
  b.Patch32(dir.value_field[1], at);
  b.Patch32(dir.value_field[2], static_cast<uint32_t>(thumbnail.size()));
  return test::JpegWithApp1(b.ExifPayload());
}

// The decoded pixel at (x, y) of a file, or a failure.
std::vector<uint16_t> DecodedPixel(const std::string& path, uint32_t x, uint32_t y) {
  std::wstring name = DecodeUtf8(path.data(), path.size());
  JPEGReader reader(name.c_str());
  reader.Scan();
  RawLayer layer;
  DecodeState state;
  DecodeImage(*reader.markers, state, layer, false);
  if (layer.pixels == nullptr || x >= layer.width || y >= layer.height) {
    return {};
  }
  const uint16_t* p = layer.pixels + (uint64_t{y} * layer.width + x) * 4;
  return {p[0], p[1], p[2], p[3]};
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

  Result Merge(const std::vector<std::string>& args) {
    return test::RunProgram(CORVI_MERGE_PATH, "corvi-merge", work, args);
  }
  Result Inspect(const std::vector<std::string>& args) {
    return test::RunProgram(CORVI_TOOL_PATH, "corvi", work, args);
  }

  std::vector<std::string> Listing() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(work)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  void ExpectWrote(const Result& r, const std::string& output) {
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    const auto size = std::filesystem::file_size(work + "/" + output);
    EXPECT_EQ(r.out, "Wrote " + output + " (" + std::to_string(size) + " bytes)\n");
  }

  std::string work;
};

TEST_F(MergeCommandTest, UsageErrorsExitWithStatusTwo) {
  struct Case {
    std::vector<std::string> args;
    std::string problem;
  };
  const Case cases[] = {
      {{}, "expected two operands, TEMPLATE and OUTPUT"},
      {{"t.jpg"}, "expected two operands, TEMPLATE and OUTPUT"},
      {{"t.jpg", "a.jpg", "b.jpg"}, "expected two operands, TEMPLATE and OUTPUT"},
      {{"t.jpg", "-b", "000000", "o.jpg"}, "expected two operands, TEMPLATE and OUTPUT"},
      {{"-x", "t.jpg", "o.jpg"}, "unknown option -x"},
      {{"--bogus", "t.jpg", "o.jpg"}, "unknown option --bogus"},
      {{"-hx", "t.jpg", "o.jpg"}, "unknown option -hx"},
      {{"t.jpg", "o.jpg", "-b"}, "expected two operands, TEMPLATE and OUTPUT"},
      {{"-p"}, "option -p needs an argument"},
      {{"-b", "12345", "t.jpg", "o.jpg"}, "colour \"12345\" is not 6 or 12 hex digits"},
      {{"-bfffffg", "t.jpg", "o.jpg"}, "colour \"fffffg\" is not 6 or 12 hex digits"},
      {{"-b", "fffffffffffff", "t.jpg", "o.jpg"},
       "colour \"fffffffffffff\" is not 6 or 12 hex digits"},
      {{"-s", "Make", "t.jpg", "o.jpg"}, "-s takes NAME=VALUE, not \"Make\""},
      {{"-sMaker=x", "t.jpg", "o.jpg"},
       "\"Maker=x\": NAME is neither a property name nor a tag number"},
      {{"-s", "0x=1", "t.jpg", "o.jpg"},
       "\"0x=1\": NAME is neither a property name nor a tag number"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    Result r = Merge(c.args);
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "corvi-merge: " + c.problem + "\n" + kUsage);
  }
  EXPECT_EQ(Listing(), std::vector<std::string>{"t.jpg"});
}

TEST_F(MergeCommandTest, HelpAndVersionGoToStandardOutput) {
  for (const char* option : {"-h", "--help"}) {
    Result r = Merge({option, "-x"});  // stops at the help option
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.substr(0, kUsage.size()), kUsage);
    EXPECT_NE(r.out.find("-s NAME=VALUE"), std::string::npos);
    EXPECT_EQ(r.err, "");
  }
  Result r = Merge({"--version"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "corvi-merge 0.1\n");
}

TEST_F(MergeCommandTest, ReencodesTheTemplateIntoAValidFile) {
  Result r = Merge({"t.jpg", "out.jpg"});
  ExpectWrote(r, "out.jpg");
  EXPECT_EQ(Listing(), (std::vector<std::string>{"out.jpg", "t.jpg"}));
  Result dump = Inspect({"-d", "out.jpg"});
  EXPECT_EQ(dump.out.find("Failed on"), std::string::npos) << dump.out;
  EXPECT_NE(dump.out.find("Decoded 64 x 48 pixels\n"), std::string::npos);
  EXPECT_NE(dump.out.find("Make: \"corvi\"\n"), std::string::npos);
}

TEST_F(MergeCommandTest, OverridesShowInTheInspectorDump) {
  Result r = Merge({"-s", "make=abc", "-s", "Date Time=2020:01:02 03:04:05", "-s0x112=3", "-s",
                    "MAKE =xy", "--", "t.jpg", "out.jpg"});
  ExpectWrote(r, "out.jpg");
  Result dump = Inspect({"-d", "out.jpg"});
  EXPECT_NE(dump.out.find("Make: \"xy\"\n"), std::string::npos) << dump.out;
  EXPECT_NE(dump.out.find("Orientation: 3\n"), std::string::npos);
  EXPECT_NE(dump.out.find("Date Time: \"2020:01:02 03:04:05\"\n"), std::string::npos);
  EXPECT_NE(dump.out.find("Date Time Original: \"2026:11:22 12:00:00\"\n"), std::string::npos);
}

TEST_F(MergeCommandTest, AnOverrideWithoutAnEntryIsDroppedWithAWarning) {
  Result r = Merge({"-s", "0x30001=S", "t.jpg", "out.jpg"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err,
            "corvi-merge: warning: No Exif entry holds Latitude Ref: the override is "
            "dropped\n");
  EXPECT_EQ(r.out.substr(0, 12), "Wrote out.jp");
}

TEST_F(MergeCommandTest, AFailureLeavesOutputAsItWasAndNoTemporaryFile) {
  WriteText(work + "/text.jpg", "not a jpeg");
  WriteBytes(work + "/p3.ppm", {'P', '3', '\n', '1', ' ', '1', ' ', '1', '\n', '0', '\n'});
  WriteBytes(work + "/red.ppm", SolidImage(4, 4, 255, 0, 0));
  Bytes progressive = test::TinyGrayJpeg();
  const Bytes sof0 = {0xFF, 0xC0};
  auto sof = std::search(progressive.begin(), progressive.end(), sof0.begin(), sof0.end());
  ASSERT_NE(sof, progressive.end());
  sof[1] = 0xC2;  // a progressive frame, which the rewriter refuses
  WriteBytes(work + "/progressive.jpg", progressive);
  struct Case {
    std::vector<std::string> args;
    std::string message;
  };
  const Case cases[] = {
      {{"-s", "Make=corvi!", "t.jpg", "out.jpg"},
       "Value for Make does not fit: at most 5 characters"},
      {{"-s", "Orientation=1,2", "t.jpg", "out.jpg"},
       "Value for Orientation does not fit: expects 1 value"},
      {{"-p", "p3.ppm", "t.jpg", "out.jpg"},
       "Netpbm format P3 is not supported: only P5, P6 and P7"},
      {{"-p", "red.ppm", "progressive.jpg", "out.jpg"}, "Merge only supports baseline Huffman"},
      {{"-p", "missing.ppm", "t.jpg", "out.jpg"}, ""},
      {{"text.jpg", "out.jpg"}, ""},
      {{"missing.jpg", "out.jpg"}, ""},
  };
  const std::vector<std::string> before = {"p3.ppm", "progressive.jpg", "red.ppm", "t.jpg",
                                           "text.jpg"};
  for (bool exists : {false, true}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(testing::PrintToString(c.args) + (exists ? " over old" : ""));
      if (exists) {
        WriteText(work + "/out.jpg", "old contents");
      }
      Result r = Merge(c.args);
      EXPECT_EQ(r.status, 1);
      EXPECT_EQ(r.out, "");
      if (c.message.empty()) {
        EXPECT_EQ(r.err.substr(0, 19), "Failed on out.jpg: ");
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
      } else {
        EXPECT_EQ(r.err, "Failed on out.jpg: " + c.message + "\n");
      }
      std::vector<std::string> expected = before;
      if (exists) {
        EXPECT_EQ(Slurp(work + "/out.jpg"), "old contents");
        expected.push_back("out.jpg");
        std::sort(expected.begin(), expected.end());
      }
      EXPECT_EQ(Listing(), expected);
    }
  }
}

TEST_F(MergeCommandTest, OutputMayNameTheTemplateOrThePixels) {
  Result r = Merge({"-s", "Make=same", "t.jpg", "t.jpg"});
  ExpectWrote(r, "t.jpg");
  EXPECT_NE(Inspect({"-d", "t.jpg"}).out.find("Make: \"same\"\n"), std::string::npos);

  WriteBytes(work + "/p.jpg", test::TinyGrayJpeg());
  r = Merge({"-p", "p.jpg", "t.jpg", "p.jpg"});
  ExpectWrote(r, "p.jpg");
  EXPECT_NE(Inspect({"-d", "p.jpg"}).out.find("Decoded 64 x 48 pixels\n"), std::string::npos);
  EXPECT_EQ(Listing(), (std::vector<std::string>{"p.jpg", "t.jpg"}));
}

TEST_F(MergeCommandTest, PixelsComeFromNetpbmWithTheBackgroundBehindTransparency) {
  struct Case {
    std::string label;
    Bytes image;
    std::vector<std::string> options;
    uint16_t red, green, blue;
  };
  const Case cases[] = {
      {"green ppm", SolidImage(64, 48, 0, 255, 0), {}, 0, 65535, 0},
      {"resampled ppm", SolidImage(7, 5, 0, 0, 255), {}, 0, 0, 65535},
      {"transparent on white", SolidImage(64, 48, 0, 0, 0, 0), {}, 65535, 65535, 65535},
      {"transparent on black", SolidImage(64, 48, 255, 255, 255, 0), {"-b", "000000"}, 0, 0, 0},
      {"transparent on red, 48 bits",
       SolidImage(64, 48, 0, 0, 0, 0),
       {"-bffff00000000"},
       65535,
       0,
       0},
      {"last -b wins",
       SolidImage(64, 48, 0, 0, 0, 0),
       {"-b", "00ff00", "-b", "0000ff"},
       0,
       0,
       65535},
      {"opaque ignores the background",
       SolidImage(64, 48, 255, 0, 0, 255),
       {"-b", "0000ff"},
       65535,
       0,
       0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    WriteBytes(work + "/in.pnm", c.image);
    std::vector<std::string> args = c.options;
    args.insert(args.end(), {"-p", "in.pnm", "t.jpg", "out.jpg"});
    Result r = Merge(args);
    ExpectWrote(r, "out.jpg");
    std::vector<uint16_t> pixel = DecodedPixel(work + "/out.jpg", 32, 24);
    ASSERT_EQ(pixel.size(), 4u);
    EXPECT_NEAR(pixel[0], c.red, 2000);
    EXPECT_NEAR(pixel[1], c.green, 2000);
    EXPECT_NEAR(pixel[2], c.blue, 2000);
  }
}

TEST_F(MergeCommandTest, TheThumbnailIsMadeOutsideTheWorkingDirectory) {
  WriteBytes(work + "/thumb.jpg", TemplateWithThumbnail());
  Result r = Merge({"-s", "Make=New", "-p", "t.jpg", "thumb.jpg", "out.jpg"});
  ExpectWrote(r, "out.jpg");
  EXPECT_EQ(Listing(), (std::vector<std::string>{"out.jpg", "t.jpg", "thumb.jpg"}));
  Result dump = Inspect({"out.jpg"});
  EXPECT_EQ(dump.out.find("Failed on"), std::string::npos) << dump.out;
  EXPECT_NE(dump.out.find("\"New\""), std::string::npos);
  EXPECT_NE(dump.out.find("ThumbnailLength"), std::string::npos);
}

TEST_F(MergeCommandTest, RewritesARealPhotoWithGpsOverrides) {
  const std::string photo = test::CorpusPath("canon-powershot-s5-restart-gps.jpg");
  if (!test::CorpusAvailable() || !std::filesystem::exists(photo)) {
    GTEST_SKIP() << "corpus not present";
  }
  Result r = Merge({"-s", "0x30001=S", "-s", "0x30000=2, 2, 0, 0", photo, "out.jpg"});
  ExpectWrote(r, "out.jpg");
  Result dump = Inspect({"out.jpg"});
  EXPECT_EQ(dump.out.find("Failed on"), std::string::npos) << dump.out;
  EXPECT_NE(dump.out.find("Tag 0x1 \"Latitude Ref\""), std::string::npos);
  const size_t at = dump.out.find("Tag 0x1 \"Latitude Ref\"");
  EXPECT_NE(dump.out.find("\"S\"", at), std::string::npos);
  EXPECT_NE(dump.out.find(" 02 02 00 00\n"), std::string::npos);
  EXPECT_EQ(Listing(), (std::vector<std::string>{"out.jpg", "t.jpg"}));
}

}  // namespace
}  // namespace corvi

namespace corvi {
namespace {

// The sample's template with a restart interval before its scan.
Bytes TemplateWithRestartInterval() {
  Bytes bytes = test::MakeSampleTemplate();
  for (size_t i = bytes.size() - 2; i > 2; --i) {  // the last SOS: the thumbnail has one too
    if (bytes[i] == 0xFF && bytes[i + 1] == 0xDA) {
      bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(i), {0xFF, 0xDD, 0, 4, 0, 4});
      break;
    }
  }
  return bytes;
}

// A 40x30 RGBA picture in 16-bit PAM: colour ramps with a transparent band, which shows the
// background, and a half-transparent one.
Bytes RampPicture() {
  const std::string header =
      "P7\nWIDTH 40\nHEIGHT 30\nDEPTH 4\nMAXVAL 65535\nTUPLTYPE RGB_ALPHA\nENDHDR\n";
  Bytes bytes(header.begin(), header.end());
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 40; ++x) {
      const int alpha = y >= 12 && y < 16 ? 0 : (x >= 30 ? 32768 : 65535);
      for (int v : {x * 1600, y * 2100, (x + y) * 900, alpha}) {
        bytes.push_back(static_cast<uint8_t>(v >> 8));
        bytes.push_back(static_cast<uint8_t>(v));
      }
    }
  }
  return bytes;
}

// The whole dump of a rewrite: the rebuilt DHT segments, no DRI, the overrides, the new
// thumbnail and its size, the decoded properties. To accept an intended change, run with
// CORVI_UPDATE_GOLDEN=1 and review tests/golden/merge_end_to_end.txt as a diff.
TEST_F(MergeCommandTest, RewriteDumpMatchesGoldenText) {
  WriteBytes(work + "/template.jpg", TemplateWithRestartInterval());
  WriteBytes(work + "/ramp.pam", RampPicture());
  const Result r = Merge({"-b", "204060", "-p", "ramp.pam", "-s", "Model=golden", "-s",
                          "0x11a=300/1", "template.jpg", "out.jpg"});
  ExpectWrote(r, "out.jpg");
  const Result dump = Inspect({"-d", "out.jpg"});
  EXPECT_EQ(dump.out.find("DRI"), std::string::npos);
  const std::string path = std::string(CORVI_GOLDEN_DIR) + "/merge_end_to_end.txt";
  const char* update = std::getenv("CORVI_UPDATE_GOLDEN");
  if (update != nullptr && std::string(update) == "1") {
    std::ofstream(path, std::ios::binary) << dump.out;
    return;
  }
  EXPECT_EQ(dump.out, Slurp(path));
}

}  // namespace
}  // namespace corvi
