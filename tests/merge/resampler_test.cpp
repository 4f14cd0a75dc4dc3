// Rescaling of the layer to the frame's size: steps, the point and nine-tap passes, the fit.
#include "merge/resampler.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

using Pixel = std::array<uint16_t, 4>;

Pixel At(const uint16_t* pixels, int32_t width, int32_t x, int32_t y) {
  const uint16_t* p = pixels + (static_cast<size_t>(y) * width + x) * 4;
  return {p[0], p[1], p[2], p[3]};
}

// Every pixel different from its neighbours, opaque.
std::vector<uint16_t> Pattern(int32_t width, int32_t height) {
  std::vector<uint16_t> pixels;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      pixels.insert(pixels.end(), {static_cast<uint16_t>(x * 7 + y * 13), static_cast<uint16_t>(x),
                                   static_cast<uint16_t>(y), 65535});
    }
  }
  return pixels;
}

// The first pass over `width` × `height` pixels at the given scales; `steps` gets x and y steps.
void Resample(ResampleTarget& target, const uint16_t* source, int32_t width, int32_t height,
              float x_scale, float y_scale, int32_t* steps = nullptr) {
  Resampler r(width, height, source, static_cast<float>(width), static_cast<float>(height), x_scale,
              y_scale);
  r.target = &target;
  r.Resample();
  if (steps != nullptr) {
    steps[0] = r.x_step, steps[1] = r.y_step;
  }
}

TEST(Resampler, StepsAndFirstPassSize) {
  struct Case {
    int32_t source_width, source_height, frame_width, frame_height;
    int32_t x_step, y_step, width, height;
  };
  const Case cases[] = {
      {1000, 750, 160, 120, 25600, 25600, 160, 120},  // scale 0.16, exact
      {100, 100, 160, 120, 2560, 3413, 160, 121},     // 120 × 3413 falls short of 100 × 4096
      {1024, 768, 512, 384, 8192, 8192, 512, 384},    // point sampling
      {64, 96, 64, 48, 4096, 8192, 64, 48},           // point sampling, twice the height
      {4, 4, 8, 8, 2048, 2048, 8, 8},                 // nine taps, several on one pixel
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.source_width << "x" << c.source_height << " to "
                                    << c.frame_width << "x" << c.frame_height);
    const std::vector<uint16_t> source = Pattern(c.source_width, c.source_height);
    int32_t steps[2];
    ResampleTarget target;
    Resample(target, source.data(), c.source_width, c.source_height,
             static_cast<float>(c.frame_width) / static_cast<float>(c.source_width),
             static_cast<float>(c.frame_height) / static_cast<float>(c.source_height), steps);
    EXPECT_EQ(steps[0], c.x_step);
    EXPECT_EQ(steps[1], c.y_step);
    ASSERT_EQ(target.width, c.width);
    ASSERT_EQ(target.height, c.height);
    // Whole and half steps: each target pixel is the source pixel under its first tap.
    for (int32_t y = 0; y < c.height && c.x_step % 2048 == 0 && c.y_step % 2048 == 0; ++y) {
      for (int32_t x = 0; x < c.width; ++x) {
        ASSERT_EQ(At(target.pixels, c.width, x, y),
                  At(source.data(), c.source_width, (x * c.x_step) >> 12, (y * c.y_step) >> 12))
            << x << "," << y;
      }
    }
    if (c.height > c.frame_height) {  // the fit drops the row the rounded step adds
      ResampleTarget fitted;
      FitToSize(fitted, target.width, target.height, target.pixels, c.frame_width, c.frame_height);
      ASSERT_EQ(fitted.height, c.frame_height);
      EXPECT_EQ(
          std::memcmp(fitted.pixels, target.pixels, size_t{8} * c.frame_width * c.frame_height), 0);
    }
  }
}

TEST(Resampler, NineTapsWeighColourByAlphaAndAlphaByNine) {
  const Pixel red{65535, 0, 0, 65535}, clear_green{0, 65535, 0, 0}, half_blue{0, 0, 65535, 32768},
      clear_white{65535, 65535, 65535, 0}, grey{1000, 2000, 3000, 65535};
  struct Case {
    std::vector<Pixel> source;    // 3 × 3
    std::vector<Pixel> expected;  // 2 × 2
  };
  const Case cases[] = {
      // Pixel (0, 0) takes (0, 0) four times, (1, 0) and (0, 1) twice, (1, 1) once; the
      // others have taps outside the source, which count as transparent.
      {{red, clear_green, grey, half_blue, clear_white, grey, grey, grey, grey},
       {{52427, 0, 13107, 36408},
        {1000, 2000, 3000, 21845},
        {1000, 2000, 3000, 21845},
        {1000, 2000, 3000, 7281}}},
      {std::vector<Pixel>(9, clear_white), std::vector<Pixel>(4, Pixel{})},
  };
  for (const Case& c : cases) {
    ResampleTarget target;
    Resample(target, c.source[0].data(), 3, 3, 0.4f, 0.4f);  // steps of 10240
    ASSERT_EQ(target.width, 2);
    ASSERT_EQ(target.height, 2);
    for (int32_t i = 0; i < 4; ++i) {
      EXPECT_EQ(At(target.pixels, 2, i % 2, i / 2), c.expected[i]) << i;
    }
  }
}

TEST(Resampler, LastColumnLosesAThirdOfItsAlpha) {
  const std::vector<uint16_t> source = Pattern(3, 1);
  ResampleTarget target;
  Resample(target, source.data(), 3, 1, 160.0f / 3.0f, 1.0f);  // x_step 77
  ASSERT_EQ(target.width, 160);
  ASSERT_EQ(target.height, 1);
  EXPECT_EQ(At(target.pixels, 160, 0, 0), At(source.data(), 3, 0, 0));
  EXPECT_EQ(At(target.pixels, 160, 158, 0), At(source.data(), 3, 2, 0));
  Pixel last = At(source.data(), 3, 2, 0);
  last[3] = 43690;  // c2 lies outside: six taps of nine
  EXPECT_EQ(At(target.pixels, 160, 159, 0), last);
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

TEST(FitToSize, RepeatsOrDropsTheLastRowsAndColumns) {
  const std::vector<uint16_t> source = Pattern(2, 2);
  const Pixel p00 = At(source.data(), 2, 0, 0), p10 = At(source.data(), 2, 1, 0),
              p01 = At(source.data(), 2, 0, 1), p11 = At(source.data(), 2, 1, 1);
  struct Case {
    int32_t width, height;
    std::vector<Pixel> expected;
  };
  const Case cases[] = {
      {3, 3, {p00, p10, p10, p01, p11, p11, p01, p11, p11}},
      {1, 2, {p00, p01}},
      {0, 5, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height);
    ResampleTarget target;
    FitToSize(target, 2, 2, source.data(), c.width, c.height);
    ASSERT_EQ(target.width, c.expected.empty() ? 0 : c.width);
    ASSERT_EQ(target.height, c.expected.empty() ? 0 : c.height);
    for (int32_t i = 0; i < static_cast<int32_t>(c.expected.size()); ++i) {
      EXPECT_EQ(At(target.pixels, c.width, i % c.width, i / c.width), c.expected[i]);
    }
  }
}

}  // namespace
}  // namespace corvi
