// The vector forms of the rewriter give exactly what the plain forms give.
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <random>

#include "base/raw_layer.h"
#include "merge/forward_dct.h"
#include "merge/huffman_encode.h"
#include "merge/pixel_convert.h"

namespace corvi {
namespace {

TEST(VectorPaths, OpaqueQuadsConvertLikeSinglePixels) {
  std::mt19937 random(7);
  std::uniform_int_distribution<int> channel(0, 65535);
  const uint16_t edges[] = {0, 1, 255, 256, 32767, 32768, 65279, 65534, 65535};
  const Background background{1000, 2000, 3000};
  int vector_quads = 0;
  for (int round = 0; round < 20000; ++round) {
    uint16_t quad[16];
    for (int i = 0; i < 16; ++i) {
      quad[i] = static_cast<uint16_t>(round % 3 == 0 ? edges[random() % 9] : channel(random));
    }
    for (int p = 0; p < 4; ++p) {
      quad[p * 4 + 3] = round % 5 == 0 && p == round % 4 ? edges[random() % 9] : 65535;
    }
    float y[4], cb[4], cr[4];
    const bool opaque =
        quad[3] == 65535 && quad[7] == 65535 && quad[11] == 65535 && quad[15] == 65535;
    if (!OpaqueQuadToYCbCr(quad, y, cb, cr)) {
      continue;  // a transparent pixel, or no vector form on this machine
    }
    ASSERT_TRUE(opaque) << round;  // never takes a quad with a transparent pixel
    ++vector_quads;
    for (int p = 0; p < 4; ++p) {
      const YCbCr plain = PixelToYCbCr(quad + p * 4, background);
      const float vector[3] = {y[p], cb[p], cr[p]};
      ASSERT_EQ(std::memcmp(&plain, vector, sizeof vector), 0) << round << "/" << p;
    }
  }
#if defined(__SSE2__)
  EXPECT_GT(vector_quads, 10000);
#endif
}

TEST(VectorPaths, NonzeroMaskMatchesPlainForm) {
  std::mt19937 random(11);
  for (int round = 0; round < 20000; ++round) {
    int16_t values[64];
    for (int16_t& v : values) {
      const uint32_t r = random();
      v = (r % 4 == 0) ? static_cast<int16_t>(static_cast<int32_t>(r >> 8) % 65535 - 32767) : 0;
    }
    ASSERT_EQ(NonzeroMask(values), NonzeroMaskPlain(values)) << round;
    EXPECT_EQ(NonzeroMask(values) & 1, 0u);
  }
}

TEST(VectorPaths, BlockRoundingMatchesPlainForm) {
  std::mt19937 random(5);
  std::uniform_real_distribution<float> wide(-70000.0f, 70000.0f), narrow(-4.0f, 4.0f);
  const float inf = std::numeric_limits<float>::infinity();
  const float specials[] = {
      0.0f,   -0.0f,       0.5f,     -0.5f,     2.5f,
      -2.5f,  32766.5f,    32767.0f, -32767.5f, 1e30f,
      -1e30f, 0.49999997f, inf,      -inf,      std::numeric_limits<float>::quiet_NaN()};
  for (int round = 0; round < 5000; ++round) {
    float block[64];
    for (float& v : block) {
      v = round % 3 == 0 ? specials[random() % 15] : round % 3 == 1 ? narrow(random) : wide(random);
    }
    int16_t vector[64], plain[64];
    RoundBlockZigzag(block, vector);
    RoundBlockZigzagPlain(block, plain);
    ASSERT_EQ(std::memcmp(vector, plain, sizeof plain), 0) << round;
  }
}

}  // namespace
}  // namespace corvi
