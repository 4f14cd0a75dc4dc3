// Tests of the TIFF directory walk: values, chains, sub-directories, maker notes and bad input.
#include "exif/tiff_walk.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "base/byte_coverage.h"
#include "base/raw_layer_exception.h"
#include "platform/format.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::TiffBuilder;
using test::TiffDirectoryPlace;
using test::TiffEntryDef;

struct Walked {
  Bytes bytes;
  std::unique_ptr<ByteCoverage> coverage;
  std::unique_ptr<TIFFDirectory> directory = std::make_unique<TIFFDirectory>();
  std::wstring error;

  uint32_t OffsetOf(const TIFFEntry* e) const {
    return static_cast<uint32_t>(e->value - bytes.data());
  }
  std::string Dump() const {
    OutStream stream;
    directory->Dump(bytes.data(), 0, stream);
    return stream.Text();
  }
};

// Parses TIFF data that stands alone at the start of the covered bytes.
Walked WalkTiff(const Bytes& tiff) {
  Walked w;
  w.bytes = tiff;
  w.coverage = std::make_unique<ByteCoverage>(w.bytes.data(), static_cast<int32_t>(tiff.size()));
  try {
    ParseTIFFHeader(*w.directory, *w.coverage, w.bytes.data());
  } catch (const RawLayerException& e) {
    w.error = e.message;
  }
  return w;
}

constexpr bool kOrders[] = {false, true};

TEST(Walk, StoresInlineAndOutOfLineValuesWhereTheyStand) {
  for (bool motorola : kOrders) {
    SCOPED_TRACE(motorola ? "Motorola" : "Intel");
    TiffBuilder b(motorola);
    auto dir = b.Directory({{0x102, 3, 2, b.Shorts({8, 8})},
                            {0x11A, 5, 1, b.Rational(72, 1)},
                            {0x10E, 2, 0, {}},
                            {0x11B, 5, 1, {}, 0u}});  // shares offset 0 only with the header
    Walked w = WalkTiff(b.Tiff());
    ASSERT_EQ(w.error, L"");
    EXPECT_EQ(w.directory->byte_order, motorola ? 1 : 0);
    ASSERT_EQ(w.directory->count, 3u);  // the value at offset 0 overlaps the header: dropped
    EXPECT_EQ(w.OffsetOf(w.directory->items[0]), dir.value_field[0]);
    EXPECT_EQ(w.OffsetOf(w.directory->items[1]), dir.value[1]);
    EXPECT_EQ(w.OffsetOf(w.directory->items[2]), dir.value_field[2]);
    // Header, count, four entries; the next link is not read behind a value offset of 0.
    EXPECT_EQ(w.coverage->LeftCount(), b.Tiff().size() - 8 - 2 - 48);
  }
}

TEST(Walk, EntriesMaySharePointedAtBytes) {
  TiffBuilder b(false);
  auto dir = b.Directory({{0x11A, 5, 1, b.Rational(3, 1)}, {0x11B, 5, 1, {}, 0u}});
  b.Patch32(dir.value_field[1], dir.value[0]);
  Walked w = WalkTiff(b.Tiff());
  ASSERT_EQ(w.directory->count, 2u);
  EXPECT_EQ(w.directory->items[0]->value, w.directory->items[1]->value);
}

TEST(Walk, DropsValuesPointingAtItsOwnTable) {
  TiffBuilder b(true);
  auto dir = b.Directory({{0x11A, 5, 1, {}, 0u}, {0x112, 3, 1, b.Short(1)}});
  b.Patch32(dir.value_field[0], dir.start + 2);
  Walked w = WalkTiff(b.Tiff());
  ASSERT_EQ(w.directory->count, 1u);
  EXPECT_EQ(w.directory->items[0]->tag, 0x112u);
}

