// Netpbm reading: header syntax, the tuple types, sample scaling and every refusal. The outcomes
// are pinned in tests/golden/merge_netpbm.txt.
#include "merge/netpbm.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "tests/support/merge_support.h"

namespace corvi {
namespace {

std::string Bin(std::initializer_list<int> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

const uint8_t* Data(const std::string& s) {
  return reinterpret_cast<const uint8_t*>(s.data());
}

TEST(Netpbm, FormatsScalingAndRefusalsMatchGoldenText) {
  std::string out;
  for (const std::string text : {"P1", "P7\n", "P0", "P8", "P", "\xFF\xD8"}) {
    out += "is netpbm " + testing::PrintToString(text) + " => " +
           (IsNetpbm(Data(text), static_cast<uint32_t>(text.size())) ? "yes\n" : "no\n");
  }
  const uint32_t samples[][2] = {{0, 255},    {255, 255},   {128, 255},     {1, 1},
                                 {1, 2},      {3, 7},       {65535, 65535}, {1000, 65535},
                                 {511, 1023}, {1000, 1000}, {999, 1000}};
  for (const auto& [sample, maxval] : samples) {
    out += "scale " + std::to_string(sample) + "/" + std::to_string(maxval) + " => " +
           std::to_string(ScaleNetpbmSample(sample, maxval)) + "\n";
  }
  const std::string pam = "P7\nWIDTH 1\nHEIGHT 1\n";
  const std::string files[] = {
      "P5 2 1 255\n" + Bin({0, 255}),
      "P5#c\n2 # w\n1\n#m\n255\t" + Bin({1, 2}),
      "P6\n1 2\n255\n" + Bin({10, 20, 30, 40, 50, 60}),
      "P6 1 1 65535 " + Bin({0x12, 0x34, 0, 1, 0xFF, 0xFF}),
      "P6 1 1 1000 " + Bin({0x03, 0xE8, 0, 0, 0x01, 0xF4}),
      "P6 1 1 255\n" + Bin({1, 2, 3}) + "P6 9 9 255\n",
      pam + "DEPTH 1\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\n" + Bin({3}),
      pam + "DEPTH 2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n" + Bin({3, 0}),
      "P7\n# c\nWIDTH 1\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n" + Bin({1, 2, 3}),
      "P7\nWIDTH 2\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" +
          Bin({1, 2, 3, 4, 5, 6, 7, 8}),
      pam + "DEPTH 2\nMAXVAL 3\nENDHDR\n" + Bin({3, 1}),
      pam + "DEPTH 4\nMAXVAL 65535\nENDHDR\n" + Bin({0, 1, 0, 2, 0, 3, 0x80, 0}),
      "P1\n1 1\n0\n",
      "P4\n8 1\n" + Bin({0}),
      "P6x",
      "P7#\n",
      "P5 2 1 100\n" + Bin({100, 101}),
      "P5 1 1 1000\n" + Bin({0x03, 0xE9}),
      "P6 2 2 255\n" + Bin({1, 2, 3}),
      "P5 2 1 256\n" + Bin({1, 2, 3}),
      "P6 4294967295 4294967295 65535\n",
      "P5 0 1 255\n",
      "P5 1 0 255\n",
      "P5 1 1 0\n" + Bin({0}),
      "P5 1 1 65536\n" + Bin({0, 0}),
      "P5 4294967296 1 255\n",
      "P5 1 x 255\n",
      "P5 1 2x 255\n",
      "P5 1 1",
      "P5 1 1 255",
      "P5 1 # 1 255\n",
      "P5 1 1 255#\n" + Bin({0}),
      pam + "DEPTH 3\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n" + Bin({0, 0, 0, 0}),
      pam + "DEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n" + Bin({0}),
      pam + "DEPTH 5\nMAXVAL 255\nENDHDR\n" + Bin({0, 0, 0, 0, 0}),
      pam + "DEPTH 1\nMAXVAL 255\n",
      pam + "DEPTH 1\nENDHDR\n" + Bin({0}),
      pam + "COLOR 1\n",
      "P7\nWIDTH -1\n"};
  for (const std::string& file : files) {
    out += "read " + testing::PrintToString(file) + " =>";
    RawLayer layer;
    try {
      ReadNetpbm(Data(file), static_cast<uint32_t>(file.size()), layer);
    } catch (const RawLayerException& e) {
      EXPECT_TRUE(layer.pixels == nullptr && layer.width == 0) << "a half-read image is left";
      out += " ";
      for (const wchar_t* c = e.message; *c != 0; ++c) {
        out += static_cast<char>(*c);
      }
      out += "\n";
      continue;
    }
    std::ostringstream pixels;
    pixels << " " << layer.width << "x" << layer.height << ":";
    for (uint64_t i = 0; i < uint64_t{4} * layer.width * layer.height; ++i) {
      pixels << " " << layer.pixels[i];
    }
    out += pixels.str() + "\n";
  }
  test::ExpectGolden("merge_netpbm.txt", out);
}

}  // namespace
}  // namespace corvi
