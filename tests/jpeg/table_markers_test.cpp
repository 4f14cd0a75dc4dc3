// Tests of the claims and dumps of the DQT, DHT, SOF, SOS and DRI segments.
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
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;

// SOI, one segment, EOI: the segment's 0xFF is at offset 2 and its payload at offset 6.
Bytes OneSegment(uint8_t code, const Bytes& payload) {
  return JpegBuilder().Soi().Segment(code, payload).Eoi().bytes();
}

Bytes Filled(size_t size, uint8_t value) {
  return Bytes(size, value);
}

// 17 bytes of a DHT table head: Tc|Th and the 16 counts.
Bytes DhtHead(uint8_t head, std::vector<uint8_t> counts) {
  counts.resize(16, 0);
  Bytes table{head};
  table.insert(table.end(), counts.begin(), counts.end());
  return table;
}

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

struct ScanCase {
  const char* name;
  Bytes stream;
  std::wstring error;  // empty: the scan succeeds
  uint32_t left;       // bytes left unclaimed, checked when the scan succeeds
  std::string dump;    // the whole dump, checked when the scan succeeds
};

void ExpectScan(const ScanCase& c) {
  SCOPED_TRACE(c.name);
  test::ScanResult result = test::ScanBytes(c.stream);
  EXPECT_EQ(result.error, c.error);
  if (c.error.empty() && result.error.empty()) {
    EXPECT_EQ(result.coverage->LeftCount(), c.left);
    EXPECT_EQ(test::DumpText(result, c.stream), c.dump);
  }
}

std::vector<ScanCase> DqtCases() {
  Bytes two_tables = Concat({Filled(65, 2), Filled(65, 3)});
  two_tables[0] = 0x01;
  two_tables[65] = 0x0F;
  Bytes sixteen = Filled(129, 0);
  sixteen[0] = 0x13;
  Bytes wide = Filled(65, 1);
  wide[0] = 0x20;  // only bit 0x10 decides the precision
  Bytes sixteen_then_head = Filled(130, 0);
  sixteen_then_head[0] = 0x10;  // 129 bytes, then a head byte whose table runs past the segment
  return {
      {"empty", JpegBuilder().Soi().SegmentWithLength(0xDB, 2, {}).Eoi().bytes(), L"", 0,
       "  Marker DQT (bytes 2 - 5)\n"},
      {"one 8-bit table", JpegBuilder().Soi().Dqt(0).Eoi().bytes(), L"", 0,
       "  Marker DQT (bytes 2 - 70)\n"
       "    Table 0 precision 8\n"},
      {"two 8-bit tables", OneSegment(0xDB, two_tables), L"", 0,
       "  Marker DQT (bytes 2 - 135)\n"
       "    Table 1 precision 8\n"
       "    Table 15 precision 8\n"},
      {"16-bit table", OneSegment(0xDB, sixteen), L"", 0,
       "  Marker DQT (bytes 2 - 134)\n"
       "    Table 3 precision 16\n"},
      {"head byte 0x20 is 8-bit", OneSegment(0xDB, wide), L"", 0,
       "  Marker DQT (bytes 2 - 70)\n"
       "    Table 0 precision 8\n"},
      // Claimed out of the COM behind it; the walk then lands on claimed bytes.
      {"last table runs past the segment",
       JpegBuilder()
           .Soi()
           .Segment(0xDB, sixteen_then_head)
           .Segment(0xFE, Filled(80, 'x'))
           .Eoi()
           .bytes(),
       L"Invalid offset or corrupt data", 0, ""},
      {"table shorter than 64 entries", OneSegment(0xDB, Filled(40, 0)),
       L"Invalid offset or corrupt data", 0, ""},
  };
}

TEST(DQTMarker, ClaimsAndDumpsTables) {
  for (const ScanCase& c : DqtCases()) {
    ExpectScan(c);
  }
}

