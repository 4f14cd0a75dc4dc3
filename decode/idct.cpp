// Dequantisation and the inverse DCT (Arai, Agui and Nakajima), in single precision.
#include "decode/idct.h"

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "decode/decode_state.h"

namespace corvi {
namespace {

// The 8-point AAN flow over d0..d7, outputs w0..w7 to out[0], out[step], ... out[7 * step].
// Every sum keeps the order of the flow graph; -ffp-contract=off keeps it unfused.
inline void Step8(float d0, float d1, float d2, float d3, float d4, float d5, float d6, float d7,
                  float* out, int step) {
  // Even half.
  const float s0 = d0 + d4;
  const float s1 = d0 - d4;
  const float s3 = d2 + d6;
  const float s2 = (d2 - d6) * c_sqrt2 - s3;
  const float e0 = s0 + s3;
  const float e3 = s0 - s3;
  const float e1 = s1 + s2;
  const float e2 = s1 - s2;

  // Odd half.
  const float z13 = d5 + d3;
  const float z10 = d5 - d3;
  const float z11 = d1 + d7;
  const float z12 = d1 - d7;
  const float o7 = z11 + z13;
  const float z5 = (z10 + z12) * c_a;
  const float t10 = z12 * c_b - z5;
  const float t12 = z5 - z10 * c_c;
  const float o6 = t12 - o7;
  const float o5 = (z11 - z13) * c_sqrt2 - o6;
  const float o4 = t10 + o5;

  // Outputs.
  out[0 * step] = e0 + o7;
  out[1 * step] = e1 + o6;
  out[2 * step] = e2 + o5;
  out[3 * step] = e3 - o4;
  out[4 * step] = e3 + o4;
  out[5 * step] = e2 - o5;
  out[6 * step] = e1 - o6;
  out[7 * step] = e0 - o7;
}

// One column of the first pass: dequantise and transform, or copy the dequantised DC down the
// column when rows 1 to 7 hold no coefficient (the test looks at the coefficients, not at the
// products).
inline void ColumnStep(const int16_t* in, const float* q, float* ws) {
  if ((in[8] | in[16] | in[24] | in[32] | in[40] | in[48] | in[56]) == 0) {
    const float m = static_cast<float>(in[0]) * q[0];
    ws[0] = m;
    ws[8] = m;
    ws[16] = m;
    ws[24] = m;
    ws[32] = m;
    ws[40] = m;
    ws[48] = m;
    ws[56] = m;
    return;
  }
  Step8(static_cast<float>(in[0]) * q[0], static_cast<float>(in[8]) * q[8],
        static_cast<float>(in[16]) * q[16], static_cast<float>(in[24]) * q[24],
        static_cast<float>(in[32]) * q[32], static_cast<float>(in[40]) * q[40],
        static_cast<float>(in[48]) * q[48], static_cast<float>(in[56]) * q[56], ws, 8);
}

// One row of the second pass; no shortcut, the rows are dense by now.
inline void RowStep(const float* ws, float* out) {
  Step8(ws[0], ws[1], ws[2], ws[3], ws[4], ws[5], ws[6], ws[7], out, 1);
}

#if defined(__SSE2__)
// The same flow on four lanes at once: each lane does exactly the scalar operations, in the same
// order, so the results are bit for bit those of Step8.
inline void Step8x4(const __m128* d, __m128* w) {
  // Even half.
  const __m128 s0 = _mm_add_ps(d[0], d[4]);
  const __m128 s1 = _mm_sub_ps(d[0], d[4]);
  const __m128 s3 = _mm_add_ps(d[2], d[6]);
  const __m128 s2 = _mm_sub_ps(_mm_mul_ps(_mm_sub_ps(d[2], d[6]), _mm_set1_ps(c_sqrt2)), s3);
  const __m128 e0 = _mm_add_ps(s0, s3);
  const __m128 e3 = _mm_sub_ps(s0, s3);
  const __m128 e1 = _mm_add_ps(s1, s2);
  const __m128 e2 = _mm_sub_ps(s1, s2);

  // Odd half.
  const __m128 z13 = _mm_add_ps(d[5], d[3]);
  const __m128 z10 = _mm_sub_ps(d[5], d[3]);
  const __m128 z11 = _mm_add_ps(d[1], d[7]);
  const __m128 z12 = _mm_sub_ps(d[1], d[7]);
  const __m128 o7 = _mm_add_ps(z11, z13);
  const __m128 z5 = _mm_mul_ps(_mm_add_ps(z10, z12), _mm_set1_ps(c_a));
  const __m128 t10 = _mm_sub_ps(_mm_mul_ps(z12, _mm_set1_ps(c_b)), z5);
  const __m128 t12 = _mm_sub_ps(z5, _mm_mul_ps(z10, _mm_set1_ps(c_c)));
  const __m128 o6 = _mm_sub_ps(t12, o7);
  const __m128 o5 = _mm_sub_ps(_mm_mul_ps(_mm_sub_ps(z11, z13), _mm_set1_ps(c_sqrt2)), o6);
  const __m128 o4 = _mm_add_ps(t10, o5);

  // Outputs.
  w[0] = _mm_add_ps(e0, o7);
  w[1] = _mm_add_ps(e1, o6);
  w[2] = _mm_add_ps(e2, o5);
  w[3] = _mm_sub_ps(e3, o4);
  w[4] = _mm_add_ps(e3, o4);
  w[5] = _mm_sub_ps(e2, o5);
  w[6] = _mm_sub_ps(e1, o6);
  w[7] = _mm_sub_ps(e0, o7);
}

// Four adjacent int16 coefficients to floats.
inline __m128 LoadCoefficients(const int16_t* p) {
  const __m128i narrow = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
  return _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(narrow, narrow), 16));
}

