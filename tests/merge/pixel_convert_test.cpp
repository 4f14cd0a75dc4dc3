// Pixels to level-shifted sample blocks: compositing, colour conversion, chroma means, edges.
#include "merge/pixel_convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "base/raw_layer.h"
#include "merge/merge.h"

namespace corvi {
namespace {

using Pixel = std::array<uint16_t, 4>;

TEST(PixelToYCbCr, CompositesAndConverts) {
  const Background black{0, 0, 0}, white{};
  struct Case {
    Pixel pixel;
    Background background;
    double y, cb, cr, gray;
  };
  const Case cases[] = {
      {{65535, 65535, 65535, 65535}, black, 127, 0, 0, 127},
      {{0, 0, 0, 65535}, white, -128, 0, 0, -128},
      {{65535, 0, 0, 65535}, black, 76 - 128, -43, 127, 85 - 128},  // grey: the plain mean
      {{0, 65535, 0, 65535}, black, 150 - 128, -84, -107, 85 - 128},
      {{0, 0, 65535, 65535}, black, 29 - 128, 127, -20, 85 - 128},
      {{65535, 0, 0, 0}, white, 127, 0, 0, 127},  // transparent shows the background
      {{0, 0, 0, 0},
       Background{3, 3, 6},
       3.342 / 257 - 128,
       1.5 / 257,
       -0.244 / 257,
       4 / 257.0 - 128},
      {{65535, 65535, 65535, 32768},
       black,
       32768 * 255 / 65535.0 - 128,
       0,
       0,
       32768 * 255 / 65535.0 - 128},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.pixel));
    const YCbCr out = PixelToYCbCr(c.pixel.data(), c.background);
    const double got[] = {out.y, out.cb, out.cr, PixelToGray(c.pixel.data(), c.background)};
    const double expected[] = {c.y, c.cb, c.cr, c.gray};
    for (int k = 0; k < 4; ++k) {  // the weights, whole numbers out of 255, make whole levels exact
      EXPECT_NEAR(got[k], expected[k], expected[k] == std::floor(expected[k]) ? 0 : 2e-3) << k;
    }
  }
  // Alpha 0 is exactly the background; alpha 65534 over black takes 65535 to 65534.
  const Background odd{1000, 30000, 50000};
  const Pixel junk{123, 45678, 9, 0}, bg{1000, 30000, 50000, 65535};
  const YCbCr a = PixelToYCbCr(junk.data(), odd), b = PixelToYCbCr(bg.data(), odd);
  EXPECT_TRUE(a.y == b.y && a.cb == b.cb && a.cr == b.cr);
  const Pixel almost{65535, 0, 0, 65534}, blended{65534, 0, 0, 65535}, opaque{65535, 0, 0, 65535};
  EXPECT_EQ(PixelToYCbCr(almost.data(), black).cr, PixelToYCbCr(blended.data(), black).cr);
  EXPECT_NE(PixelToYCbCr(almost.data(), black).cr, PixelToYCbCr(opaque.data(), black).cr);
  const Pixel white_almost{65535, 65535, 65535, 65534}, grey_65534{65534, 65534, 65534, 65535};
  EXPECT_EQ(PixelToGray(white_almost.data(), black), PixelToGray(grey_65534.data(), black));
}

TEST(ConvertMCU4, AddsFourChromaSamplesLowerLeftFirst) {
  std::vector<Pixel> pixels(16 * 16, Pixel{0, 0, 0, 65535});
  // Values for which adding in reading order rounds differently.
  const Pixel upper_left{51093, 56723, 276, 65535}, upper_right{58377, 34908, 29984, 65535},
      lower_left{13399, 41606, 4009, 65535}, lower_right{2925, 3335, 1206, 65535};
  pixels[0] = upper_left, pixels[1] = upper_right, pixels[16] = lower_left,
  pixels[17] = lower_right;
  std::vector<float> blocks(64 * 6);
  ConvertMCU4(blocks.data(), pixels[0].data(), 16, Background{});
  auto cb = [](const Pixel& p) { return PixelToYCbCr(p.data(), Background{}).cb; };
  EXPECT_EQ(blocks[64 * 4],
            (((cb(lower_left) + cb(upper_left)) + cb(upper_right)) + cb(lower_right)) * 0.25f);
  EXPECT_NE(blocks[64 * 4],
            (((cb(upper_left) + cb(upper_right)) + cb(lower_left)) + cb(lower_right)) * 0.25f);
}

TEST(ConvertPixels, ReplicatesTheLastColumn) {
  struct Case {
    int32_t mode, mcu_width, mcu_height, blocks;
    uint32_t width, height;
  };
  for (const Case& c : {Case{2, 16, 8, 4, 1, 8}, Case{4, 16, 16, 6, 17, 16}}) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " width " << c.width);
    MergeState state;  // as PlanMergeSampling leaves it
    state.sampling_mode = static_cast<SamplingMode>(c.mode);
    state.width = c.width;
    state.height = c.height;
    state.mcu_width = c.mcu_width;
    state.mcu_height = c.mcu_height;
    state.blocks_per_mcu = c.blocks;
    state.mcus_across = static_cast<int32_t>((c.width + 15) / 16);
    state.mcus_down = 1;
    state.mcu_count = state.mcus_across;
    RawLayer layer;
    layer.width = c.width;
    layer.height = c.height;
    layer.AllocatePixels();
    for (uint32_t i = 0; i < c.width * c.height; ++i) {  // every pixel its own colour
      const uint16_t v = static_cast<uint16_t>(i * 997);
      const Pixel p{v, static_cast<uint16_t>(65535 - v), static_cast<uint16_t>(v / 2), 65535};
      std::copy(p.begin(), p.end(), layer.pixels + 4 * i);
    }
    std::vector<float> blocks(64 * state.blocks_per_mcu * state.mcu_count);
    ConvertPixels(state, layer, blocks.data(), Background{});
    auto sample = [&](uint32_t x, uint32_t y) {
      return PixelToYCbCr(layer.pixels + 4 * (y * c.width + x), Background{});
    };
    // The last MCU of the first row: its first column is the last real one.
    const float* mcu = blocks.data() + 64 * state.blocks_per_mcu * (state.mcus_across - 1);
    for (int32_t r = 0; r < 16 && r < static_cast<int32_t>(c.height); ++r) {
      for (int32_t col = 0; col < 16; ++col) {
        const int32_t block = (r / 8) * 2 + col / 8;
        ASSERT_EQ(mcu[64 * block + 8 * (r % 8) + col % 8], sample(c.width - 1, r).y)
            << r << "," << col;
      }
    }
    const float* cb = mcu + 64 * (state.blocks_per_mcu - 2);
    if (c.mode == 2) {  // means of two copies of one pixel
      for (int32_t i = 0; i < 64; ++i) {
        EXPECT_EQ(cb[i], sample(0, i / 8).cb) << i;
      }
    } else {  // the first MCU reads the layer directly
      const float upper = sample(16, 0).cb, lower = sample(16, 1).cb;
      EXPECT_EQ(cb[0], (((lower + upper) + upper) + lower) * 0.25f);
      EXPECT_EQ(blocks[8 * 3 + 5], sample(5, 3).y);
      EXPECT_EQ(blocks[64 + 8 * 7 + 7], sample(15, 7).y);
    }
  }
}

}  // namespace
}  // namespace corvi
