// Merge through the library: refusals leave an empty file; results decode, keep their segments
// and are pinned by hashes for every sampling mode and each resampling path.
#include "merge/merge.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "platform/system_info.h"
#include "tests/support/libjpeg_reference.h"
#include "tests/support/merge_support.h"
#include "tests/support/sample_jpeg.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;

// 8-bit RGB of a layer: composited over `background` (grey: the mean of the channels first) or,
// with no background, as it stands.
std::vector<uint8_t> Rgb8(const RawLayer& layer, const Background* background, bool gray) {
  std::vector<uint8_t> out;
  for (uint64_t i = 0; i < uint64_t{layer.width} * layer.height; ++i) {
    const uint16_t* p = layer.pixels + 4 * i;
    uint32_t c[3] = {p[0], p[1], p[2]}, b[3] = {0, 0, 0};
    if (background != nullptr) {
      b[0] = background->red, b[1] = background->green, b[2] = background->blue;
    }
    if (gray) {
      c[0] = c[1] = c[2] = (c[0] + c[1] + c[2]) / 3;
      b[0] = b[1] = b[2] = (b[0] + b[1] + b[2]) / 3;
    }
    for (int32_t k = 0; k < 3; ++k) {
      const uint32_t a = background != nullptr ? p[3] : 65535;
      out.push_back(static_cast<uint8_t>((b[k] * (65535 - a) + c[k] * a) / 65535 >> 8));
    }
  }
  return out;
}

double Psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  double sum = 0;
  for (size_t i = 0; i < a.size(); ++i) {
    sum += (a[i] - b[i]) * (a[i] - b[i]);
  }
  return a.size() != b.size() ? 0 : 10 * std::log10(255.0 * 255.0 * a.size() / std::max(sum, 1e-9));
}

// libjpeg, when built in, reads the file with no warning and sees what corvi's decoder sees.
void ExpectLibjpegAgrees(const Bytes& jpeg, const RawLayer& decoded) {
  test::Reference reference;
  test::DecodeWithLibjpeg(jpeg, reference);
  if (test::HaveLibjpeg()) {
    ASSERT_TRUE(reference.ok);
    EXPECT_EQ(reference.warnings, 0);
    EXPECT_GT(Psnr(reference.rgb, Rgb8(decoded, nullptr, false)), 40);
  }
}

const std::vector<std::array<uint8_t, 3>> kColour{{1, 0x11, 0}, {2, 0x11, 1}, {3, 0x11, 1}};
const std::vector<std::array<uint8_t, 2>> kColourScan{{1, 0x00}, {2, 0x11}, {3, 0x11}};

// A stream for Merge: each field changes one thing of a valid grey 8x8 frame.
struct Stream {
  std::vector<std::array<uint8_t, 2>> dqt = {{0, 1}};  // index, every entry
  uint8_t sof = 0xC0, precision = 8;                   // sof 0: no SOF segment
  uint16_t width = 8, height = 8;
  std::vector<std::array<uint8_t, 3>> frame = {{1, 0x11, 0}};
  std::vector<uint8_t> dht = {};                           // Tc|Th of each table, one code each
  uint16_t restart = 0;                                    // 0: no DRI
  std::vector<std::array<uint8_t, 2>> scan = {{1, 0x00}};  // empty: no SOS
  uint8_t se = 63, ah_al = 0;
};

