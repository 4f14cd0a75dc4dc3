// Merge through the library: refusals leave an empty file; the whole outputs of every sampling
// mode, resampling path and Exif rewrite decode, and are pinned by a golden dump with hashes.
#include "merge/merge.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <vector>

#include "base/property.h"
#include "base/raw_layer.h"
#include "platform/system_info.h"
#include "tests/support/libjpeg_reference.h"
#include "tests/support/merge_support.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using test::Bytes;

const std::vector<std::array<uint8_t, 3>> kColour{{1, 0x11, 0}, {2, 0x11, 1}, {3, 0x11, 1}};
const std::vector<std::array<uint8_t, 2>> kColourScan{{1, 0x00}, {2, 0x11}, {3, 0x11}};

// A stream for Merge: each field changes one thing of a valid grey 8x8 frame.
struct Stream {
  std::vector<Bytes> app1 = {};                        // payloads, right after SOI
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
  b.Soi();
  for (const Bytes& payload : s.app1) {
    b.Segment(0xE1, payload);
  }
  b.Segment(0xFE, {'c', 'o', 'r', 'v', 'i'});
  for (const auto& [index, value] : s.dqt) {
    Bytes table{static_cast<uint8_t>(0x10 | index), 0, value};
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
  // A thumbnail whose own APP1 holds a thumbnail: its temporary file is still open.
  const Bytes inner = test::MakeExifThumbnail(false, test::GrayTemplate(8));
  const Bytes nested = test::MakeExifThumbnail(false, test::GrayTemplate(8, inner));
  // An Exif segment at the limit (its length field 65535) whose new thumbnail is larger.
  const Bytes big = test::GrayTemplate(64);
  const size_t unpadded = test::MakeExifThumbnail(false, big).size();
  const Bytes full =
      test::MakeExifThumbnail(false, big, 0, static_cast<uint32_t>(65533 - unpadded));
  PropertyList wrong_size;
  wrong_size.SetString(0x10F, reinterpret_cast<const uint8_t*>("Camera"), 7);
  struct Case {
    Stream stream;
    std::wstring error;  // the start of the message; empty: Merge succeeds
    const PropertyList* overrides = nullptr;
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
      {{.app1 = {nested}}, L"File "},
      {{.app1 = {full}}, L"Exif segment too long ("},
      {{.app1 = {test::MakeExifThumbnail(false, {})}},
       L"Size mismatch in overridden property",
       &wrong_size},
      {{.dqt = {{0, 1}, {3, 1}}}, L""},  // an unused DQT table, tables defined by no DHT
      {{.frame = {{1, 0x22, 5}, {1, 0x11, 0}}},
       L""},  // a second record of an id replaces the first
      {{.dqt = {{0, 0}}},
       L""},  // reciprocals of +infinity: coefficients saturate, 0 times infinity is 0
      {{.dqt = {{0, 255}}, .wide = true, .dht = {0x00, 0x10}}, L""},
  };
  ASSERT_EQ(full.size(), 65533u);
  RawLayer layer;
  test::MakeGradientLayer(layer, 8, 8);
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "case " << &c - cases);
    if (c.stream.width == 65535 && PhysicalMemoryBytes() > (uint64_t{100} << 30)) {
      continue;  // 51 GB of coefficients would be allowed here
    }
    const test::MergeOutput out =
        test::MergeBytes(Build(c.stream), layer, Background{}, c.overrides);
    EXPECT_EQ(c.error.empty() ? out.error : out.error.substr(0, c.error.size()), c.error);
    EXPECT_EQ(out.size, out.bytes.size());
    EXPECT_EQ(out.position, out.bytes.size());
    EXPECT_EQ(out.bytes.empty(), !c.error.empty());
    EXPECT_TRUE(out.bytes.empty() || test::ScanBytes(out.bytes).error.empty());
    RawLayer decoded;  // a stream with its tables defined decodes
    EXPECT_TRUE(c.stream.dht.empty() || !c.error.empty() || test::DecodeBytes(out.bytes, decoded));
  }
}

// A frame with luma factors `luma` (0: grey), its tables and a restart interval, which the
// output drops.
Stream Frame(uint8_t luma, uint16_t width, uint16_t height, std::vector<Bytes> app1 = {}) {
  Stream s{.app1 = std::move(app1),
           .dqt = {{0, 2}, {1, 3}},
           .width = width,
           .height = height,
           .frame = {{1, luma, 0}, {2, 0x11, 1}, {3, 0x11, 1}},
           .dht = {0x00, 0x10, 0x01, 0x11},
           .restart = 4,
           .scan = kColourScan};
  if (luma == 0) {
    s.dqt.resize(1), s.scan.resize(1), s.dht.resize(2);
    s.frame = {{1, 0x11, 0}};
  }
  return s;
}

