// Pixels to level-shifted sample blocks: compositing, colour conversion, chroma means, edges.
#include "merge/pixel_convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "base/raw_layer.h"
#include "merge/merge.h"

namespace corvi {
namespace {

using Pixel = std::array<uint16_t, 4>;

TEST(PixelToYCbCr, CompositesAndConverts) {
  const Background black{0, 0, 0}, odd{1000, 30000, 50000};
  struct Case {
    const char* name;
    Pixel pixel;
    Background background;
    double y, cb, cr;
  };
  const Case cases[] = {
      {"white", {65535, 65535, 65535, 65535}, black, 127, 0, 0},
      {"black", {0, 0, 0, 65535}, Background{}, -128, 0, 0},
      {"red", {65535, 0, 0, 65535}, black, 76 - 128, -43, 127},
      {"green", {0, 65535, 0, 65535}, black, 150 - 128, -84, -107},
      {"blue", {0, 0, 65535, 65535}, black, 29 - 128, 127, -20},
      {"transparent shows the background", {65535, 0, 0, 0}, Background{}, 127, 0, 0},
      {"half alpha", {65535, 65535, 65535, 32768}, black, 32768 * 255 / 65535.0 - 128, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const YCbCr out = PixelToYCbCr(c.pixel.data(), c.background);
    EXPECT_NEAR(double{out.y}, c.y, 2e-3);
    EXPECT_NEAR(double{out.cb}, c.cb, 2e-3);
    EXPECT_NEAR(double{out.cr}, c.cr, 2e-3);
  }
  // Alpha 0 is exactly the background; alpha 65534 over black takes 65535 to 65534.
  const Pixel junk{123, 45678, 9, 0}, bg{1000, 30000, 50000, 65535};
  const YCbCr a = PixelToYCbCr(junk.data(), odd), b = PixelToYCbCr(bg.data(), odd);
  EXPECT_EQ(a.y, b.y);
  EXPECT_EQ(a.cb, b.cb);
  EXPECT_EQ(a.cr, b.cr);
  const Pixel almost{65535, 0, 0, 65534}, blended{65534, 0, 0, 65535};
  EXPECT_EQ(PixelToYCbCr(almost.data(), black).cr, PixelToYCbCr(blended.data(), black).cr);
  const Pixel opaque{65535, 0, 0, 65535};
  EXPECT_NE(PixelToYCbCr(almost.data(), black).cr, PixelToYCbCr(opaque.data(), black).cr);
}

TEST(PixelToGray, TakesThePlainMeanBeforeCompositing) {
  const Background black{0, 0, 0};
  const Pixel red{65535, 0, 0, 65535}, green{0, 65535, 0, 65535}, blue{0, 0, 65535, 65535};
  EXPECT_NEAR(double{PixelToGray(red.data(), black)}, 85 - 128, 1e-3);  // 21845 / 257
  EXPECT_EQ(PixelToGray(green.data(), black), PixelToGray(red.data(), black));
  EXPECT_EQ(PixelToGray(blue.data(), black), PixelToGray(red.data(), black));
  const Pixel white{65535, 65535, 65535, 65535}, clear{0, 0, 0, 0},
      almost{65535, 65535, 65535, 65534};
  EXPECT_NEAR(double{PixelToGray(white.data(), black)}, 127, 2e-3);
  EXPECT_NEAR(double{PixelToGray(clear.data(), Background{})}, 127, 2e-3);
  EXPECT_NEAR(double{PixelToGray(clear.data(), Background{3, 3, 6})}, 4 / 257.0 - 128, 1e-4);
  const Pixel grey_65534{65534, 65534, 65534, 65535};
  EXPECT_EQ(PixelToGray(almost.data(), black), PixelToGray(grey_65534.data(), black));
}

// White or black everywhere gives 127 or -128 luminance and no chroma in every mode.
TEST(ConvertMCU, FlatColoursInAllModes) {
  using Convert = void (*)(float*, const uint16_t*, int32_t, const Background&);
  const Convert converts[] = {ConvertMCU1, ConvertMCU2, ConvertMCU3, ConvertMCU4, ConvertMCU5};
  const int32_t luma_blocks[] = {1, 2, 2, 4, 1}, chroma_blocks[] = {2, 2, 2, 2, 0};
  for (uint16_t level : {uint16_t{65535}, uint16_t{0}}) {
    const std::vector<Pixel> pixels(16 * 16, Pixel{level, level, level, 65535});
    for (int32_t mode = 0; mode < 5; ++mode) {
      SCOPED_TRACE(testing::Message() << "mode " << mode + 1 << " level " << level);
      std::vector<float> blocks(64 * 7, 99.0f);
      converts[mode](blocks.data(), pixels[0].data(), 16, Background{});
      for (int32_t i = 0; i < 64 * (luma_blocks[mode] + chroma_blocks[mode]); ++i) {
        const double expected = i >= 64 * luma_blocks[mode] ? 0 : level != 0 ? 127 : -128;
        ASSERT_NEAR(double{blocks[i]}, expected, 2e-3) << i;
      }
      EXPECT_EQ(blocks[64 * (luma_blocks[mode] + chroma_blocks[mode])], 99.0f) << "overrun";
    }
  }
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
  const float expected =
      (((cb(lower_left) + cb(upper_left)) + cb(upper_right)) + cb(lower_right)) * 0.25f;
  EXPECT_EQ(blocks[64 * 4], expected);
  EXPECT_NE(blocks[64 * 4],
            (((cb(upper_left) + cb(upper_right)) + cb(lower_left)) + cb(lower_right)) * 0.25f);
}

// A planned state of one frame, as PlanMergeSampling leaves it.
void Plan(MergeState& state, int32_t mode, uint32_t width, uint32_t height) {
  const int32_t mcu_width[] = {8, 16, 8, 16, 8}, mcu_height[] = {8, 8, 16, 16, 8},
                blocks[] = {3, 4, 4, 6, 1};
  state.sampling_mode = mode;
  state.width = width;
  state.height = height;
  state.mcu_width = mcu_width[mode - 1];
  state.mcu_height = mcu_height[mode - 1];
  state.blocks_per_mcu = blocks[mode - 1];
  state.mcus_across = static_cast<int32_t>((width + state.mcu_width - 1) / state.mcu_width);
  state.mcus_down = static_cast<int32_t>((height + state.mcu_height - 1) / state.mcu_height);
  state.mcu_count = state.mcus_across * state.mcus_down;
}

TEST(ConvertPixels, ReplicatesTheLastColumn) {
  struct Case {
    int32_t mode;
    uint32_t width, height;
  };
  for (const Case& c : {Case{2, 1, 8}, Case{4, 17, 16}}) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " width " << c.width);
    MergeState state;
    Plan(state, c.mode, c.width, c.height);
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
    const Background bg;
    auto sample = [&](uint32_t x, uint32_t y) {
      return PixelToYCbCr(layer.pixels + 4 * (y * c.width + x), bg);
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
