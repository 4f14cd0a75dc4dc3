// Tests of the APP1 segment: Exif header, thumbnails, XMP decoding, other payloads and dumps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "base/byte_coverage.h"
#include "base/raw_layer.h"
#include "decode/decode_state.h"
#include "exif/tiff_entry.h"
#include "jpeg/markers.h"
#include "platform/format.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;
using test::ScanBytes;
using test::ScanResult;
using test::TiffBuilder;

Bytes Concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// A stream of SOI, an APP3 with two bytes, EOI: its APP3 payload stays unclaimed.
const Bytes kSmallThumbnail = {0xFF, 0xD8, 0xFF, 0xE3, 0x00, 0x04, 0x01, 0x02, 0xFF, 0xD9};

// An Exif payload whose first directory holds Make "Cam" and the two thumbnail tags. The
// thumbnail, when given, is stored behind the directory inside the TIFF data.
Bytes ExifWithThumbnail(bool motorola, const Bytes& thumbnail, uint32_t offset = 0,
                        uint32_t length = 0) {
  TiffBuilder b(motorola);
  auto dir = b.Directory({{0x10F, 2, 4, TiffBuilder::Ascii("Cam")},
                          {0x201, 4, 1, {}, offset},
                          {0x202, 4, 1, {}, length}});
  if (!thumbnail.empty()) {
    uint32_t at = b.Append(thumbnail);
    b.Patch32(dir.value_field[1], at);
    b.Patch32(dir.value_field[2], static_cast<uint32_t>(thumbnail.size()));
  }
  return b.ExifPayload();
}

const APP1Marker* FirstApp1(const ScanResult& r) {
  return r.markers->count > 0 ? dynamic_cast<const APP1Marker*>(r.markers->items[0]) : nullptr;
}

std::string DumpSegment(const ScanResult& r, const Bytes& file) {
  OutStream stream;
  r.markers->items[0]->Dump(file.data(), 1, stream);
  return stream.Text();
}

TEST(APP1Marker, DumpsEntriesAndAThumbnailInsideTheSegment) {
  Bytes file = test::JpegWithApp1(ExifWithThumbnail(false, kSmallThumbnail));
  ScanResult r = ScanBytes(file);
  ASSERT_NE(FirstApp1(r), nullptr);
  EXPECT_EQ(DumpSegment(r, file),
            "  Marker APP1 (bytes 2 - 71)\n"
            "    TIFF data in Intel order\n"
            "    Tag 0x10f \"Make\" (value bytes 30 - 33):\n"
            "     \"Cam\"\n"
            "    Tag 0x201 \"ThumbnailOffset\" (value bytes 42 - 45):\n"
            "     50\n"
            "    Tag 0x202 \"ThumbnailLength\" (value bytes 54 - 57):\n"
            "     10\n"
            "    Thumbnail:\n"
            "      Marker e3 (bytes 64 - 69)\n"
            "       01 02\n");
  EXPECT_TRUE(r.coverage->IsUnidentifiedAt(68, 2));  // the thumbnail's APP3 payload
  EXPECT_FALSE(r.coverage->IsUnidentifiedAt(62, 1));
}

TEST(APP1Marker, FindsThumbnailsOutsideTheSegmentInOpenBytes) {
  // The thumbnail sits in the unclaimed payload of an APP3 behind the APP1, 12 bytes into the
  // file's APP1 payload of 64 bytes: file offset 6 + 64 + 4 = 74, TIFF offset 62.
  Bytes app3 =
      Concat({0xFF, 0xE3, 0x00, static_cast<uint8_t>(2 + kSmallThumbnail.size())}, kSmallThumbnail);
  Bytes payload = ExifWithThumbnail(true, {}, 62, static_cast<uint32_t>(kSmallThumbnail.size()));
  payload.resize(64, 0);
  ScanResult r = ScanBytes(test::JpegWithApp1(payload, app3));
  EXPECT_EQ(r.error, L"");
  ASSERT_NE(FirstApp1(r), nullptr);
  EXPECT_NE(FirstApp1(r)->thumbnail, nullptr);

  // The same thumbnail between segments, at file offset 70, is claimed first, and the scan then
  // fails on it.
  Bytes between = ExifWithThumbnail(true, {}, 58, static_cast<uint32_t>(kSmallThumbnail.size()));
  between.resize(64, 0);
  ScanResult s = ScanBytes(test::JpegWithApp1(between, kSmallThumbnail));
  EXPECT_EQ(s.error, L"Invalid offset or corrupt data");
}

struct NoThumbnailCase {
  const char* what;
  Bytes thumbnail;
  uint32_t offset;
  uint32_t length;
};

