// Merge through the library: refusals leave an empty file; results decode and are pinned by
// hashes for every sampling mode and each resampling path.
#include "merge/merge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "base/raw_layer.h"
#include "platform/system_info.h"
#include "tests/support/libjpeg_reference.h"
#include "tests/support/merge_support.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using test::Bytes;

// libjpeg, when built in, reads the file with no warning and sees what corvi's decoder sees.
void ExpectLibjpegAgrees(const Bytes& jpeg, const RawLayer& decoded) {
  test::Reference reference;
  test::DecodeWithLibjpeg(jpeg, reference);
  if (!test::HaveLibjpeg()) {
    EXPECT_FALSE(test::PeersRequired()) << "needs libjpeg (CORVI_REQUIRE_PEERS)";
  } else {
    ASSERT_TRUE(reference.ok);
    EXPECT_EQ(reference.warnings, 0);
    EXPECT_GT(test::Psnr(reference.rgb, test::Rgb8(decoded)), 40);
  }
}

const std::vector<std::array<uint8_t, 3>> kColour{{1, 0x11, 0}, {2, 0x11, 1}, {3, 0x11, 1}};
const std::vector<std::array<uint8_t, 2>> kColourScan{{1, 0x00}, {2, 0x11}, {3, 0x11}};

// A stream for Merge: each field changes one thing of a valid grey 8x8 frame.
struct Stream {
  std::vector<std::array<uint8_t, 2>> dqt = {{0, 1}};  // index, every entry
  bool wide = false;                                   // 16-bit entries: DC the value, AC 257 times
  uint8_t sof = 0xC0, precision = 8;                   // sof 0: no SOF segment
  uint16_t width = 8, height = 8;
  std::vector<std::array<uint8_t, 3>> frame = {{1, 0x11, 0}};
  std::vector<uint8_t> dht = {};                           // Tc|Th of each table, one code each
  uint16_t restart = 0;                                    // 0: no DRI
  std::vector<std::array<uint8_t, 2>> scan = {{1, 0x00}};  // empty: no SOS
  uint8_t se = 63, ah_al = 0;
};

Bytes Build(const Stream& s) {
  test::JpegBuilder b;
  b.Soi().Segment(0xFE, {'c', 'o', 'r', 'v', 'i'});
  for (const auto& [index, value] : s.dqt) {
    test::Bytes table{static_cast<uint8_t>(0x10 | index), 0, value};
    table.resize(129, value);
    s.wide ? b.Segment(0xDB, table) : b.Dqt(index, value);
  }
  if (s.sof != 0) {
    b.Sof(s.sof, s.precision, s.width, s.height, s.frame);
  }
  for (uint8_t t : s.dht) {
    b.Dht(t >> 4, t & 15, {1}, {0});
  }
  if (s.restart != 0) {
    b.Dri(s.restart);
  }
  if (!s.scan.empty()) {
    b.Sos(s.scan, 0, s.se, s.ah_al).Entropy({0});
  }
  return b.Eoi().bytes();
}

TEST(Merge, RefusesBeforeWritingAndAcceptsWhatItMay) {
  struct Case {
    Stream stream;
    std::wstring error;  // empty: Merge succeeds
  };
  const Case cases[] = {
      {{.dqt = {}, .sof = 0, .frame = {}, .scan = {}}, L"Missing SOF marker"},
      {{.sof = 0}, L"Missing SOF marker"},
      {{.dqt = {}}, L"Missing DQT marker"},
      {{.scan = {}}, L"Missing SOS marker"},
      {{.sof = 0xC1}, L"Merge only supports baseline Huffman"},
      {{.sof = 0xC2}, L"Merge only supports baseline Huffman"},
      {{.se = 62}, L"Merge only supports baseline Huffman"},
      {{.ah_al = 1}, L"Merge only supports baseline Huffman"},
      {{.precision = 12}, L"Unsupported image format (precision=12)"},
      {{.frame = {{4, 0x11, 0}}}, L"Invalid component ID"},
      {{.scan = {{4, 0x00}}}, L"Invalid component ID"},
      {{.dqt = {{4, 1}}}, L"Invalid quantization table index"},
      {{.dqt = {{0, 1}, {0, 1}}}, L"Duplicate quantization table index"},
      {{.frame = {{1, 0x11, 1}}}, L"Missing quantization table index"},
      {{.frame = {{1, 0x11, 5}}}, L"Missing quantization table index"},
      {{.dqt = {{0, 1}, {1, 1}}, .frame = kColour},
       L"Missing Huffman table index"},  // a component not in the scan
      {{.scan = {{1, 0x40}}}, L"Missing Huffman table index"},
      {{.scan = {{1, 0x04}}}, L"Missing Huffman table index"},
      {{.frame = {{1, 0x22, 0}}}, L"Unsupported sampling ( comp 1: 2 x 2 )"},
      {{.frame = {{1, 0x11, 0}, {2, 0x21, 0}, {3, 0x11, 0}}, .scan = kColourScan},
       L"Unsupported sampling ( comp 1: 1 x 1 comp 2: 2 x 1 comp 3: 1 x 1 )"},
      {{.frame = {{0, 0x11, 0}, {1, 0x11, 0}, {2, 0x11, 0}}, .scan = {{0, 0}, {1, 0}, {2, 0}}},
       L"Unsupported sampling ( comp 0: 1 x 1 comp 1: 1 x 1 comp 2: 1 x 1 )"},  // ids 0 to 2
      {{.dht = {0x00, 0x01}}, L"Invalid Huffman table ID"},  // a table the scan does not use
      {{.dht = {0x20}}, L"Invalid Huffman table ID"},
      {{.width = 0}, L"Unsupported frame size (width=0, height=8)"},
      {{.dqt = {{0, 1}, {1, 1}},
        .width = 65535,
        .height = 65535,
        .frame = kColour,
        .scan = kColourScan},
       L"Image too large for this machine's memory"},
      {{.dqt = {{0, 1}, {3, 1}}}, L""},  // an unused DQT table, tables defined by no DHT
      {{.frame = {{1, 0x22, 5}, {1, 0x11, 0}}},
       L""},  // a second record of an id replaces the first
      {{.dqt = {{0, 0}}},
       L""},  // reciprocals of +infinity: coefficients saturate, 0 times infinity is 0
      {{.dqt = {{0, 255}}, .wide = true, .dht = {0x00, 0x10}}, L""},
  };
  RawLayer layer;
  test::MakeGradientLayer(layer, 8, 8);
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    if (c.stream.width == 65535 && PhysicalMemoryBytes() > (uint64_t{100} << 30)) {
      continue;  // 51 GB of coefficients would be allowed here
    }
    const test::MergeOutput out = test::MergeBytes(Build(c.stream), layer, Background{});
    EXPECT_EQ(out.error, c.error);
    EXPECT_EQ(out.size, out.bytes.size());
    EXPECT_EQ(out.position, out.bytes.size());
    EXPECT_EQ(out.bytes.empty(), !c.error.empty());
    EXPECT_TRUE(out.bytes.empty() || test::ScanBytes(out.bytes).error.empty());
    RawLayer decoded;  // a stream with its tables defined decodes
    EXPECT_TRUE(c.stream.dht.empty() || !c.error.empty() || test::DecodeBytes(out.bytes, decoded));
  }
}

