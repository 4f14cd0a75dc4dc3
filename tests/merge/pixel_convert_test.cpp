// Pixels to level-shifted sample blocks, pinned by hashes in tests/golden/merge_pixels.txt, and
// the vector form of the conversion.
#include "merge/pixel_convert.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "decode/decode_state.h"
#include "merge/merge.h"
#include "tests/support/merge_support.h"

namespace corvi {
namespace {

// "mode N" over a layer of odd size with transparent pixels: the hashes pin the colour weights,
// the compositing, the chroma means and the order of their sums, and the replication at the right
// and bottom edges.
TEST(ConvertPixels, BlocksOfEveryModeMatchGoldenText) {
  RawLayer layer;
  layer.width = 17, layer.height = 9;
  layer.AllocatePixels();
  std::mt19937 random(3);
  for (uint32_t i = 0; i < 4 * 17 * 9; ++i) {
    layer.pixels[i] = static_cast<uint16_t>(i % 4 == 3 && i % 3 != 0 ? 65535 : random());
  }
  test::ExpectGoldenCases("merge_pixels.txt", [&](const std::string& line) {
    const int32_t mode = std::stoi(line.substr(5));
    const uint8_t luma = "\x11\x21\x12\x22\x11"[mode - 1];
    MergeState state;
    state.width = layer.width, state.height = layer.height;
    for (int32_t id = 1; id <= (mode == 5 ? 1 : 3); ++id) {
      state.components[id] = new ComponentInfo();
    }
    state.components[1]->h = luma >> 4, state.components[1]->v = luma & 15;
    PlanMergeSampling(state);
    EXPECT_EQ(state.sampling_mode, static_cast<SamplingMode>(mode));
    std::vector<float> blocks(size_t{64} * state.blocks_per_mcu * state.mcu_count);
    ConvertPixels(state, layer, blocks.data(), Background{1000, 30000, 50000});
    return test::Fnv1a64(blocks.data(), blocks.size() * sizeof(float));
  });
}

TEST(OpaqueQuadToYCbCr, ConvertsLikeSinglePixels) {
  std::mt19937 random(7);
  const uint16_t edges[] = {0, 1, 255, 256, 32767, 32768, 65279, 65534, 65535};
  int vector_quads = 0;
  for (int round = 0; round < 20000; ++round) {
    uint16_t quad[16];
    for (int i = 0; i < 16; ++i) {
      quad[i] = static_cast<uint16_t>(round % 3 == 0 ? edges[random() % 9] : random());
    }
    for (int p = 0; p < 4; ++p) {
      quad[p * 4 + 3] = round % 5 == 0 && p == round % 4 ? edges[random() % 9] : 65535;
    }
    float y[4], cb[4], cr[4];
    if (!OpaqueQuadToYCbCr(quad, y, cb, cr)) {
      continue;  // a transparent pixel, or no vector form on this machine
    }
    ASSERT_TRUE(quad[3] == 65535 && quad[7] == 65535 && quad[11] == 65535 && quad[15] == 65535);
    ++vector_quads;
    for (int p = 0; p < 4; ++p) {
      const YCbCr plain = PixelToYCbCr(quad + p * 4, Background{1000, 2000, 3000});
      const float vector[3] = {y[p], cb[p], cr[p]};
      ASSERT_EQ(std::memcmp(&plain, vector, sizeof vector), 0) << round << "/" << p;
    }
  }
#if defined(__SSE2__)
  EXPECT_GT(vector_quads, 10000);
#endif
}

}  // namespace
}  // namespace corvi