TEST(APP1Marker, DropsThumbnailsSilently) {
  const NoThumbnailCase cases[] = {
      {"length 0", {}, 50, 0},
      {"length 1", {}, 50, 1},
      {"claimed bytes", {}, 0, 8},  // the TIFF header
      {"beyond the data", {}, 0x7FFFFFF0, 16},
      {"negative offset", {}, 0x80000000, 16},
      {"negative length", {}, 50, 0xFFFFFFF0},
      {"no EOI: the scan fails", {0xFF, 0xD8, 0xFF, 0xE3, 0x00, 0x02}, 0, 0},
      {"no SOI at its start", {0x00, 0xD8, 0xFF, 0xD9}, 0, 0},
  };
  for (const NoThumbnailCase& c : cases) {
    SCOPED_TRACE(c.what);
    ScanResult r =
        ScanBytes(test::JpegWithApp1(ExifWithThumbnail(false, c.thumbnail, c.offset, c.length)));
    EXPECT_EQ(r.error, L"");
    ASSERT_NE(FirstApp1(r), nullptr);
    EXPECT_EQ(FirstApp1(r)->thumbnail, nullptr);
    EXPECT_NE(FirstApp1(r)->directory, nullptr);
  }
}

// A thumbnail that holds an APP1 with a thumbnail, `levels` deep.
Bytes NestedThumbnails(int levels) {
  Bytes inner = kSmallThumbnail;
  for (int i = 0; i < levels - 1; ++i) {
    JpegBuilder b;
    b.Soi().Segment(0xE1, ExifWithThumbnail(i % 2 == 0, inner)).Eoi();
    inner = b.bytes();
  }
  return inner;
}

int ThumbnailDepth(const APP1Marker* marker) {
  int depth = 0;
  while (marker != nullptr && marker->thumbnail != nullptr) {
    ++depth;
    const MarkerList* list = marker->thumbnail;
    marker = list->count > 0 ? dynamic_cast<const APP1Marker*>(list->items[0]) : nullptr;
  }
  return depth;
}

TEST(APP1Marker, ScansNestedThumbnailsAsDeepAsASegmentHolds) {
  // Each level costs 68 bytes, so 900 levels nearly fill the outer segment.
  for (int levels : {1, 2, 33, 900}) {
    SCOPED_TRACE(levels);
    ScanResult r = ScanBytes(test::JpegWithApp1(ExifWithThumbnail(true, NestedThumbnails(levels))));
    EXPECT_EQ(r.error, L"");
    EXPECT_EQ(ThumbnailDepth(FirstApp1(r)), levels);
  }
}

Bytes XmpPayload(const Bytes& packet) {
  const char* signature = "http://ns.adobe.com/xap/1.0/";
  Bytes payload(signature, signature + 29);  // with its zero byte
  return Concat(payload, packet);
}

struct XmpCase {
  const char* what;
  Bytes packet;
  const wchar_t* text;
};

TEST(APP1Marker, DecodesXmpPackets) {
  const XmpCase cases[] = {
      {"line ends", {0x61, 0x20, 0x0D, 0x0A, 0x0D, 0x0A, 0x62}, L"a\nb"},
      {"empty", {}, L""},
      {"tabs stay", {0x61, 0x09, 0x0A, 0x62}, L"a\t\nb"},
      {"cut two-byte sequence", {0x61, 0xC3}, L"a"},
      {"bad continuation", {0x61, 0xC3, 0x41, 0x62}, L"a"},
      {"continuation as lead", {0x61, 0x80, 0x62}, L"a"},
      {"lead 11111xxx", {0x61, 0xF8, 0x62}, L"a"},
      {"two and three bytes", {0xC3, 0xA9, 0xE2, 0x82, 0xAC}, L"\u00E9\u20AC"},
      {"four bytes cut to 16 bits", {0xF0, 0x9F, 0x98, 0x80}, L"\uF600"},
  };
  for (const XmpCase& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes file = test::JpegWithApp1(XmpPayload(c.packet));
    ScanResult r = ScanBytes(file);
    ASSERT_EQ(r.error, L"");
    const APP1Marker* marker = FirstApp1(r);
    ASSERT_NE(marker, nullptr);
    ASSERT_NE(marker->xmp, nullptr);
    EXPECT_STREQ(marker->xmp, c.text);
    EXPECT_EQ(marker->directory, nullptr);
    EXPECT_FALSE(r.coverage->IsUnidentifiedAt(6 + 28, 1));  // all of the payload is claimed
  }
  Bytes file = test::JpegWithApp1(XmpPayload({'x', 0x0A}));
  EXPECT_EQ(DumpSegment(ScanBytes(file), file),
            "  Marker APP1 (bytes 2 - 36)\n"
            "    Adobe XMP packet:\n"
            "x\n\n");
}