// Columns c to c + 3 of the column pass, with the DC-only shortcut chosen per lane.
inline void ColumnsX4(const int16_t* in, const float* q, __m128* w) {
  __m128 d[8];
#pragma GCC unroll 8
  for (int k = 0; k < 8; ++k) {
    d[k] = _mm_mul_ps(LoadCoefficients(in + 8 * k), _mm_loadu_ps(q + 8 * k));
  }
  __m128i any = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + 8));
#pragma GCC unroll 8
  for (int k = 2; k < 8; ++k) {
    any = _mm_or_si128(any, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + 8 * k)));
  }
  // All ones in the lanes whose rows 1 to 7 are zero.
  const __m128i zero16 = _mm_cmpeq_epi16(any, _mm_setzero_si128());
  const __m128 dc_only = _mm_castsi128_ps(_mm_unpacklo_epi16(zero16, zero16));
  Step8x4(d, w);
#pragma GCC unroll 8
  for (int k = 0; k < 8; ++k) {
    w[k] = _mm_or_ps(_mm_and_ps(dc_only, d[0]), _mm_andnot_ps(dc_only, w[k]));
  }
}

inline void Transpose4(__m128& a, __m128& b, __m128& c, __m128& d) {
  _MM_TRANSPOSE4_PS(a, b, c, d);
}
#endif

}  // namespace

// a(r) × a(c) / 8 with a(0) = 1 and a(k) = √2 cos(kπ/16), to seven decimals.
const float DctScale[64] = {
    0.1250000f, 0.1733800f, 0.1633204f, 0.1469844f, 0.1250000f, 0.0982119f, 0.0676495f, 0.0344874f,
    0.1733800f, 0.2404849f, 0.2265319f, 0.2038733f, 0.1733800f, 0.1362238f, 0.0938326f, 0.0478354f,
    0.1633204f, 0.2265319f, 0.2133884f, 0.1920444f, 0.1633204f, 0.1283200f, 0.0883883f, 0.0450600f,
    0.1469844f, 0.2038733f, 0.1920444f, 0.1728354f, 0.1469844f, 0.1154849f, 0.0795474f, 0.0405529f,
    0.1250000f, 0.1733800f, 0.1633204f, 0.1469844f, 0.1250000f, 0.0982119f, 0.0676495f, 0.0344874f,
    0.0982119f, 0.1362238f, 0.1283200f, 0.1154849f, 0.0982119f, 0.0771646f, 0.0531519f, 0.0270966f,
    0.0676495f, 0.0938326f, 0.0883883f, 0.0795474f, 0.0676495f, 0.0531519f, 0.0366117f, 0.0186645f,
    0.0344874f, 0.0478354f, 0.0450600f, 0.0405529f, 0.0344874f, 0.0270966f, 0.0186645f, 0.0095151f,
};

void ScaleQuantTable(QuantTable& table) {
  for (int i = 0; i < 64; ++i) {
    table.values[i] *= DctScale[i];
  }
}

