// Rescaling of the layer to the frame's size: steps, the point and nine-tap passes, the fit,
// pinned by hashes of whole outputs (tests/golden/merge_resampler.txt) over pixels of every alpha.
#include "merge/resampler.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "base/raw_layer_exception.h"
#include "tests/support/merge_support.h"

namespace corvi {
namespace {

TEST(Resampler, OutputsMatchGoldenText) {
  // Source size, scales (0: FitToSize to the output size instead) and the output's size: exact;
  // a rounded step (one row more); point sampling, also at twice the height; nine taps, several
  // on a pixel; outside taps transparent; the last column losing alpha; a fit that repeats the
  // last row and column, one that drops them, one to nothing.
  const struct {
    int32_t source_width, source_height;
    float x_scale, y_scale;
    int32_t width, height;
  } cases[] = {{1000, 750, 0.16f, 0.16f, 160, 120},
               {100, 100, 1.6f, 1.2f, 160, 121},
               {64, 48, 0.5f, 0.5f, 32, 24},
               {64, 96, 1.0f, 0.5f, 64, 48},
               {4, 4, 2.0f, 2.0f, 8, 8},
               {3, 3, 0.4f, 0.4f, 2, 2},
               {3, 1, 160.0f / 3.0f, 1.0f, 160, 1},
               {2, 2, 0, 0, 3, 3},
               {3, 3, 0, 0, 1, 2},
               {2, 2, 0, 0, 0, 5}};
  std::mt19937 random(5);
  std::string golden;
  for (const auto& c : cases) {
    std::vector<uint16_t> source(size_t{4} * c.source_width * c.source_height);
    const uint16_t alphas[] = {0, 1, 32768, 65535, 65535};
    for (size_t i = 0; i < source.size(); ++i) {
      source[i] = static_cast<uint16_t>(i % 4 == 3 ? alphas[random() % 5] : random());
    }
    ResampleTarget target;
    golden += std::to_string(c.source_width) + "x" + std::to_string(c.source_height) + " =>";
    if (c.x_scale == 0) {
      FitToSize(target, c.source_width, c.source_height, source.data(), c.width, c.height);
    } else {
      Resampler r(c.source_width, c.source_height, source.data(),
                  static_cast<float>(c.source_width), static_cast<float>(c.source_height),
                  c.x_scale, c.y_scale);
      r.target = &target;
      r.Resample();
      golden += " step " + std::to_string(r.x_step) + "," + std::to_string(r.y_step);
    }
    golden += " " + std::to_string(target.width) + "x" + std::to_string(target.height) + " " +
              test::Fnv1a64(target.pixels, size_t{8} * target.width * target.height) + "\n";
  }
  test::ExpectGolden("merge_resampler.txt", golden);
}

TEST(Resampler, RefusesAStepBelowOne) {
  const uint16_t pixel[4] = {1, 2, 3, 65535};
  EXPECT_NO_THROW(Resampler(1, 1, pixel, 1.0f, 1.0f, 8192.0f, 1.0f));  // step 1
  try {
    Resampler r(1, 1, pixel, 1.0f, 1.0f, 8193.0f, 1.0f);
    ADD_FAILURE() << "no exception, step " << r.x_step;
  } catch (const RawLayerException& e) {
    EXPECT_STREQ(e.message, L"Unsupported scale factor");
  }
}

}  // namespace
}  // namespace corvi