TEST(Merge, OutputHashesOfEverySamplingModeAndResamplingPath) {
  struct Case {
    const char* name;
    uint8_t luma_sampling;  // 0: grey
    uint16_t frame_width, frame_height;
    uint32_t layer_width, layer_height;
    uint64_t hash;  // FNV-1a 64 of the output file
  };
  const Case cases[] = {
      {"4:4:4", 0x11, 40, 24, 40, 24, 0x95B82729DA4F9ECFu},
      {"4:2:2", 0x21, 40, 24, 40, 24, 0x5B43D957B097AE24u},
      {"4:4:0", 0x12, 40, 24, 40, 24, 0x8F0628E2B126090Cu},
      {"4:2:0", 0x22, 40, 24, 40, 24, 0xBD9B8D37DF3E2F45u},
      {"grey", 0x00, 40, 24, 40, 24, 0x2C91745F325DC051u},
      {"point sampling", 0x22, 40, 24, 80, 48, 0x3023B6E94E4D7D3Fu},
      {"nine taps", 0x22, 40, 24, 68, 41, 0x884D52CE0369912Du},
      {"fit to size", 0x22, 160, 120, 100, 100, 0x258C4A1D4A15054Eu},
  };
  const Background background{0x2000, 0x8000, 0xC000};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RawLayer layer, decoded;
    test::MakeGradientLayer(layer, c.layer_width, c.layer_height);
    Stream frame{.dqt = {{0, 2}, {1, 3}},
                 .width = c.frame_width,
                 .height = c.frame_height,
                 .frame = {{1, c.luma_sampling, 0}, {2, 0x11, 1}, {3, 0x11, 1}},
                 .dht = {0x00, 0x10, 0x01, 0x11},
                 .restart = 4,
                 .scan = kColourScan};
    if (c.luma_sampling == 0) {
      frame.dqt.resize(1), frame.scan.resize(1), frame.dht.resize(2);
      frame.frame = {{1, 0x11, 0}};
    }
    const Bytes jpeg = Build(frame);
    const test::MergeOutput out = test::MergeBytes(jpeg, layer, background);
    ASSERT_EQ(out.error, L"");
    EXPECT_EQ(test::Fnv1a64(out.bytes), c.hash) << std::hex << "0x" << test::Fnv1a64(out.bytes);
    ASSERT_TRUE(test::DecodeBytes(out.bytes, decoded));
    ASSERT_EQ(decoded.width, c.frame_width);
    ASSERT_EQ(decoded.height, c.frame_height);
    if (c.layer_width == c.frame_width) {
      EXPECT_GT(
          test::Psnr(test::Rgb8(decoded), test::Rgb8(layer, &background, c.luma_sampling == 0)),
          30);
    }
    if (c.layer_width == 2 * c.frame_width) {  // every second pixel of every second row
      RawLayer half;
      test::Rescale(layer, c.frame_width, c.frame_height, half);
      EXPECT_EQ(test::MergeBytes(jpeg, half, background).bytes, out.bytes);
    }
    ExpectLibjpegAgrees(out.bytes, decoded);
  }
}

}  // namespace
}  // namespace corvi
