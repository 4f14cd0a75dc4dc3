// Segment re-emission: what the rewriter does to the APP1 segment (overrides, the thumbnail made
// anew, its size in the directory's byte order, the segment's limit) and to the other segments.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "base/property.h"
#include "base/raw_layer.h"
#include "merge/byte_buffer.h"
#include "merge/merge.h"
#include "merge/segment_writer.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/merge_support.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::TiffBuilder;

// A grey thumbnail template: a frame of `size` × `size` with one byte of scan data.
Bytes ThumbnailTemplate(uint16_t size, const Bytes& app1_payload = {}) {
  std::vector<uint8_t> one_code(16, 0);
  one_code[0] = 1;
  test::JpegBuilder builder;
  builder.Soi();
  if (!app1_payload.empty()) {
    builder.Segment(0xE1, app1_payload);
  }
  return builder.Dqt(0, 2)
      .Sof(0xC0, 8, size, size, {{1, 0x11, 0}})
      .Dht(0, 0, one_code, {0x00})
      .Dht(1, 0, one_code, {0x00})
      .Sos({{1, 0x00}})
      .Entropy({0x00})
      .Eoi()
      .bytes();
}

struct ExifPlace {
  Bytes payload;              // the APP1 payload, "Exif\0\0" first
  uint32_t make_value = 0;    // offsets in the payload
  uint32_t length_value = 0;  // the value field of tag 0x202
  uint32_t thumbnail = 0;     // where the thumbnail starts
};

// Make "Cam" and a thumbnail `thumbnail` declared `extra` bytes longer than it is, `padding`
// bytes of zeros before it.
ExifPlace ExifWithThumbnail(bool motorola, const Bytes& thumbnail, uint32_t extra = 0,
                            uint32_t padding = 0) {
  TiffBuilder b(motorola);
  auto dir = b.Directory(
      {{0x10F, 2, 4, TiffBuilder::Ascii("Cam")}, {0x201, 4, 1, {}, 0}, {0x202, 4, 1, {}, 0}});
  b.Append(Bytes(padding, 0));
  Bytes stored = thumbnail;
  stored.insert(stored.end(), extra, 0);
  const uint32_t at = b.Append(stored);
  b.Patch32(dir.value_field[1], at);
  b.Patch32(dir.value_field[2], static_cast<uint32_t>(stored.size()));
  return {b.ExifPayload(), dir.value[0] + 6, dir.value_field[2] + 6, at + 6};
}

// The payload of the first APP1 of a file.
Bytes App1Payload(const Bytes& file) {
  for (size_t i = 2; i + 4 <= file.size();) {
    const size_t length = size_t{file[i + 2]} << 8 | file[i + 3];
    if (file[i + 1] == 0xE1) {
      return Bytes(file.begin() + static_cast<std::ptrdiff_t>(i + 4),
                   file.begin() + static_cast<std::ptrdiff_t>(i + 2 + length));
    }
    i += 2 + length;
  }
  return {};
}

uint32_t Read32(const uint8_t* p, bool motorola) {
  return motorola ? uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3]
                  : uint32_t{p[3]} << 24 | uint32_t{p[2]} << 16 | uint32_t{p[1]} << 8 | p[0];
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
  const Case cases[] = {{false, 8, 0}, {true, 8, 0}, {false, 8, 300}, {true, 32, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.motorola << " " << c.frame << " " << c.extra);
    const Bytes thumbnail = ThumbnailTemplate(c.frame);
    const ExifPlace exif = ExifWithThumbnail(c.motorola, thumbnail, c.extra);
    const test::MergeOutput out =
        test::MergeBytes(test::JpegWithApp1(exif.payload), layer, Background());
    ASSERT_EQ(out.error, L"");
    const Bytes payload = App1Payload(out.bytes);
    const uint32_t size = Read32(&payload[exif.length_value], c.motorola);
    const uint32_t old_size = static_cast<uint32_t>(thumbnail.size()) + c.extra;
    ASSERT_LE(exif.thumbnail + size, payload.size());
    // The new thumbnail stands where the old one did, and decodes at its own frame size.
    const Bytes made(payload.begin() + exif.thumbnail, payload.begin() + exif.thumbnail + size);
    RawLayer decoded;
    ASSERT_TRUE(test::DecodeBytes(made, decoded));
    EXPECT_EQ(decoded.width, c.frame);
    if (size < old_size) {
      // A smaller thumbnail leaves zeros behind it and the segment's size as it was.
      EXPECT_EQ(payload.size(), exif.payload.size());
      for (uint32_t i = exif.thumbnail + size; i < exif.thumbnail + old_size; ++i) {
        ASSERT_EQ(payload[i], 0) << i;
      }
    } else {
      EXPECT_EQ(payload.size(), exif.thumbnail + size);
    }
  }
}

