// Rescaling of the layer to the frame's size: steps, the point and nine-tap passes, the fit,
// pinned by hashes of whole outputs over pixels of every alpha.
#include "merge/resampler.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "base/raw_layer_exception.h"
#include "tests/support/merge_support.h"

namespace corvi {
namespace {

TEST(Resampler, OutputsMatchHashes) {
  struct Case {
    int32_t source_width, source_height;
    float x_scale, y_scale;  // 0: FitToSize to `width` × `height` instead
    int32_t x_step, y_step, width, height;
    uint64_t hash;
  };
  const Case cases[] = {
      {1000, 750, 0.16f, 0.16f, 25600, 25600, 160, 120, 0xA241C260431DE7Bu},  // exact
      {100, 100, 1.6f, 1.2f, 2560, 3413, 160, 121,
       0xF2000BFAF14C7BFDu},  // a rounded step: one row more
      {64, 48, 0.5f, 0.5f, 8192, 8192, 32, 24, 0xFF0D12F7B50B92A0u},  // point sampling
      {64, 96, 1.0f, 0.5f, 4096, 8192, 64, 48, 0xCD3D8EA8D40FA966u},  // point, twice the height
      {4, 4, 2.0f, 2.0f, 2048, 2048, 8, 8, 0x8922AA9912CF31EDu},    // nine taps, several on a pixel
      {3, 3, 0.4f, 0.4f, 10240, 10240, 2, 2, 0x4818AF2E0E34DD80u},  // outside taps are transparent
      {3, 1, 160.0f / 3.0f, 1.0f, 77, 4096, 160, 1,
       0xAB544F2C248BDCEAu},                          // the last column loses alpha
      {2, 2, 0, 0, 0, 0, 3, 3, 0xD9B0CE0732CDD9C0u},  // repeats the last row, column
      {3, 3, 0, 0, 0, 0, 1, 2, 0x274146073CC3CDDEu},  // drops them
      {2, 2, 0, 0, 0, 0, 0, 5, 0xCBF29CE484222325u},  // nothing
  };
  std::mt19937 random(5);
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.source_width << "x" << c.source_height << " to " << c.width
                                    << "x" << c.height);
    std::vector<uint16_t> source(size_t{4} * c.source_width * c.source_height);
    const uint16_t alphas[] = {0, 1, 32768, 65535, 65535};
    for (size_t i = 0; i < source.size(); ++i) {
      source[i] = static_cast<uint16_t>(i % 4 == 3 ? alphas[random() % 5] : random());
    }
    ResampleTarget target;
    if (c.x_scale == 0) {
      FitToSize(target, c.source_width, c.source_height, source.data(), c.width, c.height);
    } else {
      Resampler r(c.source_width, c.source_height, source.data(),
                  static_cast<float>(c.source_width), static_cast<float>(c.source_height),
                  c.x_scale, c.y_scale);
      r.target = &target;
      r.Resample();
      EXPECT_EQ(r.x_step, c.x_step);
      EXPECT_EQ(r.y_step, c.y_step);
    }
    ASSERT_EQ(target.width, c.width == 0 ? 0 : c.width);
    ASSERT_EQ(target.height, c.width == 0 ? 0 : c.height);
    const uint64_t hash = test::Fnv1a64(target.pixels, size_t{8} * target.width * target.height);
    EXPECT_EQ(hash, c.hash) << std::hex << "0x" << hash;
  }
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
