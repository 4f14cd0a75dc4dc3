// The segment scan: the EOI search, the walk between segments, the compressed block and the
// base class's dump.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "base/byte_coverage.h"
#include "base/raw_layer_exception.h"
#include "jpeg/jpeg_reader.h"
#include "platform/format.h"
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;
using test::ScanBytes;

Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& part : parts) {
    out.insert(out.end(), part.begin(), part.end());
  }
  return out;
}

Bytes Counting(size_t n) {
  Bytes out(n);
  for (size_t i = 0; i < n; ++i) {
    out[i] = static_cast<uint8_t>(i);
  }
  return out;
}

const Bytes kSos = JpegBuilder().Sos({{1, 0x00}}).bytes();  // 10 bytes, all claimed by Parse

struct ScanCase {
  const char* name;
  Bytes bytes;
  std::wstring error;
  uint32_t markers;
  uint32_t left;
  int32_t compressed;
  const char* dump;  // the dump of a successful scan; null where a segment class prints it
};

TEST(MarkerListScan, Streams) {
  const ScanCase cases[] = {
      {"smallest file", {0xFF, 0xD8, 0xFF, 0xD9}, L"", 0, 0, 0, ""},
      {"leading zeros and a second SOI", {0x00, 0x00, 0xFF, 0xD8, 0x00, 0x02, 0xFF, 0xD9}, L"",
       1, 0, 0, "  Marker d8 (bytes 2 - 5)\n"},
      {"leading FF 00", {0xFF, 0x00, 0xFF, 0xE3, 0x00, 0x02, 0xFF, 0xD9}, L"", 1, 0, 0,
       "  Marker e3 (bytes 2 - 5)\n"},
      {"EOI at index 1", {0x00, 0xFF, 0xD9}, L"", 0, 0, 0, ""},
      {"zeros and FF 00 between segments",
       {0xFF, 0xD8, 0x00, 0xFF, 0x00, 0x00, 0xFF, 0xD0, 0x00, 0x02, 0x00, 0xFF, 0xD9}, L"", 1, 0,
       0, "  Marker d0 (bytes 6 - 9)\n"},
      {"FF FF is not fill", {0xFF, 0xD8, 0xFF, 0xFF, 0x00, 0x04, 0xAA, 0xBB, 0xFF, 0xD9}, L"", 1,
       2, 0, "  Marker ff (bytes 2 - 7)\n   aa bb\n"},
      {"stored length 2", {0xFF, 0xD8, 0xFF, 0xE3, 0x00, 0x02, 0xFF, 0xD9}, L"", 1, 0, 0,
       "  Marker e3 (bytes 2 - 5)\n"},
      {"stored length 1", {0xFF, 0xD8, 0xFF, 0xE3, 0x00, 0x01, 0xFF, 0xD9},
       L"Invalid offset or corrupt data", 1, 2, 0, nullptr},
      {"stored length 0", {0xFF, 0xD8, 0xFF, 0xE3, 0x00, 0x00, 0xFF, 0xD9},
       L"Invalid offset or corrupt data", 1, 2, 0, nullptr},
      {"trailing bytes without FF D9", Concat({{0xFF, 0xD8, 0xFF, 0xD9}, Bytes(10, 0xD9)}), L"",
       0, 10, 0, ""},
      {"trailing FF D9 moves the end", {0xFF, 0xD8, 0xFF, 0xD9, 0xAA, 0xFF, 0xD9},
       L"Invalid offset or corrupt data", 1, 1, 0, nullptr},
      {"trailing FF D9 behind a scan",
       Concat({{0xFF, 0xD8}, kSos, {0x12, 0x34, 0xFF, 0xD9, 0xCC, 0xFF, 0xD9, 0x01}}), L"", 1, 1,
       5, nullptr},
      {"SOS right before EOI", Concat({{0xFF, 0xD8}, kSos, {0xFF, 0xD9}}), L"", 1, 0, 0, nullptr},
      {"SOS header behind EOI",
       {0xFF, 0xD8, 0xFF, 0xDA, 0x00, 0x08, 0x01, 0x01, 0x00, 0x00, 0xFF, 0xD9},
       L"Invalid header length or corrupt data", 1, 0, 0, nullptr},
      {"only the first SOS is a segment",
       Concat({{0xFF, 0xD8}, kSos, {0x55}, kSos, {0x66, 0xFF, 0xD9}}), L"", 1, 0, 12, nullptr},
      {"missing EOI", {0xFF, 0xD8, 0xFF, 0xE3, 0x00, 0x02}, L"Missing JPEG EOI", 0, 6, 0,
       nullptr},
      {"FF D9 only at index 0 of a longer stream", {0xFF, 0xD9, 0x00, 0x00}, L"Missing JPEG EOI",
       0, 4, 0, nullptr},
      {"two bytes FF D9", {0xFF, 0xD9}, L"Missing JPEG SOI", 0, 0, 0, nullptr},
      {"one byte", {0xFF}, L"Missing JPEG EOI", 0, 1, 0, nullptr},
      {"empty", {}, L"Missing JPEG EOI", 0, 0, 0, nullptr},
      {"text", Bytes(40, 'A'), L"Missing JPEG EOI", 0, 40, 0, nullptr},
      {"missing prefix", {0x41, 0xFF, 0xD8, 0xFF, 0xD9}, L"Missing marker prefix", 0, 4, 0,
       nullptr},
      {"missing SOI", {0xFF, 0xE0, 0x00, 0x02, 0xFF, 0xD9}, L"Missing JPEG SOI", 0, 4, 0,
       nullptr},
      {"a payload that ends exactly at the end of the data",
       {0xFF, 0xD8, 0xFF, 0xE3, 0x00, 0x04, 0xFF, 0xD9}, L"Invalid offset or corrupt data", 1, 2,
       0, nullptr},
      {"standalone marker read with a length", {0xFF, 0xD8, 0xFF, 0xD0, 0xFF, 0xD9, 0xFF, 0xD9},
       L"Invalid offset or corrupt data", 1, 2, 0, nullptr},
  };
  for (const ScanCase& c : cases) {
    SCOPED_TRACE(c.name);
    test::ScanResult result = ScanBytes(c.bytes);
    EXPECT_EQ(result.error, c.error);
    EXPECT_EQ(result.markers->count, c.markers);
    EXPECT_EQ(result.coverage->LeftCount(), c.left);
    EXPECT_EQ(result.markers->compressed_length, c.compressed);
    if (!c.error.empty()) {
      continue;
    }
    std::string dump = test::DumpText(result, c.bytes);
    if (c.dump != nullptr) {
      EXPECT_EQ(dump, c.dump);
    }
    const std::string line = "  Compressed data length " + std::to_string(c.compressed) + "\n";
    bool has_line = dump.size() >= line.size() && dump.substr(dump.size() - line.size()) == line;
    EXPECT_EQ(has_line, c.compressed != 0);
  }
}