std::vector<ScanCase> DhtCases() {
  return {
      {"empty", JpegBuilder().Soi().SegmentWithLength(0xC4, 2, {}).Eoi().bytes(), L"", 0,
       "  Marker DHT (bytes 2 - 5)\n"},
      {"all counts zero claims 17 bytes", OneSegment(0xC4, DhtHead(0x13, {})), L"", 0,
       "  Marker DHT (bytes 2 - 22)\n"
       "    Table 3 (AC table)\n"},
      {"head 0x21 is DC table 1", OneSegment(0xC4, Concat({DhtHead(0x21, {0, 2}), {4, 5}})), L"", 0,
       "  Marker DHT (bytes 2 - 24)\n"
       "    Table 1 (DC table)\n"},
      {"two tables, index 15",
       OneSegment(0xC4, Concat({DhtHead(0x00, {1}), {0}, DhtHead(0x1F, {0, 0, 3}), {1, 2, 3}})),
       L"", 0,
       "  Marker DHT (bytes 2 - 43)\n"
       "    Table 0 (DC table)\n"
       "    Table 15 (AC table)\n"},
      {"symbols missing", OneSegment(0xC4, Concat({DhtHead(0x00, {0, 3}), {1, 2}})),
       L"Invalid offset or corrupt data", 0, ""},
      {"counts cut off", OneSegment(0xC4, {0x00, 1, 0, 0}), L"Invalid offset or corrupt data", 0,
       ""},
  };
}

TEST(DHTMarker, ClaimsAndDumpsTables) {
  for (const ScanCase& c : DhtCases()) {
    ExpectScan(c);
  }
}

TEST(DHTMarker, DumpOfHandBuiltMarkerStopsAtItsLength) {
  // 20 bytes: a table whose symbols would lie behind the payload, then nothing to read.
  Bytes payload =
      Concat({DhtHead(0x10, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 255}), {1, 2, 3}});
  // Four bytes in front stand for the prefix, code and stored length.
  auto data = std::make_unique<uint8_t[]>(payload.size() + 4);
  std::memcpy(data.get() + 4, payload.data(), payload.size());
  DHTMarker marker(0xC4, 20, data.get() + 4);
  OutStream stream;
  marker.Dump(data.get(), 0, stream);
  EXPECT_EQ(stream.Text(),
            "Marker DHT (bytes 0 - 23)\n"
            "  Table 0 (AC table)\n");
  // A head byte 3 bytes before the end: its counts are not read.
  DHTMarker short_marker(0xC4, 3, data.get() + 21);
  OutStream short_stream;
  short_marker.Dump(data.get(), 1, short_stream);
  EXPECT_EQ(short_stream.Text(),
            "  Marker DHT (bytes 17 - 23)\n"
            "    Table 1 (DC table)\n");
}

