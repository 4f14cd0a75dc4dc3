// Rescaling of the layer to the frame's size: steps, the point and nine-tap passes, the fit,
// pinned by hashes of whole outputs over pixels of every alpha. The sizes and scales are kept in
// tests/golden/merge_resampler.txt.
#include "merge/resampler.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <vector>

#include "base/raw_layer_exception.h"
#include "tests/support/merge_support.h"

namespace corvi {
namespace {

// "WxH XSCALE YSCALE WxH", or "WxH fit WxH" for FitToSize.
std::string Resample(const std::string& line) {
  int32_t width = 0, height = 0, source_width = 0, source_height = 0;
  float x_scale = 0, y_scale = 0;
  if (std::sscanf(line.c_str(), "%dx%d fit %dx%d", &source_width, &source_height, &width,
                  &height) != 4) {
    std::sscanf(line.c_str(), "%dx%d %f %f %dx%d", &source_width, &source_height, &x_scale,
                &y_scale, &width, &height);
  }
  std::mt19937 random(5);
  std::vector<uint16_t> source(size_t{4} * source_width * source_height);
  const uint16_t alphas[] = {0, 1, 32768, 65535, 65535};
  for (size_t i = 0; i < source.size(); ++i) {
    source[i] = static_cast<uint16_t>(i % 4 == 3 ? alphas[random() % 5] : random());
  }
  ResampleTarget target;
  std::string text;
  if (x_scale == 0) {
    FitToSize(target, source_width, source_height, source.data(), width, height);
  } else {
    Resampler r(source_width, source_height, source.data(), static_cast<float>(source_width),
                static_cast<float>(source_height), x_scale, y_scale);
    r.target = &target;
    r.Resample();
    text = "step " + std::to_string(r.x_step) + "," + std::to_string(r.y_step) + " ";
  }
  return text + std::to_string(target.width) + "x" + std::to_string(target.height) + " " +
         test::Fnv1a64(target.pixels, size_t{8} * target.width * target.height);
}

TEST(Resampler, OutputsMatchGoldenText) {
  test::ExpectGoldenCases("merge_resampler.txt", Resample);
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
