// The claims and dumps of every segment class and of the walk between segments, pinned as whole
// reports in golden files. To rewrite them after an intended change, run
//   CORVI_UPDATE_GOLDEN=1 ./jpeg_tests --gtest_filter='SegmentDump.*'
// and review the change to tests/golden/ as a diff.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "decode/decode_state.h"
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

// A JFIF 1.02 header: units, densities and thumbnail size in hex, then `extra` bytes.
Bytes Jfif(const char* fields, size_t extra = 0) {
  Bytes payload = Concat({Text("JFIF"), {0, 1, 2}, Hex(fields)});
  payload.resize(payload.size() + extra, 0x55);
  return payload;
}

// The 12 bytes of an Adobe header: version 101, flags0 0xC001, flags1 0.
Bytes Adobe(uint8_t transform) {
  return {'A', 'd', 'o', 'b', 'e', 0, 101, 0xC0, 0x01, 0x00, 0x00, transform};
}

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

Bytes WithLength(uint8_t code, uint16_t stored) {
  return JpegBuilder().Soi().SegmentWithLength(code, stored, {}).Eoi().bytes();
}

TEST(SegmentDump, ApplicationSegmentsMatchGolden) {
  test::NamedStreams s = {
      {"APP0 dots per inch", OneSegment(0xE0, Jfif("01 00 48 00 48 00 00"))},
      {"APP0 2x2 thumbnail", OneSegment(0xE0, Jfif("02 00 1C 01 2C 02 02", 12))},
      {"APP0 surplus", OneSegment(0xE0, Jfif("00 00 01 00 02 00 00", 2))},
      {"APP0 units 3", OneSegment(0xE0, Jfif("03 00 48 00 60 00 00"))},
      {"APP0 JFXX", OneSegment(0xE0, Concat({Text("JFXX"), {0, 0x10, 1, 2, 3}}))},
      {"APP0 case matters", OneSegment(0xE0, Concat({Text("JfIF"), Bytes(10, 1)}))},
      {"APP0 four bytes", OneSegment(0xE0, Text("JFIF"))},
      {"APP0 stored length 1", WithLength(0xE0, 1)},
      {"APP0 signature only", OneSegment(0xE0, Concat({Text("JFIF"), {0}}))},
      {"APP0 thumbnail larger than held", OneSegment(0xE0, Jfif("01 00 48 00 48 01 01", 2))},
      {"APP14 YCbCr", OneSegment(0xEE, Adobe(1))},
      {"APP14 YCCK with surplus", OneSegment(0xEE, Concat({Adobe(2), {9, 9}}))},
      {"APP14 transform 3", OneSegment(0xEE, Adobe(3))},
      {"APP14 foreign", OneSegment(0xEE, Text("Adobf 12345"))},
      {"APP14 four bytes", OneSegment(0xEE, Text("Adob"))},
      {"APP14 shorter than its header", OneSegment(0xEE, Text("Adobe123"))},
      {"APP14 stored length 0", WithLength(0xEE, 0)},
      {"Ducky", OneSegment(0xEC, Text("Ducky"))},
      {"Duck", OneSegment(0xEC, Text("Duck"))},
      {"ducky", OneSegment(0xEC, Text("ducky"))},
      {"Photoshop", OneSegment(0xED, Concat({Text("Photoshop 3.0"), {0}, Text("8BIM")}))},
      {"Photoshop without zero", OneSegment(0xED, Text("Photoshop 3.08BIM"))},
      {"Photoshop 13 bytes", OneSegment(0xED, Text("Photoshop 3.0"))},
      {"ICC profile", OneSegment(0xE2, Concat({Text("ICC_PROFILE"), {0, 1, 1}}))},
      {"ICC 11 bytes", OneSegment(0xE2, Text("ICC_PROFILE"))},
      {"COM empty", OneSegment(0xFE, {})},
      {"COM escapes", OneSegment(0xFE, {'"', '\\', 10, 13, 9, 0, 31, 32, 126, 127, 128, 255})},
  };
  for (uint8_t code : {0xE2, 0xEC, 0xED, 0xFE}) {
    for (uint16_t stored : {0, 1}) {
      s.push_back({"code " + std::to_string(code) + " stored length " + std::to_string(stored),
                   WithLength(code, stored)});
    }
  }
  test::ExpectGoldenScans("jpeg_app_segments", s);
}