std::vector<ScanCase> SofCases() {
  return {
      {"baseline, one component",
       JpegBuilder().Soi().Sof(0xC0, 8, 0x1234, 0x0567, {{1, 0x21, 0}}).Eoi().bytes(), L"", 0,
       "  Marker SOF0 \"Baseline DCT Huffman\" (bytes 2 - 14)\n"
       "    Precision 8, width 4660, height 1383\n"
       "     Component 1: horiz sampling 2, vert sampling 1, quant table 0\n"},
      {"progressive, three components",
       JpegBuilder()
           .Soi()
           .Sof(0xC2, 12, 16, 8, {{1, 0x22, 0}, {2, 0x11, 1}, {3, 0xF4, 15}})
           .Eoi()
           .bytes(),
       L"", 0,
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
      {"components past the segment", OneSegment(0xC0, {8, 0, 1, 0, 1, 2, 1, 0x11, 0}),
       L"Invalid offset or corrupt data", 0, ""},
      {"header cut short", OneSegment(0xC1, {8, 0, 1}), L"Invalid offset or corrupt data", 0, ""},
  };
}

TEST(SOFMarker, ClaimsAndDumpsFrameHeader) {
  for (const ScanCase& c : SofCases()) {
    ExpectScan(c);
  }
}

TEST(SOFMarker, NamesEveryFrameKind) {
  struct Kind {
    uint8_t code;
    const char* head;
  };
  const Kind kinds[] = {
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
  for (const Kind& k : kinds) {
    SCOPED_TRACE(k.head);
    Bytes stream = JpegBuilder().Soi().Sof(k.code, 8, 1, 1, {}).Eoi().bytes();
    test::ScanResult result = test::ScanBytes(stream);
    ASSERT_EQ(result.error, L"");
    std::string dump = test::DumpText(result, stream);
    EXPECT_EQ(dump.substr(0, dump.find('\n')),
              std::string("  Marker ") + k.head + " (bytes 2 - 11)");
  }
}

std::vector<ScanCase> SosCases() {
  return {
      {"two components",
       JpegBuilder()
           .Soi()
           .Sos({{1, 0x01}, {2, 0x12}}, 0, 63, 0x21)
           .Entropy({0x12, 0x34})
           .Eoi()
           .bytes(),
       L"", 0,
       "  Marker SOS (bytes 2 - 13)\n"
       "    Component 1: DC Table 0, AC table 1\n"
       "    Component 2: DC Table 1, AC table 2\n"
       "    Spectral selection 0 to 63, bit position high 2/low 1\n"
       "  Compressed data length 2\n"},
      {"no components claims 4 bytes", JpegBuilder().Soi().Sos({}, 1, 5, 0x0D).Eoi().bytes(), L"",
       0,
       "  Marker SOS (bytes 2 - 9)\n"
       "    Spectral selection 1 to 5, bit position high 0/low 13\n"},
      {"surplus stays unclaimed", OneSegment(0xDA, {1, 1, 0x00, 0, 63, 0, 0xAA, 0xBB}), L"", 2,
       "  Marker SOS (bytes 2 - 13)\n"
       "    Component 1: DC Table 0, AC table 0\n"
       "    Spectral selection 0 to 63, bit position high 0/low 0\n"},
      {"components past the segment",
       JpegBuilder().Soi().Segment(0xDA, {3, 1, 0, 0, 63, 0}).Entropy({1, 2, 3, 4}).Eoi().bytes(),
       L"Invalid offset or corrupt data", 0, ""},
  };
}

TEST(SOSMarker, ClaimsAndDumpsScanHeader) {
  for (const ScanCase& c : SosCases()) {
    ExpectScan(c);
  }
}

std::vector<ScanCase> DriCases() {
  return {
      {"two bytes", JpegBuilder().Soi().Dri(300).Eoi().bytes(), L"", 0,
       "  Marker DRI (bytes 2 - 7)\n"
       "    Restart interval: 300\n"},
      {"four bytes", OneSegment(0xDD, {0, 1, 0, 1}), L"DRI header is wrong size", 0, ""},
      {"one byte", OneSegment(0xDD, {1}), L"DRI header is wrong size", 0, ""},
      {"empty", OneSegment(0xDD, {}), L"DRI header is wrong size", 0, ""},
  };
}

TEST(DRIMarker, AcceptsOnlyTwoBytes) {
  for (const ScanCase& c : DriCases()) {
    ExpectScan(c);
  }
}

TEST(DRIMarker, WrongSizeFailsAnOtherwiseSoundFile) {
  Bytes stream = test::TinyGrayJpeg();
  Bytes dri = JpegBuilder().Segment(0xDD, {0, 1, 0, 1}).bytes();
  stream.insert(stream.begin() + 2, dri.begin(), dri.end());
  EXPECT_EQ(test::ScanBytes(stream).error, L"DRI header is wrong size");
}

// A segment at the very end of the data whose stored length promises 59998 bytes: each class
// fails on the end of the data without reading past it. The buffer is sized exactly, so the
// address sanitizer sees any read behind it.
TEST(TableMarkers, SegmentAtEndOfDataDoesNotReadPastIt) {
  for (uint8_t code : {0xDB, 0xC4, 0xC0, 0xDA, 0xDD}) {
    SCOPED_TRACE(static_cast<int>(code));
    // The COM swallows the last FF D9, so the walk goes on behind it.
    Bytes stream = JpegBuilder()
                       .Soi()
                       .Segment(0xFE, {0xFF, 0xD9})
                       .SegmentWithLength(code, 60000, {0x10})
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
    EXPECT_EQ(error,
              code == 0xDD ? L"DRI header is wrong size" : L"Invalid offset or corrupt data");
  }
}

}  // namespace
}  // namespace corvi
