// The APP1 segment and the TIFF walk, pinned as whole scan reports and dumps in golden files:
// Exif values, directory chains, sub-directories, maker notes, thumbnails, XMP and bad input. To
// rewrite them after an intended change, run
//   CORVI_UPDATE_GOLDEN=1 ./exif_tests --gtest_filter='ExifDump.*'
// and review the change to tests/golden/ as a diff.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "decode/decode_state.h"
#include "exif/tag_names.h"
#include "exif/tiff_entry.h"
#include "jpeg/markers.h"
#include "platform/format.h"
#include "tests/support/segment_cases.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::Concat;
using test::TiffBuilder;
using test::TiffEntryDef;

// SOI, an APP1 with `payload`, `tail`, EOI: the TIFF header is at file offset 12.
Bytes App1(const Bytes& payload, const Bytes& tail = {}) {
  return test::JpegBuilder().Soi().Segment(0xE1, payload).Raw(tail).Eoi().bytes();
}

Bytes Exif(const TiffBuilder& b) {
  return App1(b.ExifPayload());
}

// A stream of SOI, an APP3 with two bytes, EOI: its APP3 payload stays unclaimed.
const Bytes kSmallThumbnail = test::Hex("FF D8 FF E3 00 04 01 02 FF D9");

// Make, a maker note whose bytes are `head` and a directory of `note_entries`, and a Model.
Bytes NoteFile(bool motorola, const std::string& make, const Bytes& head,
               const std::vector<TiffEntryDef>& note_entries, uint32_t note_next = 0) {
  TiffBuilder b(motorola);
  const Bytes make_bytes = TiffBuilder::Ascii(make);
  auto root = b.Directory({{0x10F, 2, static_cast<uint32_t>(make_bytes.size()), make_bytes},
                           {0x927C, 7, 0, {}, 0u},
                           {0x110, 2, 5, TiffBuilder::Ascii("Mod1")}});
  const uint32_t note_at = b.Append(head);
  b.Directory(note_entries, note_next);
  b.Patch32(root.value_field[1], note_at);
  b.Patch32(root.value_field[1] - 4, b.Here() - note_at);
  return Exif(b);
}

// The root entries' directory numbers, which the dump does not show.
std::string Ifds(const Bytes& stream) {
  test::ScanResult r = test::ScanBytes(stream);
  const auto* app1 =
      r.markers->count > 0 ? dynamic_cast<APP1Marker*>(r.markers->items[0]) : nullptr;
  std::string text = "ifds:";
  for (uint32_t i = 0; app1 != nullptr && app1->directory != nullptr && i < app1->directory->count;
       ++i) {
    text.push_back(' ');
    text.append(std::to_string(app1->directory->items[i]->ifd));
  }
  text.push_back('\n');
  return text;
}

void ExpectGoldenExif(const std::string& golden, const test::NamedStreams& streams) {
  std::string text;
  for (const auto& [name, stream] : streams) {
    text += "== " + name + "\n" + test::ScanReport(stream) + Ifds(stream);
  }
  test::ExpectGolden(golden, text);
}

