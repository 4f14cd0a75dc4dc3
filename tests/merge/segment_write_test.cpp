// Segment re-emission: what the rewriter does to the APP1 segment (overrides, the thumbnail made
// anew, its size in the directory's byte order, the segment's limit) and to the other segments.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "base/property.h"
#include "base/raw_layer.h"
#include "merge/merge.h"
#include "tests/support/merge_support.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;

// The payloads of the APP1 segments of a file, in order.
std::vector<Bytes> App1Payloads(const Bytes& file) {
  std::vector<Bytes> payloads;
  test::ScanResult scan = test::ScanBytes(file);
  EXPECT_EQ(scan.error, L"");
  for (uint32_t i = 0; scan.markers != nullptr && i < scan.markers->count; ++i) {
    const JPEGReader::Marker* m = scan.markers->items[i];
    if (m->code == 0xE1) {
      payloads.emplace_back(m->payload, m->payload + m->length);
    }
  }
  return payloads;
}

class SegmentWrite : public testing::Test {
 protected:
  void SetUp() override { test::MakeGradientLayer(layer, 40, 24); }
  RawLayer layer;
};

TEST_F(SegmentWrite, ThumbnailIsMadeAnewWithItsSizeInTheDirectoryByteOrder) {
  struct Case {
    bool motorola;
    uint16_t frame;  // the thumbnail's frame: small gives a smaller thumbnail than declared
    uint32_t extra;  // bytes the old thumbnail is declared longer than it is
  };
  for (const Case& c :
       {Case{false, 8, 0}, Case{true, 8, 0}, Case{false, 8, 300}, Case{true, 32, 0}}) {
    SCOPED_TRACE(testing::Message() << c.motorola << " " << c.frame << " " << c.extra);
    const Bytes thumbnail = test::GrayTemplate(c.frame);
    const test::ExifThumbnail exif = test::MakeExifThumbnail(c.motorola, thumbnail, c.extra);
    const test::MergeOutput out =
        test::MergeBytes(test::JpegWithApp1(exif.payload), layer, Background());
    ASSERT_EQ(out.error, L"");
    const Bytes payload = App1Payloads(out.bytes).at(0);
    const uint8_t* p = &payload[exif.length_value];
    const uint32_t size = c.motorola ? uint32_t{p[0]} << 24 | p[1] << 16 | p[2] << 8 | p[3]
                                     : uint32_t{p[3]} << 24 | p[2] << 16 | p[1] << 8 | p[0];
    const uint32_t old_size = static_cast<uint32_t>(thumbnail.size()) + c.extra;
    ASSERT_LE(exif.thumbnail + size, payload.size());
    // The new thumbnail stands where the old one did, and decodes at its own frame size.
    RawLayer decoded;
    ASSERT_TRUE(test::DecodeBytes(
        Bytes(payload.begin() + exif.thumbnail, payload.begin() + exif.thumbnail + size), decoded));
    EXPECT_EQ(decoded.width, c.frame);
    if (size < old_size) {  // zeros behind it, and the segment's size as it was
      EXPECT_EQ(payload.size(), exif.payload.size());
      EXPECT_EQ(Bytes(payload.begin() + exif.thumbnail + size,
                      payload.begin() + exif.thumbnail + old_size),
                Bytes(old_size - size, 0));
    } else {
      EXPECT_EQ(payload.size(), exif.thumbnail + size);
    }
  }
}

TEST_F(SegmentWrite, RefusalsLeaveTheOutputEmpty) {
  // A thumbnail whose own APP1 holds a thumbnail: its temporary file is still open.
  const Bytes inner = test::MakeExifThumbnail(false, test::GrayTemplate(8)).payload;
  const Bytes nested = test::MakeExifThumbnail(false, test::GrayTemplate(8, inner)).payload;
  // An Exif segment at the limit (its length field 65535) whose new thumbnail is larger.
  const Bytes big = test::GrayTemplate(64);
  const size_t unpadded = test::MakeExifThumbnail(false, big).payload.size();
  const Bytes full =
      test::MakeExifThumbnail(false, big, 0, static_cast<uint32_t>(65533 - unpadded)).payload;
  ASSERT_EQ(full.size(), 65533u);
  PropertyList wrong_size;
  wrong_size.SetString(0x10F, reinterpret_cast<const uint8_t*>("Camera"), 7);
  struct Case {
    Bytes payload;
    const PropertyList* overrides;
    std::wstring prefix;
  };
  const Case cases[] = {
      {nested, nullptr, L"File "},
      {full, nullptr, L"Exif segment too long ("},
      {test::MakeExifThumbnail(false, {}).payload, &wrong_size,
       L"Size mismatch in overridden property"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.prefix.begin(), c.prefix.end()));
    const test::MergeOutput out =
        test::MergeBytes(test::JpegWithApp1(c.payload), layer, Background(), c.overrides);
    EXPECT_EQ(out.error.rfind(c.prefix, 0), 0u) << std::string(out.error.begin(), out.error.end());
    EXPECT_TRUE(out.bytes.empty());
    EXPECT_EQ(out.size, 0u);
  }
}

TEST_F(SegmentWrite, OverridesReachEveryExifSegmentButNoOtherContent) {
  const test::ExifThumbnail exif = test::MakeExifThumbnail(true, {});
  const std::string text = std::string("http://ns.adobe.com/xap/1.0/") + '\0' + "<x>Cam</x>";
  const Bytes xmp(text.begin(), text.end());
  const Bytes tail = test::JpegBuilder().Segment(0xE1, xmp).Segment(0xE1, exif.payload).bytes();
  PropertyList overrides;
  overrides.SetString(0x10F, reinterpret_cast<const uint8_t*>("Abc"), 4);
  overrides.SetShort(0x9999, 7);  // held by no entry: changes nothing
  const test::MergeOutput out =
      test::MergeBytes(test::JpegWithApp1(exif.payload, tail), layer, Background(), &overrides);
  ASSERT_EQ(out.error, L"");
  const std::vector<Bytes> payloads = App1Payloads(out.bytes);
  ASSERT_EQ(payloads.size(), 3u);
  Bytes expected = exif.payload;
  std::memcpy(&expected[exif.make_value], "Abc", 4);
  EXPECT_EQ(payloads[0], expected);
  EXPECT_EQ(payloads[1], xmp);
  EXPECT_EQ(payloads[2], expected);
}

// By default the library makes "tempthumb.jpg" in the current directory, and removes it.
TEST_F(SegmentWrite, TemporaryThumbnailLivesInTheCurrentDirectoryByDefault) {
  const Bytes file =
      test::JpegWithApp1(test::MakeExifThumbnail(false, test::GrayTemplate(8)).payload);
  test::ScanResult scan = test::ScanBytes(file);  // points into `file`
  ASSERT_EQ(scan.error, L"");
  const std::filesystem::path previous = std::filesystem::current_path();
  const std::filesystem::path dir = test::MakeTempDir();
  std::filesystem::current_path(dir);
  {
    OutputFile output(L"out.jpg");
    Merge(output, layer, *scan.markers, PropertyList(), Background());
    EXPECT_GT(output.size, 0u);
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "tempthumb.jpg"));
  std::filesystem::current_path(previous);
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace corvi
