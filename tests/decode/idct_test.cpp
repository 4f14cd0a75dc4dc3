// Dequantisation and the inverse DCT against T.81 A.3.3 computed directly in double precision.
#include "decode/idct.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>

#include "decode/decode_state.h"

namespace corvi {
namespace {

const double kPi = 3.14159265358979323846;

// T.81 A.3.3: s(y,x) = 1/4 sum C(u) C(v) S(v,u) cos((2x+1)uπ/16) cos((2y+1)vπ/16).
void ReferenceIdct(const int16_t* coefficients, const float* quant, double* out) {
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) {
      double sum = 0.0;
      for (int v = 0; v < 8; ++v) {
        for (int u = 0; u < 8; ++u) {
          const double cu = u == 0 ? 1.0 / std::sqrt(2.0) : 1.0;
          const double cv = v == 0 ? 1.0 / std::sqrt(2.0) : 1.0;
          const double s = static_cast<double>(coefficients[8 * v + u]) * double{quant[8 * v + u]};
          sum += cu * cv * s * std::cos((2 * x + 1) * u * kPi / 16) *
                 std::cos((2 * y + 1) * v * kPi / 16);
        }
      }
      out[8 * y + x] = sum / 4.0;
    }
  }
}

QuantTable FlatTable(float value) {
  QuantTable table;
  for (float& v : table.values) {
    v = value;
  }
  return table;
}

// T.81 Table K.1, natural order.
constexpr float kLuminance[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99,
};

struct FlatCase {
  const char* name;
  int16_t dc;
  float quant;
  float expected;
};
constexpr FlatCase kFlatCases[] = {
    {"all zero", 0, 16.0f, 0.0f},
    {"dc 80 quantiser 16", 80, 16.0f, 160.0f},
    {"negative dc", -8, 2.0f, -2.0f},
    {"extreme dc passes unclamped", 32767, 255.0f, 32767.0f * 255.0f * 0.125f},
};

TEST(InverseDCT, DcOnlyBlockIsFlat) {
  for (const auto& c : kFlatCases) {
    SCOPED_TRACE(c.name);
    QuantTable table = FlatTable(c.quant);
    ScaleQuantTable(table);
    int16_t coefficients[64] = {};
    coefficients[0] = c.dc;
    float samples[64];
    InverseDCT(coefficients, samples, table);
    for (float s : samples) {
      EXPECT_EQ(s, c.expected);
    }
  }
}

TEST(InverseDCT, RowZeroBlockGivesEqualRows) {
  QuantTable table = FlatTable(3.0f);
  ScaleQuantTable(table);
  const int16_t row0[8] = {40, -17, 9, 0, -5, 3, 0, -1};
  int16_t coefficients[64] = {};
  for (int i = 0; i < 8; ++i) {
    coefficients[i] = row0[i];
  }
  float samples[64];
  InverseDCT(coefficients, samples, table);
  double reference[64];
  const QuantTable raw = FlatTable(3.0f);
  ReferenceIdct(coefficients, raw.values, reference);
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(samples[i], samples[i % 8]) << i;  // the shortcut copies whole columns
    EXPECT_NEAR(double{samples[i]}, reference[i], 1e-3) << i;
  }
}

TEST(InverseDCT, CoefficientWithZeroQuantiserContributesNothing) {
  QuantTable table = FlatTable(4.0f);
  table.values[8] = 0.0f;
  ScaleQuantTable(table);
  int16_t plain[64] = {};
  plain[0] = 12;
  int16_t with_zero_product[64] = {};
  with_zero_product[0] = 12;
  with_zero_product[8] = 100;
  float a[64];
  float b[64];
  InverseDCT(plain, a, table);
  InverseDCT(with_zero_product, b, table);
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(a[i], b[i]) << i;
  }
}

TEST(InverseDCT, MatchesDoublePrecisionReferenceOnRandomBlocks) {
  std::mt19937 random(1234);
  for (int round = 0; round < 200; ++round) {
    SCOPED_TRACE(round);
    int16_t coefficients[64];
    const int sparse = round % 3;  // some dense blocks, some with a few columns left empty
    for (int i = 0; i < 64; ++i) {
      const int limit = i == 0 ? 1024 : 1024 / (1 + i / 4);
      std::uniform_int_distribution<int> value(-limit, limit);
      coefficients[i] = static_cast<int16_t>(value(random));
      if (sparse != 0 && (i % 8) >= 8 - 3 * sparse) {
        coefficients[i] = 0;
      }
    }
    const int16_t before = coefficients[37];
    QuantTable table;
    for (int i = 0; i < 64; ++i) {
      table.values[i] = kLuminance[i] / 8.0f;
    }
    double reference[64];
    ReferenceIdct(coefficients, table.values, reference);
    ScaleQuantTable(table);
    float samples[64];
    InverseDCT(coefficients, samples, table);
    EXPECT_EQ(coefficients[37], before);
    for (int i = 0; i < 64; ++i) {
      EXPECT_NEAR(double{samples[i]}, reference[i], 0.01 + 2e-5 * std::fabs(reference[i])) << i;
    }
  }
}

}  // namespace
}  // namespace corvi