TEST(Walk, FollowsNextLinksOnlyBeforeTheLowestPointedAtOffset) {
  for (bool motorola : kOrders) {
    SCOPED_TRACE(motorola ? "Motorola" : "Intel");
    // Values behind the table: the link is read and the second directory has ifd 1.
    TiffBuilder b(motorola);
    auto first = b.Directory({{0x11A, 5, 1, b.Rational(72, 1)}});
    auto second = b.Directory({{0x11B, 5, 1, b.Rational(96, 1)}});
    b.Patch32(first.next_field, second.start);
    Walked w = WalkTiff(b.Tiff());
    ASSERT_EQ(w.directory->count, 2u);
    EXPECT_EQ(w.directory->items[1]->ifd, 1u);

    // A value stored in front of the table: the link is not read, its bytes stay open.
    TiffBuilder front(motorola, 16);
    uint32_t value_at = front.Append(front.Rational(1, 1));
    auto dir = front.Directory({{0x11A, 5, 1, {}, value_at}});
    auto more = front.Directory({{0x11B, 3, 1, front.Short(2)}});
    front.Patch32(dir.next_field, more.start);
    Walked v = WalkTiff(front.Tiff());
    ASSERT_EQ(v.directory->count, 1u);
    EXPECT_TRUE(v.coverage->IsUnidentifiedAt(dir.next_field, 4));
  }
}

TEST(Walk, ReadsADirectoryThatLinksToItselfOnce) {
  TiffBuilder b(false);
  auto dir = b.Directory({{0x112, 3, 1, b.Short(1)}});
  b.Patch32(dir.next_field, dir.start);
  Walked w = WalkTiff(b.Tiff());
  EXPECT_EQ(w.error, L"");
  EXPECT_EQ(w.directory->count, 1u);
  EXPECT_EQ(w.coverage->LeftCount(), 0u);  // the link's 4 bytes were claimed
}

TEST(Walk, ZeroOffsetsGiveEmptyDirectoriesOrDroppedEntries) {
  TiffBuilder empty(true, 0);
  Walked w = WalkTiff(empty.Tiff());
  EXPECT_EQ(w.error, L"");
  EXPECT_EQ(w.directory->count, 0u);
  EXPECT_EQ(w.Dump(), "TIFF data in Motorola order\n");

  TiffBuilder b(true);
  b.Directory({{0x8769, 4, 1, {}, 0u}, {0xA005, 4, 1, {}, 0u}, {0x112, 3, 1, b.Short(3)}});
  Walked v = WalkTiff(b.Tiff());
  ASSERT_EQ(v.directory->count, 1u);
  EXPECT_EQ(v.directory->items[0]->tag, 0x112u);
}

TEST(Walk, ADirectoryOfNoEntriesMayLinkOn) {
  TiffBuilder b(false);
  auto first = b.Directory({});
  auto second = b.Directory({{0x112, 3, 1, b.Short(8)}});
  b.Patch32(first.next_field, second.start);
  Walked w = WalkTiff(b.Tiff());
  ASSERT_EQ(w.directory->count, 1u);
  EXPECT_EQ(w.directory->items[0]->ifd, 1u);
}

struct BadEntryCase {
  uint16_t type;
  uint32_t count;
  const wchar_t* error;
  uint32_t stored;
};

TEST(Walk, ChecksTypesAndCounts) {
  const BadEntryCase cases[] = {
      {0, 1, L"Unknown TIFF data type", 0},
      {6, 1, L"Unknown TIFF data type", 0},
      {8, 1, L"Unknown TIFF data type", 0},
      {13, 1, L"Unknown TIFF data type", 0},
      {0xFFFF, 1, L"Unknown TIFF data type", 0},
      {1, 100001, L"Invalid TIFF data count", 0},
      {1, 0x80000000, L"Invalid TIFF data count", 0},
      {1, 100000, L"", 0},  // passes the test, then the value does not fit: dropped
      {12, 0, L"", 1},      // 0 bytes: inline
  };
  for (const BadEntryCase& c : cases) {
    SCOPED_TRACE(testing::Message() << c.type << "/" << c.count);
    TiffBuilder b(true);
    b.Directory({{c.type, c.type, c.count, {}, 0x10u}});
    Walked w = WalkTiff(b.Tiff());
    EXPECT_EQ(w.error, c.error);
    EXPECT_EQ(w.directory->count, c.stored);
  }
}

