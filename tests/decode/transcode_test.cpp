// Exactness of progressive and restart decoding: jpegtran rewrites the entropy coding of
// baseline photos losslessly, so every rewrite must decode to the very pixels of the original.
#include <gtest/gtest.h>
#include <unistd.h>  // rmdir

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

struct Decoded {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint16_t> pixels;  // RGBA
  std::wstring error;
};

Decoded DecodeFile(const std::string& path) {
  Decoded out;
  std::wstring name(path.begin(), path.end());
  try {
    JPEGReader reader(name.c_str());
    reader.Scan();
    DecodeState state;
    RawLayer layer;
    DecodeImage(*reader.markers, state, layer, false);
    out.width = layer.width;
    out.height = layer.height;
    if (layer.pixels != nullptr) {
      out.pixels.assign(layer.pixels, layer.pixels + uint64_t{layer.width} * layer.height * 4);
    }
  } catch (const RawLayerException& e) {
    out.error = e.message != nullptr ? e.message : L"(null)";
  }
  return out;
}

// Index of the first differing channel value, or -1.
int64_t FirstDifference(const Decoded& a, const Decoded& b) {
  if (a.pixels.size() != b.pixels.size()) {
    return 0;
  }
  for (size_t i = 0; i < a.pixels.size(); ++i) {
    if (a.pixels[i] != b.pixels[i]) {
      return static_cast<int64_t>(i);
    }
  }
  return -1;
}

const char* const kBaselinePhotos[] = {
    "canon-ixus-exiforg.jpg", "derived-hx5v-420.jpg", "derived-hx5v-422.jpg",
    "derived-hx5v-440.jpg",   "derived-hx5v-444.jpg", "derived-hx5v-gray.jpg",
    "size-17x17-420.jpg",     "restart-33x33.jpg",
};

const char* const kRewrites[] = {
    "-progressive",
    "-restart 1",
    "-restart 7B",
    "-progressive -restart 1",
    "-progressive -restart 7B",
    "-progressive -restart 1B",
};

TEST(Transcode, JpegtranRewritesDecodeToTheOriginalPixels) {
  CORVI_NEED(std::system("command -v jpegtran > /dev/null 2>&1") == 0, "jpegtran");
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  const std::string dir = test::MakeTempDir();
  for (const char* photo : kBaselinePhotos) {
    SCOPED_TRACE(photo);
    const std::string source = test::CorpusPath(photo);
    const Decoded original = DecodeFile(source);
    EXPECT_EQ(original.error, L"");
    if (original.pixels.empty()) {
      ADD_FAILURE() << "no pixels";
      continue;
    }
    for (const char* options : kRewrites) {
      SCOPED_TRACE(options);
      const std::string target = dir + "/rewrite.jpg";
      const std::string command =
          std::string("jpegtran ") + options + " -outfile '" + target + "' '" + source + "'";
      ASSERT_EQ(std::system(command.c_str()), 0) << command;
      const Decoded rewritten = DecodeFile(target);
      EXPECT_EQ(rewritten.error, L"");
      EXPECT_EQ(rewritten.width, original.width);
      EXPECT_EQ(rewritten.height, original.height);
      EXPECT_EQ(FirstDifference(rewritten, original), -1);
      std::remove(target.c_str());
    }
  }
  rmdir(dir.c_str());
}

// The libjpeg comparison decodes the rest of the progressive corpus.
TEST(Transcode, ProgressiveCorpusFilesDecode) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  struct Case {
    const char* name;
    const wchar_t* error;
  };
  const Case cases[] = {
      {"progressive-11-scans.jpg", L""},
      {"derived-hx5v-420-progressive.jpg", L""},
      {"derived-hx5v-440-progressive-restart-2mcu.jpg", L""},
      // Its IFD0 holds an entry of type 0, which fails the Exif segment and the file.
      {"derived-hx5v-exif-progressive.jpg", L"Unknown TIFF data type"},
      {"truncated-progressive.jpg", L"Missing JPEG EOI"},  // the reader needs an FF D9
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Decoded decoded = DecodeFile(test::CorpusPath(c.name));
    EXPECT_EQ(decoded.error, c.error);
    EXPECT_EQ(decoded.pixels.size(), uint64_t{decoded.width} * decoded.height * 4);
  }
}

TEST(Transcode, ProgressiveFileCutShortDecodesWhatItHas) {
  CORVI_NEED(test::CorpusAvailable(), "the corpus");
  // Cut inside the scans, at places that fall inside entropy-coded data and between segments
  // alike, and close with an end-of-image marker so that the reader takes the file.
  const test::Bytes whole = test::ReadFile(test::CorpusPath("derived-hx5v-420-progressive.jpg"));
  ASSERT_GT(whole.size(), 4000u);
  for (size_t cut : {size_t{2000}, whole.size() / 3, whole.size() / 2, whole.size() - 3}) {
    SCOPED_TRACE(cut);
    test::Bytes bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));
    bytes.push_back(0xFF);
    bytes.push_back(0xD9);
    const std::string path = test::WriteTempFile("cut.jpg", bytes);
    const Decoded decoded = DecodeFile(path);
    std::remove(path.c_str());
    if (decoded.error.empty()) {
      EXPECT_EQ(decoded.pixels.size(), uint64_t{decoded.width} * decoded.height * 4);
    } else {
      // A cut between segments leaves a partial marker for the walk between scans.
      EXPECT_TRUE(decoded.error == L"Invalid offset or corrupt data" ||
                  decoded.error == L"Missing marker prefix" ||
                  decoded.error == L"Unexpected JPEG marker between scans")
          << std::string(decoded.error.begin(), decoded.error.end());
    }
  }
}

}  // namespace
}  // namespace corvi
