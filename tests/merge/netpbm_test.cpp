// Netpbm reading: header syntax, the tuple types, sample scaling and every refusal.
#include "merge/netpbm.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

std::string Bin(std::initializer_list<int> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

const uint8_t* Data(const std::string& s) {
  return reinterpret_cast<const uint8_t*>(s.data());
}

TEST(IsNetpbm, TakesAllSevenFormatDigitsAndNothingElse) {
  for (const std::string text : {"P1", "P7\n", "P0", "P8", "P", "\xFF\xD8"}) {
    const bool expected = text == "P1" || text == "P7\n";
    EXPECT_EQ(IsNetpbm(Data(text), static_cast<uint32_t>(text.size())), expected) << text;
  }
}

TEST(ScaleNetpbmSample, RoundsToSixteenBits) {
  struct Case {
    uint32_t sample, maxval;
    uint16_t expected;
  };
  const Case cases[] = {{0, 255, 0},           {255, 255, 65535},   {128, 255, 32896},
                        {1, 1, 65535},         {1, 2, 32768},       {3, 7, 28086},
                        {65535, 65535, 65535}, {1000, 65535, 1000}, {511, 1023, 32735}};
  for (const Case& c : cases) {
    EXPECT_EQ(ScaleNetpbmSample(c.sample, c.maxval), c.expected) << c.sample << "/" << c.maxval;
  }
}

// What ReadNetpbm makes of a file: "WxH:" and every RGBA sample, or the exception's text.
std::wstring Outcome(const std::string& file) {
  RawLayer layer;
  try {
    ReadNetpbm(Data(file), static_cast<uint32_t>(file.size()), layer);
  } catch (const RawLayerException& e) {
    EXPECT_TRUE(layer.pixels == nullptr && layer.width == 0) << "a half-read image is left";
    return e.message;
  }
  std::wstring text = std::to_wstring(layer.width) + L"x" + std::to_wstring(layer.height) + L":";
  for (uint64_t i = 0; i < uint64_t{4} * layer.width * layer.height; ++i) {
    text += L" " + std::to_wstring(layer.pixels[i]);
  }
  return text;
}

TEST(ReadNetpbm, ReadsEachFormatIntoRgbaOrSaysWhatIsWrong) {
  const std::string pam = "P7\nWIDTH 1\nHEIGHT 1\n";
  const std::wstring only = L" is not supported: only P5, P6 and P7";
  const std::pair<std::string, std::wstring> cases[] = {
      {"P5 2 1 255\n" + Bin({0, 255}), L"2x1: 0 0 0 65535 65535 65535 65535 65535"},
      {"P5#c\n2 # w\n1\n#m\n255\t" + Bin({1, 2}), L"2x1: 257 257 257 65535 514 514 514 65535"},
      {"P6\n1 2\n255\n" + Bin({10, 20, 30, 40, 50, 60}),
       L"1x2: 2570 5140 7710 65535 10280 12850 15420 65535"},
      {"P6 1 1 65535 " + Bin({0x12, 0x34, 0, 1, 0xFF, 0xFF}), L"1x1: 4660 1 65535 65535"},
      {"P6 1 1 1000 " + Bin({0x03, 0xE8, 0, 0, 0x01, 0xF4}), L"1x1: 65535 0 32768 65535"},
      {"P6 1 1 255\n" + Bin({1, 2, 3}) + "P6 9 9 255\n", L"1x1: 257 514 771 65535"},
      {pam + "DEPTH 1\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\n" + Bin({3}),
       L"1x1: 771 771 771 65535"},
      {pam + "DEPTH 2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n" + Bin({3, 0}),
       L"1x1: 771 771 771 0"},
      {"P7\n# c\nWIDTH 1\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n" + Bin({1, 2, 3}),
       L"1x1: 257 514 771 65535"},
      {"P7\nWIDTH 2\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" +
           Bin({1, 2, 3, 4, 5, 6, 7, 8}),
       L"2x1: 257 514 771 1028 1285 1542 1799 2056"},
      {pam + "DEPTH 2\nMAXVAL 3\nENDHDR\n" + Bin({3, 1}), L"1x1: 65535 65535 65535 21845"},
      {pam + "DEPTH 4\nMAXVAL 65535\nENDHDR\n" + Bin({0, 1, 0, 2, 0, 3, 0x80, 0}),
       L"1x1: 1 2 3 32768"},
      {"P1\n1 1\n0\n", L"Netpbm format P1" + only},
      {"P2\n1 1 255\n0\n", L"Netpbm format P2" + only},
      {"P3\n1 1 255\n0 0 0\n", L"Netpbm format P3" + only},
      {"P4\n8 1\n" + Bin({0}), L"Netpbm format P4" + only},
      {"P6x", L"Netpbm header: P6 must be followed by a blank"},
      {"P7#\n", L"Netpbm header: P7 must be followed by a blank"},
      {"P5 2 1 100\n" + Bin({100, 101}), L"Netpbm sample 101 above MAXVAL 100"},
      {"P5 1 1 1000\n" + Bin({0x03, 0xE9}), L"Netpbm sample 1001 above MAXVAL 1000"},
      {"P6 2 2 255\n" + Bin({1, 2, 3}),
       L"Netpbm raster is short: 2 x 2 pixels of 3 bytes, 3 bytes present"},
      {"P5 2 1 256\n" + Bin({1, 2, 3}),
       L"Netpbm raster is short: 2 x 1 pixels of 2 bytes, 3 bytes present"},
      {"P6 4294967295 4294967295 65535\n",
       L"Netpbm raster is short: 4294967295 x 4294967295 pixels of 6 bytes, 0 bytes present"},
      {"P5 0 1 255\n", L"Netpbm image has no pixels: width 0, height 1"},
      {"P5 1 0 255\n", L"Netpbm image has no pixels: width 1, height 0"},
      {"P5 1 1 0\n" + Bin({0}), L"Netpbm MAXVAL 0 out of range 1..65535"},
      {"P5 1 1 65536\n" + Bin({0, 0}), L"Netpbm MAXVAL 65536 out of range 1..65535"},
      {"P5 4294967296 1 255\n", L"Netpbm header: the width is too large"},
      {"P5 1 x 255\n", L"Netpbm header: the height is not a number"},
      {"P5 1 2x 255\n", L"Netpbm header: the height is not a number"},
      {"P5 1 1", L"Netpbm header ends before the MAXVAL"},
      {"P5 1 1 255", L"Netpbm header ends before the raster"},
      {"P5 1 # 1 255\n", L"Netpbm header ends before the height"},
      {"P5 1 1 255#\n" + Bin({0}), L"Netpbm header: MAXVAL must be followed by one blank"},
      {pam + "DEPTH 3\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" + Bin({0, 0, 0, 0}),
       L"PAM depth 3 does not match tuple type RGB_ALPHA"},
      {pam + "DEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n" + Bin({0}),
       L"PAM tuple type BLACKANDWHITE is not supported"},
      {pam + "DEPTH 5\nMAXVAL 255\nENDHDR\n" + Bin({0, 0, 0, 0, 0}),
       L"PAM depth 5 is not supported: 1 to 4 samples a pixel"},
      {pam + "DEPTH 1\nMAXVAL 255\n", L"PAM header ends before ENDHDR"},
      {pam + "DEPTH 1\nENDHDR\n" + Bin({0}), L"PAM header lacks MAXVAL"},
      {pam + "COLOR 1\n", L"PAM header: unknown keyword \"COLOR\""},
      {"P7\nWIDTH -1\n", L"PAM header: the value of WIDTH is not a number"},
  };
  for (const auto& [file, outcome] : cases) {
    EXPECT_EQ(Outcome(file), outcome) << testing::PrintToString(file);
  }
}

}  // namespace
}  // namespace corvi
