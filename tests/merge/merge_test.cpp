// Merge through the library: refusals leave an empty file; the outputs of every sampling mode,
// resampling path and Exif rewrite decode, with libjpeg too. Both are pinned in
// tests/golden/merge_outputs.txt, the outputs by a hash and a dump each.
#include "merge/merge.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
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
using Groups = std::vector<std::vector<uint32_t>>;

// Field `key` of `layout` ("key=1:0x11:0,2:0x11:1 ..."): groups at ',', numbers at ':'; `fallback`
// when the field is absent.
Groups Field(const std::string& layout, const std::string& key, const std::string& fallback) {
  const size_t at = (" " + layout).find(" " + key + "="), start = at + key.size() + 1;
  std::istringstream text(
      at == std::string::npos ? fallback : layout.substr(start, layout.find(' ', at) - start));
  Groups out;
  for (std::string group; std::getline(text, group, ',');) {
    std::istringstream numbers(group);
    out.emplace_back();
    for (std::string n; std::getline(numbers, n, ':');) {
      out.back().push_back(std::stoul(n, nullptr, 0));
    }
  }
  return out;
}

// A template from `layout`, fields over a grey 8x8 frame with no DHT: dqt=index:entry, dqt16 (DC
// the entry, AC 257 times), sof=code:precision:width:height, frame=id:sampling:table,
// dht=class<<4|id (one code each), dri=interval, sos=id:tables, se=, ahal=. "dqt=" has none.
Bytes Build(const std::string& layout, const std::vector<Bytes>& app1 = {}) {
  test::JpegBuilder b;
  b.Soi();
  for (const Bytes& payload : app1) {
    b.Segment(0xE1, payload);
  }
  b.Segment(0xFE, {'c', 'o', 'r', 'v', 'i'});
  for (const auto& t : Field(layout, "dqt", "0:1")) {
    b.Dqt(t[0], t[1]);
  }
  for (const auto& t : Field(layout, "dqt16", "")) {
    Bytes table(129, t[1] & 255);
    table[0] = 0x10 | t[0], table[1] = 0;
    b.Segment(0xDB, table);
  }
  std::vector<std::array<uint8_t, 3>> frame;
  for (const auto& c : Field(layout, "frame", "1:0x11:0")) {
    std::copy_n(c.begin(), 3, frame.emplace_back().begin());
  }
  for (const auto& f : Field(layout, "sof", "0xC0:8:8:8")) {
    b.Sof(f[0], f[1], f[2], f[3], frame);
  }
  for (const auto& t : Field(layout, "dht", "")) {
    b.Dht(t[0] >> 4, t[0] & 15, {1}, {0});
  }
  for (const auto& r : Field(layout, "dri", "")) {
    b.Dri(r[0]);
  }
  std::vector<std::array<uint8_t, 2>> scan;
  for (const auto& c : Field(layout, "sos", "1:0")) {
    std::copy_n(c.begin(), 2, scan.emplace_back().begin());
  }
  if (!scan.empty()) {
    b.Sos(scan, 0, Field(layout, "se", "63")[0][0], Field(layout, "ahal", "0")[0][0]).Entropy({0});
  }
  return b.Eoi().bytes();
}

// A picture frame of `size` (width:height), luma factors `luma` (empty: grey), its tables and a
// restart interval, which the output drops.
std::string Picture(const std::string& luma, const std::string& size,
                    const std::string& more = "") {
  return luma.empty()
             ? "dqt=0:2 sof=0xC0:8:" + size + " dht=0,0x10 dri=4" + more
             : "dqt=0:2,1:3 sof=0xC0:8:" + size + " frame=1:" + luma +
                   ":0,2:0x11:1,3:0x11:1 dht=0,0x10,1,0x11 dri=4 sos=1:0,2:0x11,3:0x11" + more;
}

