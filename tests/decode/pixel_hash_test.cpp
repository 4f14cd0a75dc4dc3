// Regression guard for the decoder's exact output: baseline corpus photos decode to pixels whose
// FNV-1a 64 hash was recorded from a known-good build. Any change of a single channel value of any
// pixel, from entropy decoding through the transform to the colour matrix, changes the hash.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

struct HashCase {
  const char* file;
  // Damage applied to the file's bytes before decoding: with `cut` > 0 the bytes from `cut` on are
  // replaced by `tail` (the scan ends early at a marker), and bytes at `flip` are inverted.
  int32_t cut;
  const char* tail;
  int32_t flip;
  uint32_t width;
  uint32_t height;
  uint64_t hash;  // FNV-1a 64 over the RGBA channels, each as two little-endian bytes
};

// 4:2:0, 4:2:2, 4:4:0, 4:4:4, grey, restart intervals, odd sizes with partial MCUs, a truncated
// scan (the reader runs dry) and trailing bytes after the scan.
const HashCase kCases[] = {
    {"oppo-r7-13mp-420.jpg", 0, "", -1, 3120, 4160, 0xA39FE47E94B073C1u},
    {"canon-powershot-a80-440.jpg", 0, "", -1, 1704, 2272, 0x7B77BC72EC61822Eu},
    {"derived-hx5v-420.jpg", 0, "", -1, 730, 547, 0x5099B3CD654AD90Bu},
    {"derived-hx5v-422.jpg", 0, "", -1, 730, 547, 0x05247AEBA27B5359u},
    {"derived-hx5v-440.jpg", 0, "", -1, 730, 547, 0x7DF9660B0EA673F0u},
    {"derived-hx5v-444.jpg", 0, "", -1, 730, 547, 0xAB75CF80086F2860u},
    {"derived-hx5v-gray.jpg", 0, "", -1, 730, 547, 0x1569599B7D4394CAu},
    {"derived-hx5v-420-restart-every-mcu.jpg", 0, "", -1, 730, 547, 0x5099B3CD654AD90Bu},
    {"derived-hx5v-422-restart-every-row.jpg", 0, "", -1, 730, 547, 0x05247AEBA27B5359u},
    {"derived-hx5v-444-trailing-10-bytes.jpg", 0, "", -1, 730, 547, 0xAB75CF80086F2860u},
    {"nikon-d1x-444-restart-adobe.jpg", 0, "", -1, 200, 130, 0xA397E5D845B757A7u},
    {"restart-33x33.jpg", 0, "", -1, 33, 33, 0x90207B11C1DB1996u},
    {"size-17x17-420.jpg", 0, "", -1, 17, 17, 0x2213EC5D7745D9E7u},
    // The scan stops at EOI halfway, after a fill 0xFF, and after a stray byte.
    {"derived-hx5v-420.jpg", 30001, "\xFF\xD9", -1, 730, 547, 0xA7C0B92700069AE2u},
    {"derived-hx5v-420.jpg", 30001, "\xFF\xFF\xD9", -1, 730, 547, 0xA7C0B92700069AE2u},
    {"derived-hx5v-444.jpg", 20000, "\x5A\xFF\xD9", -1, 730, 547, 0xB106A232C2580213u},
    // A damaged byte inside the scan: wrong symbols, long DC sizes, runs past the block.
    {"derived-hx5v-422.jpg", 0, "", 25000, 730, 547, 0x9C3A217624724BD8u},
    // Here a run passes the last coefficient: its value bits are read and dropped.
    {"canon-powershot-a80-440.jpg", 0, "", 100000, 1704, 2272, 0xA5DD706C36325507u},
    // Progressive: lossless rewrites of the baseline files above give their hashes; scripts of
    // eleven scans, a DRI between scans, a 13 MP frame, and scans cut short.
    {"derived-hx5v-420-progressive.jpg", 0, "", -1, 730, 547, 0x5099B3CD654AD90Bu},
    {"derived-hx5v-422-progressive.jpg", 0, "", -1, 730, 547, 0x05247AEBA27B5359u},
    {"derived-hx5v-440-progressive-restart-2mcu.jpg", 0, "", -1, 730, 547, 0x7DF9660B0EA673F0u},
    {"derived-hx5v-444-progressive.jpg", 0, "", -1, 730, 547, 0xAB75CF80086F2860u},
    {"derived-hx5v-gray-progressive.jpg", 0, "", -1, 730, 547, 0x1569599B7D4394CAu},
    {"progressive-11-scans.jpg", 0, "", -1, 650, 470, 0x921142E7E1209F8Cu},
    {"progressive-dri-between-scans.jpg", 0, "", -1, 64, 16, 0xAE58ACEAD5BF4B25u},
    {"derived-oppo-r7-13mp-progressive.jpg", 0, "", -1, 3120, 4160, 0xA39FE47E94B073C1u},
    {"derived-hx5v-420-progressive.jpg", 30001, "\xFF\xD9", -1, 730, 547, 0x6764E026C07DDDFDu},
    {"derived-hx5v-444-progressive.jpg", 60000, "\xFF\xD9", -1, 730, 547, 0xC7A4DA6386B89B4Bu},
};

uint64_t HashPixels(const uint16_t* pixels, uint64_t count) {
  uint64_t hash = 0xCBF29CE484222325u;
  for (uint64_t i = 0; i < count; ++i) {
    const uint16_t v = pixels[i];
    hash = (hash ^ (v & 0xFFu)) * 0x100000001B3u;
    hash = (hash ^ (v >> 8)) * 0x100000001B3u;
  }
  return hash;
}

class PixelHashTest : public ::testing::TestWithParam<HashCase> {};

TEST_P(PixelHashTest, MatchesRecordedHash) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  const HashCase& c = GetParam();
  test::Bytes bytes = test::ReadFile(test::CorpusPath(c.file));
  ASSERT_FALSE(bytes.empty());
  if (c.cut > 0) {
    ASSERT_LT(static_cast<size_t>(c.cut), bytes.size());
    bytes.resize(static_cast<size_t>(c.cut));
    for (const char* t = c.tail; *t != 0; ++t) {
      bytes.push_back(static_cast<uint8_t>(*t));
    }
  }
  if (c.flip >= 0) {
    ASSERT_LT(static_cast<size_t>(c.flip), bytes.size());
    bytes[static_cast<size_t>(c.flip)] = static_cast<uint8_t>(~bytes[static_cast<size_t>(c.flip)]);
  }
  test::ScanResult scan = test::ScanBytes(bytes);
  ASSERT_TRUE(scan.error.empty());
  // On one thread, and with the entropy decoding and the transform on two.
  for (const bool threads : {false, true}) {
    SCOPED_TRACE(threads ? "two threads" : "one thread");
    DecodeState state;
    state.threads = threads;
    RawLayer layer;
    try {
      DecodeImage(*scan.markers, state, layer, false);
    } catch (const RawLayerException&) {
      FAIL() << "decode threw";
    }
    ASSERT_NE(layer.pixels, nullptr);
    const uint64_t hash = HashPixels(layer.pixels, uint64_t{layer.width} * layer.height * 4);
    EXPECT_EQ(layer.width, c.width);
    EXPECT_EQ(layer.height, c.height);
    EXPECT_EQ(hash, c.hash);
  }
}

INSTANTIATE_TEST_SUITE_P(Corpus, PixelHashTest, ::testing::ValuesIn(kCases));

}  // namespace
}  // namespace corvi
