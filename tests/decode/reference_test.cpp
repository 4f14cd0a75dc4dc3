// The decoder against references: pixel hashes of corpus photos recorded from a known-good build,
// and libjpeg (float DCT, box upsampling) on the corpus and on pictures it encodes itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/libjpeg_reference.h"
#include "tests/support/literal_decode.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using test::Bytes;

// 4:2:0, 4:2:2, 4:4:0, 4:4:4, grey, restart intervals, odd sizes with partial MCUs, damage, and
// progressive rewrites of the baseline files, which give the same pixels.
struct HashCase {
  const char* file;
  // With `cut` > 0 the bytes from `cut` on are replaced by `tail`; the byte at `flip` is inverted.
  int32_t cut;
  const char* tail;
  int32_t flip;
  uint32_t width, height;
  uint64_t hash;  // FNV-1a 64 over the RGBA channels, each as two little-endian bytes
};
// clang-format off
const HashCase kHashCases[] = {
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
    // Damaged bytes in the scan: wrong symbols, long DC sizes, a run past the last coefficient.
    {"derived-hx5v-422.jpg", 0, "", 25000, 730, 547, 0x9C3A217624724BD8u},
    {"canon-powershot-a80-440.jpg", 0, "", 100000, 1704, 2272, 0xA5DD706C36325507u},
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
// clang-format on

// On one thread, and with the entropy decoding and the transform on two.
TEST(DecodeImage, CorpusMatchesRecordedHashes) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  for (const HashCase& c : kHashCases) {
    SCOPED_TRACE(testing::Message() << c.file << " cut " << c.cut << " flip " << c.flip);
    Bytes bytes = test::ReadFile(test::CorpusPath(c.file));
    ASSERT_GT(bytes.size(), static_cast<size_t>(std::max(c.cut, c.flip)));
    if (c.cut > 0) {
      bytes.resize(static_cast<size_t>(c.cut));
      bytes.insert(bytes.end(), c.tail, c.tail + std::char_traits<char>::length(c.tail));
    }
    if (c.flip >= 0) {
      bytes[static_cast<size_t>(c.flip)] ^= 0xFF;
    }
    for (const bool threads : {false, true}) {
      EXPECT_EQ(test::DecodeWithLibrary(bytes, true, true, threads),
                (test::DecodeOutcome{L"", c.width, c.height, c.hash}))
          << (threads ? "two threads" : "one thread");
    }
  }
}

// The largest difference of the 8-bit channels from libjpeg's, where libjpeg saturates no channel
// of the pixel: it limits the samples between the transform and the colour matrix, and its matrix
// differs from ours in the third digit. -1 where libjpeg fails or warns (damaged data is filled
// differently by each decoder) or the segment scan fails, -2 where only the decode fails.
int CompareWithLibjpeg(const Bytes& bytes, std::wstring& error, uint64_t* hash = nullptr) {
  test::Reference reference;
  test::DecodeWithLibjpeg(bytes, reference);
  test::ScanResult scan = test::ScanBytes(bytes);
  DecodeState state;
  RawLayer layer;
  try {
    error = scan.error;
    if (error.empty()) {
      DecodeImage(*scan.markers, state, layer, false);
    }
  } catch (const RawLayerException& e) {
    error = e.message;
  }
  if (!reference.ok || reference.warnings != 0 || !scan.error.empty()) {
    return -1;
  }
  if (!error.empty() || layer.pixels == nullptr) {
    return -2;
  }
  EXPECT_EQ(reference.width, layer.width);
  EXPECT_EQ(reference.height, layer.height);
  const size_t count = size_t{layer.width} * layer.height;
  if (hash != nullptr) {
    *hash = test::HashPixels(layer.pixels, count * 4);
  }
  int largest = 0;
  for (size_t i = 0; i < count && reference.rgb.size() == count * 3; ++i) {
    const uint8_t* theirs = &reference.rgb[i * 3];
    if (std::min({theirs[0], theirs[1], theirs[2]}) == 0 ||
        std::max({theirs[0], theirs[1], theirs[2]}) == 255) {
      continue;
    }
    for (size_t c = 0; c < 3; ++c) {
      largest = std::max(largest, std::abs((layer.pixels[i * 4 + c] >> 8) - theirs[c]));
    }
  }
  return largest;
}

TEST(DecodeImage, CorpusMatchesLibjpegWithinRounding) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(test::CorpusPath(""))) {
    if (entry.path().extension() == ".jpg") {
      names.push_back(entry.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  int compared = 0;
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    std::wstring error;
    const int largest = CompareWithLibjpeg(test::ReadFile(test::CorpusPath(name)), error);
    // Modes, layouts and scan structures that the decoder does not take.
    if (largest == -2) {
      EXPECT_TRUE(
          error.starts_with(L"Unsupported ") || error.starts_with(L"Missing Huffman table index") ||
          error.starts_with(L"No compressed image data") || error.starts_with(L"Image too large"))
          << std::string(error.begin(), error.end());
    }
    if (largest >= 0) {
      EXPECT_LE(largest, 3);
      ++compared;
    }
  }
  EXPECT_GT(compared, 10);
}

// Each layout at an odd size, as libjpeg encodes it: baseline within rounding of libjpeg's decode;
// progressive and restarted codings of the same coefficients to the very same pixels.
TEST(DecodeImage, LibjpegEncodingsMatchAndAgreeAcrossCodings) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  const struct {
    bool gray;
    int h, v;
  } layouts[] = {{true, 1, 1}, {false, 1, 1}, {false, 2, 1}, {false, 1, 2}, {false, 2, 2}};
  for (const auto& l : layouts) {
    SCOPED_TRACE(testing::Message() << (l.gray ? "grey " : "") << l.h << "x" << l.v);
    uint64_t baseline_hash = 0;
    for (const auto& [progressive, restart] :
         {std::pair{false, 0u}, {true, 0u}, {false, 3u}, {true, 2u}}) {
      const Bytes file = test::EncodeWithLibjpeg({41, 35, l.gray, l.h, l.v, progressive, restart});
      ASSERT_FALSE(file.empty());
      std::wstring error;
      uint64_t hash = 0;
      EXPECT_LE(CompareWithLibjpeg(file, error, &hash), 3)
          << std::string(error.begin(), error.end());
      EXPECT_NE(hash, 0u);
      if (baseline_hash == 0) {
        baseline_hash = hash;
      }
      EXPECT_EQ(hash, baseline_hash) << "progressive " << progressive << ", restart " << restart;
    }
  }
}

}  // namespace
}  // namespace corvi
