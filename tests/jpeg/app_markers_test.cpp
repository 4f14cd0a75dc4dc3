// Tests of the claims, dumps and properties of the JFIF, ICC, Ducky, Photoshop, Adobe and comment
// segments.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/byte_coverage.h"
#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;

// SOI, one segment, EOI: the segment's 0xFF is at offset 2 and its payload at offset 6.
Bytes OneSegment(uint8_t code, const Bytes& payload) {
  return JpegBuilder().Soi().Segment(code, payload).Eoi().bytes();
}

Bytes Text(const char* text) {
  return Bytes(text, text + std::strlen(text));
}

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

// The 14 bytes of a JFIF header, then `extra` thumbnail or surplus bytes.
Bytes Jfif(uint8_t units, uint16_t x_density, uint16_t y_density, uint8_t thumb_width = 0,
           uint8_t thumb_height = 0, size_t extra = 0) {
  const auto x_high = static_cast<uint8_t>(x_density >> 8);
  const auto x_low = static_cast<uint8_t>(x_density);
  const auto y_high = static_cast<uint8_t>(y_density >> 8);
  const auto y_low = static_cast<uint8_t>(y_density);
  Bytes payload{'J',         'F',         'I',    'F',   0, 1, 2, units,  //
                x_high,      x_low,       y_high, y_low,                  //
                thumb_width, thumb_height};
  payload.resize(payload.size() + extra, 0x55);
  return payload;
}

// The 12 bytes of an Adobe header: version 101, flags0 0xC001, flags1 0.
Bytes Adobe(uint8_t transform) {
  return {'A', 'd', 'o', 'b', 'e', 0, 101, 0xC0, 0x01, 0x00, 0x00, transform};
}

struct ScanCase {
  const char* name;
  Bytes stream;
  std::wstring error;  // empty: the scan succeeds
  uint32_t left;       // bytes left unclaimed, checked when the scan succeeds
  std::string dump;    // the whole dump, checked when the scan succeeds
};

void ExpectScans(const std::vector<ScanCase>& cases) {
  for (const ScanCase& c : cases) {
    SCOPED_TRACE(c.name);
    test::ScanResult result = test::ScanBytes(c.stream);
    EXPECT_EQ(result.error, c.error);
    if (c.error.empty() && result.error.empty()) {
      EXPECT_EQ(result.coverage->LeftCount(), c.left);
      EXPECT_EQ(test::DumpText(result, c.stream), c.dump);
    }
  }
}

TEST(APP0Marker, ClaimsAndDumpsJfif) {
  ExpectScans({
      {"dots per inch, no thumbnail", OneSegment(0xE0, Jfif(1, 72, 72)), L"", 0,
       "  Marker APP0 (bytes 2 - 19)\n"
       "    JFIF version 0x0102\n"
       "    X resolution: 72 DPI\n"
       "    Y resolution: 72 DPI\n"
       "    Thumbnail size 0 x 0 (0 bytes)\n"},
      {"2 x 2 thumbnail", OneSegment(0xE0, Jfif(2, 28, 300, 2, 2, 12)), L"", 0,
       "  Marker APP0 (bytes 2 - 31)\n"
       "    JFIF version 0x0102\n"
       "    X resolution: 28 DPCM\n"
       "    Y resolution: 300 DPCM\n"
       "    Thumbnail size 2 x 2 (12 bytes)\n"},
      {"two bytes more than declared", OneSegment(0xE0, Jfif(0, 1, 2, 0, 0, 2)), L"", 2,
       "  Marker APP0 (bytes 2 - 21)\n"
       "    JFIF version 0x0102\n"
       "    Aspect ratio 1:2\n"
       "    Thumbnail size 0 x 0 (0 bytes)\n"
       "      (I actually have 2 bytes of thumbnail!)\n"},
      {"units 3", OneSegment(0xE0, Jfif(3, 72, 96)), L"", 0,
       "  Marker APP0 (bytes 2 - 19)\n"
       "    JFIF version 0x0102\n"
       "    Bogus aspect ratio code 3 72 x 96\n"
       "    Thumbnail size 0 x 0 (0 bytes)\n"},
      {"JFXX", OneSegment(0xE0, Concat({Text("JFXX"), {0, 0x10, 1, 2, 3}})),
       L"Unknown APP0 signature", 0, ""},
      {"four bytes", OneSegment(0xE0, Text("JFIF")), L"Unknown APP0 signature", 0, ""},
      {"empty", OneSegment(0xE0, {}), L"Unknown APP0 signature", 0, ""},
      {"stored length 1", JpegBuilder().Soi().SegmentWithLength(0xE0, 1, {}).Eoi().bytes(),
       L"Unknown APP0 signature", 0, ""},
      {"signature only: header claimed past the end", OneSegment(0xE0, Concat({Text("JFIF"), {0}})),
       L"Invalid offset or corrupt data", 0, ""},
      {"thumbnail larger than held", OneSegment(0xE0, Jfif(1, 72, 72, 1, 1, 2)),
       L"Invalid offset or corrupt data", 0, ""},
  });
  Bytes lower = Jfif(1, 72, 72);
  lower[1] = 'f';
  EXPECT_EQ(test::ScanBytes(OneSegment(0xE0, lower)).error, L"Unknown APP0 signature");
}

