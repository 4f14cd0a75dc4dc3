// The decoder against references: pixel hashes of corpus photos recorded from a known-good build,
// and libjpeg (float DCT, box upsampling) on the corpus and on pictures it encodes itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>

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

// Each line of the golden file names a corpus file and its damage, "cut N HEX" or "flip N"; the
// decode on one thread and with entropy decoding and transform on two gives the size and hash.
TEST(DecodeImage, CorpusMatchesRecordedHashes) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  std::ifstream in(std::string(CORVI_GOLDEN_DIR) + "/decode_corpus_hashes.txt");
  std::string text;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with("=")) {
      continue;
    }
    text += line + "\n";
    if (line.starts_with("#")) {
      continue;
    }
    std::istringstream words(line);
    std::string name, how, tail;
    size_t at = 0;
    words >> name;
    Bytes bytes = test::ReadFile(test::CorpusPath(name));
    while (words >> how >> at && at < bytes.size()) {
      if (how == "flip") {
        bytes[at] ^= 0xFF;
      } else if (words >> tail) {
        bytes.resize(at);
        for (size_t i = 0; i + 1 < tail.size(); i += 2) {
          bytes.push_back(static_cast<uint8_t>(std::stoul(tail.substr(i, 2), nullptr, 16)));
        }
      }
    }
    const test::DecodeOutcome one = test::DecodeWithLibrary(bytes);
    EXPECT_EQ(test::DecodeWithLibrary(bytes, true, true, true), one) << line;
    char outcome[80];
    std::snprintf(outcome, sizeof outcome, "= %ux%u %016llX\n", one.width, one.height,
                  static_cast<unsigned long long>(one.pixel_hash));
    text += one.error.empty() ? outcome : "= error\n";
  }
  test::ExpectGolden("decode_corpus_hashes.txt", text);
}

// The largest difference of the 8-bit channels from libjpeg's, where libjpeg saturates no channel
// of the pixel: it limits the samples between the transform and the colour matrix, and its matrix
// differs from ours in the third digit. -1 where libjpeg fails or warns (damaged data is filled
// differently by each decoder) or the segment scan fails, -2 where only the decode fails, which
// must then be a mode, layout or scan structure that the decoder does not take.
int CompareWithLibjpeg(const Bytes& bytes, uint64_t* hash = nullptr) {
  test::Reference reference;
  test::DecodeWithLibjpeg(bytes, reference);
  test::ScanResult scan = test::ScanBytes(bytes);
  if (!reference.ok || reference.warnings != 0 || !scan.error.empty()) {
    return -1;
  }
  DecodeState state;
  RawLayer layer;
  try {
    DecodeImage(*scan.markers, state, layer, false);
  } catch (const RawLayerException& e) {
    const std::wstring& m = e.message;
    EXPECT_TRUE(m.starts_with(L"Unsupported ") || m.starts_with(L"Missing Huffman table index") ||
                m.starts_with(L"No compressed image data") || m.starts_with(L"Image too large"))
        << std::string(m.begin(), m.end());
    return -2;
  }
  EXPECT_EQ(reference.width, layer.width);
  EXPECT_EQ(reference.height, layer.height);
  const size_t count = size_t{layer.width} * layer.height;
  EXPECT_EQ(reference.rgb.size(), count * 3);
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
  int compared = 0;
  for (const auto& entry : std::filesystem::directory_iterator(test::CorpusPath(""))) {
    if (entry.path().extension() == ".jpg") {
      SCOPED_TRACE(entry.path().filename().string());
      const int largest = CompareWithLibjpeg(test::ReadFile(entry.path().string()));
      EXPECT_LE(largest, 3);
      compared += largest >= 0;
    }
  }
  EXPECT_GT(compared, 10);
}

// Each layout at an odd size, as libjpeg encodes it: baseline within rounding of libjpeg's decode;
// progressive and restarted codings of the same coefficients to the very same pixels.
TEST(DecodeImage, LibjpegEncodingsMatchAndAgreeAcrossCodings) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  for (const auto& [gray, h, v] :
       {std::tuple{true, 1, 1}, {false, 1, 1}, {false, 2, 1}, {false, 1, 2}, {false, 2, 2}}) {
    uint64_t baseline_hash = 0;
    for (const auto& [progressive, restart] :
         {std::pair{false, 0u}, {true, 0u}, {false, 3u}, {true, 2u}}) {
      SCOPED_TRACE(testing::Message() << gray << " " << h << "x" << v << " progressive "
                                      << progressive << ", restart " << restart);
      uint64_t hash = 0;
      EXPECT_LE(CompareWithLibjpeg(
                    test::EncodeWithLibjpeg({41, 35, gray, h, v, progressive, restart}), &hash),
                3);
      baseline_hash = baseline_hash != 0 ? baseline_hash : hash;
      EXPECT_NE(hash, 0u);
      EXPECT_EQ(hash, baseline_hash);
    }
  }
}

}  // namespace
}  // namespace corvi