TEST(Walk, SurvivesOffsetsNearTheEndsOfTheSignedRange) {
  const uint32_t offsets[] = {0x7FFFFFFF, 0x7FFFFFF8, 0x80000000,
                              0x80000001, 0xFFFFFFF8, 0xFFFFFFFF};
  for (uint32_t offset : offsets) {
    SCOPED_TRACE(offset);
    TiffBuilder b(false);
    b.Directory({{0x11A, 5, 1, {}, offset},
                 {0x8769, 4, 1, {}, offset},
                 {0x8825, 4, 1, {}, offset},
                 {0x201, 4, 1, {}, offset},
                 {0x202, 4, 1, {}, offset}},
                offset);
    Walked w = WalkTiff(b.Tiff());
    EXPECT_EQ(w.error, L"");
    ASSERT_EQ(w.directory->count, 2u);  // thumbnail offset and length; the rest is dropped
    auto* thumbnail = dynamic_cast<const ThumbnailOffset*>(w.directory->Find(0x201));
    ASSERT_NE(thumbnail, nullptr);
    EXPECT_EQ(thumbnail->thumbnail, static_cast<int32_t>(offset));

    TiffBuilder first(false, offset);
    Walked v = WalkTiff(first.Tiff());
    EXPECT_EQ(v.error, L"");
    EXPECT_EQ(v.directory->count, 0u);
  }
}

TEST(Walk, ReadsSubDirectoriesAsDeepAsASegmentHolds) {
  // Each level is a count, one Exif offset entry pointing at the next level, and a next link.
  TiffBuilder b(true);
  constexpr int kLevels = 3600;  // 18 bytes a level: about all that fits in one APP1 segment
  for (int i = 0; i < kLevels; ++i) {
    b.Directory({{0x8769, 4, 1, {}, b.Here() + 18}});
  }
  Walked w = WalkTiff(b.Tiff());
  EXPECT_EQ(w.error, L"");
  int depth = 0;
  for (const TIFFDirectory* d = w.directory.get(); d->count == 1; ++depth) {
    d = static_cast<const TIFFNestedDir*>(d->items[0])->directory;
  }
  EXPECT_EQ(depth, kLevels - 1);  // the last offset points behind the data
}

TEST(Walk, GivesGPSEntriesTheirTagSpace) {
  TiffBuilder b(true);
  auto root = b.Directory({{0x8825, 4, 1, {}, 0u}});
  uint32_t gps_at = b.Here();
  b.Directory({{0x1, 2, 2, {'N', 0}}, {0x2, 5, 3, b.Rational(1, 1)}});
  b.Patch32(root.value_field[0], gps_at);
  Walked w = WalkTiff(b.Tiff());
  ASSERT_EQ(w.error, L"");
  auto* gps = dynamic_cast<TIFFNestedDir*>(w.directory->items[0]);
  ASSERT_NE(gps, nullptr);
  EXPECT_EQ(gps->tag, 0x8825u);
  ASSERT_EQ(gps->directory->count, 1u);  // 3 rationals need 24 bytes; only 8 are there
  EXPECT_EQ(gps->directory->items[0]->tag, 0x30001u);
  EXPECT_EQ(w.directory->Find(0x1), nullptr);
}

// A Make and a maker note whose bytes are `note`; the note's place is patched in.
struct NoteFile {
  TiffBuilder b;
  TiffDirectoryPlace root;
  uint32_t note_at = 0;
};

NoteFile MakeNoteFile(bool motorola, const std::string& make, const Bytes& head,
                      const std::vector<TiffEntryDef>& note_entries, uint32_t note_next = 0) {
  NoteFile f{TiffBuilder(motorola), {}, 0};
  Bytes make_bytes = TiffBuilder::Ascii(make);
  f.root = f.b.Directory({{0x10F, 2, static_cast<uint32_t>(make_bytes.size()), make_bytes},
                          {0x927C, 7, 0, {}, 0u},
                          {0x110, 2, 5, TiffBuilder::Ascii("Mod1")}});
  f.note_at = f.b.Append(head);
  f.b.Directory(note_entries, note_next);
  f.b.Patch32(f.root.value_field[1], f.note_at);
  f.b.Patch32(f.root.value_field[1] - 4, f.b.Here() - f.note_at);
  return f;
}

