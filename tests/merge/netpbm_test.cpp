// Netpbm reading: header syntax, the tuple types, sample scaling and every refusal.
#include "merge/netpbm.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

std::string Bin(std::initializer_list<int> bytes) {
  std::string s;
  for (int b : bytes) {
    s.push_back(static_cast<char>(b));
  }
  return s;
}

const uint8_t* Data(const std::string& s) {
  return reinterpret_cast<const uint8_t*>(s.data());
}
uint32_t Length(const std::string& s) {
  return static_cast<uint32_t>(s.size());
}

std::wstring ReadError(const std::string& file) {
  RawLayer layer;
  try {
    ReadNetpbm(Data(file), Length(file), layer);
  } catch (const RawLayerException& e) {
    return e.message;
  }
  return L"";
}

TEST(IsNetpbm, TakesAllSevenFormatDigitsAndNothingElse) {
  EXPECT_TRUE(IsNetpbm(Data("P1"), 2));
  EXPECT_TRUE(IsNetpbm(Data("P7\n"), 3));
  EXPECT_FALSE(IsNetpbm(Data("P0"), 2));
  EXPECT_FALSE(IsNetpbm(Data("P8"), 2));
  EXPECT_FALSE(IsNetpbm(Data("P"), 1));
  EXPECT_FALSE(IsNetpbm(Data("\xFF\xD8"), 2));
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
    SCOPED_TRACE(testing::Message() << c.sample << "/" << c.maxval);
    EXPECT_EQ(ScaleNetpbmSample(c.sample, c.maxval), c.expected);
  }
}

struct ReadCase {
  const char* label;
  std::string file;
  uint32_t width, height;
  std::array<uint16_t, 4> first, last;  // RGBA of the first and the last pixel
};

TEST(ReadNetpbm, ReadsEachFormatIntoRgba) {
  const ReadCase cases[] = {
      {"P5", "P5 2 1 255\n" + Bin({0, 255}), 2, 1, {0, 0, 0, 65535}, {65535, 65535, 65535, 65535}},
      {"P5 comments",
       "P5#c\n2 # w\n1\n#m\n255\t" + Bin({1, 2}),
       2,
       1,
       {257, 257, 257, 65535},
       {514, 514, 514, 65535}},
      {"P6",
       "P6\n1 2\n255\n" + Bin({10, 20, 30, 40, 50, 60}),
       1,
       2,
       {2570, 5140, 7710, 65535},
       {10280, 12850, 15420, 65535}},
      {"P6 16-bit",
       "P6 1 1 65535 " + Bin({0x12, 0x34, 0, 1, 0xFF, 0xFF}),
       1,
       1,
       {0x1234, 1, 65535, 65535},
       {0x1234, 1, 65535, 65535}},
      {"P6 maxval 1000",
       "P6 1 1 1000 " + Bin({0x03, 0xE8, 0, 0, 0x01, 0xF4}),
       1,
       1,
       {65535, 0, 32768, 65535},
       {65535, 0, 32768, 65535}},
      {"P6 trailing bytes",
       "P6 1 1 255\n" + Bin({1, 2, 3}) + "P6 9 9 255\n",
       1,
       1,
       {257, 514, 771, 65535},
       {257, 514, 771, 65535}},
      {"PAM gray",
       "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 1\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\n" + Bin({3}),
       1,
       1,
       {771, 771, 771, 65535},
       {771, 771, 771, 65535}},
      {"PAM gray alpha",
       "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\n"
       "ENDHDR\n" +
           Bin({3, 0}),
       1,
       1,
       {771, 771, 771, 0},
       {771, 771, 771, 0}},
      {"PAM rgb",
       "P7\n# comment\nWIDTH 1\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n" +
           Bin({1, 2, 3}),
       1,
       1,
       {257, 514, 771, 65535},
       {257, 514, 771, 65535}},
      {"PAM rgba",
       "P7\nWIDTH 2\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" +
           Bin({1, 2, 3, 4, 5, 6, 7, 8}),
       2,
       1,
       {257, 514, 771, 1028},
       {1285, 1542, 1799, 2056}},
      {"PAM depth 2 without type",
       "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 2\nMAXVAL 3\nENDHDR\n" + Bin({3, 1}),
       1,
       1,
       {65535, 65535, 65535, 21845},
       {65535, 65535, 65535, 21845}},
      {"PAM 16-bit rgba",
       "P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 65535\nENDHDR\n" + Bin({0, 1, 0, 2, 0, 3, 0x80, 0}),
       1,
       1,
       {1, 2, 3, 0x8000},
       {1, 2, 3, 0x8000}},
  };
  for (const ReadCase& c : cases) {
    SCOPED_TRACE(c.label);
    RawLayer layer;
    ASSERT_NO_THROW(ReadNetpbm(Data(c.file), Length(c.file), layer));
    ASSERT_EQ(layer.width, c.width);
    ASSERT_EQ(layer.height, c.height);
    ASSERT_NE(layer.pixels, nullptr);
    const uint16_t* last = layer.pixels + (uint64_t{c.width} * c.height - 1) * 4;
    EXPECT_EQ((std::array<uint16_t, 4>{layer.pixels[0], layer.pixels[1], layer.pixels[2],
                                       layer.pixels[3]}),
              c.first);
    EXPECT_EQ((std::array<uint16_t, 4>{last[0], last[1], last[2], last[3]}), c.last);
  }
}

