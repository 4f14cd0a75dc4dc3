// The forward DCT with quantisation folded in, and the coefficient rounding in its two forms.
#include "merge/forward_dct.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "base/byte_coverage.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "merge/merge.h"

namespace corvi {
namespace {

// Pseudo-random samples, a constant -128 and one cosine, against the sum over cosines.
TEST(ForwardDCT, MatchesTheTransformDividedByTheQuantiser) {
  std::vector<uint8_t> payload{0x00};  // one DQT table, quantisers 1 to 7
  for (int32_t k = 0; k < 64; ++k) {
    payload.push_back(static_cast<uint8_t>(1 + zigzag[k] % 7));
  }
  MergeState state;
  const auto marker = MakeMarker(0xDB, static_cast<int32_t>(payload.size()), payload.data());
  ByteCoverage coverage(payload.data(), static_cast<int32_t>(payload.size()));
  marker->Parse(coverage);
  ReadQuantisation(*marker, state);
  const double pi = 3.14159265358979323846;
  for (int32_t round = 0; round < 3; ++round) {
    float block[64], samples[64];
    for (int32_t i = 0; i < 64; ++i) {
      const double cosine = 100 * std::cos((2 * (i % 8) + 1) * 3 * pi / 16);
      block[i] = samples[i] = static_cast<float>(round == 0   ? (i * 73 + 41) % 256 - 128
                                                 : round == 1 ? -128
                                                              : cosine);
    }
    ForwardDCT(block, *state.reciprocal_tables[0]);
    for (int32_t i = 0, u = 0, v = 0; i < 64; u = ++i % 8, v = i / 8) {
      double sum = 0;
      for (int32_t k = 0; k < 64; ++k) {
        sum += double{samples[k]} * std::cos((2 * (k % 8) + 1) * u * pi / 16) *
               std::cos((2 * (k / 8) + 1) * v * pi / 16);
      }
      const double expected = sum / 4 / (u == 0 ? std::sqrt(2) : 1) / (v == 0 ? std::sqrt(2) : 1);
      EXPECT_NEAR(double{block[i]}, expected / (1 + i % 7), 2e-3 + 1e-5 * std::fabs(expected)) << i;
    }
  }
}

// Half away from zero, saturated to ±32767, NaN to 0; the vector form gives the same.
TEST(RoundCoefficient, HalfAwayFromZeroSaturatedInBothForms) {
  const float inf = std::numeric_limits<float>::infinity();
  const std::pair<float, int16_t> cases[] = {
      {0.0f, 0},        {0.49f, 0},       {0.5f, 1},         {-0.5f, -1},    {2.5f, 3},
      {-2.5f, -3},      {-2.49f, -2},     {32766.6f, 32767}, {40000, 32767}, {-32767.4f, -32767},
      {-32768, -32767}, {-1e30f, -32767}, {inf, 32767},      {-inf, -32767}, {std::nanf(""), 0}};
  for (const auto& [x, expected] : cases) {
    EXPECT_EQ(RoundCoefficient(x), expected) << x;
  }
  std::mt19937 random(5);
  std::uniform_real_distribution<float> wide(-70000.0f, 70000.0f), narrow(-4.0f, 4.0f);
  for (int round = 0; round < 5000; ++round) {
    float block[64];
    for (float& v : block) {
      v = round % 3 == 0 ? cases[random() % std::size(cases)].first
                         : (round % 3 == 1 ? narrow : wide)(random);
    }
    int16_t vector[64], plain[64];
    RoundBlockZigzag(block, vector);
    RoundBlockZigzagPlain(block, plain);
    ASSERT_EQ(std::memcmp(vector, plain, sizeof plain), 0) << round;
    for (int32_t z = 0; z < 64; ++z) {
      ASSERT_EQ(plain[z], RoundCoefficient(block[zigzag[z]])) << z;
    }
  }
}

}  // namespace
}  // namespace corvi