TEST(MarkerListScan, CompressedBlock) {
  Bytes bytes = Concat({{0xFF, 0xD8}, kSos, {0x12, 0x34}, {0xFF, 0xD9}});
  test::ScanResult result = ScanBytes(bytes);
  ASSERT_EQ(result.error, L"");
  EXPECT_EQ(result.markers->compressed_data, bytes.data() + 12);
  EXPECT_EQ(result.markers->compressed_length, 2);

  Bytes bare = Concat({{0xFF, 0xD8}, kSos, {0xFF, 0xD9}});
  result = ScanBytes(bare);
  EXPECT_EQ(result.markers->compressed_data, bare.data() + 12);
  EXPECT_EQ(result.markers->compressed_length, 0);

  Bytes none = {0xFF, 0xD8, 0xFF, 0xD9};
  result = ScanBytes(none);
  EXPECT_EQ(result.markers->compressed_data, nullptr);
  EXPECT_EQ(result.markers->compressed_length, 0);
}

TEST(MarkerListScan, ListGrowsAndKeepsFileOrder) {
  JpegBuilder builder;
  builder.Soi();
  for (uint8_t code = 0xE3; code <= 0xE7; ++code) {
    builder.Segment(code, {code});
  }
  builder.Eoi();
  test::ScanResult result = ScanBytes(builder.bytes());
  ASSERT_EQ(result.error, L"");
  ASSERT_EQ(result.markers->count, 5u);
  EXPECT_EQ(result.markers->capacity, 10u);
  for (uint32_t i = 0; i < 5; ++i) {
    EXPECT_EQ(result.markers->items[i]->code, 0xE3 + i);
    EXPECT_EQ(result.markers->items[i]->length, 1);
  }
  EXPECT_EQ(result.coverage->LeftCount(), 5u);  // the payloads of base-class markers
}

