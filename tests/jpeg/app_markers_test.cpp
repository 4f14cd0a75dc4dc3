// Tests of the claims, dumps and properties of the JFIF, ICC, Ducky, Photoshop, Adobe and comment
// segments.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "platform/format.h"
#include "tests/support/segment_cases.h"

namespace corvi {
namespace {

using test::Bytes;
using test::Concat;
using test::JpegBuilder;
using test::OneSegment;
using test::Text;

constexpr const wchar_t* kBadOffset = L"Invalid offset or corrupt data";

// A JFIF 1.02 header: units, densities and thumbnail size in hex, then `extra` bytes.
Bytes Jfif(const char* fields, size_t extra = 0) {
  Bytes payload = Concat({Text("JFIF"), {0, 1, 2}, test::Hex(fields)});
  payload.resize(payload.size() + extra, 0x55);
  return payload;
}

// The 12 bytes of an Adobe header: version 101, flags0 0xC001, flags1 0.
Bytes Adobe(uint8_t transform) {
  return {'A', 'd', 'o', 'b', 'e', 0, 101, 0xC0, 0x01, 0x00, 0x00, transform};
}

TEST(APP0Marker, ClaimsAndDumpsJfif) {
  test::ExpectScans({
      {"dots per inch, no thumbnail", OneSegment(0xE0, Jfif("01 00 48 00 48 00 00")), L"", 0,
       "  Marker APP0 (bytes 2 - 19)\n    JFIF version 0x0102\n    X resolution: 72 DPI\n"
       "    Y resolution: 72 DPI\n    Thumbnail size 0 x 0 (0 bytes)\n"},
      {"2 x 2 thumbnail", OneSegment(0xE0, Jfif("02 00 1C 01 2C 02 02", 12)), L"", 0,
       "  Marker APP0 (bytes 2 - 31)\n    JFIF version 0x0102\n    X resolution: 28 DPCM\n"
       "    Y resolution: 300 DPCM\n    Thumbnail size 2 x 2 (12 bytes)\n"},
      {"two bytes more than declared", OneSegment(0xE0, Jfif("00 00 01 00 02 00 00", 2)), L"", 2,
       "  Marker APP0 (bytes 2 - 21)\n    JFIF version 0x0102\n    Aspect ratio 1:2\n"
       "    Thumbnail size 0 x 0 (0 bytes)\n      (I actually have 2 bytes of thumbnail!)\n"},
      {"units 3", OneSegment(0xE0, Jfif("03 00 48 00 60 00 00")), L"", 0,
       "  Marker APP0 (bytes 2 - 19)\n    JFIF version 0x0102\n"
       "    Bogus aspect ratio code 3 72 x 96\n    Thumbnail size 0 x 0 (0 bytes)\n"},
      {"JFXX", OneSegment(0xE0, Concat({Text("JFXX"), {0, 0x10, 1, 2, 3}})),
       L"Unknown APP0 signature", 0, ""},
      {"case matters", OneSegment(0xE0, Concat({Text("JfIF"), Bytes(10, 1)})),
       L"Unknown APP0 signature", 0, ""},
      {"four bytes", OneSegment(0xE0, Text("JFIF")), L"Unknown APP0 signature", 0, ""},
      {"stored length 1", JpegBuilder().Soi().SegmentWithLength(0xE0, 1, {}).Eoi().bytes(),
       L"Unknown APP0 signature", 0, ""},
      {"signature only: header claimed past the end", OneSegment(0xE0, Concat({Text("JFIF"), {0}})),
       kBadOffset, 0, ""},
      {"thumbnail larger than held", OneSegment(0xE0, Jfif("01 00 48 00 48 01 01", 2)), kBadOffset,
       0, ""},
  });
}

// Inches and centimetres store the unit (JFIF's code, not TIFF's) and both resolutions, each
// replacing an earlier value in its slot; other units store nothing.
TEST(APP0Marker, ApplyStoresResolutionForInchesAndCentimetres) {
  const std::string kept = "Y Resolution: 7/3\n";
  const std::pair<uint8_t, std::string> cases[] = {
      {0, kept},
      {1, "Y Resolution: 4660/1\nResolution Unit: 1\nX Resolution: 300/1\n"},
      {2, "Y Resolution: 4660/1\nResolution Unit: 2\nX Resolution: 300/1\n"},
      {3, kept},
  };
  for (const auto& [units, expected] : cases) {
    SCOPED_TRACE(static_cast<int>(units));
    const Bytes stream =
        OneSegment(0xE0, Concat({Text("JFIF"), {0, 1, 2, units, 1, 0x2C, 0x12, 0x34, 0, 0}}));
    test::ScanResult result = test::ScanBytes(stream);
    ASSERT_EQ(result.error, L"");
    DecodeState state;
    RawLayer layer;
    layer.properties.SetRational(0x11B, 7, 3);
    result.markers->items[0]->Apply(state, layer, false);
    OutStream printed;
    layer.properties.PrintProperties(printed);
    EXPECT_EQ(printed.Text(), expected);
  }
}

TEST(APP14Marker, ClaimsAdobeHeaderOnly) {
  test::ExpectScans({
      {"YCbCr", OneSegment(0xEE, Adobe(1)), L"", 0,
       "  Marker APP14 (bytes 2 - 17)\n    \"Adobe\" signature\n"
       "    version=101, flags0=c001, flags1=0, color transform=YCbCr\n"},
      {"YCCK with surplus", OneSegment(0xEE, Concat({Adobe(2), {9, 9}})), L"", 2,
       "  Marker APP14 (bytes 2 - 19)\n    \"Adobe\" signature\n"
       "    version=101, flags0=c001, flags1=0, color transform=YCCK\n"},
      {"transform 3", OneSegment(0xEE, Adobe(3)), L"", 0,
       "  Marker APP14 (bytes 2 - 17)\n    \"Adobe\" signature\n"
       "    version=101, flags0=c001, flags1=0, color transform=Unknown\n"},
      {"foreign content", OneSegment(0xEE, Text("Adobf 12345")), L"", 11,
       "  Marker APP14 (bytes 2 - 16)\n"},
      {"four bytes", OneSegment(0xEE, Text("Adob")), L"", 4, "  Marker APP14 (bytes 2 - 9)\n"},
      {"shorter than its header", OneSegment(0xEE, Text("Adobe123")), kBadOffset, 0, ""},
      {"stored length 0", JpegBuilder().Soi().SegmentWithLength(0xEE, 0, {}).Eoi().bytes(),
       kBadOffset, 0, ""},
  });
}

TEST(SignatureSegments, PrintSignatureLineOnlyForFullSignature) {
  test::ExpectScans({
      {"Ducky", OneSegment(0xEC, Text("Ducky")), L"", 0,
       "  Marker APP12 (bytes 2 - 10)\n    \"Ducky\" signature\n"},
      {"Duck", OneSegment(0xEC, Text("Duck")), L"", 0, "  Marker APP12 (bytes 2 - 9)\n"},
      {"ducky", OneSegment(0xEC, Text("ducky")), L"", 0, "  Marker APP12 (bytes 2 - 10)\n"},
      {"Photoshop", OneSegment(0xED, Concat({Text("Photoshop 3.0"), {0}, Text("8BIM")})), L"", 0,
       "  Marker APP13 (bytes 2 - 23)\n    Photoshop 3.0 content\n"},
      {"Photoshop without zero byte", OneSegment(0xED, Text("Photoshop 3.08BIM")), L"", 0,
       "  Marker APP13 (bytes 2 - 22)\n"},
      {"Photoshop 13 bytes", OneSegment(0xED, Text("Photoshop 3.0")), L"", 0,
       "  Marker APP13 (bytes 2 - 18)\n"},
      {"ICC profile", OneSegment(0xE2, Concat({Text("ICC_PROFILE"), {0, 1, 1}})), L"", 0,
       "  Marker APP2 (bytes 2 - 19)\n    \"ICC_PROFILE\" signature\n"},
      {"ICC 11 bytes", OneSegment(0xE2, Text("ICC_PROFILE")), L"", 0,
       "  Marker APP2 (bytes 2 - 16)\n"},
  });
}

TEST(COMMarker, EscapesControlAndHighBytes) {
  test::ExpectScans({
      {"empty", OneSegment(0xFE, {}), L"", 0, "  Marker COM (bytes 2 - 5): \"\"\n"},
      {"edges", OneSegment(0xFE, {'"', '\\', 10, 13, 9, 0, 31, 32, 126, 127, 128, 255}), L"", 0,
       "  Marker COM (bytes 2 - 17): \"\"\\\\n\\r\\t\\000\\037 ~\\177\\200\\377\"\n"},
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

}  // namespace
}  // namespace corvi