TEST(Walk, ReadsCanonNotesAndSurvivesTheirFailures) {
  for (bool motorola : kOrders) {
    SCOPED_TRACE(motorola ? "Motorola" : "Intel");
    TiffBuilder s(motorola);
    NoteFile f = MakeNoteFile(motorola, "Canon", {},
                              {{0x1, 3, 1, s.Short(5)}, {0x2, 6, 1, {}}, {0x3, 3, 1, s.Short(6)}});
    Walked w = WalkTiff(f.b.Tiff());
    ASSERT_EQ(w.error, L"");
    ASSERT_EQ(w.directory->count, 3u);  // the note's failure does not end the parent
    auto* note = dynamic_cast<CanonMakerNote*>(w.directory->items[1]);
    ASSERT_NE(note, nullptr);
    EXPECT_EQ(w.OffsetOf(note), f.note_at);
    ASSERT_EQ(note->directory->count, 1u);
    EXPECT_EQ(note->directory->items[0]->tag, 0x20001u);
    EXPECT_EQ(w.directory->items[2]->tag, 0x110u);
    EXPECT_NE(w.Dump().find("Canon MakerNote:\n"
                            "  TIFF data in "),
              std::string::npos);
    EXPECT_NE(w.Dump().find("  Tag 0x1 \"Canon Camera Settings\""), std::string::npos);
  }
}

TEST(Walk, ACanonNoteOfFourBytesIsEmpty) {
  TiffBuilder b(false);
  b.Directory({{0x10F, 2, 6, TiffBuilder::Ascii("Canon")}, {0x927C, 7, 4, {1, 0, 0, 0}}});
  Walked w = WalkTiff(b.Tiff());
  ASSERT_EQ(w.directory->count, 2u);
  auto* note = dynamic_cast<CanonMakerNote*>(w.directory->items[1]);
  ASSERT_NE(note, nullptr);
  EXPECT_EQ(note->directory->count, 0u);
}

TEST(Walk, NotesNeedAMakeReadBeforeThem) {
  TiffBuilder b(false);
  b.Directory({{0x927C, 7, 6, {1, 2, 3, 4, 5, 6}}, {0x10F, 2, 6, TiffBuilder::Ascii("Canon")}});
  Walked w = WalkTiff(b.Tiff());
  ASSERT_EQ(w.directory->count, 2u);
  EXPECT_EQ(typeid(*w.directory->items[0]), typeid(TIFFEntry));  // dumped as plain bytes
}

struct SonyCase {
  const char* head;
  bool is_note;
};

TEST(Walk, ReadsSonyNotesBehindEitherHead) {
  const SonyCase cases[] = {{"SONY CAM \0\0\0", true},
                            {"SONY DSC \0\0\0", true},
                            {"SONY DSC!\0\0\0", false},
                            {"SONY XYZ \0\0\0", false}};
  for (bool motorola : kOrders) {
    for (const SonyCase& c : cases) {
      SCOPED_TRACE(testing::Message() << c.head << motorola);
      Bytes head(c.head, c.head + 12);
      TiffBuilder s(motorola);
      NoteFile f = MakeNoteFile(motorola, "SONY", head, {{0x2000, 3, 1, s.Short(9)}}, 8);
      Walked w = WalkTiff(f.b.Tiff());
      ASSERT_EQ(w.error, L"");
      ASSERT_EQ(w.directory->count, 3u);
      auto* note = dynamic_cast<SonyMakerNote*>(w.directory->items[1]);
      EXPECT_EQ(note != nullptr, c.is_note);
      if (note == nullptr) {
        continue;
      }
      EXPECT_EQ(w.OffsetOf(note), f.note_at + 12);
      ASSERT_EQ(note->directory->count, 1u);  // the next link (to the root) is not followed
      EXPECT_EQ(note->directory->items[0]->tag, 0x12000u);
      EXPECT_FALSE(w.coverage->IsUnidentifiedAt(f.note_at, 12));
    }
  }
}

TEST(ParseTIFFHeader, RefusesBadHeaders) {
  struct {
    Bytes bytes;
    const wchar_t* error;
  } cases[] = {
      {{0x49, 0x4D, 0x2A, 0, 8, 0, 0, 0}, L"Exif header has invalid byte order"},
      {{0x4D, 0x4D, 0x2A, 0, 0, 0, 0, 8}, L"Exif header has invalid start marker"},
      {{0x49, 0x49, 0x2A, 0, 8, 0, 0}, L"Invalid offset or corrupt data"},
      {{0x49, 0x49, 0x2A, 0, 8, 0, 0, 0}, L""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    EXPECT_EQ(WalkTiff(c.bytes).error, c.error);
  }
}

}  // namespace
}  // namespace corvi