TEST_F(SegmentWrite, RefusalsLeaveTheOutputEmpty) {
  // A thumbnail whose own APP1 holds a thumbnail: its temporary file is still open.
  const Bytes inner = ExifWithThumbnail(false, ThumbnailTemplate(8)).payload;
  const Bytes nested = ExifWithThumbnail(false, ThumbnailTemplate(8, inner)).payload;
  // An Exif segment at the limit (its length field 65535) whose new thumbnail is larger.
  const Bytes big_thumbnail = ThumbnailTemplate(64);
  const size_t unpadded = ExifWithThumbnail(false, big_thumbnail).payload.size();
  const ExifPlace full =
      ExifWithThumbnail(false, big_thumbnail, 0, static_cast<uint32_t>(65533 - unpadded));
  ASSERT_EQ(full.payload.size(), 65533u);
  PropertyList wrong_size;
  wrong_size.SetString(0x10F, reinterpret_cast<const uint8_t*>("Camera"), 7);

  struct Case {
    const char* what;
    Bytes payload;
    const PropertyList* overrides;
    std::wstring prefix;
  };
  const Case cases[] = {
      {"nested thumbnail", nested, nullptr, L"File "},
      {"segment too long", full.payload, nullptr, L"Exif segment too long ("},
      {"size mismatch", ExifWithThumbnail(false, {}).payload, &wrong_size,
       L"Size mismatch in overridden property"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const test::MergeOutput out =
        test::MergeBytes(test::JpegWithApp1(c.payload), layer, Background(), c.overrides);
    EXPECT_EQ(out.error.rfind(c.prefix, 0), 0u) << std::string(out.error.begin(), out.error.end());
    EXPECT_TRUE(out.bytes.empty());
    EXPECT_EQ(out.size, 0u);
  }
}

TEST_F(SegmentWrite, OverridesReachEveryExifSegmentButNoOtherContent) {
  const ExifPlace exif = ExifWithThumbnail(true, {});
  const Bytes xmp = [] {
    const std::string text = std::string("http://ns.adobe.com/xap/1.0/") + '\0' + "<x>Cam</x>";
    return Bytes(text.begin(), text.end());
  }();
  const Bytes tail = test::JpegBuilder().Segment(0xE1, xmp).Segment(0xE1, exif.payload).bytes();
  PropertyList overrides;
  overrides.SetString(0x10F, reinterpret_cast<const uint8_t*>("Abc"), 4);
  overrides.SetShort(0x9999, 7);  // held by no entry: changes nothing
  const test::MergeOutput out =
      test::MergeBytes(test::JpegWithApp1(exif.payload, tail), layer, Background(), &overrides);
  ASSERT_EQ(out.error, L"");
  test::ScanResult scan = test::ScanBytes(out.bytes);
  ASSERT_EQ(scan.error, L"");
  int exif_segments = 0;
  bool xmp_kept = false;
  for (uint32_t i = 0; i < scan.markers->count; ++i) {
    const JPEGReader::Marker* m = scan.markers->items[i];
    if (m->code != 0xE1) {
      continue;
    }
    const Bytes payload(m->payload, m->payload + m->length);
    if (payload == xmp) {
      xmp_kept = true;
    } else {
      ++exif_segments;
      EXPECT_EQ(std::memcmp(&payload[exif.make_value], "Abc", 4), 0);
    }
  }
  EXPECT_EQ(exif_segments, 2);
  EXPECT_TRUE(xmp_kept);
}

TEST(SegmentWriter, FinishesTheLengthAtItsEndAndAnEmptyPayloadIsTwoBytes) {
  ByteBuffer out;
  { SegmentWriter empty(0xFE, out); }
  {
    SegmentWriter segment(0xE5, out);
    const Bytes big(300, 0xAB);
    out.AppendBlock(big.data(), 300);  // grows the buffer under the writer
  }
  ASSERT_EQ(out.length, 4 + 4 + 300);
  EXPECT_EQ(Bytes(out.data, out.data + 8), (Bytes{0xFF, 0xFE, 0x00, 0x02, 0xFF, 0xE5, 0x01, 0x2E}));
}

TEST_F(SegmentWrite, TemporaryThumbnailLivesInTheCurrentDirectoryByDefault) {
  const Bytes file = test::JpegWithApp1(ExifWithThumbnail(false, ThumbnailTemplate(8)).payload);
  test::ScanResult scan = test::ScanBytes(file);
  ASSERT_EQ(scan.error, L"");
  const std::filesystem::path previous = std::filesystem::current_path();
  const std::filesystem::path dir = test::MakeTempDir();
  std::filesystem::current_path(dir);
  {
    OutputFile output(L"out.jpg");
    PropertyList none;
    Merge(output, layer, *scan.markers, none, Background());
    EXPECT_GT(output.size, 0u);
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "tempthumb.jpg"));  // made, read and removed
  std::filesystem::current_path(previous);
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace corvi