TEST(SegmentDump, TableAndFrameSegmentsMatchGolden) {
  test::NamedStreams s = {
      {"DQT empty", WithLength(0xDB, 2)},
      {"DQT two 8-bit tables", OneSegment(0xDB, Concat({Table(0x01, 65), Table(0x0F, 65)}))},
      {"DQT 16-bit", OneSegment(0xDB, Table(0x13, 129))},
      {"DQT only bit 0x10 decides", OneSegment(0xDB, Table(0x20, 65))},
      // The last head byte's table is claimed out of the COM behind it.
      {"DQT last table past the segment",
       Concat({Hex("FF D8 FF DB 00 84"), Table(0x10, 130, 0), Hex("FF FE 00 52"), Bytes(80, 'x'),
               Hex("FF D9")})},
      {"DQT short table", OneSegment(0xDB, Bytes(40, 0))},
      {"DHT empty", WithLength(0xC4, 2)},
      {"DHT counts zero", OneSegment(0xC4, DhtHead(0x13, {}))},
      {"DHT 0x21", OneSegment(0xC4, Concat({DhtHead(0x21, {0, 2}), {4, 5}}))},
      {"DHT two tables",
       OneSegment(0xC4, Concat({DhtHead(0x00, {1}), {0}, DhtHead(0x1F, {0, 0, 3}), {1, 2, 3}}))},
      {"DHT symbols missing", OneSegment(0xC4, Concat({DhtHead(0x00, {0, 3}), {1, 2}}))},
      {"DHT counts cut off", OneSegment(0xC4, {0x00, 1, 0, 0})},
      {"SOF0", JpegBuilder().Soi().Sof(0xC0, 8, 0x1234, 0x0567, {{1, 0x21, 0}}).Eoi().bytes()},
      {"SOF2 three components",
       Hex("FF D8 FF C2 00 11 0C 00 08 00 10 03 01 22 00 02 11 01 03 F4 0F FF D9")},
      {"SOF surplus", OneSegment(0xC9, {8, 0, 1, 0, 1, 1, 1, 0x11, 0, 0xAA, 0xBB})},
      {"SOF components past the segment", OneSegment(0xC0, {8, 0, 1, 0, 1, 2, 1, 0x11, 0})},
      {"SOF cut short", OneSegment(0xC1, {8, 0, 1})},
      {"SOS two components", Hex("FF D8 FF DA 00 0A 02 01 01 02 12 00 3F 21 12 34 FF D9")},
      {"SOS no components", JpegBuilder().Soi().Sos({}, 1, 5, 0x0D).Eoi().bytes()},
      {"SOS surplus", OneSegment(0xDA, {1, 1, 0x00, 0, 63, 0, 0xAA, 0xBB})},
      {"SOS components past", Hex("FF D8 FF DA 00 08 03 01 00 00 3F 00 01 02 03 04 FF D9")},
      {"DRI", JpegBuilder().Soi().Dri(300).Eoi().bytes()},
      {"DRI four bytes", OneSegment(0xDD, {0, 1, 0, 1})},
      {"DRI one byte", OneSegment(0xDD, {1})},
      {"DRI empty", OneSegment(0xDD, {})},
  };
  for (uint8_t code : {0xC1, 0xC3, 0xC5, 0xC6, 0xC7, 0xCA, 0xCB, 0xCD, 0xCE, 0xCF}) {
    s.push_back({"SOF kind " + std::to_string(code),
                 JpegBuilder().Soi().Sof(code, 8, 1, 1, {}).Eoi().bytes()});
  }
  // At the very end of the data with a stored length of 59998: the COM swallows the last FF D9,
  // so the walk goes on into a header that is only partly there.
  const std::vector<std::pair<uint8_t, Bytes>> cut = {
      {0xE0, Text("JFIF")}, {0xE0, Concat({Text("JFXX"), {0, 1}})},
      {0xEE, Text("Adob")}, {0xEE, Text("Adobe")},
      {0xE2, Text("ICC_")}, {0xEC, Text("Duck")},
      {0xED, Text("Phot")}, {0xFE, Text("Hi")},
      {0xDB, {0x10}},       {0xC4, {0x10}},
      {0xC0, {0x10}},       {0xDA, {0x10}},
      {0xDD, {0x10}},       {0xE1, Text("Ex")}};
  for (const auto& [code, tail] : cut) {
    s.push_back({"cut " + std::to_string(code) + " " + std::to_string(tail.size()),
                 Concat({Hex("FF D8 FF FE 00 04 FF D9 FF"), {code}, Hex("EA 60"), tail})});
  }
  test::ExpectGoldenScans("jpeg_table_segments", s);
}