struct ApplyCase {
  uint8_t units;
  bool stored;
};

TEST(APP0Marker, ApplyStoresResolutionForInchesAndCentimetres) {
  const ApplyCase cases[] = {{0, false}, {1, true}, {2, true}, {3, false}, {255, false}};
  for (const ApplyCase& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.units));
    Bytes stream = OneSegment(0xE0, Jfif(c.units, 300, 0x1234));
    test::ScanResult result = test::ScanBytes(stream);
    ASSERT_EQ(result.error, L"");
    DecodeState state;
    RawLayer layer;
    result.markers->items[0]->Apply(state, layer, false);
    if (!c.stored) {
      EXPECT_EQ(layer.properties.count, 0u);
      continue;
    }
    ASSERT_EQ(layer.properties.count, 3u);
    const Property* unit = layer.properties.items[0];
    EXPECT_EQ(unit->id, 0x128u);
    EXPECT_EQ(unit->type, 3u);
    uint16_t unit_value = 0;
    std::memcpy(&unit_value, unit->data, 2);
    EXPECT_EQ(unit_value, c.units);  // JFIF's code, not TIFF's
    const uint32_t ids[] = {0x11A, 0x11B};
    const uint32_t numerators[] = {300, 0x1234};
    for (int i = 0; i < 2; ++i) {
      const Property* p = layer.properties.items[i + 1];
      EXPECT_EQ(p->id, ids[i]);
      EXPECT_EQ(p->type, 5u);
      uint32_t fraction[2] = {};
      std::memcpy(fraction, p->data, 8);
      EXPECT_EQ(fraction[0], numerators[i]);
      EXPECT_EQ(fraction[1], 1u);
    }
  }
}

TEST(APP0Marker, ApplyReplacesEarlierValuesInTheirSlots) {
  Bytes stream = OneSegment(0xE0, Jfif(2, 10, 20));
  test::ScanResult result = test::ScanBytes(stream);
  ASSERT_EQ(result.error, L"");
  DecodeState state;
  RawLayer layer;
  layer.properties.SetRational(0x11B, 7, 3);
  layer.properties.SetShort(0x128, 3);
  result.markers->items[0]->Apply(state, layer, true);
  ASSERT_EQ(layer.properties.count, 3u);
  EXPECT_EQ(layer.properties.items[0]->id, 0x11Bu);
  EXPECT_EQ(layer.properties.items[1]->id, 0x128u);
  EXPECT_EQ(layer.properties.items[2]->id, 0x11Au);
  uint32_t fraction[2] = {};
  std::memcpy(fraction, layer.properties.items[0]->data, 8);
  EXPECT_EQ(fraction[0], 20u);
  EXPECT_EQ(fraction[1], 1u);
}

TEST(APP14Marker, ClaimsAdobeHeaderOnly) {
  ExpectScans({
      {"YCbCr", OneSegment(0xEE, Adobe(1)), L"", 0,
       "  Marker APP14 (bytes 2 - 17)\n"
       "    \"Adobe\" signature\n"
       "    version=101, flags0=c001, flags1=0, color transform=YCbCr\n"},
      {"YCCK with surplus", OneSegment(0xEE, Concat({Adobe(2), {9, 9}})), L"", 2,
       "  Marker APP14 (bytes 2 - 19)\n"
       "    \"Adobe\" signature\n"
       "    version=101, flags0=c001, flags1=0, color transform=YCCK\n"},
      {"transform 0", OneSegment(0xEE, Adobe(0)), L"", 0,
       "  Marker APP14 (bytes 2 - 17)\n"
       "    \"Adobe\" signature\n"
       "    version=101, flags0=c001, flags1=0, color transform=Unknown\n"},
      {"transform 3", OneSegment(0xEE, Adobe(3)), L"", 0,
       "  Marker APP14 (bytes 2 - 17)\n"
       "    \"Adobe\" signature\n"
       "    version=101, flags0=c001, flags1=0, color transform=Unknown\n"},
      {"foreign content", OneSegment(0xEE, Text("Adobf 12345")), L"", 11,
       "  Marker APP14 (bytes 2 - 16)\n"},
      {"four bytes", OneSegment(0xEE, Text("Adob")), L"", 4, "  Marker APP14 (bytes 2 - 9)\n"},
      {"empty", OneSegment(0xEE, {}), L"", 0, "  Marker APP14 (bytes 2 - 5)\n"},
      {"shorter than its header", OneSegment(0xEE, Text("Adobe123")),
       L"Invalid offset or corrupt data", 0, ""},
      {"stored length 0", JpegBuilder().Soi().SegmentWithLength(0xEE, 0, {}).Eoi().bytes(),
       L"Invalid offset or corrupt data", 0, ""},
  });
}