void InverseDCTScalar(const int16_t* coefficients, float* samples, const QuantTable& table) {
  const float* q = table.values;
  float ws[64];

  // Columns first, with the DC-only shortcut.
  ColumnStep(coefficients + 0, q + 0, ws + 0);
  ColumnStep(coefficients + 1, q + 1, ws + 1);
  ColumnStep(coefficients + 2, q + 2, ws + 2);
  ColumnStep(coefficients + 3, q + 3, ws + 3);
  ColumnStep(coefficients + 4, q + 4, ws + 4);
  ColumnStep(coefficients + 5, q + 5, ws + 5);
  ColumnStep(coefficients + 6, q + 6, ws + 6);
  ColumnStep(coefficients + 7, q + 7, ws + 7);

  // Then the rows, straight into the samples; the 1/8 and the output factors are in the table.
  RowStep(ws + 0, samples + 0);
  RowStep(ws + 8, samples + 8);
  RowStep(ws + 16, samples + 16);
  RowStep(ws + 24, samples + 24);
  RowStep(ws + 32, samples + 32);
  RowStep(ws + 40, samples + 40);
  RowStep(ws + 48, samples + 48);
  RowStep(ws + 56, samples + 56);
}

#if defined(__SSE2__)
void InverseDCTSse2(const int16_t* coefficients, float* samples, const QuantTable& table) {
  const float* q = table.values;
  // A block with only a DC coefficient: the column pass gives m = DC × q[0] in column 0 and +0
  // elsewhere (a zero coefficient times a table value, which is never negative), and each output
  // of the row pass is m with zeros added or subtracted, which is m again. Not so for m = -0 (a
  // negative DC times a zero table value), where some sums turn it into +0: that takes the long
  // way.
  if (q[0] != 0.0f) {
    const __m128i* rows = reinterpret_cast<const __m128i*>(coefficients);
    const __m128i not_dc = _mm_set_epi16(-1, -1, -1, -1, -1, -1, -1, 0);
    __m128i any = _mm_and_si128(_mm_loadu_si128(rows), not_dc);
#pragma GCC unroll 8
    for (int k = 1; k < 8; ++k) {
      any = _mm_or_si128(any, _mm_loadu_si128(rows + k));
    }
    if (_mm_movemask_epi8(_mm_cmpeq_epi8(any, _mm_setzero_si128())) == 0xFFFF) {
      const __m128 m = _mm_set1_ps(static_cast<float>(coefficients[0]) * q[0]);
#pragma GCC unroll 16
      for (int i = 0; i < 16; ++i) {
        _mm_storeu_ps(samples + 4 * i, m);
      }
      return;
    }
  }
  // Columns first, four at a time: left[k] and right[k] hold row k of the workspace.
  __m128 left[8];
  __m128 right[8];
  ColumnsX4(coefficients, q, left);
  ColumnsX4(coefficients + 4, q + 4, right);

  // Transposed, the rows become lanes: top[k] holds column k of rows 0 to 3, bottom[k] of 4 to 7.
  __m128 top[8] = {left[0], left[1], left[2], left[3], right[0], right[1], right[2], right[3]};
  __m128 bottom[8] = {left[4], left[5], left[6], left[7], right[4], right[5], right[6], right[7]};
  Transpose4(top[0], top[1], top[2], top[3]);
  Transpose4(top[4], top[5], top[6], top[7]);
  Transpose4(bottom[0], bottom[1], bottom[2], bottom[3]);
  Transpose4(bottom[4], bottom[5], bottom[6], bottom[7]);

  // Then the rows, and back to row order.
  __m128 w[8];
  Step8x4(top, w);
  Transpose4(w[0], w[1], w[2], w[3]);
  Transpose4(w[4], w[5], w[6], w[7]);
#pragma GCC unroll 8
  for (int r = 0; r < 4; ++r) {
    _mm_storeu_ps(samples + 8 * r, w[r]);
    _mm_storeu_ps(samples + 8 * r + 4, w[4 + r]);
  }
  Step8x4(bottom, w);
  Transpose4(w[0], w[1], w[2], w[3]);
  Transpose4(w[4], w[5], w[6], w[7]);
#pragma GCC unroll 8
  for (int r = 0; r < 4; ++r) {
    _mm_storeu_ps(samples + 32 + 8 * r, w[r]);
    _mm_storeu_ps(samples + 32 + 8 * r + 4, w[4 + r]);
  }
}
#endif

namespace {

using InverseDCTForm = void (*)(const int16_t*, float*, const QuantTable&);

// The widest form this processor runs; all give the same samples.
InverseDCTForm ChooseInverseDCT() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_cpu_init();  // this runs among the static initialisers
  if (InverseDCTAvx2Built() && __builtin_cpu_supports("avx2")) {
    return InverseDCTAvx2;
  }
#endif
#if defined(__SSE2__)
  return InverseDCTSse2;
#else
  return InverseDCTScalar;
#endif
}

const InverseDCTForm kInverseDCT = ChooseInverseDCT();

}  // namespace

void InverseDCT(const int16_t* coefficients, float* samples, const QuantTable& table) {
  kInverseDCT(coefficients, samples, table);
}

}  // namespace corvi
