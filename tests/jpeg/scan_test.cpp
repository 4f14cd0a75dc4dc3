// The segment scan: the EOI search, the walk between segments, the compressed block and the
// base class's dump.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "base/byte_coverage.h"
#include "base/raw_layer_exception.h"
#include "jpeg/jpeg_reader.h"
#include "platform/format.h"
#include "tests/support/require.h"
#include "tests/support/segment_cases.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;
using test::ScanBytes;

constexpr const char* kSos = "FF DA 00 08 01 01 00 00 3F 00";  // all claimed by its Parse
constexpr const wchar_t* kBadOffset = L"Invalid offset or corrupt data";

struct ScanCase {
  const char* name;
  std::string hex;
  std::wstring error;
  uint32_t markers, left;
  int32_t compressed;
  const char* dump;  // checked when not null
};

TEST(MarkerListScan, Streams) {
  const std::string sos = kSos;
  const ScanCase cases[] = {
      {"smallest file", "FF D8 FF D9", L"", 0, 0, 0, ""},
      {"leading zeros, a second SOI", "00 00 FF D8 00 02 FF D9", L"", 1, 0, 0,
       "  Marker d8 (bytes 2 - 5)\n"},
      {"EOI at index 1", "00 FF D9", L"", 0, 0, 0, ""},
      {"zeros and FF 00 between segments", "FF D8 00 FF 00 00 FF D0 00 02 00 FF D9", L"", 1, 0, 0,
       "  Marker d0 (bytes 6 - 9)\n"},
      {"FF FF is not fill", "FF D8 FF FF 00 04 AA BB FF D9", L"", 1, 2, 0,
       "  Marker ff (bytes 2 - 7)\n   aa bb\n"},
      {"stored length 2", "FF D8 FF E3 00 02 FF D9", L"", 1, 0, 0, "  Marker e3 (bytes 2 - 5)\n"},
      {"stored length 1", "FF D8 FF E3 00 01 FF D9", kBadOffset, 1, 2, 0, nullptr},
      {"stored length 0", "FF D8 FF E3 00 00 FF D9", kBadOffset, 1, 2, 0, nullptr},
      {"payload ends at the end of the data", "FF D8 FF E3 00 04 FF D9", kBadOffset, 1, 2, 0,
       nullptr},
      {"standalone marker read with a length", "FF D8 FF D0 FF D9 FF D9", kBadOffset, 1, 2, 0,
       nullptr},
      {"hex lines of sixteen",
       "FF D8 FF E3 00 13 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 FF D9", L"", 1, 17, 0,
       "  Marker e3 (bytes 2 - 22)\n   00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f\n   10\n"},
      {"the list grows past four in file order",
       "FF D8 FF E3 00 02 FF E4 00 02 FF E5 00 02 FF E6 00 02 FF E7 00 02 FF D9", L"", 5, 0, 0,
       "  Marker e3 (bytes 2 - 5)\n  Marker e4 (bytes 6 - 9)\n  Marker e5 (bytes 10 - 13)\n"
       "  Marker e6 (bytes 14 - 17)\n  Marker e7 (bytes 18 - 21)\n"},
      {"trailing bytes without FF D9", "FF D8 FF D9 D9 D9 D9 D9 D9 D9 D9 D9 D9 D9", L"", 0, 10, 0,
       ""},
      {"trailing FF D9 moves the end", "FF D8 FF D9 AA FF D9", kBadOffset, 1, 1, 0, nullptr},
      {"trailing FF D9 behind a scan", "FF D8 " + sos + " 12 34 FF D9 CC FF D9 01", L"", 1, 1, 5,
       nullptr},
      {"SOS right before EOI", "FF D8 " + sos + " FF D9", L"", 1, 0, 0, nullptr},
      {"SOS header behind EOI", "FF D8 FF DA 00 08 01 01 00 00 FF D9",
       L"Invalid header length or corrupt data", 1, 0, 0, nullptr},
      {"only the first SOS is a segment", "FF D8 " + sos + " 55 " + sos + " 66 FF D9", L"", 1, 0,
       12, nullptr},
      {"missing EOI", "FF D8 FF E3 00 02", L"Missing JPEG EOI", 0, 6, 0, nullptr},
      {"FF D9 only at index 0", "FF D9 00 00", L"Missing JPEG EOI", 0, 4, 0, nullptr},
      {"empty", "", L"Missing JPEG EOI", 0, 0, 0, nullptr},
      {"two bytes FF D9", "FF D9", L"Missing JPEG SOI", 0, 0, 0, nullptr},
      {"missing SOI", "FF E0 00 02 FF D9", L"Missing JPEG SOI", 0, 4, 0, nullptr},
      {"missing prefix", "41 FF D8 FF D9", L"Missing marker prefix", 0, 4, 0, nullptr},
  };
  for (const ScanCase& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes bytes = test::Hex(c.hex.c_str());
    test::ScanResult result = ScanBytes(bytes);
    EXPECT_EQ(result.error, c.error);
    EXPECT_EQ(result.markers->count, c.markers);
    EXPECT_EQ(result.coverage->LeftCount(), c.left);
    EXPECT_EQ(result.markers->compressed_length, c.compressed);
    if (c.error.empty()) {
      std::string dump = test::DumpText(result, bytes);
      const std::string line = "  Compressed data length " + std::to_string(c.compressed) + "\n";
      EXPECT_EQ(dump.ends_with(line), c.compressed != 0);
      EXPECT_TRUE(c.dump == nullptr || dump == c.dump) << dump;
    }
  }
}