TEST(APP1Marker, DumpsOtherPayloadsInHex) {
  Bytes five = {'E', 'x', 'i', 'f', 0};
  Bytes file = test::JpegWithApp1(five);
  ScanResult r = ScanBytes(file);
  EXPECT_EQ(r.error, L"");
  EXPECT_EQ(DumpSegment(r, file),
            "  Marker APP1 (bytes 2 - 10)\n"
            "     45 78 69 66 00\n");

  Bytes almost_xmp = XmpPayload({});
  almost_xmp.resize(28);
  almost_xmp.push_back('!');  // 29 bytes, the zero byte replaced
  Bytes seventeen(17, 0xAB);
  for (const Bytes& payload : {almost_xmp, seventeen}) {
    Bytes other = test::JpegWithApp1(payload);
    std::string text = DumpSegment(ScanBytes(other), other);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
  }
}

struct FailureCase {
  const char* what;
  Bytes file;
  const wchar_t* error;
};

TEST(APP1Marker, ReportsBadSegments) {
  TiffBuilder bad_type(false);
  bad_type.Directory({{0x112, 6, 1, {}}});
  const FailureCase cases[] = {
      {"Exif with no TIFF header", test::JpegWithApp1({'E', 'x', 'i', 'f', 0, 0}),
       L"Invalid offset or corrupt data"},
      {"Motorola with 42 little-endian",
       test::JpegWithApp1({'E', 'x', 'i', 'f', 0, 0, 0x4D, 0x4D, 0x2A, 0, 0, 0, 0, 8}),
       L"Exif header has invalid start marker"},
      {"type 6 in the first directory", test::JpegWithApp1(bad_type.ExifPayload()),
       L"Unknown TIFF data type"},
      {"stored length 1", JpegBuilder().Soi().SegmentWithLength(0xE1, 1, {}).Eoi().bytes(),
       L"Invalid header length or corrupt data"},
      // A segment at the end of the data that promises more than exists: its signature is not
      // read past the end.
      {"cut Exif at the end",
       {0xFF, 0xD8, 0xFF, 0xE1, 0x00, 0x40, 'E', 'x', 0xFF, 0xD9},
       L"Invalid offset or corrupt data"},
  };
  for (const FailureCase& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(ScanBytes(c.file).error, c.error);
  }
}

TEST(APP1Marker, TIFFDataIsBoundToTheSegment) {
  // A value offset behind the segment is dropped although the bytes there are unclaimed.
  TiffBuilder b(false);
  auto dir = b.Directory({{0x11A, 5, 1, b.Rational(1, 1)}});
  Bytes payload = b.ExifPayload();
  payload.resize(payload.size() - 8);  // the rational now lies behind the segment
  Bytes file = test::JpegWithApp1(payload, Bytes(8, 0));
  ScanResult r = ScanBytes(file);
  ASSERT_NE(FirstApp1(r), nullptr);
  EXPECT_EQ(FirstApp1(r)->directory->count, 0u);
  EXPECT_EQ(dir.value[0] + 6, payload.size());
}

// Apply collects Exif values, the later segment winning, and reads the thumbnails' headers into
// one layer of their own.
TEST(APP1Marker, ApplyCollectsValuesAndThumbnailHeaders) {
  Bytes tiny = test::TinyGrayJpeg();
  TiffBuilder first(false);
  first.Directory({{0x10F, 2, 4, TiffBuilder::Ascii("One")}, {0x112, 3, 1, first.Short(6)}});
  TiffBuilder second(true);
  second.Directory({{0x10F, 2, 4, TiffBuilder::Ascii("Two")}});
  JpegBuilder b;
  b.Soi().Segment(0xE1, first.ExifPayload()).Segment(0xE1, second.ExifPayload());
  b.Segment(0xE1, ExifWithThumbnail(false, tiny)).Segment(0xE1, ExifWithThumbnail(true, tiny));
  ScanResult r = ScanBytes(b.Eoi().bytes());
  ASSERT_EQ(r.error, L"");
  RawLayer layer;
  DecodeState state;
  r.markers->items[0]->Apply(state, layer, false);
  r.markers->items[1]->Apply(state, layer, false);
  EXPECT_EQ(layer.thumbnail, nullptr);
  OutStream stream;
  layer.properties.PrintProperties(stream);
  EXPECT_EQ(stream.Text(), "Make: \"Two\"\nOrientation: 6\n");

  r.markers->items[2]->Apply(state, layer, false);
  ASSERT_NE(layer.thumbnail, nullptr);
  RawLayer* thumbnail = layer.thumbnail;
  r.markers->items[3]->Apply(state, layer, false);
  EXPECT_EQ(layer.thumbnail, thumbnail);
  EXPECT_EQ(thumbnail->width, 8u);
  EXPECT_EQ(thumbnail->height, 8u);
  EXPECT_EQ(thumbnail->pixels, nullptr);              // header-only, whatever the caller asked
  EXPECT_EQ(layer.properties.Find(0xC001), nullptr);  // the thumbnail's properties stay its own
  EXPECT_NE(thumbnail->properties.Find(0xC001), nullptr);
}

}  // namespace
}  // namespace corvi
