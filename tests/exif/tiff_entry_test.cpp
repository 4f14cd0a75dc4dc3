// Tests of the TIFF entries: value lines, tag names, search by tag, tag spaces and Collect.
#include "exif/tiff_entry.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "base/property.h"
#include "base/raw_layer.h"
#include "decode/decode_state.h"
#include "exif/tag_names.h"
#include "platform/format.h"
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::Bytes;

// Dumps one entry whose value is `bytes` at offset 4 of a buffer standing for the file.
std::string DumpEntry(uint32_t tag, uint32_t type, uint32_t count, const Bytes& bytes,
                      uint8_t order) {
  Bytes file(4, 0);
  file.insert(file.end(), bytes.begin(), bytes.end());
  file.push_back(0);  // a count of 0 still points at a byte
  TIFFEntry entry(0, tag, type, count, file.data() + 4);
  OutStream stream;
  entry.Dump(file.data(), 1, stream, order);
  return stream.Text();
}

std::string ValueLine(uint32_t type, uint32_t count, const Bytes& bytes, uint8_t order) {
  std::string text = DumpEntry(0x100, type, count, bytes, order);
  return text.substr(text.find('\n') + 1);
}

Bytes Repeat(uint8_t byte, size_t n) {
  return Bytes(n, byte);
}

struct ValueCase {
  const char* what;
  uint32_t type;
  uint32_t count;
  Bytes bytes;
  uint8_t order;
  const char* expected;
};

TEST(TIFFEntry, PrintsValuesByTypeWithConversion) {
  const ValueCase cases[] = {
      {"short Motorola", 3, 1, {0x01, 0x02}, kMotorolaOrder, "   258\n"},
      {"short Intel", 3, 1, {0x01, 0x02}, kIntelOrder, "   513\n"},
      {"long Intel", 4, 1, {0x01, 0, 0, 0x80}, kIntelOrder, "   2147483649\n"},
      {"rational 1/0", 5, 1, {0, 0, 0, 1, 0, 0, 0, 0}, kMotorolaOrder, "   1/0\n"},
      {"slong", 9, 1, {0xFF, 0xFF, 0xFF, 0xFE}, kMotorolaOrder, "   -2\n"},
      {"srational", 10, 1, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 3}, kMotorolaOrder, "   -1/3\n"},
      {"float", 11, 1, {0x00, 0x00, 0xC0, 0x3F}, kIntelOrder, "   1.500000\n"},
      {"double", 12, 1, {0x40, 0x04, 0, 0, 0, 0, 0, 0}, kMotorolaOrder, "   2.500000\n"},
      {"text without zero", 2, 5, {'a', 'b', 'c', 'd', 'e'}, kIntelOrder, "   \"abcde\"\n"},
      {"text stops at zero", 2, 5, {'a', 'b', 0, 'd', 'e'}, kIntelOrder, "   \"ab\"\n"},
      {"empty text", 2, 0, {}, kIntelOrder, "   \"\"\n"},
      {"bytes", 1, 2, {0x0A, 0xFF}, kMotorolaOrder, "   0a ff\n"},
      {"count 0", 3, 0, {}, kIntelOrder, "  \n"},
  };
  for (const ValueCase& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(ValueLine(c.type, c.count, c.bytes, c.order), c.expected);
  }
}

TEST(TIFFEntry, SnipsAfterTwentyOneValues) {
  std::string hex;
  for (int i = 0; i < 21; ++i) {
    hex += " 07";
  }
  EXPECT_EQ(ValueLine(7, 30, Repeat(7, 30), kIntelOrder), "  " + hex + " [snip]\n");
  EXPECT_EQ(ValueLine(7, 21, Repeat(7, 21), kIntelOrder), "  " + hex + " [snip]\n");
  EXPECT_EQ(ValueLine(7, 20, Repeat(7, 20), kIntelOrder), "  " + hex.substr(3) + "\n");
  EXPECT_EQ(ValueLine(2, 40, Repeat('x', 40), kIntelOrder),
            "   \"" + std::string(40, 'x') + "\"\n");  // text is never snipped
}