TEST(ReadNetpbm, RefusesWhatItCannotReadWithAMessage) {
  struct Case {
    const char* label;
    std::string file;
    const wchar_t* message;
  };
  const std::string pam = "P7\nWIDTH 1\nHEIGHT 1\n";
  const Case cases[] = {
      {"P1", "P1\n1 1\n0\n", L"Netpbm format P1 is not supported: only P5, P6 and P7"},
      {"P2", "P2\n1 1 255\n0\n", L"Netpbm format P2 is not supported: only P5, P6 and P7"},
      {"P3", "P3\n1 1 255\n0 0 0\n", L"Netpbm format P3 is not supported: only P5, P6 and P7"},
      {"P4", "P4\n8 1\n" + Bin({0}), L"Netpbm format P4 is not supported: only P5, P6 and P7"},
      {"no blank after magic", "P6x", L"Netpbm header: P6 must be followed by a blank"},
      {"PAM comment after magic", "P7#\n", L"Netpbm header: P7 must be followed by a blank"},
      {"sample above maxval", "P5 2 1 100\n" + Bin({100, 101}),
       L"Netpbm sample 101 above MAXVAL 100"},
      {"16-bit sample above maxval", "P5 1 1 1000\n" + Bin({0x03, 0xE9}),
       L"Netpbm sample 1001 above MAXVAL 1000"},
      {"short raster", "P6 2 2 255\n" + Bin({1, 2, 3}),
       L"Netpbm raster is short: 2 x 2 pixels of 3 bytes, 3 bytes present"},
      {"short 16-bit raster", "P5 2 1 256\n" + Bin({1, 2, 3}),
       L"Netpbm raster is short: 2 x 1 pixels of 2 bytes, 3 bytes present"},
      {"huge", "P6 4294967295 4294967295 65535\n",
       L"Netpbm raster is short: 4294967295 x 4294967295 pixels of 6 bytes, 0 bytes present"},
      {"width 0", "P5 0 1 255\n", L"Netpbm image has no pixels: width 0, height 1"},
      {"height 0", "P5 1 0 255\n", L"Netpbm image has no pixels: width 1, height 0"},
      {"maxval 0", "P5 1 1 0\n" + Bin({0}), L"Netpbm MAXVAL 0 out of range 1..65535"},
      {"maxval 65536", "P5 1 1 65536\n" + Bin({0, 0}),
       L"Netpbm MAXVAL 65536 out of range 1..65535"},
      {"width too large", "P5 4294967296 1 255\n", L"Netpbm header: the width is too large"},
      {"letters", "P5 1 x 255\n", L"Netpbm header: the height is not a number"},
      {"digits then letters", "P5 1 2x 255\n", L"Netpbm header: the height is not a number"},
      {"header cut", "P5 1 1", L"Netpbm header ends before the MAXVAL"},
      {"raster missing", "P5 1 1 255", L"Netpbm header ends before the raster"},
      {"header cut in comment", "P5 1 # 1 255\n", L"Netpbm header ends before the height"},
      {"no blank after maxval", "P5 1 1 255#\n" + Bin({0}),
       L"Netpbm header: MAXVAL must be followed by one blank"},
      {"PAM depth mismatch",
       pam + "DEPTH 3\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" + Bin({0, 0, 0, 0}),
       L"PAM depth 3 does not match tuple type RGB_ALPHA"},
      {"PAM unknown tuple type",
       pam + "DEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n" + Bin({0}),
       L"PAM tuple type BLACKANDWHITE is not supported"},
      {"PAM depth 5", pam + "DEPTH 5\nMAXVAL 255\nENDHDR\n" + Bin({0, 0, 0, 0, 0}),
       L"PAM depth 5 is not supported: 1 to 4 samples a pixel"},
      {"PAM no ENDHDR", pam + "DEPTH 1\nMAXVAL 255\n", L"PAM header ends before ENDHDR"},
      {"PAM no MAXVAL", pam + "DEPTH 1\nENDHDR\n" + Bin({0}), L"PAM header lacks MAXVAL"},
      {"PAM unknown keyword", pam + "COLOR 1\n", L"PAM header: unknown keyword \"COLOR\""},
      {"PAM bad number", "P7\nWIDTH -1\n", L"PAM header: the value of WIDTH is not a number"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    EXPECT_EQ(ReadError(c.file), c.message);
  }
}

TEST(ReadNetpbm, LeavesNoHalfReadImageBehindAFailure) {
  const std::string file = "P5 2 1 100\n" + Bin({1, 200});
  RawLayer layer;
  EXPECT_THROW(ReadNetpbm(Data(file), Length(file), layer), RawLayerException);
  EXPECT_EQ(layer.pixels, nullptr);
  EXPECT_EQ(layer.width, 0u);
}

}  // namespace
}  // namespace corvi