TEST(ExifDump, SegmentsAndThumbnailsMatchGolden) {
  test::NamedStreams s = {
      {"thumbnail inside the segment", App1(test::ExifWithThumbnail(false, kSmallThumbnail))},
      {"Exif with no TIFF header", App1(Concat({test::Text("Exif"), {0, 0}}))},
      {"Motorola with 42 little-endian",
       App1(test::Hex("45 78 69 66 00 00 4D 4D 2A 00 00 00 00 08"))},
      {"five bytes in hex", App1(Concat({test::Text("Exif"), {0}}))},
      {"seventeen bytes in hex", App1(Bytes(17, 0xAB))},
      {"XMP signature without its zero", App1(test::Text("http://ns.adobe.com/xap/1.0/!"))},
      {"stored length 1", test::JpegBuilder().Soi().SegmentWithLength(0xE1, 1, {}).Eoi().bytes()},
  };
  // The thumbnail in the open payload of an APP3 behind the APP1 (TIFF offset 62) is found; at
  // TIFF offset 58, between segments, it is claimed first and the scan then fails on it.
  for (uint32_t offset : {62u, 58u}) {
    Bytes payload = test::ExifWithThumbnail(true, {}, offset, 10);
    payload.resize(64, 0);
    s.push_back({"thumbnail outside at " + std::to_string(offset),
                 App1(payload, offset == 62 ? Concat({test::Hex("FF E3 00 0C"), kSmallThumbnail})
                                            : kSmallThumbnail)});
  }
  const std::vector<std::pair<uint32_t, uint32_t>> dropped = {
      {50, 0}, {50, 1}, {0, 8}, {0x7FFFFFF0, 16}, {0x80000000, 16}, {50, 0xFFFFFFF0}};
  for (const auto& [offset, length] : dropped) {
    s.push_back({"dropped thumbnail " + std::to_string(offset) + "+" + std::to_string(length),
                 App1(test::ExifWithThumbnail(false, {}, offset, length))});
  }
  s.push_back({"thumbnail without EOI",
               App1(test::ExifWithThumbnail(false, test::Hex("FF D8 FF E3 00 02")))});
  s.push_back(
      {"thumbnail without SOI", App1(test::ExifWithThumbnail(false, test::Hex("00 D8 FF D9")))});
  for (int levels : {2, 3}) {
    s.push_back({"nested thumbnails " + std::to_string(levels), test::NestedThumbnails(levels)});
  }
  const Bytes xmp = Concat({test::Text("http://ns.adobe.com/xap/1.0/"), {0}});
  const std::vector<Bytes> packets = {{0x61, 0x20, 0x0D, 0x0A, 0x0D, 0x0A, 0x62},
                                      {},
                                      {0x61, 0x09, 0x0A, 0x62},
                                      {0x61, 0xC3},  // cut
                                      {0x61, 0xC3, 0x41, 0x62},
                                      {0x61, 0x80, 0x62},
                                      {0x61, 0xF8, 0x62},
                                      {0xC3, 0xA9, 0xE2, 0x82, 0xAC},
                                      {0xF0, 0x9F, 0x98, 0x80}};  // cut to 16 bits
  for (size_t i = 0; i < packets.size(); ++i) {
    s.push_back({"XMP " + std::to_string(i), App1(Concat({xmp, packets[i]}))});
  }
  ExpectGoldenExif("exif_segments", s);
}