struct TagLineCase {
  uint32_t tag;
  uint32_t type;
  uint32_t count;
  const char* expected;
};

TEST(TIFFEntry, TagLineShowsLowTagNameAndValueBytes) {
  const TagLineCase cases[] = {
      {0x30002, 5, 3, "  Tag 0x2 \"Latitude\" (value bytes 4 - 27):\n"},
      {0x2, 7, 4, "  Tag 0x2 \"InteropVersion\" (value bytes 4 - 7):\n"},
      {0x12000, 7, 1, "  Tag 0x2000 \"???\" (value bytes 4 - 4):\n"},
      {0x20090, 3, 1, "  Tag 0x90 \"Canon Custom Functions\" (value bytes 4 - 5):\n"},
      {0x30000, 1, 4, "  Tag 0x0 \"???\" (value bytes 4 - 7):\n"},
      {0x132, 2, 0, "  Tag 0x132 \"DateTime\" (value bytes 4 - 3):\n"},
      {0x8825, 4, 1, "  Tag 0x8825 \"GPS Dir offset\" (value bytes 4 - 7):\n"},
      {0x200A0, 3, 1, "  Tag 0xa0 \"Canon Proccessing Info\" (value bytes 4 - 5):\n"},
      {0x10001, 3, 1, "  Tag 0x1 \"???\" (value bytes 4 - 5):\n"},
  };
  for (const TagLineCase& c : cases) {
    SCOPED_TRACE(c.expected);
    std::string text = DumpEntry(c.tag, c.type, c.count, Repeat(0, 24), kIntelOrder);
    EXPECT_EQ(text.substr(0, text.find('\n') + 1), c.expected);
  }
}

// Names are looked up by binary search over the keys.
TEST(TIFFTagNames, AreSortedAndNamed) {
  for (size_t i = 1; i < 144; ++i) {
    ASSERT_NE(TIFFTagNames[i].name, nullptr) << i;
    EXPECT_LT(TIFFTagNames[i - 1].key, TIFFTagNames[i].key) << i;
  }
  EXPECT_EQ(TIFFTagNames[143].key, 0x3001Du);
}

// A small tree: Make, an Exif sub-directory holding 0x201 and a maker note holding 0x10F.
struct Tree {
  Bytes bytes = Bytes(64, 0);
  TIFFDirectory root{kIntelOrder};
  TIFFEntry* exif_child = nullptr;
  TIFFEntry* note = nullptr;

  Tree() {
    const uint8_t* v = bytes.data();
    root.Append(std::make_unique<TIFFEntry>(0, 0x10F, 2, 6, v));
    auto* exif_dir = new TIFFDirectory(kIntelOrder);
    auto exif = std::make_unique<TIFFNestedDir>(0, 0x8769, 4, 1, v, exif_dir);
    auto child = std::make_unique<ThumbnailOffset>(0, 0x201, 4, 1, v);
    exif_child = child.get();
    exif_dir->Append(std::move(child));
    root.Append(std::move(exif));
    auto* note_dir = new TIFFDirectory(kIntelOrder);
    note_dir->Append(std::make_unique<TIFFEntry>(0, 0x10F, 2, 6, v));
    auto note_entry = std::make_unique<CanonMakerNote>(0, 0x927C, 7, 8, v, note_dir);
    note = note_entry.get();
    root.Append(std::move(note_entry));
  }
};

TEST(TIFFDirectory, FindSearchesSubDirectoriesButNotNotes) {
  Tree tree;
  EXPECT_EQ(tree.root.Find(0x927C), tree.note);
  EXPECT_EQ(tree.root.Find(0x8769), nullptr);  // a nested directory does not answer for itself
  EXPECT_EQ(tree.root.Find(0x201), tree.exif_child);
  EXPECT_EQ(tree.root.Find(0x10F), tree.root.items[0]);
  tree.root.items[0]->tag = 0x30F;
  EXPECT_EQ(tree.root.Find(0x10F), nullptr);  // the note's Make is not searched
  EXPECT_EQ(tree.root.count, 3u);
}

