// The colour conversion on eight lanes (AVX2), chosen at run time where the processor has it:
// the operations of the plain form in the same order, without fused multiply-adds, and clamps
// whose choice of operand for NaN matches it, so the pixels are bit for bit the same.
#include "decode/color.h"

#if defined(__AVX2__)
#include <immintrin.h>

#include "decode/color_forms.h"

namespace corvi {
namespace {

inline __m256i Channels8(__m256 v) {
  v = _mm256_max_ps(v, _mm256_setzero_ps());
  v = _mm256_min_ps(v, _mm256_set1_ps(65535.0f));
  return _mm256_cvttps_epi32(v);
}

// Eight 32-bit lanes 0..65535 to eight unsigned 16-bit lanes.
inline __m128i Pack8(__m256i v) {
  return _mm_packus_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
}

// Interleaves eight pixels of red, green, blue and opaque alpha into 64 bytes at `out`.
inline void Store8(__m128i red, __m128i green, __m128i blue, uint16_t* out) {
  const __m128i alpha = _mm_set1_epi16(-1);
  const __m128i rg_low = _mm_unpacklo_epi16(red, green);
  const __m128i rg_high = _mm_unpackhi_epi16(red, green);
  const __m128i ba_low = _mm_unpacklo_epi16(blue, alpha);
  const __m128i ba_high = _mm_unpackhi_epi16(blue, alpha);
  const __m256i first =
      _mm256_set_m128i(_mm_unpackhi_epi32(rg_low, ba_low), _mm_unpacklo_epi32(rg_low, ba_low));
  const __m256i second =
      _mm256_set_m128i(_mm_unpackhi_epi32(rg_high, ba_high), _mm_unpacklo_epi32(rg_high, ba_high));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), first);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(out) + 1, second);
}

struct Avx2Form {
  template <int kChromaShift>
  static void Row8(const float* luma, const float* cb_row, const float* cr_row, uint16_t* out) {
    __m256 cb, cr;
    if (kChromaShift == 0) {
      cb = _mm256_loadu_ps(cb_row);
      cr = _mm256_loadu_ps(cr_row);
    } else {
      // Each of four chroma samples twice: lanes 0 0 1 1 2 2 3 3.
      const __m256i twice = _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3);
      cb = _mm256_permutevar8x32_ps(_mm256_castps128_ps256(_mm_loadu_ps(cb_row)), twice);
      cr = _mm256_permutevar8x32_ps(_mm256_castps128_ps256(_mm_loadu_ps(cr_row)), twice);
    }
    const __m256 t = _mm256_mul_ps(_mm256_loadu_ps(luma), _mm256_set1_ps(257.0f));
    const __m256 offset = _mm256_set1_ps(32896.5f);
    const __m256 red =
        _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(cr, _mm256_set1_ps(362.2283f)), t), offset);
    const __m256 blue =
        _mm256_add_ps(_mm256_add_ps(_mm256_mul_ps(cb, _mm256_set1_ps(457.3386f)), t), offset);
    const __m256 green =
        _mm256_add_ps(_mm256_sub_ps(_mm256_sub_ps(t, _mm256_mul_ps(cb, _mm256_set1_ps(87.57424f))),
                                    _mm256_mul_ps(cr, _mm256_set1_ps(183.4464f))),
                      offset);
    Store8(Pack8(Channels8(red)), Pack8(Channels8(green)), Pack8(Channels8(blue)), out);
  }

  static void GrayRow8(const float* luma, uint16_t* out) {
    const __m256 v = _mm256_add_ps(_mm256_mul_ps(_mm256_loadu_ps(luma), _mm256_set1_ps(257.0f)),
                                   _mm256_set1_ps(32896.5f));
    const __m128i g = Pack8(Channels8(v));
    Store8(g, g, g, out);
  }
};

constexpr McuConverters kAvx2Converters = ConvertersOf<Avx2Form>();

}  // namespace

bool ColourAvx2Built() {
  return true;
}
const McuConverters& Avx2Converters() {
  return kAvx2Converters;
}

}  // namespace corvi

#else

namespace corvi {
bool ColourAvx2Built() {
  return false;
}
const McuConverters& Avx2Converters() {
  return ScalarConverters();
}
}  // namespace corvi

#endif