TEST(ExifDump, DirectoryWalkMatchesGolden) {
  test::NamedStreams s;
  for (bool motorola : {false, true}) {
    const std::string order = motorola ? " Motorola" : " Intel";
    TiffBuilder b(motorola);
    // A value at offset 0 overlaps the header and is dropped; so is the next link behind it.
    b.Directory({{0x102, 3, 2, Concat({b.Short(8), b.Short(8)})},
                 {0x11A, 5, 1, b.Rational(72, 1)},
                 {0x10E, 2, 0, {}},
                 {0x11B, 5, 1, {}, 0u},
                 {0x9201, 10, 1, b.Rational(0xFFFFFFFF, 3)},
                 {0x9202, 12, 1, b.Rational(0x40040000, 0)},
                 {0x112, 9, 1, b.Long(0xFFFFFFFE)},
                 {0x9203, 11, 1, b.Long(0x3FC00000)},
                 {0x100, 3, 0, {}},
                 {0x101, 1, 2, {0x0A, 0xFF}},
                 {0x131, 2, 5, test::Text("abcde")},
                 {0x13B, 2, 5, {'a', 'b', 0, 'd', 'e'}},
                 {0x10D, 2, 40, Bytes(40, 'x')},
                 {0x9000, 7, 21, Bytes(21, 7)},  // snipped
                 {0x9001, 7, 20, Bytes(20, 7)}});
    s.push_back({"values" + order, Exif(b)});
    // Values behind the table: the link is read and the second directory has ifd 1.
    TiffBuilder chain(motorola);
    auto first = chain.Directory({{0x11A, 5, 1, chain.Rational(72, 1)}});
    chain.Patch32(first.next_field, chain.Directory({{0x11B, 5, 1, chain.Rational(96, 1)}}).start);
    s.push_back({"next link" + order, Exif(chain)});
    // A value in front of the table: the link is not read, its bytes stay open.
    TiffBuilder front(motorola, 16);
    const uint32_t value_at = front.Append(front.Rational(1, 1));
    auto dir = front.Directory({{0x11A, 5, 1, {}, value_at}});
    front.Patch32(dir.next_field, front.Directory({{0x11B, 3, 1, front.Short(2)}}).start);
    s.push_back({"next link behind a value" + order, Exif(front)});
    // Canon notes: the failure of the note's second entry ends the note, not the parent.
    s.push_back({"Canon" + order, NoteFile(motorola, "Canon", {},
                                           {{0x1, 3, 1, b.Short(5)},
                                            {0x4, 5, 1, b.Rational(7, 2)},
                                            {0x2, 6, 1, {}},
                                            {0x3, 3, 1, b.Short(6)}})});
    for (const char* head :
         {"SONY CAM \0\0\0", "SONY DSC \0\0\0", "SONY DSC!\0\0\0", "SONY XYZ \0\0\0"}) {
      // The note's next link (to the root) is not followed.
      s.push_back({std::string(head, 9) + order, NoteFile(motorola, "SONY", Bytes(head, head + 12),
                                                          {{0x2000, 3, 1, b.Short(9)}}, 8)});
    }
  }
  TiffBuilder shared(false);
  auto dir = shared.Directory({{0x11A, 5, 1, shared.Rational(3, 1)}, {0x11B, 5, 1, {}, 0u}});
  shared.Patch32(dir.value_field[1], dir.value[0]);
  s.push_back({"entries share pointed-at bytes", Exif(shared)});
  TiffBuilder own(true);
  dir = own.Directory({{0x11A, 5, 1, {}, 0u}, {0x112, 3, 1, own.Short(1)}});
  own.Patch32(dir.value_field[0], dir.start + 2);
  s.push_back({"value pointing at its own table", Exif(own)});
  TiffBuilder loop(false);
  dir = loop.Directory({{0x112, 3, 1, loop.Short(1)}});
  loop.Patch32(dir.next_field, dir.start);
  s.push_back({"directory linking to itself", Exif(loop)});
  s.push_back({"first offset 0", Exif(TiffBuilder(true, 0))});
  TiffBuilder zero(true);
  zero.Directory({{0x8769, 4, 1, {}, 0u}, {0xA005, 4, 1, {}, 0u}, {0x112, 3, 1, zero.Short(3)}});
  s.push_back({"sub-directories at offset 0", Exif(zero)});
  TiffBuilder empty(false);
  auto none = empty.Directory({});
  empty.Patch32(none.next_field, empty.Directory({{0x112, 3, 1, empty.Short(8)}}).start);
  s.push_back({"empty directory linking on", Exif(empty)});
  const std::vector<std::pair<uint16_t, uint32_t>> entries = {
      {0, 1},      {6, 1},          {8, 1},      {13, 1}, {0xFFFF, 1},
      {1, 100001}, {1, 0x80000000}, {1, 100000}, {12, 0}};
  for (const auto& [type, count] : entries) {
    TiffBuilder t(true);
    t.Directory({{type, type, count, {}, 0x10u}});
    s.push_back({"type " + std::to_string(type) + " count " + std::to_string(count), Exif(t)});
  }
  for (uint32_t offset :
       {0x7FFFFFFFu, 0x7FFFFFF8u, 0x80000000u, 0x80000001u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
    TiffBuilder t(false);
    t.Directory({{0x11A, 5, 1, {}, offset},
                 {0x8769, 4, 1, {}, offset},
                 {0x8825, 4, 1, {}, offset},
                 {0x201, 4, 1, {}, offset},
                 {0x202, 4, 1, {}, offset}},
                offset);
    s.push_back({"offsets " + std::to_string(offset), Exif(t)});
    s.push_back({"first offset " + std::to_string(offset), Exif(TiffBuilder(false, offset))});
  }
  // Exif, interoperability and GPS directories; 3 GPS rationals need 24 bytes, 8 are there.
  TiffBuilder nested(true);
  auto root = nested.Directory({{0x8769, 4, 1, {}, 0u}, {0x8825, 4, 1, {}, 0u}});
  nested.Patch32(root.value_field[0], nested.Here());
  auto exif = nested.Directory({{0xA005, 4, 1, {}, 0u}, {0x9003, 2, 4, TiffBuilder::Ascii("Now")}});
  nested.Patch32(exif.value_field[0], nested.Here());
  nested.Directory({{0x1, 2, 4, TiffBuilder::Ascii("R98")}, {0x2, 7, 4, {0, 1, 0, 0}}});
  nested.Patch32(root.value_field[1], nested.Here());
  nested.Directory({{0x1, 2, 2, {'N', 0}}, {0x2, 5, 3, nested.Rational(1, 1)}});
  s.push_back({"sub-directories and GPS", Exif(nested)});
  TiffBuilder short_note(false);
  short_note.Directory({{0x10F, 2, 6, TiffBuilder::Ascii("Canon")}, {0x927C, 7, 4, {1, 0, 0, 0}}});
  s.push_back({"Canon note of four bytes", Exif(short_note)});
  TiffBuilder late_make(false);
  late_make.Directory(
      {{0x927C, 7, 6, {1, 2, 3, 4, 5, 6}}, {0x10F, 2, 6, TiffBuilder::Ascii("Canon")}});
  s.push_back({"note before the Make", Exif(late_make)});
  for (const char* header :
       {"49 4D 2A 00 08 00 00 00", "4D 4D 2A 00 00 00 00 08", "49 49 2A 00 08 00 00"}) {
    s.push_back({header, App1(Concat({test::Text("Exif"), {0, 0}, test::Hex(header)}))});
  }
  // A value offset behind the segment is dropped although the bytes there are unclaimed.
  TiffBuilder bound(false);
  bound.Directory({{0x11A, 5, 1, bound.Rational(1, 1)}});
  Bytes payload = bound.ExifPayload();
  payload.resize(payload.size() - 8);
  s.push_back({"TIFF data bound to the segment", App1(payload, Bytes(8, 0))});
  ExpectGoldenExif("exif_walk", s);
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
  const Bytes bytes(64, 0);
  const uint8_t* v = bytes.data();
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

// Apply collects the chosen tags of count 1 (text of any count, zeros kept), the later entry
// replacing the earlier in its place, and reads the thumbnails' headers into one layer of their
// own.
TEST(APP1Marker, ApplyCollectsValuesAndThumbnailHeaders) {
  TiffBuilder first(true);
  auto ifd0 = first.Directory({{0x11A, 5, 1, first.Rational(72, 1)},
                               {0x10F, 2, 20, Concat({TiffBuilder::Ascii("Cam"), Bytes(16, 0)})},
                               {0x112, 3, 2, first.Long(0x00060001)},
                               {0x128, 3, 1, first.Short(6)},
                               {0x131, 11, 1, first.Long(0x3FC00000)},
                               {0x8825, 4, 1, {}, 0u},
                               {0x100, 3, 1, first.Short(6)}});
  first.Patch32(ifd0.value_field[5], first.Here());
  first.Directory({{0x10F, 2, 4, TiffBuilder::Ascii("GPS")}});
  first.Patch32(ifd0.next_field, first.Directory({{0x11A, 5, 1, first.Rational(96, 2)}}).start);
  TiffBuilder second(false);
  second.Directory({{0x110, 2, 4, TiffBuilder::Ascii("Two")}, {0x128, 3, 1, second.Short(2)}});
  const Bytes tiny = test::TinyGrayJpeg();
  test::JpegBuilder b;
  b.Soi().Segment(0xE1, first.ExifPayload()).Segment(0xE1, second.ExifPayload());
  b.Segment(0xE1, test::ExifWithThumbnail(false, tiny));
  b.Segment(0xE1, test::ExifWithThumbnail(true, tiny));
  test::ScanResult r = test::ScanBytes(b.Eoi().bytes());
  ASSERT_EQ(r.error, L"");
  RawLayer layer;
  DecodeState state;
  r.markers->items[0]->Apply(state, layer, false);
  r.markers->items[1]->Apply(state, layer, false);
  EXPECT_EQ(layer.thumbnail, nullptr);
  ASSERT_NE(layer.properties.Find(0x10F), nullptr);
  EXPECT_EQ(layer.properties.Find(0x10F)->count, 20u);
  OutStream stream;
  layer.properties.PrintProperties(stream);
  EXPECT_EQ(stream.Text(),
            "X Resolution: 96/2\nMake: \"Cam\"\nResolution Unit: 2\nSoftware: 1.500000\n"
            "Model: \"Two\"\n");
  r.markers->items[2]->Apply(state, layer, false);
  ASSERT_NE(layer.thumbnail, nullptr);
  RawLayer* thumbnail = layer.thumbnail;
  r.markers->items[3]->Apply(state, layer, false);
  EXPECT_EQ(layer.thumbnail, thumbnail);
  EXPECT_EQ(thumbnail->width, 8u);
  EXPECT_EQ(thumbnail->height, 8u);
  EXPECT_EQ(thumbnail->pixels, nullptr);              // header-only, whatever the caller asked
  EXPECT_EQ(layer.properties.Find(0xC001), nullptr);  // the thumbnail's properties stay its own
  EXPECT_NE(thumbnail->properties.Find(0xC001), nullptr);
}

}  // namespace
}  // namespace corvi
