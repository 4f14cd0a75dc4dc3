// Merge through the library: refusals leave an empty file; the outputs of every sampling mode,
// resampling path and Exif rewrite decode, with libjpeg too. The layouts and what became of them
// (a message, or a hash and a dump) are kept in tests/golden/merge_outputs.txt.
#include "merge/merge.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <sstream>
#include <vector>

#include "base/property.h"
#include "base/raw_layer.h"
#include "platform/system_info.h"
#include "tests/support/libjpeg_reference.h"
#include "tests/support/merge_support.h"
#include "tests/support/require.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using Fields = std::map<std::string, std::vector<std::vector<uint32_t>>>;

// The fields of a layout ("key=1:0x11:0,2:0x11:1 ..."): groups at ',', numbers at ':'; words
// without '=' are notes. Unnamed fields are those of a grey 8x8 frame with no DHT.
Fields Parse(const std::string& layout) {
  std::istringstream words("dqt=0:1 sof=0xC0:8:8:8 frame=1:0x11:0 sos=1:0 se=63 ahal=0 app1=0 " +
                           ("overrides=0 " + layout));
  Fields fields;
  for (std::string word; words >> word;) {
    const size_t equals = word.find('=');
    auto& groups = fields[word.substr(0, equals)] = {};
    std::istringstream text(equals == std::string::npos ? "" : word.substr(equals + 1));
    for (std::string group; std::getline(text, group, ',');) {
      std::istringstream numbers(group);
      for (groups.emplace_back(); std::getline(numbers, word, ':');) {
        groups.back().push_back(std::stoul(word, nullptr, 0));
      }
    }
  }
  return fields;
}

// A template: dqt=index:entry, dqt16 (DC the entry, AC 257 times), sof=code:precision:width:height,
// frame=id:sampling:table, dht=class<<4|id (one code each), dri=interval, sos=id:tables, se=,
// ahal=.
Bytes Build(Fields& f, const std::vector<Bytes>& app1) {
  test::JpegBuilder b;
  b.Soi();
  for (const Bytes& payload : app1) {
    b.Segment(0xE1, payload);
  }
  b.Segment(0xFE, {'c', 'o', 'r', 'v', 'i'});
  for (const auto& t : f["dqt"]) {
    b.Dqt(t[0], t[1]);
  }
  for (const auto& t : f["dqt16"]) {
    Bytes table(129, t[1] & 255);
    table[0] = 0x10 | t[0], table[1] = 0;
    b.Segment(0xDB, table);
  }
  std::vector<std::array<uint8_t, 3>> frame;
  std::vector<std::array<uint8_t, 2>> scan;
  for (const auto& c : f["frame"]) {
    frame.push_back({uint8_t(c[0]), uint8_t(c[1]), uint8_t(c[2])});
  }
  for (const auto& s : f["sof"]) {
    b.Sof(s[0], s[1], s[2], s[3], frame);
  }
  for (const auto& t : f["dht"]) {
    b.Dht(t[0] >> 4, t[0] & 15, {1}, {0});
  }
  for (const auto& r : f["dri"]) {
    b.Dri(r[0]);
  }
  for (const auto& c : f["sos"]) {
    scan.push_back({uint8_t(c[0]), uint8_t(c[1])});
  }
  if (!scan.empty()) {
    b.Sos(scan, 0, f["se"][0][0], f["ahal"][0][0]).Entropy({0});
  }
  return b.Eoi().bytes();
}

