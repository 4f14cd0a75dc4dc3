// Dequantisation and the inverse DCT against the transform computed directly in double precision,
// and every vector form against the plain one, bit for bit.
#include "decode/idct.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "decode/decode_state.h"

namespace corvi {
namespace {

// s(y,x) = 1/4 sum C(u) C(v) S(v,u) cos((2x+1)uπ/16) cos((2y+1)vπ/16).
void ReferenceIdct(const int16_t* coefficients, const float* quant, double* out) {
  const double pi = 3.14159265358979323846;
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 8; ++x) {
      double sum = 0.0;
      for (int v = 0; v < 8; ++v) {
        for (int u = 0; u < 8; ++u) {
          const double c = (u == 0 ? std::sqrt(0.5) : 1.0) * (v == 0 ? std::sqrt(0.5) : 1.0);
          sum += c * coefficients[8 * v + u] * double{quant[8 * v + u]} *
                 std::cos((2 * x + 1) * u * pi / 16) * std::cos((2 * y + 1) * v * pi / 16);
        }
      }
      out[8 * y + x] = sum / 4.0;
    }
  }
}

// Dense blocks, blocks with empty columns, blocks of row 0 only (whose rows are equal) and DC only
// (exactly flat).
TEST(InverseDCT, MatchesDoublePrecisionReference) {
  std::mt19937 random(1234);
  for (int round = 0; round < 250; ++round) {
    SCOPED_TRACE(round);
    const int kind = round % 5;
    int16_t coefficients[64];
    QuantTable table;
    for (int i = 0; i < 64; ++i) {
      const int limit = i == 0 ? 1024 : 1024 / (1 + i / 4);
      const bool zero = ((kind == 1 || kind == 2) && i % 8 >= 8 - 3 * kind) ||
                        (kind == 3 && i >= 8) || (kind == 4 && i > 0);
      coefficients[i] = static_cast<int16_t>(
          zero ? 0 : std::uniform_int_distribution<int>(-limit, limit)(random));
      table.values[i] = static_cast<float>(1 + random() % 16);
    }
    double reference[64];
    ReferenceIdct(coefficients, table.values, reference);
    ScaleQuantTable(table);
    float samples[64];
    InverseDCT(coefficients, samples, table);
    for (int i = 0; i < 64; ++i) {
      EXPECT_NEAR(double{samples[i]}, reference[i], 0.01 + 2e-5 * std::fabs(reference[i])) << i;
      if (kind >= 3) {
        EXPECT_EQ(samples[i], samples[kind == 3 ? i % 8 : 0]) << i;
      }
    }
  }
}

TEST(InverseDCT, VectorFormsEqualThePlainForm) {
  std::vector<void (*)(const int16_t*, float*, const QuantTable&)> forms;
#if defined(__SSE2__)
  forms.push_back(InverseDCTSse2);
#endif
#if defined(__x86_64__) || defined(__i386__)
  if (InverseDCTAvx2Built() && __builtin_cpu_supports("avx2")) {
    forms.push_back(InverseDCTAvx2);
  }
#endif
  if (forms.empty()) {
    GTEST_SKIP() << "no vector form on this machine";
  }
  std::mt19937 random(2463534242u);
  // Tables of zeros, small and huge quantisers; blocks DC only, sparse, in columns, dense and
  // at the extremes.
  for (int iteration = 0; iteration < 20000; ++iteration) {
    QuantTable table;
    const uint32_t table_kind = iteration % 4, block_kind = (iteration / 4) % 5;
    for (float& v : table.values) {
      const uint32_t r = random();
      v = static_cast<float>(table_kind == 0 ? 1 + r % 255 : r % (table_kind == 1 ? 65536 : 4));
      v = table_kind == 2 ? 0 : v;
    }
    ScaleQuantTable(table);
    int16_t block[64] = {};
    for (int i = 0; i < 64; ++i) {
      const uint32_t r = random();
      if (block_kind == 0   ? i == 0
          : block_kind == 1 ? r % 16 == 0
                            : block_kind != 2 || i % 8 == 0 || r % 32 == 0) {
        block[i] = static_cast<int16_t>(block_kind == 4 ? (r & 64 ? 32767 : -32768)
                                                        : int32_t(r >> 8) % 4096 - 2048);
      }
    }
    float plain[64];
    InverseDCTScalar(block, plain, table);
    for (auto form : forms) {
      float vector[64];
      form(block, vector, table);
      ASSERT_EQ(std::memcmp(plain, vector, sizeof plain), 0) << "iteration " << iteration;
    }
  }
}

}  // namespace
}  // namespace corvi
