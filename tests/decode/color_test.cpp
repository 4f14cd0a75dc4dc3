// Colour conversion of single samples, the block addressing of each MCU routine, and the image
// edges of an MCU row.
#include "decode/color.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "base/raw_layer.h"
#include "decode/decode_state.h"

namespace corvi {
namespace {

struct PixelCase {
  const char* name;
  float y, cb, cr;
  uint16_t red, green, blue;
};
const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();
const PixelCase kPixelCases[] = {
    {"mid grey", 0.0f, 0.0f, 0.0f, 32896, 32896, 32896},
    {"white: 65535.5 truncated", 127.0f, 0.0f, 0.0f, 65535, 65535, 65535},
    {"above white clamps", 127.5f, 0.0f, 0.0f, 65535, 65535, 65535},
    {"black: 0.5 truncated", -128.0f, 0.0f, 0.0f, 0, 0, 0},
    {"below black clamps", -129.0f, 0.0f, 0.0f, 0, 0, 0},
    {"sum in (-1, 0) truncates to zero", -128.003f, 0.0f, 0.0f, 0, 0, 0},
    {"chroma", 0.0f, 10.0f, -10.0f, 29274, 33855, 37469},
    {"infinite chroma", 0.0f, kInf, -kInf, 0, 0, 65535},
    {"NaN gives zero", kNaN, 0.0f, 0.0f, 0, 0, 0},
    {"NaN chroma", 0.0f, kNaN, 0.0f, 32896, 0, 0},
};

TEST(YCbCrToPixel, ConvertsLevelShiftsAndClamps) {
  for (const auto& c : kPixelCases) {
    SCOPED_TRACE(c.name);
    uint16_t pixel[4] = {1, 2, 3, 4};
    YCbCrToPixel(c.y, c.cb, c.cr, pixel);
    EXPECT_EQ(pixel[0], c.red);
    EXPECT_EQ(pixel[1], c.green);
    EXPECT_EQ(pixel[2], c.blue);
    EXPECT_EQ(pixel[3], 65535);
  }
}

// Which block and index of the MCU each pixel (x, y) reads, by mode.
struct ModeCase {
  const char* name;
  void (*convert)(const float*, uint16_t*, uint32_t);
  int mcu_width, mcu_height, luma_blocks;
  int (*luma_block)(int x, int y);
  int (*luma_index)(int x, int y);
  int (*chroma_index)(int x, int y);
};
const ModeCase kModeCases[] = {
    {"1x1", ConvertMcu1x1, 8, 8, 1, [](int, int) { return 0; },
     [](int x, int y) { return 8 * y + x; }, [](int x, int y) { return 8 * y + x; }},
    {"1x2", ConvertMcu1x2, 16, 8, 2, [](int x, int) { return x / 8; },
     [](int x, int y) { return 8 * y + x % 8; }, [](int x, int y) { return 8 * y + x / 2; }},
    {"2x1", ConvertMcu2x1, 8, 16, 2, [](int, int y) { return y / 8; },
     [](int x, int y) { return 8 * (y % 8) + x; }, [](int x, int y) { return 8 * (y / 2) + x; }},
    {"2x2", ConvertMcu2x2, 16, 16, 4, [](int x, int y) { return 2 * (y / 8) + x / 8; },
     [](int x, int y) { return 8 * (y % 8) + x % 8; },
     [](int x, int y) { return 8 * (y / 2) + x / 2; }},
};

TEST(ConvertMcu, AddressesEachLumaAndChromaSample) {
  for (const auto& c : kModeCases) {
    SCOPED_TRACE(c.name);
    // First pass: luma sample k of the MCU is k - 128, so the channel value is 257 k, and chroma
    // is 0. Second pass: luma 0, Cb rising with the index and Cr falling, so red (Cr only) and
    // blue (Cb only) each name the chroma sample, and swapped blocks would show.
    std::vector<float> luma((c.luma_blocks + 2) * 64, 0.0f);
    std::vector<float> chroma = luma;
    for (int k = 0; k < c.luma_blocks * 64; ++k) {
      luma[k] = static_cast<float>(k - 128);
    }
    for (int k = 0; k < 64; ++k) {
      chroma[c.luma_blocks * 64 + k] = static_cast<float>(k - 32);
      chroma[c.luma_blocks * 64 + 64 + k] = static_cast<float>(31 - k);
    }
    std::vector<uint16_t> by_luma(32 * 32 * 4, 7);
    std::vector<uint16_t> by_chroma(32 * 32 * 4);
    c.convert(luma.data(), by_luma.data(), 32);
    c.convert(chroma.data(), by_chroma.data(), 32);
    for (int y = 0; y < 32; ++y) {
      for (int x = 0; x < 32; ++x) {
        const uint16_t* p = &by_luma[(32 * y + x) * 4];
        if (x >= c.mcu_width || y >= c.mcu_height) {
          EXPECT_EQ(p[0], 7) << x << "," << y;  // outside the MCU: untouched
          continue;
        }
        ASSERT_EQ(p[0], 257 * (64 * c.luma_block(x, y) + c.luma_index(x, y))) << x << "," << y;
        ASSERT_EQ(p[3], 65535);
        const uint16_t* q = &by_chroma[(32 * y + x) * 4];
        const int k = c.chroma_index(x, y);
        ASSERT_EQ(std::lround((q[0] - 32896.0) / 362.2283), 31 - k) << x << "," << y;
        ASSERT_EQ(std::lround((q[2] - 32896.0) / 457.3386), k - 32) << x << "," << y;
      }
    }
  }
}

struct Layout {
  int32_t mode, mcu_width, mcu_height, blocks_per_mcu;
  void (*convert)(const float*, uint16_t*, uint32_t);
};
const Layout kLayouts[] = {
    {0, 0, 0, 0, nullptr},        {1, 8, 8, 3, ConvertMcu1x1},   {2, 16, 8, 4, ConvertMcu1x2},
    {3, 8, 16, 4, ConvertMcu2x1}, {4, 16, 16, 6, ConvertMcu2x2}, {5, 8, 8, 1, ConvertMcuGray},
};

struct EdgeCase {
  int32_t mode;
  uint32_t width, height;
};
constexpr EdgeCase kEdgeCases[] = {
    {4, 17, 17}, {4, 8, 8},  {2, 16, 8}, {5, 5, 3},   {5, 5, 13}, {1, 1, 1},
    {3, 9, 20},  {2, 33, 9}, {1, 24, 8}, {4, 32, 31}, {3, 8, 16},
};

// Converting MCU rows into an image equals converting every MCU whole into a padded image and
// cropping it: full MCUs land in place, partial ones lose their tails, nothing else is written.
TEST(ConvertMcuRow, CropsPartialMcusAtTheEdges) {
  std::mt19937 random(99);
  std::uniform_real_distribution<float> sample(-140.0f, 140.0f);
  for (const auto& c : kEdgeCases) {
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " " << c.width << "x" << c.height);
    const Layout& l = kLayouts[c.mode];
    DecodeState state;
    state.sampling_mode = static_cast<SamplingMode>(c.mode);
    state.width = c.width;
    state.height = c.height;
    state.mcu_width = l.mcu_width;
    state.mcu_height = l.mcu_height;
    state.blocks_per_mcu = l.blocks_per_mcu;
    state.mcus_across = static_cast<int32_t>((c.width + l.mcu_width - 1) / l.mcu_width);
    state.mcus_down = static_cast<int32_t>((c.height + l.mcu_height - 1) / l.mcu_height);

    const uint32_t padded_width = static_cast<uint32_t>(state.mcus_across * l.mcu_width);
    const uint32_t padded_height = static_cast<uint32_t>(state.mcus_down * l.mcu_height);
    std::vector<uint16_t> padded(size_t{padded_width} * padded_height * 4);
    RawLayer layer;
    layer.width = c.width;
    layer.height = c.height;
    layer.AllocatePixels();
    std::fill(layer.pixels, layer.pixels + size_t{c.width} * c.height * 4, uint16_t{0x1234});

    const size_t row_floats = size_t(state.mcus_across) * l.blocks_per_mcu * 64;
    std::vector<float> samples(row_floats);
    for (int32_t row = 0; row < state.mcus_down; ++row) {
      for (float& s : samples) {
        s = sample(random);
      }
      const uint32_t y = static_cast<uint32_t>(row * l.mcu_height);
      ConvertMcuRow(state, layer, y, samples.data());
      for (int32_t m = 0; m < state.mcus_across; ++m) {
        l.convert(&samples[size_t(m) * l.blocks_per_mcu * 64],
                  &padded[(size_t{y} * padded_width + size_t(m) * l.mcu_width) * 4], padded_width);
      }
    }
    for (uint32_t y = 0; y < c.height; ++y) {
      for (uint32_t x = 0; x < c.width; ++x) {
        for (int ch = 0; ch < 4; ++ch) {
          ASSERT_EQ(layer.pixels[(size_t{y} * c.width + x) * 4 + ch],
                    padded[(size_t{y} * padded_width + x) * 4 + ch])
              << x << "," << y << " channel " << ch;
        }
      }
    }
  }
}

}  // namespace
}  // namespace corvi