TEST(SignatureSegments, PrintSignatureLineOnlyForFullSignature) {
  ExpectScans({
      {"Ducky", OneSegment(0xEC, Text("Ducky")), L"", 0,
       "  Marker APP12 (bytes 2 - 10)\n"
       "    \"Ducky\" signature\n"},
      {"Duck", OneSegment(0xEC, Text("Duck")), L"", 0, "  Marker APP12 (bytes 2 - 9)\n"},
      {"ducky", OneSegment(0xEC, Text("ducky")), L"", 0, "  Marker APP12 (bytes 2 - 10)\n"},
      {"Photoshop", OneSegment(0xED, Concat({Text("Photoshop 3.0"), {0}, Text("8BIM")})), L"", 0,
       "  Marker APP13 (bytes 2 - 23)\n"
       "    Photoshop 3.0 content\n"},
      {"Photoshop without zero byte", OneSegment(0xED, Text("Photoshop 3.08BIM")), L"", 0,
       "  Marker APP13 (bytes 2 - 22)\n"},
      {"Photoshop 13 bytes", OneSegment(0xED, Text("Photoshop 3.0")), L"", 0,
       "  Marker APP13 (bytes 2 - 18)\n"},
      {"ICC profile", OneSegment(0xE2, Concat({Text("ICC_PROFILE"), {0, 1, 1}})), L"", 0,
       "  Marker APP2 (bytes 2 - 19)\n"
       "    \"ICC_PROFILE\" signature\n"},
      {"ICC 11 bytes", OneSegment(0xE2, Text("ICC_PROFILE")), L"", 0,
       "  Marker APP2 (bytes 2 - 16)\n"},
      {"empty APP2", OneSegment(0xE2, {}), L"", 0, "  Marker APP2 (bytes 2 - 5)\n"},
  });
}

TEST(COMMarker, EscapesControlAndHighBytes) {
  ExpectScans({
      {"example", OneSegment(0xFE, {'H', 'i', 0x0A, 0x7F, 0xE9}), L"", 0,
       "  Marker COM (bytes 2 - 10): \"Hi\\n\\177\\351\"\n"},
      {"empty", OneSegment(0xFE, {}), L"", 0, "  Marker COM (bytes 2 - 5): \"\"\n"},
      {"edges", OneSegment(0xFE, {'"', '\\', 13, 9, 0, 31, 32, 126, 128, 255}), L"", 0,
       "  Marker COM (bytes 2 - 15): \"\"\\\\r\\t\\000\\037 ~\\200\\377\"\n"},
  });
}

TEST(ClaimAllSegments, RefuseStoredLengthsBelowTwo) {
  for (uint8_t code : {0xE2, 0xEC, 0xED, 0xFE}) {
    for (uint16_t stored : {0, 1}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(code) << "/" << stored);
      Bytes stream = JpegBuilder().Soi().SegmentWithLength(code, stored, {}).Eoi().bytes();
      EXPECT_EQ(test::ScanBytes(stream).error, L"Invalid header length or corrupt data");
    }
  }
}

// A segment at the very end of the data whose stored length promises 59998 bytes: the first bytes
// of a signature are there, the rest is not. The buffer is sized exactly, so the address
// sanitizer sees any read behind it.
TEST(AppMarkers, SegmentAtEndOfDataDoesNotReadPastIt) {
  struct EndCase {
    uint8_t code;
    Bytes tail;
    const wchar_t* error;
  };
  const EndCase cases[] = {
      {0xE0, Text("JFIF"), L"Invalid offset or corrupt data"},
      {0xE0, {}, L"Invalid offset or corrupt data"},
      {0xE0, Concat({Text("JFIF"), {0, 1}}), L"Invalid offset or corrupt data"},
      {0xE0, Concat({Text("JFXX"), {0, 1}}), L"Unknown APP0 signature"},
      {0xEE, Text("Adob"), L"Invalid offset or corrupt data"},
      {0xEE, Text("Adobe"), L"Invalid offset or corrupt data"},
      {0xE2, Text("ICC_"), L"Invalid offset or corrupt data"},
      {0xEC, Text("Duck"), L"Invalid offset or corrupt data"},
      {0xED, Text("Phot"), L"Invalid offset or corrupt data"},
      {0xFE, Text("Hi"), L"Invalid offset or corrupt data"},
  };
  for (const EndCase& c : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(c.code) << "/" << c.tail.size());
    // The COM swallows the last FF D9, so the walk goes on behind it.
    Bytes stream = JpegBuilder()
                       .Soi()
                       .Segment(0xFE, {0xFF, 0xD9})
                       .SegmentWithLength(c.code, 60000, c.tail)
                       .bytes();
    auto data = std::make_unique<uint8_t[]>(stream.size());
    std::memcpy(data.get(), stream.data(), stream.size());
    const auto size = static_cast<int32_t>(stream.size());
    ByteCoverage coverage(data.get(), size);
    MarkerList markers;
    std::wstring error;
    try {
      markers.Scan(coverage, data.get(), size - 2);
    } catch (const RawLayerException& e) {
      error = e.message;
    }
    EXPECT_EQ(error, c.error);
  }
}

}  // namespace
}  // namespace corvi
