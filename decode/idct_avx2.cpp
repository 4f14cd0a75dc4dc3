// The inverse DCT on eight lanes (AVX2), chosen at run time where the processor has it. Each
// lane does exactly the scalar operations in the same order, without fused multiply-adds, so
// the samples are bit for bit those of the scalar and SSE2 forms.
#include "decode/idct.h"

#if defined(__AVX2__)
#include <immintrin.h>

#include "decode/decode_state.h"

namespace corvi {
namespace {

inline void Step8x8(const __m256* d, __m256* w) {
  // Even half.
  const __m256 s0 = _mm256_add_ps(d[0], d[4]);
  const __m256 s1 = _mm256_sub_ps(d[0], d[4]);
  const __m256 s3 = _mm256_add_ps(d[2], d[6]);
  const __m256 s2 =
      _mm256_sub_ps(_mm256_mul_ps(_mm256_sub_ps(d[2], d[6]), _mm256_set1_ps(c_sqrt2)), s3);
  const __m256 e0 = _mm256_add_ps(s0, s3);
  const __m256 e3 = _mm256_sub_ps(s0, s3);
  const __m256 e1 = _mm256_add_ps(s1, s2);
  const __m256 e2 = _mm256_sub_ps(s1, s2);

  // Odd half.
  const __m256 z13 = _mm256_add_ps(d[5], d[3]);
  const __m256 z10 = _mm256_sub_ps(d[5], d[3]);
  const __m256 z11 = _mm256_add_ps(d[1], d[7]);
  const __m256 z12 = _mm256_sub_ps(d[1], d[7]);
  const __m256 o7 = _mm256_add_ps(z11, z13);
  const __m256 z5 = _mm256_mul_ps(_mm256_add_ps(z10, z12), _mm256_set1_ps(c_a));
  const __m256 t10 = _mm256_sub_ps(_mm256_mul_ps(z12, _mm256_set1_ps(c_b)), z5);
  const __m256 t12 = _mm256_sub_ps(z5, _mm256_mul_ps(z10, _mm256_set1_ps(c_c)));
  const __m256 o6 = _mm256_sub_ps(t12, o7);
  const __m256 o5 =
      _mm256_sub_ps(_mm256_mul_ps(_mm256_sub_ps(z11, z13), _mm256_set1_ps(c_sqrt2)), o6);
  const __m256 o4 = _mm256_add_ps(t10, o5);

  // Outputs.
  w[0] = _mm256_add_ps(e0, o7);
  w[1] = _mm256_add_ps(e1, o6);
  w[2] = _mm256_add_ps(e2, o5);
  w[3] = _mm256_sub_ps(e3, o4);
  w[4] = _mm256_add_ps(e3, o4);
  w[5] = _mm256_sub_ps(e2, o5);
  w[6] = _mm256_sub_ps(e1, o6);
  w[7] = _mm256_sub_ps(e0, o7);
}

// Rows to columns: after the call r[k] holds what was column k.
inline void Transpose8(__m256* r) {
  const __m256 t0 = _mm256_unpacklo_ps(r[0], r[1]);
  const __m256 t1 = _mm256_unpackhi_ps(r[0], r[1]);
  const __m256 t2 = _mm256_unpacklo_ps(r[2], r[3]);
  const __m256 t3 = _mm256_unpackhi_ps(r[2], r[3]);
  const __m256 t4 = _mm256_unpacklo_ps(r[4], r[5]);
  const __m256 t5 = _mm256_unpackhi_ps(r[4], r[5]);
  const __m256 t6 = _mm256_unpacklo_ps(r[6], r[7]);
  const __m256 t7 = _mm256_unpackhi_ps(r[6], r[7]);
  const __m256 u0 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(1, 0, 1, 0));
  const __m256 u1 = _mm256_shuffle_ps(t0, t2, _MM_SHUFFLE(3, 2, 3, 2));
  const __m256 u2 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(1, 0, 1, 0));
  const __m256 u3 = _mm256_shuffle_ps(t1, t3, _MM_SHUFFLE(3, 2, 3, 2));
  const __m256 u4 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(1, 0, 1, 0));
  const __m256 u5 = _mm256_shuffle_ps(t4, t6, _MM_SHUFFLE(3, 2, 3, 2));
  const __m256 u6 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(1, 0, 1, 0));
  const __m256 u7 = _mm256_shuffle_ps(t5, t7, _MM_SHUFFLE(3, 2, 3, 2));
  r[0] = _mm256_permute2f128_ps(u0, u4, 0x20);
  r[1] = _mm256_permute2f128_ps(u1, u5, 0x20);
  r[2] = _mm256_permute2f128_ps(u2, u6, 0x20);
  r[3] = _mm256_permute2f128_ps(u3, u7, 0x20);
  r[4] = _mm256_permute2f128_ps(u0, u4, 0x31);
  r[5] = _mm256_permute2f128_ps(u1, u5, 0x31);
  r[6] = _mm256_permute2f128_ps(u2, u6, 0x31);
  r[7] = _mm256_permute2f128_ps(u3, u7, 0x31);
}

}  // namespace

bool InverseDCTAvx2Built() {
  return true;
}

void InverseDCTAvx2(const int16_t* coefficients, float* samples, const QuantTable& table) {
  const float* q = table.values;
  const __m128i* rows = reinterpret_cast<const __m128i*>(coefficients);
  // The block with only a DC coefficient, as in the other forms (not for a zero DC quantiser).
  if (q[0] != 0.0f) {
    const __m128i not_dc = _mm_set_epi16(-1, -1, -1, -1, -1, -1, -1, 0);
    __m128i any = _mm_and_si128(_mm_loadu_si128(rows), not_dc);
    for (int k = 1; k < 8; ++k) {
      any = _mm_or_si128(any, _mm_loadu_si128(rows + k));
    }
    if (_mm_testz_si128(any, any) != 0) {
      const __m256 m = _mm256_set1_ps(static_cast<float>(coefficients[0]) * q[0]);
      for (int i = 0; i < 8; ++i) {
        _mm256_storeu_ps(samples + 8 * i, m);
      }
      return;
    }
  }
  // Columns: lane c of d[k] is row k of column c, dequantised.
  __m256 d[8];
  __m128i any = _mm_setzero_si128();
  for (int k = 0; k < 8; ++k) {
    const __m128i row = _mm_loadu_si128(rows + k);
    if (k != 0) {
      any = _mm_or_si128(any, row);
    }
    d[k] =
        _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(row)), _mm256_loadu_ps(q + 8 * k));
  }
  // All ones in the columns whose rows 1 to 7 are zero: those copy the dequantised DC down.
  const __m256 dc_only =
      _mm256_castsi256_ps(_mm256_cvtepi16_epi32(_mm_cmpeq_epi16(any, _mm_setzero_si128())));
  __m256 w[8];
  Step8x8(d, w);
  for (int k = 0; k < 8; ++k) {
    w[k] = _mm256_blendv_ps(w[k], d[0], dc_only);
  }
  // Rows: transposed, lane r of w[k] is column k of row r.
  Transpose8(w);
  __m256 out[8];
  Step8x8(w, out);
  Transpose8(out);
  for (int r = 0; r < 8; ++r) {
    _mm256_storeu_ps(samples + 8 * r, out[r]);
  }
}

}  // namespace corvi

#else

namespace corvi {
bool InverseDCTAvx2Built() {
  return false;
}
void InverseDCTAvx2(const int16_t* coefficients, float* samples, const QuantTable& table) {
  InverseDCTScalar(coefficients, samples, table);
}
}  // namespace corvi

#endif
