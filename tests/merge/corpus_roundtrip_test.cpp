// Every baseline photo of the corpus rewritten from its own pixels: libjpeg reads each result
// without a warning, at the template's frame size, close to the template's picture.
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
    RawLayer layer;
    try {
      reader = std::make_unique<JPEGReader>(DecodeArgument(test::CorpusPath(name).c_str()).c_str());
      reader->Scan();
      DecodeState state;
      DecodeImage(*reader->markers, state, layer, false);
      if (layer.pixels == nullptr) {
        continue;
      }
    } catch (const RawLayerException&) {
      continue;  // not a template: the scan or the decoder refuses it
    }
    try {
      OutputFile file(DecodeArgument(output.c_str()).c_str());
      Merge(file, layer, *reader->markers, PropertyList(), Background(),
            DecodeArgument(directory.c_str()).c_str());
    } catch (const RawLayerException& e) {
      const std::wstring text = e.message;
      // Progressive, arithmetic, 12-bit and CMYK templates are not rewritten.
      EXPECT_TRUE(text == L"Merge only supports baseline Huffman" ||
                  text.rfind(L"Unsupported", 0) == 0 || text == L"Invalid component ID" ||
                  text == L"Missing Huffman table index")
          << test::Narrow(text);
      continue;
    }
    test::Reference decoded;
    test::DecodeWithLibjpeg(test::ReadFile(output), decoded);
    ASSERT_TRUE(decoded.ok);
    EXPECT_EQ(decoded.warnings, 0);
    ASSERT_TRUE(decoded.width == layer.width && decoded.height == layer.height);
    const double psnr = test::Psnr(decoded.rgb, test::Rgb8(layer));
    std::printf("  %-48s PSNR %.1f dB\n", name.c_str(), psnr);
    EXPECT_GT(psnr, 30.0);  // the template's own tables on its own picture
    ++rewritten;
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory), {}), 1);  // out.jpg
  std::filesystem::remove_all(directory);
  EXPECT_GT(rewritten, 20);
}

}  // namespace
}  // namespace corvi