TEST(MarkerDump, HexLinesOfSixteen) {
  struct Case {
    size_t payload;
    std::string expected;
  };
  const std::string row0 =
      "   00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n";
  const Case cases[] = {
      {0, "  Marker e3 (bytes 2 - 5)\n"},
      {1, "  Marker e3 (bytes 2 - 6)\n   00\n"},
      {16, "  Marker e3 (bytes 2 - 21)\n" + row0},
      {17, "  Marker e3 (bytes 2 - 22)\n" + row0 + "   10\n"},
      {32, "  Marker e3 (bytes 2 - 37)\n" + row0 +
               "   10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.payload);
    Bytes bytes = JpegBuilder().Soi().Segment(0xE3, Counting(c.payload)).Eoi().bytes();
    test::ScanResult result = ScanBytes(bytes);
    ASSERT_EQ(result.error, L"");
    EXPECT_EQ(test::DumpText(result, bytes), c.expected);
    EXPECT_EQ(result.coverage->LeftCount(), c.payload);
  }
}

TEST(MarkerDump, IndentAndOffsetsFromBase) {
  Bytes bytes = JpegBuilder().Soi().Raw({0x00, 0x00}).Segment(0xF0, {0xAB, 0xCD}).Eoi().bytes();
  test::ScanResult result = ScanBytes(bytes);
  ASSERT_EQ(result.error, L"");
  OutStream stream;
  result.markers->Dump(bytes.data(), 3, stream);
  EXPECT_EQ(stream.Text(), "      Marker f0 (bytes 4 - 9)\n       ab cd\n");
  OutStream flat;
  result.markers->Dump(bytes.data(), 0, flat);
  EXPECT_EQ(flat.Text(), "Marker f0 (bytes 4 - 9)\n ab cd\n");
}

TEST(MarkerDump, UnnamedCodesUseTheBaseClass) {
  const uint8_t codes[] = {0x01, 0xBF, 0xC8, 0xCC, 0xD7, 0xDC, 0xDE, 0xDF, 0xE3,
                           0xEB, 0xEF, 0xF0, 0xFD, 0xFF};
  for (uint8_t code : codes) {
    SCOPED_TRACE(static_cast<int>(code));
    Bytes bytes = JpegBuilder().Soi().Segment(code, {0x5A}).Eoi().bytes();
    test::ScanResult result = ScanBytes(bytes);
    ASSERT_EQ(result.error, L"");
    wchar_t head[64];
    FormatBuffer(head, 64, L"  Marker %02x (bytes 2 - 6)\n   5a\n", code);
    EXPECT_EQ(test::DumpText(result, bytes), EncodeUtf8(head));
    EXPECT_EQ(result.coverage->LeftCount(), 1u);
  }
}

TEST(PrintIndent, TwoBlanksPerLevel) {
  const int32_t levels[] = {-5, 0, 1, 3};
  for (int32_t level : levels) {
    OutStream stream;
    PrintIndent(level, stream);
    EXPECT_EQ(stream.Text(), std::string(2 * std::max(level, 0), ' '));
  }
}

// A thumbnail's scan runs over a part of the file: its end search looks at its own bytes only.
TEST(MarkerListScan, InnerStreamSeesOnlyItsOwnBytes) {
  Bytes bytes = {0x00, 0xFF, 0xD8, 0xFF, 0xD9, 0x00, 0xFF, 0xD9};
  ByteCoverage coverage(bytes.data(), static_cast<int32_t>(bytes.size()));
  MarkerList inner;
  inner.Scan(coverage, bytes.data() + 1, 2);  // FF D8 FF D9 at offset 1
  EXPECT_EQ(coverage.LeftCount(), 4u);
  MarkerList beyond;
  // A stream said to reach far past the data finds no end there, and reads nothing outside.
  try {
    beyond.Scan(coverage, bytes.data() + 6, 100000);
    ADD_FAILURE() << "no exception";
  } catch (const RawLayerException& e) {
    EXPECT_STREQ(e.message, L"Missing JPEG EOI");
  }
}

TEST(JPEGReader, CorpusFilesScanAndDump) {
  if (!test::CorpusAvailable()) {
    GTEST_SKIP() << "corpus not available";
  }
  std::string dir = test::CorpusPath("");
  DIR* folder = opendir(dir.c_str());
  ASSERT_NE(folder, nullptr);
  std::vector<std::string> names;
  while (dirent* item = readdir(folder)) {
    std::string name = item->d_name;
    if (name.size() > 4 && name.substr(name.size() - 4) == ".jpg") {
      names.push_back(name);
    }
  }
  closedir(folder);
  ASSERT_FALSE(names.empty());
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    std::string path = dir + name;
    std::wstring wide = DecodeUtf8(path.data(), path.size());
    OutStream stream;
    try {
      JPEGReader reader(wide.c_str());
      reader.Scan();
      reader.Dump(wide.c_str(), stream);
      EXPECT_LE(reader.coverage->LeftCount(), reader.length);
      EXPECT_EQ(stream.Text().rfind("File " + path + " (length=", 0), 0u);
    } catch (const RawLayerException& e) {
      EXPECT_NE(e.message, nullptr);
    }
  }
}

}  // namespace
}  // namespace corvi
