// Golden dumps: whole segment dumps of the files tests/golden/NAME.jpg compared with NAME.txt.
//
// To rewrite the expected texts after an intended change to the dump, run the test with the
// environment variable CORVI_UPDATE_GOLDEN=1 and review the change to the .txt files as a diff:
//   CORVI_UPDATE_GOLDEN=1 ./jpeg_tests --gtest_filter='GoldenDump.*'
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

struct GoldenCase {
  const char* name;
  uint32_t left;  // bytes left unclaimed after the scan
};

const GoldenCase kGoldenCases[] = {
    // JFIF 1.01 at 72 dpi, a comment, and a grey 8x8 baseline frame.
    {"jfif_baseline", 0},
    // Adobe (2 surplus bytes), ICC, Ducky, Photoshop, an unknown APP3 with a 17-byte hex block,
    // tables of both precisions and classes in one segment each, a three-component progressive
    // frame, a restart interval and the first scan.
    {"adobe_progressive", 19},
    // JFIF in dots per centimetre with a 1x1 thumbnail and one surplus byte, and a comment with
    // escapes; no frame and no scan.
    {"jfif_thumbnail", 1},
};

TEST(GoldenDump, MatchesExpectedText) {
  for (const GoldenCase& c : kGoldenCases) {
    SCOPED_TRACE(c.name);
    const std::string path = std::string(CORVI_GOLDEN_DIR) + "/" + c.name;
    const test::Bytes bytes = test::ReadFile(path + ".jpg");
    ASSERT_FALSE(bytes.empty()) << "missing " << path << ".jpg";
    test::ScanResult result = test::ScanBytes(bytes);
    ASSERT_EQ(result.error, L"");
    EXPECT_EQ(result.coverage->LeftCount(), c.left);
    const std::string dump = test::DumpText(result, bytes);
    const char* update = std::getenv("CORVI_UPDATE_GOLDEN");
    if (update != nullptr && std::strcmp(update, "1") == 0) {
      std::ofstream(path + ".txt", std::ios::binary) << dump;
      continue;
    }
    const test::Bytes expected = test::ReadFile(path + ".txt");
    ASSERT_FALSE(expected.empty()) << "missing " << path << ".txt";
    EXPECT_EQ(dump, std::string(expected.begin(), expected.end()));
  }
}

}  // namespace
}  // namespace corvi
