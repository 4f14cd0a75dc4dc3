// Compares the baseline and progressive decoders with libjpeg (float DCT, box upsampling) on the
// corpus, pixel by pixel: the 16-bit output shifted down to 8 bits may differ by rounding only.
#ifdef CORVI_HAVE_LIBJPEG

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/libjpeg_reference.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using test::DecodeWithLibjpeg;
using test::Reference;

// The SOF0 or SOF2 frame's component count, or 0 when the file has neither.
uint32_t BaselineComponents(const MarkerList& markers) {
  for (uint32_t i = 0; i < markers.count; ++i) {
    const JPEGReader::Marker* m = markers.items[i];
    if ((m->code == 0xC0 || m->code == 0xC2) && m->length >= 6) {
      return m->payload[5];
    }
  }
  return 0;
}

bool StartsWith(const wchar_t* text, const wchar_t* prefix) {
  return std::wstring(text).rfind(prefix, 0) == 0;
}

TEST(LibjpegCompare, CorpusMatchesWithinRounding) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
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
    const std::string path = test::CorpusPath(name);
    const std::wstring wide_path(path.begin(), path.end());
    RawLayer layer;
    std::unique_ptr<JPEGReader> reader;
    try {
      reader = std::make_unique<JPEGReader>(wide_path.c_str());
      reader->Scan();
    } catch (const RawLayerException&) {
      continue;  // files that fail the segment scan never reach the decoder
    }
    uint32_t components = BaselineComponents(*reader->markers);
    if (components != 1 && components != 3) {
      continue;
    }
    try {
      DecodeState state;
      DecodeImage(*reader->markers, state, layer, false);
    } catch (const RawLayerException& e) {
      const wchar_t* text = e.message != nullptr ? e.message : L"";
      // Layouts and scan structures that the decoder does not take.
      if (!StartsWith(text, L"Unsupported sampling (") &&
          !StartsWith(text, L"Missing Huffman table index") &&
          !StartsWith(text, L"No compressed image data") && !StartsWith(text, L"Image too large")) {
        ADD_FAILURE() << "corvi failed: " << std::string(text, text + std::wcslen(text));
      }
      continue;
    }
    if (layer.pixels == nullptr) {
      continue;  // a frame of zero size
    }
    Reference reference;
    DecodeWithLibjpeg(test::ReadFile(path), reference);
    if (!reference.ok) {
      continue;
    }
    ASSERT_EQ(reference.width, layer.width);
    ASSERT_EQ(reference.height, layer.height);
    // libjpeg limits the samples to 0..255 between the IDCT and the colour matrix, and its
    // matrix differs from ours in the third digit; the float path here clamps only the final
    // channel. Pixels where libjpeg saturates a channel are therefore measured apart.
    int max_difference = 0;
    int max_unsaturated = 0;
    for (size_t i = 0; i < size_t{layer.width} * layer.height; ++i) {
      const uint8_t* theirs = &reference.rgb[i * 3];
      const bool saturated = std::min({theirs[0], theirs[1], theirs[2]}) == 0 ||
                             std::max({theirs[0], theirs[1], theirs[2]}) == 255;
      for (size_t c = 0; c < 3; ++c) {
        int difference = std::abs((layer.pixels[i * 4 + c] >> 8) - theirs[c]);
        max_difference = std::max(max_difference, difference);
        if (!saturated) {
          max_unsaturated = std::max(max_unsaturated, difference);
        }
      }
    }
    ++compared;
    // Damaged data is filled differently by each decoder; only clean files must agree.
    if (reference.warnings == 0) {
      EXPECT_LE(max_unsaturated, 3) << "largest difference " << max_difference;
    }
  }
  EXPECT_GT(compared, 10);
}

}  // namespace
}  // namespace corvi

#endif  // CORVI_HAVE_LIBJPEG