// To accept an intended change, run with CORVI_UPDATE_GOLDEN=1 and review
// tests/golden/merge_outputs.txt as a diff.
TEST(Merge, OutputsMatchGoldenDumpsAndDecodeAlike) {
  const Bytes exif = test::MakeExifThumbnail(true, {});
  const std::string text = std::string("http://ns.adobe.com/xap/1.0/") + '\0' + "<x>Cam</x>";
  PropertyList make;
  make.SetString(0x10F, reinterpret_cast<const uint8_t*>("Abc"), 4);
  make.SetShort(0x9999, 7);  // held by no entry: changes nothing
  struct Case {
    const char* name;
    Stream stream;
    uint32_t layer_width, layer_height;
    const PropertyList* overrides = nullptr;
  };
  const Case cases[] = {
      {"4:4:4", Frame(0x11, 40, 24), 40, 24},
      {"4:2:2", Frame(0x21, 40, 24), 40, 24},
      {"4:4:0", Frame(0x12, 40, 24), 40, 24},
      {"4:2:0", Frame(0x22, 40, 24), 40, 24},
      {"grey", Frame(0, 40, 24), 40, 24},
      {"point sampling", Frame(0x22, 40, 24), 80, 48},
      {"nine taps", Frame(0x22, 40, 24), 68, 41},
      {"fit to size", Frame(0x22, 160, 120), 100, 100},
      {"Intel thumbnail", Frame(0, 40, 24, {test::MakeExifThumbnail(false, test::GrayTemplate(8))}),
       40, 24},
      {"Motorola thumbnail declared 300 bytes longer: zeros behind the new one",
       Frame(0, 40, 24, {test::MakeExifThumbnail(true, test::GrayTemplate(8), 300)}), 40, 24},
      {"thumbnail larger than the old one",
       Frame(0, 40, 24, {test::MakeExifThumbnail(false, test::GrayTemplate(32))}), 40, 24},
      {"overrides reach every Exif segment and nothing else",
       Frame(0, 40, 24, {exif, Bytes(text.begin(), text.end()), exif}), 40, 24, &make},
  };
  const Background background{0x2000, 0x8000, 0xC000};
  std::string dump;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    RawLayer layer, decoded;
    test::MakeGradientLayer(layer, c.layer_width, c.layer_height);
    const Bytes jpeg = Build(c.stream);
    const test::MergeOutput out = test::MergeBytes(jpeg, layer, background, c.overrides);
    ASSERT_EQ(out.error, L"");
    ASSERT_TRUE(test::DecodeBytes(out.bytes, decoded));
    ASSERT_EQ(decoded.width, c.stream.width);
    ASSERT_EQ(decoded.height, c.stream.height);
    const bool gray = c.stream.frame.size() == 1;
    if (c.layer_width == c.stream.width) {
      EXPECT_GT(test::Psnr(test::Rgb8(decoded), test::Rgb8(layer, &background, gray)), 30);
    }
    if (c.layer_width == 2u * c.stream.width) {  // every second pixel of every second row
      RawLayer half;
      test::Rescale(layer, c.stream.width, c.stream.height, half);
      EXPECT_EQ(test::MergeBytes(jpeg, half, background).bytes, out.bytes);
    }
    // libjpeg, when built in, reads the file with no warning and sees what corvi's decoder sees.
    test::Reference reference;
    test::DecodeWithLibjpeg(out.bytes, reference);
    if (!test::HaveLibjpeg()) {
      EXPECT_FALSE(test::PeersRequired()) << "needs libjpeg (CORVI_REQUIRE_PEERS)";
    } else {
      ASSERT_TRUE(reference.ok);
      EXPECT_EQ(reference.warnings, 0);
      EXPECT_GT(test::Psnr(reference.rgb, test::Rgb8(decoded)), 40);
    }
    char hash[40];
    std::snprintf(
        hash, sizeof hash, " %016llX\n",
        static_cast<unsigned long long>(test::Fnv1a64(out.bytes.data(), out.bytes.size())));
    dump +=
        std::string("== ") + c.name + hash + test::DumpText(test::ScanBytes(out.bytes), out.bytes);
  }
  test::ExpectGolden("merge_outputs.txt", dump);
}

}  // namespace
}  // namespace corvi
