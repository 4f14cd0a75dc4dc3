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

using namespace std::string_literals;

const uint8_t* Data(const std::string& s) {
  return reinterpret_cast<const uint8_t*>(s.data());
}

TEST(Netpbm, FormatsScalingAndRefusalsMatchGoldenText) {
  std::ostringstream out;
  for (const std::string text : {"P1", "P7\n", "P0", "P8", "P", "\xFF\xD8"}) {
    out << "is netpbm " << testing::PrintToString(text) << " => "
        << (IsNetpbm(Data(text), static_cast<uint32_t>(text.size())) ? "yes\n" : "no\n");
  }
  const uint32_t samples[][2] = {{0, 255},    {255, 255},   {128, 255},     {1, 1},
                                 {1, 2},      {3, 7},       {65535, 65535}, {1000, 65535},
                                 {511, 1023}, {1000, 1000}, {999, 1000}};
  for (const auto& [sample, maxval] : samples) {
    out << "scale " << sample << "/" << maxval << " => " << ScaleNetpbmSample(sample, maxval)
        << "\n";
  }
  // Files apart at '|'; '@' stands for a PAM header of WIDTH 1 and HEIGHT 1.
  std::istringstream files(
      "P5 2 1 255\n\0\377|P5#c\n2 # w\n1\n#m\n255\t\1\2|P6\n1 2\n255\n\n\24\36(2<|"
      "P6 1 1 65535 \0224\0\1\377\377|P6 1 1 1000 \3\350\0\0\1\364|"
      "P6 1 1 255\n\1\2\3P6 9 9 255\n|@DEPTH 1\nMAXVAL 255\nTUPLTYPE GRAYSCALE\nENDHDR\n\3|"
      "@DEPTH 2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\n\3\0|"
      "P7\n# c\nWIDTH 1\nHEIGHT 1\nDEPTH 3\nMAXVAL 255\nTUPLTYPE RGB\nENDHDR\n\1\2\3|"
      "P7\nWIDTH 2\nHEIGHT 1\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n\1\2\3\4\5\6\7\10|"
      "@DEPTH 2\nMAXVAL 3\nENDHDR\n\3\1|@DEPTH 4\nMAXVAL 65535\nENDHDR\n\0\1\0\2\0\3\200\0|"
      "P1\n1 1\n0\n|P4\n8 1\n\0|P6x|P7#\n|P5 2 1 100\nde|P5 1 1 1000\n\3\351|"
      "P6 2 2 255\n\1\2\3|P5 2 1 256\n\1\2\3|P6 4294967295 4294967295 65535\n|P5 0 1 255\n|"
      "P5 1 0 255\n|P5 1 1 0\n\0|P5 1 1 65536\n\0\0|P5 4294967296 1 255\n|P5 1 x 255\n|"
      "P5 1 2x 255\n|P5 1 1|P5 1 1 255|P5 1 # 1 255\n|P5 1 1 255#\n\0|"
      "@DEPTH 3\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n\0\0\0\0|"
      "@DEPTH 1\nMAXVAL 1\nTUPLTYPE BLACKANDWHITE\nENDHDR\n\0|"
      "@DEPTH 5\nMAXVAL 255\nENDHDR\n\0\0\0\0\0|@DEPTH 1\nMAXVAL 255\n|@DEPTH 1\nENDHDR\n\0|"
      "@COLOR 1\n|P7\nWIDTH -1\n"s);
  for (std::string file; std::getline(files, file, '|');) {
    if (file[0] == '@') {
      file = "P7\nWIDTH 1\nHEIGHT 1\n" + file.substr(1);
    }
    out << "read " << testing::PrintToString(file) << " =>";
    RawLayer layer;
    try {
      ReadNetpbm(Data(file), static_cast<uint32_t>(file.size()), layer);
    } catch (const RawLayerException& e) {
      EXPECT_TRUE(layer.pixels == nullptr && layer.width == 0) << "a half-read image is left";
      out << " " << test::Narrow(e.message) << "\n";
      continue;
    }
    out << " " << layer.width << "x" << layer.height << ":";
    for (uint64_t i = 0; i < uint64_t{4} * layer.width * layer.height; ++i) {
      out << " " << layer.pixels[i];
    }
    out << "\n";
  }
  test::ExpectGolden("merge_netpbm.txt", out.str());
}

}  // namespace
}  // namespace corvi
