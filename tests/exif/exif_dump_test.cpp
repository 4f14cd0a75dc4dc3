// The APP1 segment and the TIFF walk, pinned in golden files that hold each input stream beside
// its scan report and dump: Exif values, directory chains, sub-directories, maker notes,
// thumbnails, XMP, bad input, and the values that the segments apply. To rewrite the reports
// after an intended change, run
//   CORVI_UPDATE_GOLDEN=1 ./exif_tests --gtest_filter='ExifDump.*'
// and review the change to tests/golden/ as a diff.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "exif/tag_names.h"
#include "exif/tiff_entry.h"
#include "tests/support/segment_cases.h"

namespace corvi {
namespace {

// The scan report and the root entries' directory numbers, which the dump does not show.
std::string ReportWithIfds(const test::Bytes& stream) {
  test::ScanResult r = test::ScanBytes(stream);
  const auto* app1 =
      r.markers->count > 0 ? dynamic_cast<APP1Marker*>(r.markers->items[0]) : nullptr;
  std::string text = "ifds:";
  for (uint32_t i = 0; app1 != nullptr && app1->directory != nullptr && i < app1->directory->count;
       ++i) {
    text.push_back(' ');
    text.append(std::to_string(app1->directory->items[i]->ifd));
  }
  return test::ScanReport(stream) + text + "\n";
}

TEST(ExifDump, SegmentsAndDirectoryWalksMatchGolden) {
  test::ExpectGoldenCases("exif_segments", ReportWithIfds);
  test::ExpectGoldenCases("exif_walk", ReportWithIfds);
}

// Apply collects the chosen tags of count 1 (text of any count, zeros kept), the later entry
// replacing the earlier in its place, and reads a thumbnail's header into a layer of its own.
TEST(ExifDump, AppliedValuesMatchGolden) {
  test::ExpectGoldenCases("exif_apply", test::ApplyReport);
}

// Every name, looked up by its key: the lookup is a binary search over sorted keys.
TEST(ExifDump, TagNamesMatchGolden) {
  std::string text;
  for (size_t i = 0; i < 144; ++i) {
    EXPECT_TRUE(i == 0 || TIFFTagNames[i - 1].key < TIFFTagNames[i].key) << i;
    text += std::to_string(TIFFTagNames[i].key) + " " +
            EncodeUtf8(TIFFTagName(TIFFTagNames[i].key)) + "\n";
  }
  text += "unknown " + EncodeUtf8(TIFFTagName(0x12000)) + EncodeUtf8(TIFFTagName(0x30000)) + "\n";
  test::ExpectGolden("exif_tag_names", text);
}

// Find looks into sub-directories but not into maker notes; OrTag reaches children only.
TEST(TIFFDirectory, FindAndOrTagStopAtTheRightLevels) {
  const uint8_t v[64] = {};
  TIFFDirectory root(kIntelOrder);
  root.Append(std::make_unique<TIFFEntry>(0, 0x10F, 2, 6, v));
  auto* exif_dir = new TIFFDirectory(kIntelOrder);
  exif_dir->Append(std::make_unique<ThumbnailOffset>(0, 0x201, 4, 1, v));
  root.Append(std::make_unique<TIFFNestedDir>(0, 0x8769, 4, 1, v, exif_dir));
  auto* note_dir = new TIFFDirectory(kIntelOrder);
  note_dir->Append(std::make_unique<TIFFEntry>(0, 0x110, 2, 6, v));
  root.Append(std::make_unique<CanonMakerNote>(0, 0x927C, 7, 8, v, note_dir));
  EXPECT_EQ(root.Find(0x927C), root.items[2]);
  EXPECT_EQ(root.Find(0x8769), nullptr);  // a nested directory does not answer for itself
  EXPECT_EQ(root.Find(0x201), exif_dir->items[0]);
  EXPECT_EQ(root.Find(0x110), nullptr);
  root.OrTag(kCanonTagSpace);
  EXPECT_EQ(root.items[0]->tag, 0x2010Fu);
  EXPECT_EQ(root.items[1]->tag, 0x8769u);
  EXPECT_EQ(exif_dir->items[0]->tag, 0x20201u);
  EXPECT_EQ(root.items[2]->tag, 0x927Cu);
  EXPECT_EQ(note_dir->items[0]->tag, 0x20110u);
}

}  // namespace
}  // namespace corvi
