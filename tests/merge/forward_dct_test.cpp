// The forward DCT with quantisation folded in, the reciprocal tables and the coefficient rounding.
#include "merge/forward_dct.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "merge/merge.h"

namespace corvi {
namespace {

// Reads one DQT table of 8-bit `quantisers` (natural order) into `state`.
void LoadTable(MergeState& state, const std::vector<uint16_t>& quantisers) {
  std::vector<uint8_t> payload{0x00};
  for (int32_t k = 0; k < 64; ++k) {
    payload.push_back(static_cast<uint8_t>(quantisers[zigzag[k]]));
  }
  auto marker = MakeMarker(0xDB, static_cast<int32_t>(payload.size()), payload.data());
  ReadQuantisation(*marker, state);
}

// T.81 A.3.3 FDCT in double precision, divided by the quantiser.
double Reference(const float* samples, int32_t u, int32_t v) {
  const double pi = 3.14159265358979323846;
  double sum = 0;
  for (int32_t y = 0; y < 8; ++y) {
    for (int32_t x = 0; x < 8; ++x) {
      sum += double{samples[8 * y + x]} * std::cos((2 * x + 1) * u * pi / 16) *
             std::cos((2 * y + 1) * v * pi / 16);
    }
  }
  return sum / 4 * (u == 0 ? std::sqrt(0.5) : 1.0) * (v == 0 ? std::sqrt(0.5) : 1.0);
}

TEST(ForwardDCT, MatchesTheTransformDividedByTheQuantiser) {
  std::vector<uint16_t> ones(64, 1), varied(64);
  for (int32_t i = 0; i < 64; ++i) {
    varied[i] = static_cast<uint16_t>(1 + i % 7);
  }
  struct Case {
    const char* name;
    const std::vector<uint16_t>& q;
    float (*sample)(int32_t i);
  };
  const Case cases[] = {
      {"zeros", ones, [](int32_t) { return 0.0f; }},
      {"constant 127: DC 1016 only", ones, [](int32_t) { return 127.0f; }},
      {"constant -128, varied quantisers", varied, [](int32_t) { return -128.0f; }},
      {"pseudo-random", varied,
       [](int32_t i) { return static_cast<float>((i * 73 + 41) % 256 - 128); }},
      {"one cosine", ones,
       [](int32_t i) { return 100.0f * std::cos((2 * (i % 8) + 1) * 3 * 3.14159265f / 16); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MergeState state;
    LoadTable(state, c.q);
    float block[64], samples[64];
    for (int32_t i = 0; i < 64; ++i) {
      block[i] = samples[i] = c.sample(i);
    }
    ASSERT_EQ(state.quant_tables[0]->values[9], static_cast<float>(c.q[9]));  // natural order
    ForwardDCT(block, *state.reciprocal_tables[0]);
    for (int32_t i = 0; i < 64; ++i) {
      const double expected = Reference(samples, i % 8, i / 8) / c.q[i];
      EXPECT_NEAR(double{block[i]}, expected, 2e-3 + 1e-5 * std::fabs(expected)) << i;
    }
  }
}

TEST(RoundCoefficient, HalfAwayFromZeroSaturated) {
  const float inf = std::numeric_limits<float>::infinity();
  const std::pair<float, int16_t> cases[] = {{0.0f, 0},
                                             {0.49f, 0},
                                             {0.5f, 1},
                                             {-0.5f, -1},
                                             {2.5f, 3},
                                             {-2.5f, -3},
                                             {-2.49f, -2},
                                             {32766.6f, 32767},
                                             {40000.0f, 32767},
                                             {-32767.4f, -32767},
                                             {-32768.0f, -32767},
                                             {-40000.0f, -32767},
                                             {1e30f, 32767},
                                             {-1e30f, -32767},
                                             {inf, 32767},
                                             {-inf, -32767},
                                             {std::numeric_limits<float>::quiet_NaN(), 0}};
  for (const auto& [x, expected] : cases) {
    EXPECT_EQ(RoundCoefficient(x), expected) << x;
  }
}

}  // namespace
}  // namespace corvi
