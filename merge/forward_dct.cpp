// The scaled float forward DCT of Arai, Agui and Nakajima with quantisation folded in.
#include "merge/forward_dct.h"

#include "decode/decode_state.h"
#include "merge/merge.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace corvi {

const float AANScale[64] = {
    0.125f,     0.09012f,   0.0956709f, 0.1063038f, 0.125f,     0.1590948f, 0.2309699f, 0.4530637f,
    0.09012f,   0.0649729f, 0.0689748f, 0.0766407f, 0.09012f,   0.114701f,  0.16652f,   0.3266408f,
    0.0956709f, 0.0689748f, 0.0732233f, 0.0813614f, 0.0956709f, 0.1217659f, 0.1767767f, 0.34676f,
    0.1063038f, 0.0766407f, 0.0813614f, 0.0904039f, 0.1063038f, 0.135299f,  0.1964237f, 0.385299f,
    0.125f,     0.09012f,   0.0956709f, 0.1063038f, 0.125f,     0.1590948f, 0.2309699f, 0.4530637f,
    0.1590948f, 0.114701f,  0.1217659f, 0.135299f,  0.1590948f, 0.2024893f, 0.2939689f, 0.5766407f,
    0.2309699f, 0.16652f,   0.1767767f, 0.1964237f, 0.2309699f, 0.2939689f, 0.4267767f, 0.8371526f,
    0.4530637f, 0.3266408f, 0.34676f,   0.385299f,  0.4530637f, 0.5766407f, 0.8371526f, 1.642134f,
};

namespace {

// One eight-point transform, values `stride` apart, in place; output in AAN scale.
inline void Transform(float* d, int32_t stride) {
  // Sums and differences.
  const float t0 = d[0] + d[7 * stride];
  const float t7 = d[0] - d[7 * stride];
  const float t1 = d[stride] + d[6 * stride];
  const float t6 = d[stride] - d[6 * stride];
  const float t2 = d[2 * stride] + d[5 * stride];
  const float t5 = d[2 * stride] - d[5 * stride];
  const float t3 = d[3 * stride] + d[4 * stride];
  const float t4 = d[3 * stride] - d[4 * stride];
  // Even part.
  const float u0 = t0 + t3;
  const float u3 = t0 - t3;
  const float u1 = t1 + t2;
  const float u2 = t1 - t2;
  const float o0 = u0 + u1;
  const float o4 = u0 - u1;
  const float z1 = (u2 + u3) * 0.70710677f;
  const float o2 = u3 + z1;
  const float o6 = u3 - z1;
  // Odd part.
  const float s0 = t4 + t5;
  const float s1 = t5 + t6;
  const float s2 = t6 + t7;
  const float z5 = (s0 - s2) * 0.38268343f;
  const float z2 = s0 * 0.5411961f + z5;
  const float z4 = s2 * 1.306563f + z5;
  const float z3 = s1 * 0.70710677f;
  const float z11 = t7 + z3;
  const float z13 = t7 - z3;
  const float o5 = z13 + z2;
  const float o3 = z13 - z2;
  const float o1 = z11 + z4;
  const float o7 = z11 - z4;
  d[0] = o0;
  d[stride] = o1;
  d[2 * stride] = o2;
  d[3 * stride] = o3;
  d[4 * stride] = o4;
  d[5 * stride] = o5;
  d[6 * stride] = o6;
  d[7 * stride] = o7;
}

}  // namespace

void ForwardDCT(float* block, const QuantTable& reciprocal_table) {
  // Rows first, then columns.
  for (int32_t r = 0; r < 8; ++r) {
    Transform(block + r * 8, 1);
  }
  for (int32_t c = 0; c < 8; ++c) {
    Transform(block + c, 8);
  }
  // Output scale and quantiser in one multiplication per coefficient.
  for (int32_t i = 0; i < 64; ++i) {
    block[i] = block[i] * reciprocal_table.values[i];
  }
}

void RoundBlockZigzagPlain(const float* block, int16_t* out) {
  for (int32_t z = 0; z < 64; ++z) {
    out[z] = RoundCoefficient(block[zigzag[z]]);
  }
}

void RoundBlockZigzag(const float* block, int16_t* out) {
#if defined(__SSE2__)
  // x + 0.5 with the sign of x (x - 0.5 below zero; -0.0 gives 0 either way), NaN to 0, clamped
  // to ±32767, truncated: RoundCoefficient four at a time.
  int16_t natural[64];
  const __m128 sign = _mm_set1_ps(-0.0f);
  const __m128 half = _mm_set1_ps(0.5f);
  const __m128 highest = _mm_set1_ps(32767.0f);
  const __m128 lowest = _mm_set1_ps(-32767.0f);
  for (int32_t i = 0; i < 64; i += 8) {
    __m128i words[2];
    for (int32_t j = 0; j < 2; ++j) {
      const __m128 x = _mm_loadu_ps(block + i + 4 * j);
      __m128 t = _mm_add_ps(x, _mm_or_ps(_mm_and_ps(x, sign), half));
      t = _mm_and_ps(t, _mm_cmpord_ps(t, t));
      t = _mm_min_ps(_mm_max_ps(t, lowest), highest);
      words[j] = _mm_cvttps_epi32(t);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(natural + i), _mm_packs_epi32(words[0], words[1]));
  }
  for (int32_t z = 0; z < 64; ++z) {
    out[z] = natural[zigzag[z]];
  }
#else
  RoundBlockZigzagPlain(block, out);
#endif
}

}  // namespace corvi
