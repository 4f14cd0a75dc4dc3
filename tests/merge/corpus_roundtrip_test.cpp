// Every baseline photo of the corpus rewritten from its own pixels, from a half-size layer and
// from a 1.7x layer: libjpeg reads each result without a warning, at the template's frame size,
// and the re-encode of its own pixels stays close to the template's picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "merge/merge.h"
#include "platform/file_search.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/libjpeg_reference.h"

namespace corvi {
namespace {

// A nearest-neighbour copy of `source` at another size.
void Rescale(const RawLayer& source, uint32_t width, uint32_t height, RawLayer& out) {
  out.width = width;
  out.height = height;
  out.AllocatePixels();
  for (uint32_t y = 0; y < height; ++y) {
    const uint64_t sy = uint64_t{y} * source.height / height;
    for (uint32_t x = 0; x < width; ++x) {
      const uint64_t sx = uint64_t{x} * source.width / width;
      std::copy_n(source.pixels + (sy * source.width + sx) * 4, 4,
                  out.pixels + (uint64_t{y} * width + x) * 4);
    }
  }
}

// PSNR of an 8-bit RGB picture against the top bytes of a 16-bit layer of the same size.
double Psnr(const test::Reference& picture, const RawLayer& layer) {
  double sum = 0;
  const size_t pixels = size_t{layer.width} * layer.height;
  for (size_t i = 0; i < pixels; ++i) {
    for (size_t c = 0; c < 3; ++c) {
      const double d = static_cast<double>(picture.rgb[i * 3 + c]) - (layer.pixels[i * 4 + c] >> 8);
      sum += d * d;
    }
  }
  const double mse = sum / double(pixels * 3);
  return mse == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / mse);
}

std::string CompressionMode(const RawLayer& layer) {
  const Property* mode = layer.properties.Find(0xC001);
  return mode == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(mode->data));
}

TEST(MergeCorpus, RewritesDecodeCleanlyWithLibjpeg) {
  if (!test::CorpusAvailable() || !test::HaveLibjpeg()) {
    GTEST_SKIP() << "corpus or libjpeg not present";
  }
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(test::CorpusPath(""))) {
    if (entry.path().extension() == ".jpg") {
      names.push_back(entry.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  const std::string directory = test::MakeTempDir();
  const std::wstring wide_directory = DecodeArgument(directory.c_str());
  const std::string output = directory + "/out.jpg";
  int rewritten = 0;
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    std::unique_ptr<JPEGReader> reader;
    RawLayer layer;
    try {
      reader = std::make_unique<JPEGReader>(DecodeArgument(test::CorpusPath(name).c_str()).c_str());
      reader->Scan();
      DecodeState state;
      DecodeImage(*reader->markers, state, layer, false);
    } catch (const RawLayerException&) {
      continue;  // not a template: the scan or the decoder refuses it
    }
    if (layer.pixels == nullptr) {
      continue;
    }
    RawLayer half;
    Rescale(layer, std::max(1u, layer.width / 2), std::max(1u, layer.height / 2), half);
    RawLayer larger;
    Rescale(layer, layer.width * 17 / 10, layer.height * 17 / 10, larger);
    const RawLayer* layers[3] = {&layer, &half, &larger};
    const char* kinds[3] = {"own", "half", "1.7x"};
    for (int k = 0; k < 3; ++k) {
      try {
        OutputFile file(DecodeArgument(output.c_str()).c_str());
        Merge(file, *layers[k], *reader->markers, PropertyList(), Background(),
              wide_directory.c_str());
      } catch (const RawLayerException& e) {
        const std::wstring text = e.message;
        // Progressive, arithmetic, 12-bit and CMYK templates are not rewritten.
        EXPECT_TRUE(text == L"Merge only supports baseline Huffman" ||
                    text.rfind(L"Unsupported", 0) == 0 || text == L"Invalid component ID" ||
                    text == L"Missing Huffman table index")
            << std::string(text.begin(), text.end());
        break;
      }
      test::Reference decoded;
      test::DecodeWithLibjpeg(test::ReadFile(output), decoded);
      ASSERT_TRUE(decoded.ok) << kinds[k];
      EXPECT_EQ(decoded.warnings, 0) << kinds[k];
      ASSERT_EQ(decoded.width, layer.width);
      ASSERT_EQ(decoded.height, layer.height);
      const double psnr = Psnr(decoded, layer);
      std::printf("  %-48s %-22s %-5s PSNR %.1f dB\n", name.c_str(), CompressionMode(layer).c_str(),
                  kinds[k], psnr);
      if (k == 0) {
        EXPECT_GT(psnr, 30.0);  // the template's own tables on its own picture
        ++rewritten;
      }
    }
  }
  std::remove(output.c_str());
  std::filesystem::remove_all(directory);
  EXPECT_GT(rewritten, 20);
}

}  // namespace
}  // namespace corvi