TEST(MarkerListScan, CompressedBlockPointsBehindTheScanHeader) {
  Bytes bytes = test::Hex((std::string("FF D8 ") + kSos + " 12 34 FF D9").c_str());
  test::ScanResult result = ScanBytes(bytes);
  ASSERT_EQ(result.error, L"");
  EXPECT_EQ(result.markers->compressed_data, bytes.data() + 12);
  EXPECT_EQ(ScanBytes({0xFF, 0xD8, 0xFF, 0xD9}).markers->compressed_data, nullptr);
}

TEST(MarkerDump, IndentAndOffsetsFromBase) {
  Bytes bytes = JpegBuilder().Soi().Raw({0x00, 0x00}).Segment(0xF0, {0xAB, 0xCD}).Eoi().bytes();
  test::ScanResult result = ScanBytes(bytes);
  ASSERT_EQ(result.error, L"");
  OutStream stream;
  result.markers->Dump(bytes.data(), 3, stream);
  EXPECT_EQ(stream.Text(), "      Marker f0 (bytes 4 - 9)\n       ab cd\n");
  for (int32_t level : {-5, 0, 3}) {
    OutStream indent;
    PrintIndent(level, indent);
    EXPECT_EQ(indent.Text(), std::string(level > 0 ? 2 * level : 0, ' '));
  }
}

TEST(MarkerDump, UnnamedCodesUseTheBaseClass) {
  for (uint8_t code :
       {0x01, 0xBF, 0xC8, 0xCC, 0xD7, 0xDC, 0xDE, 0xDF, 0xE3, 0xEB, 0xEF, 0xF0, 0xFD, 0xFF}) {
    SCOPED_TRACE(static_cast<int>(code));
    Bytes bytes = test::OneSegment(code, {0x5A});
    test::ScanResult result = ScanBytes(bytes);
    ASSERT_EQ(result.error, L"");
    wchar_t head[64];
    FormatBuffer(head, 64, L"  Marker %02x (bytes 2 - 6)\n   5a\n", code);
    EXPECT_EQ(test::DumpText(result, bytes), EncodeUtf8(head));
    EXPECT_EQ(result.coverage->LeftCount(), 1u);
  }
}

// A thumbnail's scan runs over a part of the file: its end search looks at its own bytes only.
TEST(MarkerListScan, InnerStreamSeesOnlyItsOwnBytes) {
  Bytes bytes = {0x00, 0xFF, 0xD8, 0xFF, 0xD9, 0x00, 0xFF, 0xD9};
  ByteCoverage coverage(bytes.data(), static_cast<int32_t>(bytes.size()));
  MarkerList inner;
  inner.Scan(coverage, bytes.data() + 1, 2);  // FF D8 FF D9 at offset 1
  EXPECT_EQ(coverage.LeftCount(), 4u);
  MarkerList beyond;  // said to reach far past the data: finds no end and reads nothing outside
  EXPECT_THROW(beyond.Scan(coverage, bytes.data() + 6, 100000), RawLayerException);
}

// The end search as a plain walk back from `search_start`, one index at a time.
int64_t PlainEOISearch(const Bytes& bytes, int64_t origin, int32_t search_start) {
  const int64_t last_pair = static_cast<int64_t>(bytes.size()) - origin - 2;
  int64_t at = search_start;
  for (;;) {
    if (at >= 0 && at <= last_pair && bytes[origin + at] == 0xFF &&
        bytes[origin + at + 1] == 0xD9) {
      return at;
    }
    --at;
    if (at > last_pair) {
      at = last_pair;
    }
    if (at < 2) {
      return -1;
    }
  }
}

