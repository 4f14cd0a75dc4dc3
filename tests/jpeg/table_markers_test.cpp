// Tests of the claims and dumps of the DQT, DHT, SOF, SOS and DRI segments, and of every segment
// class at the very end of the data.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/byte_coverage.h"
#include "base/raw_layer_exception.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "platform/format.h"
#include "tests/support/segment_cases.h"

namespace corvi {
namespace {

using test::Bytes;
using test::Concat;
using test::Hex;
using test::JpegBuilder;
using test::OneSegment;
using test::Text;

constexpr const wchar_t* kBadOffset = L"Invalid offset or corrupt data";

// `size` bytes of `fill` behind the head byte.
Bytes Table(uint8_t head, size_t size, uint8_t fill = 1) {
  Bytes table(size, fill);
  table[0] = head;
  return table;
}

// 17 bytes of a DHT table head: Tc|Th and the 16 counts.
Bytes DhtHead(uint8_t head, std::vector<uint8_t> counts) {
  counts.resize(16, 0);
  return Concat({{head}, counts});
}

TEST(DQTMarker, ClaimsAndDumpsTables) {
  test::ExpectScans({
      {"empty", JpegBuilder().Soi().SegmentWithLength(0xDB, 2, {}).Eoi().bytes(), L"", 0,
       "  Marker DQT (bytes 2 - 5)\n"},
      {"two 8-bit tables", OneSegment(0xDB, Concat({Table(0x01, 65), Table(0x0F, 65)})), L"", 0,
       "  Marker DQT (bytes 2 - 135)\n    Table 1 precision 8\n    Table 15 precision 8\n"},
      {"16-bit table", OneSegment(0xDB, Table(0x13, 129)), L"", 0,
       "  Marker DQT (bytes 2 - 134)\n    Table 3 precision 16\n"},
      {"only bit 0x10 decides the precision", OneSegment(0xDB, Table(0x20, 65)), L"", 0,
       "  Marker DQT (bytes 2 - 70)\n    Table 0 precision 8\n"},
      // 129 bytes, then a head byte whose table is claimed out of the COM behind it; the walk
      // then lands on claimed bytes.
      {"last table runs past the segment",
       Concat({Hex("FF D8 FF DB 00 84"), Table(0x10, 130, 0), Hex("FF FE 00 52"), Bytes(80, 'x'),
               Hex("FF D9")}),
       kBadOffset, 0, ""},
      {"table shorter than 64 entries", OneSegment(0xDB, Bytes(40, 0)), kBadOffset, 0, ""},
  });
}

TEST(DHTMarker, ClaimsAndDumpsTables) {
  test::ExpectScans({
      {"empty", JpegBuilder().Soi().SegmentWithLength(0xC4, 2, {}).Eoi().bytes(), L"", 0,
       "  Marker DHT (bytes 2 - 5)\n"},
      {"all counts zero claims 17 bytes", OneSegment(0xC4, DhtHead(0x13, {})), L"", 0,
       "  Marker DHT (bytes 2 - 22)\n    Table 3 (AC table)\n"},
      {"head 0x21 is DC table 1", OneSegment(0xC4, Concat({DhtHead(0x21, {0, 2}), {4, 5}})), L"", 0,
       "  Marker DHT (bytes 2 - 24)\n    Table 1 (DC table)\n"},
      {"two tables, index 15",
       OneSegment(0xC4, Concat({DhtHead(0x00, {1}), {0}, DhtHead(0x1F, {0, 0, 3}), {1, 2, 3}})),
       L"", 0, "  Marker DHT (bytes 2 - 43)\n    Table 0 (DC table)\n    Table 15 (AC table)\n"},
      {"symbols missing", OneSegment(0xC4, Concat({DhtHead(0x00, {0, 3}), {1, 2}})), kBadOffset, 0,
       ""},
      {"counts cut off", OneSegment(0xC4, {0x00, 1, 0, 0}), kBadOffset, 0, ""},
  });
}

TEST(DHTMarker, DumpOfHandBuiltMarkerStopsAtItsLength) {
  // 20 bytes behind 4 that stand for the prefix, code and stored length: a table whose 255
  // symbols would lie behind the payload, then a head byte 3 bytes before the end.
  Bytes bytes = Concat({{0xFF, 0xC4, 0, 22}, DhtHead(0x10, {}), {1, 2, 3}});
  bytes[4 + 16] = 255;
  DHTMarker marker(0xC4, 20, bytes.data() + 4);
  OutStream stream;
  marker.Dump(bytes.data(), 0, stream);
  EXPECT_EQ(stream.Text(), "Marker DHT (bytes 0 - 23)\n  Table 0 (AC table)\n");
  DHTMarker short_marker(0xC4, 3, bytes.data() + 21);  // its counts are not read
  OutStream short_stream;
  short_marker.Dump(bytes.data(), 1, short_stream);
  EXPECT_EQ(short_stream.Text(), "  Marker DHT (bytes 17 - 23)\n    Table 1 (DC table)\n");
}

TEST(SOFMarker, ClaimsAndDumpsFrameHeader) {
  test::ExpectScans({
      {"baseline, one component",
       JpegBuilder().Soi().Sof(0xC0, 8, 0x1234, 0x0567, {{1, 0x21, 0}}).Eoi().bytes(), L"", 0,
       "  Marker SOF0 \"Baseline DCT Huffman\" (bytes 2 - 14)\n"
       "    Precision 8, width 4660, height 1383\n"
       "     Component 1: horiz sampling 2, vert sampling 1, quant table 0\n"},
      {"progressive, three components",
       Hex("FF D8 FF C2 00 11 0C 00 08 00 10 03 01 22 00 02 11 01 03 F4 0F FF D9"), L"", 0,
       "  Marker SOF2 \"Progressive DCT Huffman\" (bytes 2 - 20)\n"
       "    Precision 12, width 16, height 8\n"
       "     Component 1: horiz sampling 2, vert sampling 2, quant table 0\n"
       "     Component 2: horiz sampling 1, vert sampling 1, quant table 1\n"
       "     Component 3: horiz sampling 15, vert sampling 4, quant table 15\n"},
      {"no components claims 6 bytes", JpegBuilder().Soi().Sof(0xCF, 8, 1, 1, {}).Eoi().bytes(),
       L"", 0,
       "  Marker SOF15 \"Differential lossless (sequential) arithmetic\" (bytes 2 - 11)\n"
       "    Precision 8, width 1, height 1\n"},
      {"surplus stays unclaimed", OneSegment(0xC9, {8, 0, 1, 0, 1, 1, 1, 0x11, 0, 0xAA, 0xBB}), L"",
       2,
       "  Marker SOF9 \"Extended sequential DCT arithmetic\" (bytes 2 - 16)\n"
       "    Precision 8, width 1, height 1\n"
       "     Component 1: horiz sampling 1, vert sampling 1, quant table 0\n"},
      {"components past the segment", OneSegment(0xC0, {8, 0, 1, 0, 1, 2, 1, 0x11, 0}), kBadOffset,
       0, ""},
      {"header cut short", OneSegment(0xC1, {8, 0, 1}), kBadOffset, 0, ""},
  });
}

TEST(SOFMarker, NamesEveryFrameKind) {
  const std::pair<uint8_t, const char*> kinds[] = {
      {0xC1, "SOF1 \"Extended sequential DCT Huffman\""},
      {0xC3, "SOF3 \"Lossless (sequential) Huffman\""},
      {0xC5, "SOF5 \"Differential sequential DCT Huffman\""},
      {0xC6, "SOF6 \"Differential progressive DCT Huffman\""},
      {0xC7, "SOF7 \"Differential lossless (sequential) Huffman\""},
      {0xCA, "SOF10 \"Progressive DCT arithmetic\""},
      {0xCB, "SOF11 \"Lossless (sequential) arithmetic\""},
      {0xCD, "SOF13 \"Differential sequential DCT arithmetic\""},
      {0xCE, "SOF14 \"Differential progressive DCT arithmetic\""},
  };
  for (const auto& [code, head] : kinds) {
    SCOPED_TRACE(head);
    Bytes stream = JpegBuilder().Soi().Sof(code, 8, 1, 1, {}).Eoi().bytes();
    test::ScanResult result = test::ScanBytes(stream);
    ASSERT_EQ(result.error, L"");
    EXPECT_EQ(
        test::DumpText(result, stream),
        std::string("  Marker ") + head + " (bytes 2 - 11)\n    Precision 8, width 1, height 1\n");
  }
}

TEST(SOSMarker, ClaimsAndDumpsScanHeader) {
  test::ExpectScans({
      {"two components", Hex("FF D8 FF DA 00 0A 02 01 01 02 12 00 3F 21 12 34 FF D9"), L"", 0,
       "  Marker SOS (bytes 2 - 13)\n"
       "    Component 1: DC Table 0, AC table 1\n"
       "    Component 2: DC Table 1, AC table 2\n"
       "    Spectral selection 0 to 63, bit position high 2/low 1\n"
       "  Compressed data length 2\n"},
      {"no components claims 4 bytes", JpegBuilder().Soi().Sos({}, 1, 5, 0x0D).Eoi().bytes(), L"",
       0,
       "  Marker SOS (bytes 2 - 9)\n    Spectral selection 1 to 5, bit position high 0/low 13\n"},
      {"surplus stays unclaimed", OneSegment(0xDA, {1, 1, 0x00, 0, 63, 0, 0xAA, 0xBB}), L"", 2,
       "  Marker SOS (bytes 2 - 13)\n    Component 1: DC Table 0, AC table 0\n"
       "    Spectral selection 0 to 63, bit position high 0/low 0\n"},
      {"components past the segment", Hex("FF D8 FF DA 00 08 03 01 00 00 3F 00 01 02 03 04 FF D9"),
       kBadOffset, 0, ""},
  });
}

TEST(DRIMarker, AcceptsOnlyTwoBytes) {
  test::ExpectScans({
      {"two bytes", JpegBuilder().Soi().Dri(300).Eoi().bytes(), L"", 0,
       "  Marker DRI (bytes 2 - 7)\n    Restart interval: 300\n"},
      {"four bytes", OneSegment(0xDD, {0, 1, 0, 1}), L"DRI header is wrong size", 0, ""},
      {"one byte", OneSegment(0xDD, {1}), L"DRI header is wrong size", 0, ""},
      {"empty", OneSegment(0xDD, {}), L"DRI header is wrong size", 0, ""},
  });
}

// A segment at the very end of the data whose stored length promises 59998 bytes: the first bytes
// of a header are there, the rest is not. The buffer is sized exactly, so the address sanitizer
// sees any read behind it.
TEST(SegmentClasses, SegmentAtEndOfDataDoesNotReadPastIt) {
  const std::pair<uint8_t, Bytes> cases[] = {
      {0xE0, Text("JFIF")}, {0xE0, Concat({Text("JFXX"), {0, 1}})},
      {0xEE, Text("Adob")}, {0xEE, Text("Adobe")},
      {0xE2, Text("ICC_")}, {0xEC, Text("Duck")},
      {0xED, Text("Phot")}, {0xFE, Text("Hi")},
      {0xDB, {0x10}},       {0xC4, {0x10}},
      {0xC0, {0x10}},       {0xDA, {0x10}},
      {0xDD, {0x10}},
  };
  for (const auto& [code, tail] : cases) {
    SCOPED_TRACE(testing::Message() << static_cast<int>(code) << "/" << tail.size());
    // The COM swallows the last FF D9, so the walk goes on behind it.
    Bytes stream = Concat({Hex("FF D8 FF FE 00 04 FF D9 FF"), {code}, Hex("EA 60"), tail});
    const auto size = static_cast<int32_t>(stream.size());
    auto data = std::make_unique<uint8_t[]>(stream.size());
    std::memcpy(data.get(), stream.data(), stream.size());
    ByteCoverage coverage(data.get(), size);
    MarkerList markers;
    std::wstring error;
    try {
      markers.Scan(coverage, data.get(), size - 2);
    } catch (const RawLayerException& e) {
      error = e.message;
    }
    EXPECT_EQ(error, code == 0xDD       ? L"DRI header is wrong size"
                     : tail.size() == 6 ? L"Unknown APP0 signature"
                                        : kBadOffset);
  }
}

}  // namespace
}  // namespace corvi