// To accept an intended change, run with CORVI_UPDATE_GOLDEN=1 and review
// tests/golden/merge_outputs.txt as a diff.
TEST(Merge, RefusalsAndOutputsMatchGoldenText) {
  // A thumbnail whose own APP1 holds a thumbnail: its temporary file is still open.
  const Bytes nested = test::MakeExifThumbnail(
      false, test::JpegWithApp1(test::MakeExifThumbnail(false, test::TinyGrayJpeg())));
  // An Exif segment at the limit (its length field 65535) whose new thumbnail is larger.
  const Bytes big = Build("sof=0xC0:8:64:64"), small = Build("dht=0,0x10");
  const size_t unpadded = test::MakeExifThumbnail(false, big).size();
  const Bytes full =
      test::MakeExifThumbnail(false, big, 0, static_cast<uint32_t>(65533 - unpadded));
  ASSERT_EQ(full.size(), 65533u);
  const Bytes exif = test::MakeExifThumbnail(true, {});
  const std::string xmp = std::string("http://ns.adobe.com/xap/1.0/") + '\0' + "<x>Cam</x>";
  PropertyList wrong_size, make;
  wrong_size.SetString(0x10F, reinterpret_cast<const uint8_t*>("Camera"), 7);
  make.SetString(0x10F, reinterpret_cast<const uint8_t*>("Abc"), 4);
  make.SetShort(0x9999, 7);  // held by no entry: changes nothing
  const std::vector<Bytes> app1[] = {
      {},
      {nested},
      {full},
      {test::MakeExifThumbnail(false, {})},
      {test::MakeExifThumbnail(false, small)},
      {test::MakeExifThumbnail(true, small, 300)},  // declared 300 bytes longer
      {test::MakeExifThumbnail(false, Build("sof=0xC0:8:32:32 dht=0,0x10"))},
      {exif, Bytes(xmp.begin(), xmp.end()), exif}};
  const PropertyList* overrides[] = {nullptr, &wrong_size, &make};
  const std::string colour = "dqt=0:1,1:1 frame=1:0x11:0,2:0x11:1,3:0x11:1 ";
  const std::string cases[] = {
      // Refused.
      "dqt= sof= sos=", "sof=", "dqt=", "sos=", "sof=0xC1:8:8:8", "sof=0xC2:8:8:8", "se=62",
      "ahal=1", "sof=0xC0:12:8:8", "frame=4:0x11:0", "sos=4:0", "dqt=4:1", "dqt=0:1,0:1",
      "frame=1:0x11:1", "frame=1:0x11:5", colour + "(a component not in the scan)", "sos=1:0x40",
      "sos=1:0x04", "frame=1:0x22:0", "dht=0,1 (a table the scan does not use)", "dht=0x20",
      "frame=1:0x11:0,2:0x21:0,3:0x11:0 sos=1:0,2:0x11,3:0x11",
      "frame=0:0x11:0,1:0x11:0,2:0x11:0 sos=0:0,1:0,2:0", "sof=0xC0:8:0:8",
      colour + "sof=0xC0:8:65535:65535 sos=1:0,2:0x11,3:0x11", "app1=1 (nested thumbnail)",
      "app1=2 (Exif segment at the limit)", "app1=3 overrides=1 (a Make of 7 bytes)",
      // Accepted: a second record of an id replaces the first; reciprocals of +infinity
      // saturate, 0 times infinity is 0; 16-bit entries.
      "dqt=0:1,3:1", "frame=1:0x22:5,1:0x11:0", "dqt=0:0 dht=0,0x10", "dqt= dqt16=0:255 dht=0,0x10",
      // Pictures: every sampling mode, point sampling, nine taps, a fit to size, thumbnails,
      // overrides that reach every Exif segment and nothing else.
      Picture("0x11", "40:24"), Picture("0x21", "40:24"), Picture("0x12", "40:24"),
      Picture("0x22", "40:24"), Picture("", "40:24"), Picture("0x22", "40:24", " layer=80:48"),
      Picture("0x22", "40:24", " layer=68:41"), Picture("0x22", "160:120", " layer=100:100"),
      Picture("", "40:24", " app1=4"), Picture("", "40:24", " app1=5"),
      Picture("", "40:24", " app1=6 (a thumbnail larger than the old)"),
      Picture("", "40:24", " app1=7 overrides=2")};
  const Background background{0x2000, 0x8000, 0xC000};
  std::string dump;
  for (const std::string& layout : cases) {
    SCOPED_TRACE(layout);
    const Groups sof = Field(layout, "sof", "0xC0:8:8:8");
    const std::vector<uint32_t> size = sof.empty() ? std::vector<uint32_t>{0, 8, 8, 8} : sof[0];
    if (size[2] == 65535 && PhysicalMemoryBytes() > (uint64_t{100} << 30)) {
      dump += "== " + layout + "\nImage too large for this machine's memory\n";
      continue;  // 51 GB of coefficients would be allowed here
    }
    RawLayer layer, decoded;
    const bool picture = layout.find("dri=") != std::string::npos;  // fair tables: kept
    const std::string frame_size = std::to_string(size[2]) + ":" + std::to_string(size[3]);
    const std::vector<uint32_t> from = Field(layout, "layer", picture ? frame_size : "8:8")[0];
    test::MakeGradientLayer(layer, from[0], from[1]);
    const Bytes jpeg = Build(layout, app1[Field(layout, "app1", "0")[0][0]]);
    const test::MergeOutput out =
        test::MergeBytes(jpeg, layer, background, overrides[Field(layout, "overrides", "0")[0][0]]);
    if (!out.error.empty()) {
      dump += "== " + layout + "\n" + out.error + "\n";
      continue;
    }
    const test::ScanResult scan = test::ScanBytes(out.bytes);
    EXPECT_EQ(scan.error, L"");
    dump += "== " + layout + "\n" + test::Fnv1a64(out.bytes.data(), out.bytes.size()) + "\n" +
            test::DumpText(scan, out.bytes);
    if (layout.find("dht=") == std::string::npos) {
      continue;  // no tables to decode with
    }
    ASSERT_TRUE(test::DecodeBytes(out.bytes, decoded));
    ASSERT_EQ(decoded.width, size[2]);
    ASSERT_EQ(decoded.height, size[3]);
    if (!picture) {
      continue;
    }
    if (from[0] == size[2] && from[1] == size[3]) {
      const bool gray = Field(layout, "frame", "1:0x11:0").size() == 1;
      EXPECT_GT(test::Psnr(test::Rgb8(decoded), test::Rgb8(layer, &background, gray)), 30);
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
  }
  test::ExpectGolden("merge_outputs.txt", dump);
}

}  // namespace
}  // namespace corvi