TEST(TIFFDirectory, OrTagReachesChildrenOnly) {
  Tree tree;
  tree.root.OrTag(kCanonTagSpace);
  EXPECT_EQ(tree.root.items[0]->tag, 0x2010Fu);
  EXPECT_EQ(tree.root.items[1]->tag, 0x8769u);
  EXPECT_EQ(tree.exif_child->tag, 0x20201u);
  EXPECT_EQ(tree.note->tag, 0x927Cu);
  EXPECT_EQ(static_cast<TIFFNestedDir*>(tree.note)->directory->items[0]->tag, 0x2010Fu);
}

TEST(TIFFEntry, CollectCopiesChosenTagsAndLaterEntriesWin) {
  const Bytes make = {'C', 'a', 'm', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  const Bytes first_x = {0, 0, 0, 72, 0, 0, 0, 1};
  const Bytes second_x = {0, 0, 0, 96, 0, 0, 0, 2};
  const Bytes orientation = {0, 6, 0, 1};
  const Bytes flt = {0x3F, 0xC0, 0, 0};
  TIFFDirectory directory(kMotorolaOrder);
  directory.Append(std::make_unique<TIFFEntry>(0, 0x11A, 5, 1, first_x.data()));
  directory.Append(std::make_unique<TIFFEntry>(0, 0x10F, 2, 20, make.data()));
  directory.Append(std::make_unique<TIFFEntry>(0, 0x112, 3, 2, orientation.data()));
  directory.Append(std::make_unique<TIFFEntry>(0, 0x128, 3, 1, orientation.data()));
  directory.Append(std::make_unique<TIFFEntry>(0, 0x131, 11, 1, flt.data()));
  directory.Append(std::make_unique<TIFFEntry>(0, 0x3010F, 2, 20, make.data()));  // GPS space
  directory.Append(std::make_unique<TIFFEntry>(0, 0x100, 3, 1, orientation.data()));
  directory.Append(std::make_unique<TIFFEntry>(1, 0x11A, 5, 1, second_x.data()));
  RawLayer layer;
  DecodeState state;
  directory.Collect(state, directory.byte_order, layer, true);

  const PropertyList& p = layer.properties;
  ASSERT_EQ(p.count, 4u);
  EXPECT_EQ(p.items[1]->count, 20u);  // zero bytes included
  EXPECT_EQ(p.items[3]->type, 11u);
  // X Resolution is replaced in the place of the first.
  OutStream stream;
  p.PrintProperties(stream);
  EXPECT_EQ(stream.Text(),
            "X Resolution: 96/2\nMake: \"Cam\"\nResolution Unit: 6\nSoftware: 1.500000\n");
}

TEST(TIFFNestedDir, DumpsNameLineAndDirectoryOneDeeper) {
  Bytes file(16, 0);
  file[8] = 0x05;
  auto* sub = new TIFFDirectory(kMotorolaOrder);
  sub->Append(std::make_unique<TIFFEntry>(0, 0x30001, 2, 2, file.data() + 8));
  TIFFDirectory root(kMotorolaOrder);
  root.Append(std::make_unique<TIFFNestedDir>(0, 0x8825, 4, 1, file.data() + 4, sub));
  root.Append(std::make_unique<SonyMakerNote>(0, 0x927C, 7, 40, file.data() + 12,
                                              new TIFFDirectory(kMotorolaOrder)));
  OutStream stream;
  root.Dump(file.data(), 1, stream);
  EXPECT_EQ(stream.Text(),
            "  TIFF data in Motorola order\n"
            "  GPS Dir offset:\n"
            "    TIFF data in Motorola order\n"
            "    Tag 0x1 \"Latitude Ref\" (value bytes 8 - 9):\n"
            "     \"\x05\"\n"
            "  Sony MakerNote:\n"
            "    TIFF data in Motorola order\n");
}

}  // namespace
}  // namespace corvi