Bytes Build(const Stream& s) {
  JpegBuilder b;
  b.Soi().Segment(0xFE, {'c', 'o', 'r', 'v', 'i'});
  for (const auto& [index, value] : s.dqt) {
    b.Dqt(index, value);
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
    const char* name;
    Stream stream;
    std::wstring error;  // empty: Merge succeeds
  };
  const Case cases[] = {
      {"no segments", {.dqt = {}, .sof = 0, .frame = {}, .scan = {}}, L"Missing SOF marker"},
      {"no SOF", {.sof = 0}, L"Missing SOF marker"},
      {"no DQT", {.dqt = {}}, L"Missing DQT marker"},
      {"no SOS", {.scan = {}}, L"Missing SOS marker"},
      {"SOF1", {.sof = 0xC1}, L"Merge only supports baseline Huffman"},
      {"SOF2", {.sof = 0xC2}, L"Merge only supports baseline Huffman"},
      {"Se 62", {.se = 62}, L"Merge only supports baseline Huffman"},
      {"Al 1", {.ah_al = 1}, L"Merge only supports baseline Huffman"},
      {"precision 12", {.precision = 12}, L"Unsupported image format (precision=12)"},
      {"frame id 4", {.frame = {{4, 0x11, 0}}}, L"Invalid component ID"},
      {"scan id 4", {.scan = {{4, 0x00}}}, L"Invalid component ID"},
      {"DQT index 4", {.dqt = {{4, 1}}}, L"Invalid quantization table index"},
      {"DQT index twice", {.dqt = {{0, 1}, {0, 1}}}, L"Duplicate quantization table index"},
      {"table 1 not defined", {.frame = {{1, 0x11, 1}}}, L"Missing quantization table index"},
      {"table 5", {.frame = {{1, 0x11, 5}}}, L"Missing quantization table index"},
      {"component not in the scan",
       {.dqt = {{0, 1}, {1, 1}}, .frame = kColour},
       L"Missing Huffman table index"},
      {"DC selector 4", {.scan = {{1, 0x40}}}, L"Missing Huffman table index"},
      {"AC selector 4", {.scan = {{1, 0x04}}}, L"Missing Huffman table index"},
      {"grey 2x2", {.frame = {{1, 0x22, 0}}}, L"Unsupported sampling ( comp 1: 2 x 2 )"},
      {"chroma 2x1",
       {.frame = {{1, 0x11, 0}, {2, 0x21, 0}, {3, 0x11, 0}}, .scan = kColourScan},
       L"Unsupported sampling ( comp 1: 1 x 1 comp 2: 2 x 1 comp 3: 1 x 1 )"},
      {"zero-based ids",
       {.frame = {{0, 0x11, 0}, {1, 0x11, 0}, {2, 0x11, 0}}, .scan = {{0, 0}, {1, 0}, {2, 0}}},
       L"Unsupported sampling ( comp 0: 1 x 1 comp 1: 1 x 1 comp 2: 1 x 1 )"},
      {"DHT of a table the scan does not use", {.dht = {0x00, 0x01}}, L"Invalid Huffman table ID"},
      {"DHT class 2", {.dht = {0x20}}, L"Invalid Huffman table ID"},
      {"width 0", {.width = 0}, L"Unsupported frame size (width=0, height=8)"},
      {"65535 x 65535",
       {.dqt = {{0, 1}, {1, 1}},
        .width = 65535,
        .height = 65535,
        .frame = kColour,
        .scan = kColourScan},
       L"Image too large for this machine's memory"},
      {"unused DQT table, tables defined by no DHT", {.dqt = {{0, 1}, {3, 1}}}, L""},
      {"a second record of an id replaces the first", {.frame = {{1, 0x22, 5}, {1, 0x11, 0}}}, L""},
      // Reciprocals of +infinity: coefficients saturate at 32767 or, for 0 times infinity, are 0.
      {"quantiser 0", {.dqt = {{0, 0}}}, L""},
  };
  RawLayer layer;
  test::MakeGradientLayer(layer, 8, 8);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.stream.width == 65535 && PhysicalMemoryBytes() > (uint64_t{100} << 30)) {
      continue;  // 51 GB of coefficients would be allowed here
    }
    const test::MergeOutput out = test::MergeBytes(Build(c.stream), layer, Background{});
    EXPECT_EQ(out.error, c.error);
    EXPECT_EQ(out.size, out.bytes.size());
    EXPECT_EQ(out.position, out.bytes.size());
    // A result scans; its tables stand in no DHT here, so it does not decode.
    EXPECT_EQ(out.bytes.empty(), !c.error.empty());
    EXPECT_TRUE(out.bytes.empty() || test::ScanBytes(out.bytes).error.empty());
  }
}

TEST(Merge, SixteenBitQuantisersEncodeAndDecode) {
  Bytes table{0x10};  // precision 16, index 0
  for (int k = 0; k < 64; ++k) {
    const uint16_t q = k == 0 ? 1 : (k < 10 ? 300 : 65535);
    table.push_back(static_cast<uint8_t>(q >> 8));
    table.push_back(static_cast<uint8_t>(q));
  }
  const Bytes jpeg = JpegBuilder()
                         .Soi()
                         .Segment(0xDB, table)
                         .Sof(0xC0, 8, 16, 16, {{1, 0x11, 0}})
                         .Dht(0, 0, {1}, {0})
                         .Dht(1, 0, {1}, {0})
                         .Sos({{1, 0x00}})
                         .Entropy({0})
                         .Eoi()
                         .bytes();
  RawLayer layer;
  test::MakeGradientLayer(layer, 16, 16);
  const test::MergeOutput out = test::MergeBytes(jpeg, layer, Background{});
  ASSERT_EQ(out.error, L"");
  RawLayer decoded;
  ASSERT_TRUE(test::DecodeBytes(out.bytes, decoded));
  EXPECT_EQ(decoded.width, 16u);
}

