// The segment scan: the EOI search, nested streams, the corpus and the mapping of large files.
#include <gtest/gtest.h>

#include <algorithm>
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

// The end search as a plain walk back from `search_start`, one index at a time: the start is
// looked at wherever it is, below it the walk keeps within the data and stops at index 2.
int64_t PlainEOISearch(const Bytes& bytes, int64_t origin, int32_t search_start) {
  const int64_t last_pair = static_cast<int64_t>(bytes.size()) - origin - 2;
  for (int64_t at = search_start; at == search_start || at >= 2; at = std::min(at - 1, last_pair)) {
    if (at >= 0 && at <= last_pair && bytes[origin + at] == 0xFF &&
        bytes[origin + at + 1] == 0xD9) {
      return at;
    }
  }
  return -1;
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
      const int32_t starts[] = {static_cast<int32_t>(size - origin - 2),  // to the end of the data
                                static_cast<int32_t>(random() % 6) - 2,   // -2 to 3
                                INT32_MAX - static_cast<int32_t>(random() % 3),
                                static_cast<int32_t>(random() % (size - origin + 5)) - 2};
      const int32_t search_start = starts[random() % 4];
      SCOPED_TRACE(testing::Message() << "origin " << origin << ", from " << search_start);
      ASSERT_EQ(FindEOI(coverage, bytes.data() + origin, search_start),
                PlainEOISearch(bytes, origin, search_start));
    }
  }
}

// What every corpus file leaves unclaimed, or why it fails: a missed or a double claim in any
// segment class changes a count.
TEST(JPEGReader, CorpusFilesLeaveKnownCounts) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  std::vector<std::string> names;
  for (const auto& item : std::filesystem::directory_iterator(test::CorpusPath(""))) {
    if (item.path().extension() == ".jpg") {
      names.push_back(item.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  std::string text;
  for (const std::string& name : names) {
    const std::string path = test::CorpusPath(name);
    const std::wstring wide = DecodeUtf8(path.data(), path.size());
    text += name + ": ";
    try {
      JPEGReader reader(wide.c_str());
      reader.Scan();
      OutStream stream;
      reader.Dump(wide.c_str(), stream);
      EXPECT_TRUE(stream.Text().starts_with("File " + path + " (length=")) << name;
      text += std::to_string(reader.coverage->LeftCount()) + " of " +
              std::to_string(reader.length) + " bytes left\n";
    } catch (const RawLayerException& e) {
      std::string message = EncodeUtf8(e.message);
      if (const size_t at = message.find(path); at != std::string::npos) {
        message.replace(at, path.size(), name);
      }
      text += message + "\n";
    }
  }
  test::ExpectGolden("jpeg_corpus", text);
}

// Offsets are signed 32-bit: files of 2 GiB and more are refused before they are mapped, with
// their whole size. The files are sparse: nothing is written.
TEST(JPEGReader, RefusesFilesOfTwoGigabytesAndMore) {
  const struct {
    uint64_t size;
    const wchar_t* message;  // null: the file is mapped
  } cases[] = {{0x7FFFFFFF, nullptr},
               {0x80000000, L"File too large (2147483648 bytes)"},
               {0x10000000A, L"File too large (4294967306 bytes)"}};
  const std::filesystem::path dir = test::MakeTempDir();
  for (const auto& c : cases) {
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
