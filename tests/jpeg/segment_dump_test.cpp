// The claims and dumps of every segment class and of the walk between segments, pinned in golden
// files that hold each input stream beside its scan report, and the values that APP0 applies. To
// rewrite the reports after an intended change, run
//   CORVI_UPDATE_GOLDEN=1 ./jpeg_tests --gtest_filter='SegmentDump.*'
// and review the change to tests/golden/ as a diff.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "tests/support/segment_cases.h"

namespace corvi {
namespace {

using test::Bytes;

TEST(SegmentDump, ScansMatchGolden) {
  for (const char* golden : {"jpeg_app_segments", "jpeg_table_segments", "jpeg_walk"}) {
    test::ExpectGoldenCases(golden, test::ScanReport);
  }
}

// Inches and centimetres store the unit (JFIF's code, not TIFF's) and both resolutions, each
// replacing an earlier value in its slot; other units store nothing.
TEST(SegmentDump, AppliedValuesMatchGolden) {
  test::ExpectGoldenCases("jpeg_apply", test::ApplyReport);
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
  Bytes bytes = test::Hex("FF D8 00 00 FF F0 00 04 AB CD FF D9");
  test::ScanResult result = test::ScanBytes(bytes);
  OutStream stream;
  result.markers->Dump(bytes.data(), 3, stream);
  EXPECT_EQ(stream.Text(), "      Marker f0 (bytes 4 - 9)\n       ab cd\n");
  for (int32_t level : {-5, 0, 3}) {
    OutStream indent;
    PrintIndent(level, indent);
    EXPECT_EQ(indent.Text(), std::string(level > 0 ? 2 * level : 0, ' '));
  }
}

}  // namespace
}  // namespace corvi