TEST(SegmentDump, WalkBetweenSegmentsMatchesGolden) {
  const std::string sos = "FF DA 00 08 01 01 00 00 3F 00";  // all claimed by its Parse
  test::NamedStreams s;
  for (const std::string& hex : std::vector<std::string>{
           "FF D8 FF D9", "00 00 FF D8 00 02 FF D9", "00 FF D9",
           "FF D8 00 FF 00 00 FF D0 00 02 00 FF D9",  // zeros and FF 00 between segments
           "FF D8 FF FF 00 04 AA BB FF D9",           // FF FF is not fill
           "FF D8 FF E3 00 02 FF D9", "FF D8 FF E3 00 01 FF D9", "FF D8 FF E3 00 00 FF D9",
           "FF D8 FF E3 00 04 FF D9",  // the payload ends at the end of the data
           "FF D8 FF D0 FF D9 FF D9",  // a standalone marker is read with a length
           "FF D8 FF E3 00 13 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 FF D9",
           "FF D8 FF E3 00 02 FF E4 00 02 FF E5 00 02 FF E6 00 02 FF E7 00 02 FF D9",
           "FF D8 FF D9 D9 D9 D9 D9 D9 D9 D9 D9 D9 D9", "FF D8 FF D9 AA FF D9",
           "FF D8 " + sos + " 12 34 FF D9 CC FF D9 01", "FF D8 " + sos + " FF D9",
           "FF D8 FF DA 00 08 01 01 00 00 FF D9",  // the scan header behind the EOI
           "FF D8 " + sos + " 55 " + sos + " 66 FF D9", "FF D8 FF E3 00 02", "FF D9 00 00", "",
           "FF D9", "FF E0 00 02 FF D9", "41 FF D8 FF D9",
           // Little-endian lengths would read 0x0300 and 0x0100.
           "FF D8 FF E3 00 03 AA FF E4 00 01 FF D9"}) {
    s.push_back({hex, Hex(hex.c_str())});
  }
  for (uint8_t code :
       {0x01, 0xBF, 0xC8, 0xCC, 0xD7, 0xDC, 0xDE, 0xDF, 0xE3, 0xEB, 0xEF, 0xF0, 0xFD, 0xFF}) {
    s.push_back({"unnamed " + std::to_string(code), OneSegment(code, {0x5A})});
  }
  test::ExpectGoldenScans("jpeg_walk", s);
}

// The files tests/golden/NAME.jpg dump as NAME.txt.
TEST(SegmentDump, GoldenFilesDumpAsBefore) {
  const std::pair<const char*, uint32_t> files[] = {
      {"jfif_baseline", 0}, {"adobe_progressive", 19}, {"jfif_thumbnail", 1}};
  for (const auto& [name, left] : files) {
    SCOPED_TRACE(name);
    const Bytes bytes = test::ReadFile(std::string(CORVI_GOLDEN_DIR) + "/" + name + ".jpg");
    test::ScanResult r = test::ScanBytes(bytes);
    ASSERT_EQ(r.error, L"");
    EXPECT_EQ(r.coverage->LeftCount(), left);
    test::ExpectGolden(name, test::DumpText(r, bytes));
  }
}

TEST(SegmentDump, IndentAndOffsetsFromBase) {
  Bytes bytes = JpegBuilder().Soi().Raw({0x00, 0x00}).Segment(0xF0, {0xAB, 0xCD}).Eoi().bytes();
  test::ScanResult result = test::ScanBytes(bytes);
  OutStream stream;
  result.markers->Dump(bytes.data(), 3, stream);
  EXPECT_EQ(stream.Text(), "      Marker f0 (bytes 4 - 9)\n       ab cd\n");
  for (int32_t level : {-5, 0, 3}) {
    OutStream indent;
    PrintIndent(level, indent);
    EXPECT_EQ(indent.Text(), std::string(level > 0 ? 2 * level : 0, ' '));
  }
  // A hand-built DHT stops at its length: its 255 symbols and the last head's counts.
  bytes = Concat({{0xFF, 0xC4, 0, 22}, DhtHead(0x10, {}), {1, 2, 3}});
  bytes[4 + 16] = 255;
  OutStream dht;
  DHTMarker(0xC4, 20, bytes.data() + 4).Dump(bytes.data(), 0, dht);
  DHTMarker(0xC4, 3, bytes.data() + 21).Dump(bytes.data(), 1, dht);
  EXPECT_EQ(dht.Text(),
            "Marker DHT (bytes 0 - 23)\n  Table 0 (AC table)\n"
            "  Marker DHT (bytes 17 - 23)\n    Table 1 (DC table)\n");
}

// Inches and centimetres store the unit (JFIF's code, not TIFF's) and both resolutions, each
// replacing an earlier value in its slot; other units store nothing.
TEST(APP0Marker, ApplyStoresResolutionForInchesAndCentimetres) {
  for (uint8_t units : {0, 1, 2, 3}) {
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
    EXPECT_EQ(printed.Text(), units == 1 || units == 2
                                  ? "Y Resolution: 4660/1\nResolution Unit: " +
                                        std::to_string(units) + "\nX Resolution: 300/1\n"
                                  : "Y Resolution: 7/3\n");
  }
}

}  // namespace
}  // namespace corvi