// The segments of a stream in order but DRI, which is counted, and the class and id of every
// DHT table.
struct Segments {
  std::vector<uint8_t> codes, tables;
  std::vector<Bytes> payloads;
  int32_t restarts = 0;
  Bytes compressed;
};
Segments ReadSegments(const Bytes& jpeg) {
  Segments s;
  test::ScanResult scan = test::ScanBytes(jpeg);
  EXPECT_EQ(scan.error, L"");
  for (uint32_t i = 0; i < scan.markers->count; ++i) {
    const JPEGReader::Marker& m = *scan.markers->items[i];
    s.restarts += m.code == 0xDD;
    if (m.code != 0xDD) {
      s.codes.push_back(m.code);
      s.payloads.emplace_back(m.payload, m.payload + m.length);
    }
    for (int32_t pos = 0; m.code == 0xC4 && pos + 17 <= m.length;) {
      s.tables.push_back(m.payload[pos]);
      pos += 17 + std::accumulate(m.payload + pos + 1, m.payload + pos + 17, 0);
    }
  }
  s.compressed.assign(scan.markers->compressed_data,
                      scan.markers->compressed_data + scan.markers->compressed_length);
  return s;
}

TEST(Merge, RoundTripOfADecodedLayer) {
  const Bytes sample = test::MakeSampleJpeg();
  RawLayer layer;
  ASSERT_TRUE(test::DecodeBytes(sample, layer));
  // The sample's segments with a restart interval before the scan.
  const test::ScanResult scan = test::ScanBytes(sample);
  const JPEGReader::Marker& sos = *scan.markers->items[scan.markers->count - 1];
  ASSERT_EQ(sos.code, 0xDA);
  Bytes jpeg = sample;
  jpeg.insert(jpeg.begin() + sos.FirstByte(sample.data()), {0xFF, 0xDD, 0x00, 0x04, 0x00, 0x02});
  const test::MergeOutput out = test::MergeBytes(jpeg, layer, Background{});
  ASSERT_EQ(out.error, L"");
  const Segments before = ReadSegments(jpeg), after = ReadSegments(out.bytes);
  EXPECT_EQ(before.restarts, 1);
  EXPECT_EQ(after.restarts, 0);
  ASSERT_EQ(after.codes, before.codes);
  EXPECT_EQ(after.tables, before.tables);
  for (size_t i = 0; i < before.codes.size(); ++i) {  // DHT rebuilt, APP1 with a new thumbnail
    if (before.codes[i] != 0xC4 && before.codes[i] != 0xE1) {
      EXPECT_EQ(after.payloads[i], before.payloads[i]) << std::hex << int{before.codes[i]};
    }
  }
  for (size_t i = 0; i + 1 < after.compressed.size(); ++i) {
    ASSERT_FALSE(after.compressed[i] == 0xFF && after.compressed[i + 1] != 0x00) << i;
  }
  RawLayer again;
  ASSERT_TRUE(test::DecodeBytes(out.bytes, again));
  EXPECT_GT(Psnr(Rgb8(again, nullptr, false), Rgb8(layer, nullptr, false)), 30);
  ExpectLibjpegAgrees(out.bytes, again);
}

// The frame of the hash tests: `luma` is the sampling of id 1, 0 for grey.
Stream Frame(uint8_t luma, uint16_t width, uint16_t height) {
  if (luma == 0) {
    return {.dqt = {{0, 2}}, .width = width, .height = height, .dht = {0x00, 0x10}, .restart = 4};
  }
  return {.dqt = {{0, 2}, {1, 3}},
          .width = width,
          .height = height,
          .frame = {{1, luma, 0}, {2, 0x11, 1}, {3, 0x11, 1}},
          .dht = {0x00, 0x10, 0x01, 0x11},
          .restart = 4,
          .scan = kColourScan};
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
    RawLayer layer;
    test::MakeGradientLayer(layer, c.layer_width, c.layer_height);
    const Bytes jpeg = Build(Frame(c.luma_sampling, c.frame_width, c.frame_height));
    const test::MergeOutput out = test::MergeBytes(jpeg, layer, background);
    ASSERT_EQ(out.error, L"");
    EXPECT_EQ(test::Fnv1a64(out.bytes), c.hash) << std::hex << "0x" << test::Fnv1a64(out.bytes);
    RawLayer decoded;
    ASSERT_TRUE(test::DecodeBytes(out.bytes, decoded));
    ASSERT_EQ(decoded.width, c.frame_width);
    ASSERT_EQ(decoded.height, c.frame_height);
    if (c.layer_width == c.frame_width) {
      EXPECT_GT(Psnr(Rgb8(decoded, nullptr, false), Rgb8(layer, &background, c.luma_sampling == 0)),
                30);
    }
    if (c.layer_width == 2 * c.frame_width) {  // every second pixel of every second row
      RawLayer half;
      half.width = c.frame_width, half.height = c.frame_height;
      half.AllocatePixels();
      for (uint32_t y = 0; y < half.height; ++y) {
        for (uint32_t x = 0; x < half.width; ++x) {
          std::copy_n(layer.pixels + 4 * (2 * y * layer.width + 2 * x), 4,
                      half.pixels + 4 * (y * half.width + x));
        }
      }
      EXPECT_EQ(test::MergeBytes(jpeg, half, background).bytes, out.bytes);
    }
    ExpectLibjpegAgrees(out.bytes, decoded);
  }
}

}  // namespace
}  // namespace corvi