// Streams nested in one file share its coverage, and with it what earlier searches learnt: each
// answer must still be the one a plain search gives over the stream's own bytes.
TEST(FindEOI, AgreesWithAPlainSearchWhateverTheOrder) {
  std::mt19937 random(2024);
  const uint8_t symbols[] = {0xFF, 0xD9, 0xFF, 0x00, 0x11};
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    Bytes bytes(random() % 300);
    for (uint8_t& b : bytes) {
      b = symbols[random() % 5];
    }
    bytes.resize(bytes.size() + random() % 4000, static_cast<uint8_t>(0x20 + round));  // no FF
    if (round % 3 == 0) {
      bytes.push_back(0xFF);  // a pair that would straddle the end of the data
    }
    const auto size = static_cast<int64_t>(bytes.size());
    ByteCoverage coverage(bytes.data(), static_cast<int32_t>(size));
    for (int query = 0; query < 400; ++query) {
      const int64_t origin = query % 4 == 0 ? query / 4 % (size + 1)  // nested, outermost first
                                            : static_cast<int64_t>(random() % (size + 1));
      int32_t search_start = 0;
      switch (random() % 4) {
        case 0:
          search_start = static_cast<int32_t>(size - origin - 2);  // to the end of the data
          break;
        case 1:
          search_start = static_cast<int32_t>(random() % 6) - 2;  // -2 to 3
          break;
        case 2:
          search_start = INT32_MAX - static_cast<int32_t>(random() % 3);
          break;
        default:
          search_start = static_cast<int32_t>(random() % (size - origin + 5)) - 2;
      }
      SCOPED_TRACE(testing::Message() << "origin " << origin << ", from " << search_start);
      ASSERT_EQ(FindEOI(coverage, bytes.data() + origin, search_start),
                PlainEOISearch(bytes, origin, search_start));
    }
  }
}

// The stretch one search found clear ends on the outer stream's EOI; a nested stream that sees
// that pair below its index 2 has no end.
TEST(FindEOI, NestedStreamKeepsItsOwnLowerBound) {
  Bytes bytes = test::Hex("FF D8 FF E3 00 03 00 FF D9");
  bytes.resize(bytes.size() + 100000, 0x00);
  const auto size = static_cast<int32_t>(bytes.size());
  ByteCoverage coverage(bytes.data(), size);
  MarkerList outer;
  outer.Scan(coverage, bytes.data(), size - 2);  // finds the EOI at 7, claims 0 to 5 and 7, 8
  EXPECT_EQ(FindEOI(coverage, bytes.data() + 5, size - 7), 2);
  EXPECT_EQ(FindEOI(coverage, bytes.data() + 6, size - 8), -1);
  EXPECT_EQ(FindEOI(coverage, bytes.data() + 7, 0), 0);  // `search_start` itself below 2
  MarkerList inner;
  try {
    inner.Scan(coverage, bytes.data() + 6, size - 8);
    ADD_FAILURE() << "no exception";
  } catch (const RawLayerException& e) {
    EXPECT_STREQ(e.message, L"Missing JPEG EOI");
  }
}

TEST(JPEGReader, CorpusFilesScanAndDump) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  int count = 0;
  for (const auto& item : std::filesystem::directory_iterator(test::CorpusPath(""))) {
    const std::string path = item.path().string();
    if (!path.ends_with(".jpg")) {
      continue;
    }
    SCOPED_TRACE(path);
    ++count;
    std::wstring wide = DecodeUtf8(path.data(), path.size());
    OutStream stream;
    try {
      JPEGReader reader(wide.c_str());
      reader.Scan();
      reader.Dump(wide.c_str(), stream);
      EXPECT_LE(reader.coverage->LeftCount(), reader.length);
      EXPECT_TRUE(stream.Text().starts_with("File " + path + " (length="));
    } catch (const RawLayerException& e) {
      EXPECT_NE(e.message, nullptr);
    }
  }
  EXPECT_GT(count, 0);
}

// Offsets are signed 32-bit: files of 2 GiB and more are refused before they are mapped, with
// their whole size. The files are sparse: nothing is written.
TEST(JPEGReader, RefusesFilesOfTwoGigabytesAndMore) {
  struct Case {
    uint64_t size;
    const wchar_t* message;  // null: the file is mapped
  };
  const Case cases[] = {{0x7FFFFFFF, nullptr},
                        {0x80000000, L"File too large (2147483648 bytes)"},
                        {0x10000000A, L"File too large (4294967306 bytes)"}};
  const std::filesystem::path dir = test::MakeTempDir();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.size);
    const std::filesystem::path path = dir / "big.jpg";
    std::filesystem::remove(path);
    { std::ofstream(path, std::ios::binary) << ""; }
    std::error_code error;
    std::filesystem::resize_file(path, c.size, error);
    if (error) {
      GTEST_SKIP() << "no sparse file of " << c.size << " bytes here";
    }
    const std::wstring name = DecodeUtf8(path.string().data(), path.string().size());
    try {
      JPEGReader reader(name.c_str());
      EXPECT_EQ(c.message, nullptr);
      EXPECT_EQ(reader.length, c.size);
    } catch (const RawLayerException& e) {
      ASSERT_NE(c.message, nullptr) << "refused a file it can address";
      EXPECT_EQ(std::wstring(e.message), c.message);
    }
  }
  std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace corvi