TEST(Merge, RefusalsAndOutputsMatchGoldenText) {
  // A thumbnail whose own APP1 holds a thumbnail: its temporary file is still open.
  const Bytes nested = test::MakeExifThumbnail(
      false, test::JpegWithApp1(test::MakeExifThumbnail(false, test::TinyGrayJpeg())));
  // An Exif segment at the limit (its length field 65535) whose new thumbnail is larger.
  Fields big = Parse("sof=0xC0:8:64:64"), small = Parse("dht=0,0x10"),
         larger = Parse("sof=0xC0:8:32:32 dht=0,0x10");
  const size_t unpadded = test::MakeExifThumbnail(false, Build(big, {})).size();
  const Bytes full =
      test::MakeExifThumbnail(false, Build(big, {}), 0, static_cast<uint32_t>(65533 - unpadded));
  ASSERT_EQ(full.size(), 65533u);
  const Bytes exif = test::MakeExifThumbnail(true, {});
  const std::string xmp = std::string("http://ns.adobe.com/xap/1.0/") + '\0' + "<x>Cam</x>";
  PropertyList wrong_size, make;
  wrong_size.SetString(0x10F, reinterpret_cast<const uint8_t*>("Camera"), 7);
  make.SetString(0x10F, reinterpret_cast<const uint8_t*>("Abc"), 4);
  make.SetShort(0x9999, 7);  // held by no entry: changes nothing
  const std::vector<Bytes> app1[] = {{},
                                     {nested},
                                     {full},
                                     {test::MakeExifThumbnail(false, {})},
                                     {test::MakeExifThumbnail(false, Build(small, {}))},
                                     {test::MakeExifThumbnail(true, Build(small, {}), 300)},
                                     {test::MakeExifThumbnail(false, Build(larger, {}))},
                                     {exif, Bytes(xmp.begin(), xmp.end()), exif}};
  const PropertyList* overrides[] = {nullptr, &wrong_size, &make};
  const Background background{0x2000, 0x8000, 0xC000};
  test::ExpectGoldenCases("merge_outputs.txt", [&](const std::string& layout) -> std::string {
    SCOPED_TRACE(layout);
    Fields f = Parse("layer= " + layout);
    const std::vector<uint32_t> size = f["sof"].empty() ? std::vector{0u, 8u, 8u, 8u} : f["sof"][0];
    if (size[2] == 65535 && PhysicalMemoryBytes() > (uint64_t{100} << 30)) {
      return "Image too large for this machine's memory";  // 51 GB would be allowed here
    }
    const bool picture = !f["dri"].empty();  // fair tables, and an interval the output drops
    const std::vector<uint32_t> from = !f["layer"].empty() ? f["layer"][0]
                                       : picture           ? std::vector{size[2], size[3]}
                                                           : std::vector{8u, 8u};
    RawLayer layer, decoded;
    test::MakeGradientLayer(layer, from[0], from[1]);
    const test::MergeOutput out = test::MergeBytes(Build(f, app1[f["app1"][0][0]]), layer,
                                                   background, overrides[f["overrides"][0][0]]);
    if (!out.error.empty()) {
      return out.error;
    }
    const test::ScanResult scan = test::ScanBytes(out.bytes);
    EXPECT_EQ(scan.error, L"");
    const std::string dump =
        test::Fnv1a64(out.bytes.data(), out.bytes.size()) + "\n" + test::DumpText(scan, out.bytes);
    if (f["dht"].empty()) {
      return dump;  // no tables to decode with
    }
    EXPECT_TRUE(test::DecodeBytes(out.bytes, decoded));
    EXPECT_TRUE(decoded.width == size[2] && decoded.height == size[3]);
    if (!picture || decoded.pixels == nullptr) {
      return dump;
    }
    if (from[0] == size[2] && from[1] == size[3]) {
      const std::vector<uint8_t> rgb = test::Rgb8(layer, &background, f["frame"].size() == 1);
      EXPECT_GT(test::Psnr(test::Rgb8(decoded), rgb), 30);
    }
    // libjpeg, when built in, reads the file with no warning and sees what corvi's decoder sees.
    test::Reference ref;
    test::DecodeWithLibjpeg(out.bytes, ref);
    EXPECT_TRUE(test::HaveLibjpeg() || !test::PeersRequired()) << "needs libjpeg";
    EXPECT_TRUE(!test::HaveLibjpeg() ||
                (ref.ok && ref.warnings == 0 && test::Psnr(ref.rgb, test::Rgb8(decoded)) > 40));
    return dump;
  });
}

// One parsed frame, two readers whose rules differ on purpose: the decoder puts a component id of
// 4 or more in the slot of its position, the rewriter refuses it.
TEST(Merge, IdsOfFourOrMoreSplitTheDecoderAndTheRewriter) {
  test::JpegBuilder b;
  b.Soi().Dqt(0).Sof(0xC0, 8, 8, 8, {{82, 0x11, 0}, {71, 0x11, 0}, {66, 0x11, 0}});
  b.Dht(0, 0, {1}, {0}).Dht(1, 0, {1}, {0}).Sos({{82, 0}, {71, 0}, {66, 0}});
  b.Entropy({0x03}).Eoi();  // three flat blocks: DC 0 and EOB, a bit each
  RawLayer decoded;
  ASSERT_TRUE(test::DecodeBytes(b.bytes(), decoded));
  EXPECT_EQ(decoded.width, 8u);
  EXPECT_EQ(test::MergeBytes(b.bytes(), decoded, Background{}).error, "Invalid component ID");
}

}  // namespace
}  // namespace corvi
