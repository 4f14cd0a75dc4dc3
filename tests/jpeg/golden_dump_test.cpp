// Golden dumps: whole segment dumps of synthetic files compared with tests/golden/NAME.txt.
//
// The files are built here; tests/golden/NAME.jpg holds a copy of the bytes for reference only.
// To rewrite the expected texts after an intended change to the dump, run the test with the
// environment variable CORVI_UPDATE_GOLDEN=1 and review the change to the .txt files as a diff:
//   CORVI_UPDATE_GOLDEN=1 ./jpeg_tests --gtest_filter='GoldenDump.*'
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;

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

std::vector<uint8_t> Counts(std::initializer_list<uint8_t> first) {
  std::vector<uint8_t> counts(first);
  counts.resize(16, 0);
  return counts;
}

// JFIF 1.01 at 72 dpi, a comment, and a grey 8x8 baseline frame.
Bytes JfifBaseline() {
  return JpegBuilder()
      .Soi()
      .Segment(0xE0, {'J', 'F', 'I', 'F', 0, 1, 1, 1, 0, 72, 0, 72, 0, 0})
      .Segment(0xFE, Text("made by corvi"))
      .Dqt(0)
      .Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}})
      .Dht(0, 0, Counts({1}), {0x00})
      .Dht(1, 0, Counts({1}), {0x00})
      .Sos({{1, 0x00}})
      .Entropy({0x00})
      .Eoi()
      .bytes();
}

// The application segments, an unknown APP3 with a hex block, tables of both precisions and
// classes in one segment each, a three-component progressive frame, a restart interval and the
// first scan.
Bytes AdobeProgressive() {
  Bytes dqt(65 + 129, 0x01);
  dqt[0] = 0x00;
  dqt[65] = 0x11;
  Bytes app3;
  for (uint8_t i = 0; i < 17; ++i) {
    app3.push_back(i);
  }
  return JpegBuilder()
      .Soi()
      .Segment(0xEE, {'A', 'd', 'o', 'b', 'e', 0, 101, 0xC0, 0x01, 0x00, 0x00, 2, 0xEE, 0xEE})
      .Segment(0xE2, Concat({Text("ICC_PROFILE"), {0, 1, 1}}))
      .Segment(0xEC, Concat({Text("Ducky"), {0, 1, 0}}))
      .Segment(0xED, Concat({Text("Photoshop 3.0"), {0}, Text("8BIM")}))
      .Segment(0xE3, app3)
      .Segment(0xDB, dqt)
      .Sof(0xC2, 8, 16, 16, {{1, 0x22, 0}, {2, 0x11, 1}, {3, 0x11, 1}})
      .Segment(0xC4, Concat({{0x00}, Counts({1}), {0x00}, {0x11}, Counts({0, 2}), {0x01, 0x02}}))
      .Dri(4)
      .Sos({{1, 0x01}}, 0, 0, 0x01)
      .Entropy({0x12, 0x34, 0xFF, 0x00, 0x56})
      .Eoi()
      .bytes();
}

// JFIF in dots per centimetre with a 1x1 thumbnail and one surplus byte, and a comment with
// escapes; no frame and no scan.
Bytes JfifThumbnail() {
  return JpegBuilder()
      .Soi()
      .Segment(0xE0, {'J', 'F', 'I', 'F', 0, 1, 2, 2, 0, 100, 0, 50, 1, 1, 0x10, 0x20, 0x30, 0x99})
      .Segment(0xFE, {'a', '\t', '"', 0xC3, 0xA9, '\r', '\n'})
      .Eoi()
      .bytes();
}

struct GoldenCase {
  const char* name;
  Bytes (*build)();
  uint32_t left;  // bytes left unclaimed after the scan
};

const GoldenCase kGoldenCases[] = {
    {"jfif_baseline", JfifBaseline, 0},
    {"adobe_progressive", AdobeProgressive, 19},  // Adobe surplus 2, APP3 payload 17
    {"jfif_thumbnail", JfifThumbnail, 1},
};

std::string GoldenPath(const std::string& name) {
  return std::string(CORVI_GOLDEN_DIR) + "/" + name;
}

bool UpdateRequested() {
  const char* flag = std::getenv("CORVI_UPDATE_GOLDEN");
  return flag != nullptr && std::strcmp(flag, "1") == 0;
}

TEST(GoldenDump, MatchesExpectedText) {
  for (const GoldenCase& c : kGoldenCases) {
    SCOPED_TRACE(c.name);
    const Bytes bytes = c.build();
    test::ScanResult result = test::ScanBytes(bytes);
    ASSERT_EQ(result.error, L"");
    EXPECT_EQ(result.coverage->LeftCount(), c.left);
    const std::string dump = test::DumpText(result, bytes);
    const std::string text_path = GoldenPath(std::string(c.name) + ".txt");
    if (UpdateRequested()) {
      std::ofstream(text_path, std::ios::binary) << dump;
      std::ofstream jpg(GoldenPath(std::string(c.name) + ".jpg"), std::ios::binary);
      jpg.write(reinterpret_cast<const char*>(bytes.data()),
                static_cast<std::streamsize>(bytes.size()));
      continue;
    }
    const Bytes expected = test::ReadFile(text_path);
    ASSERT_FALSE(expected.empty()) << "missing " << text_path;
    EXPECT_EQ(dump, std::string(expected.begin(), expected.end()));
  }
}

}  // namespace
}  // namespace corvi
