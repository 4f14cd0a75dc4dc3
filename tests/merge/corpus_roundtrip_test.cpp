// Every baseline photo of the corpus rewritten from its own pixels, from a half-size layer and
// from a 1.7x layer: libjpeg reads each result without a warning, at the template's frame size,
// and the re-encode of its own pixels stays close to the template's picture.
#include <gtest/gtest.h>

#include <algorithm>
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
#include "tests/support/libjpeg_reference.h"
#include "tests/support/merge_support.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

TEST(MergeCorpus, RewritesDecodeCleanlyWithLibjpeg) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(test::CorpusPath(""))) {
    if (entry.path().extension() == ".jpg") {
      names.push_back(entry.path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  const std::string directory = test::MakeTempDir(), output = directory + "/out.jpg";
  int rewritten = 0;
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    std::unique_ptr<JPEGReader> reader;
    RawLayer layer, half, larger;
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
    test::Rescale(layer, std::max(1u, layer.width / 2), std::max(1u, layer.height / 2), half);
    test::Rescale(layer, layer.width * 17 / 10, layer.height * 17 / 10, larger);
    const std::pair<const char*, const RawLayer*> layers[] = {
        {"own", &layer}, {"half", &half}, {"1.7x", &larger}};
    for (const auto& [kind, pixels] : layers) {
      SCOPED_TRACE(kind);
      try {
        OutputFile file(DecodeArgument(output.c_str()).c_str());
        Merge(file, *pixels, *reader->markers, PropertyList(), Background(),
              DecodeArgument(directory.c_str()).c_str());
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
      ASSERT_TRUE(decoded.ok);
      EXPECT_EQ(decoded.warnings, 0);
      ASSERT_EQ(decoded.width, layer.width);
      ASSERT_EQ(decoded.height, layer.height);
      const double psnr = test::Psnr(decoded.rgb, test::Rgb8(layer));
      std::printf("  %-48s %-5s PSNR %.1f dB\n", name.c_str(), kind, psnr);
      if (pixels == &layer) {
        EXPECT_GT(psnr, 30.0);  // the template's own tables on its own picture
        ++rewritten;
      }
    }
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1);  // out.jpg
  std::filesystem::remove_all(directory);
  EXPECT_GT(rewritten, 20);
}

}  // namespace
}  // namespace corvi
