// Sample blocks of one MCU row to 16-bit RGBA pixels: level shift, colour matrix, widening.
#include "decode/color.h"

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "base/raw_layer.h"
#include "decode/color_forms.h"
#include "decode/decode_state.h"

namespace corvi {
namespace {

// Truncates towards zero and clamps to 0..65535, clamping in float first so that no conversion
// is ever out of range. NaN gives 0. For every value that fits an int32 the result equals
// "truncate, then clamp": values in (-1, 0) truncate to 0 either way.
inline uint16_t ToChannel(float v) {
  v = v > 0.0f ? v : 0.0f;
  v = v < 65535.0f ? v : 65535.0f;
  return static_cast<uint16_t>(static_cast<int32_t>(v));
}

// 257 widens 8 bits to 16 (255 -> 65535); 32896.5 is 128 × 257 plus 0.5 to round on truncation.
inline void Pixel(float y, float cb, float cr, uint16_t* pixel) {
  const float t = y * 257.0f;
  const float red = (cr * 362.2283f + t) + 32896.5f;
  const float blue = (cb * 457.3386f + t) + 32896.5f;
  const float green = ((t - cb * 87.57424f) - cr * 183.4464f) + 32896.5f;
  pixel[0] = ToChannel(red);
  pixel[1] = ToChannel(green);
  pixel[2] = ToChannel(blue);
  pixel[3] = 65535;
}

// The plain form, and the form every other one must equal.
template <int kChromaShift>
inline void ScalarRow8(const float* luma, const float* cb, const float* cr, uint16_t* out) {
  for (int x = 0; x < 8; ++x) {
    Pixel(luma[x], cb[x >> kChromaShift], cr[x >> kChromaShift], out + 4 * x);
  }
}

inline void ScalarGrayRow8(const float* luma, uint16_t* out) {
  for (int x = 0; x < 8; ++x) {
    const uint16_t v = ToChannel(luma[x] * 257.0f + 32896.5f);
    out[4 * x + 0] = v;
    out[4 * x + 1] = v;
    out[4 * x + 2] = v;
    out[4 * x + 3] = 65535;
  }
}

struct ScalarForm {
  template <int kChromaShift>
  static void Row8(const float* luma, const float* cb, const float* cr, uint16_t* out) {
    ScalarRow8<kChromaShift>(luma, cb, cr, out);
  }
  static void GrayRow8(const float* luma, uint16_t* out) { ScalarGrayRow8(luma, out); }
};

#if defined(__SSE2__)
// Four lanes of Pixel: the same operations in the same order, the clamps as MAXPS and MINPS,
// whose choice of the second operand for NaN matches `v > 0 ? v : 0` and `v < max ? v : max`.
inline __m128i Channels4(__m128 v) {
  v = _mm_max_ps(v, _mm_setzero_ps());
  v = _mm_min_ps(v, _mm_set1_ps(65535.0f));
  return _mm_cvttps_epi32(v);
}

// 32-bit lanes 0..65535 of `low` and `high` to eight unsigned 16-bit lanes (SSE2 has only the
// signed saturating pack, so the values are moved down by 32768 and back).
inline __m128i Pack8(__m128i low, __m128i high) {
  const __m128i bias32 = _mm_set1_epi32(32768);
  const __m128i packed = _mm_packs_epi32(_mm_sub_epi32(low, bias32), _mm_sub_epi32(high, bias32));
  return _mm_xor_si128(packed, _mm_set1_epi16(static_cast<int16_t>(0x8000)));
}

// Interleaves eight pixels of red, green, blue and opaque alpha into 64 bytes at `out`.
inline void Store8(__m128i red, __m128i green, __m128i blue, uint16_t* out) {
  const __m128i alpha = _mm_set1_epi16(-1);
  const __m128i rg_low = _mm_unpacklo_epi16(red, green);
  const __m128i rg_high = _mm_unpackhi_epi16(red, green);
  const __m128i ba_low = _mm_unpacklo_epi16(blue, alpha);
  const __m128i ba_high = _mm_unpackhi_epi16(blue, alpha);
  __m128i* p = reinterpret_cast<__m128i*>(out);
  _mm_storeu_si128(p + 0, _mm_unpacklo_epi32(rg_low, ba_low));
  _mm_storeu_si128(p + 1, _mm_unpackhi_epi32(rg_low, ba_low));
  _mm_storeu_si128(p + 2, _mm_unpacklo_epi32(rg_high, ba_high));
  _mm_storeu_si128(p + 3, _mm_unpackhi_epi32(rg_high, ba_high));
}

struct Channels {
  __m128i red, green, blue;
};

inline Channels Pixels4(__m128 y, __m128 cb, __m128 cr) {
  const __m128 t = _mm_mul_ps(y, _mm_set1_ps(257.0f));
  const __m128 offset = _mm_set1_ps(32896.5f);
  const __m128 red = _mm_add_ps(_mm_add_ps(_mm_mul_ps(cr, _mm_set1_ps(362.2283f)), t), offset);
  const __m128 blue = _mm_add_ps(_mm_add_ps(_mm_mul_ps(cb, _mm_set1_ps(457.3386f)), t), offset);
  const __m128 green = _mm_add_ps(_mm_sub_ps(_mm_sub_ps(t, _mm_mul_ps(cb, _mm_set1_ps(87.57424f))),
                                             _mm_mul_ps(cr, _mm_set1_ps(183.4464f))),
                                  offset);
  return {Channels4(red), Channels4(green), Channels4(blue)};
}

// Eight pixels of one row. kChromaShift 0: a chroma sample per pixel; 1: one per two pixels.
template <int kChromaShift>
inline void Sse2Row8(const float* luma, const float* cb, const float* cr, uint16_t* out) {
  __m128 cb_low, cb_high, cr_low, cr_high;
  if (kChromaShift == 0) {
    cb_low = _mm_loadu_ps(cb);
    cb_high = _mm_loadu_ps(cb + 4);
    cr_low = _mm_loadu_ps(cr);
    cr_high = _mm_loadu_ps(cr + 4);
  } else {
    const __m128 cb4 = _mm_loadu_ps(cb);
    const __m128 cr4 = _mm_loadu_ps(cr);
    cb_low = _mm_unpacklo_ps(cb4, cb4);
    cb_high = _mm_unpackhi_ps(cb4, cb4);
    cr_low = _mm_unpacklo_ps(cr4, cr4);
    cr_high = _mm_unpackhi_ps(cr4, cr4);
  }
  const Channels low = Pixels4(_mm_loadu_ps(luma), cb_low, cr_low);
  const Channels high = Pixels4(_mm_loadu_ps(luma + 4), cb_high, cr_high);
  Store8(Pack8(low.red, high.red), Pack8(low.green, high.green), Pack8(low.blue, high.blue), out);
}

// Eight grey pixels of one row.
inline void Sse2GrayRow8(const float* luma, uint16_t* out) {
  const __m128 scale = _mm_set1_ps(257.0f);
  const __m128 offset = _mm_set1_ps(32896.5f);
  const __m128i low = Channels4(_mm_add_ps(_mm_mul_ps(_mm_loadu_ps(luma), scale), offset));
  const __m128i high = Channels4(_mm_add_ps(_mm_mul_ps(_mm_loadu_ps(luma + 4), scale), offset));
  const __m128i v = Pack8(low, high);
  Store8(v, v, v, out);
}

struct Sse2Form {
  template <int kChromaShift>
  static void Row8(const float* luma, const float* cb, const float* cr, uint16_t* out) {
    Sse2Row8<kChromaShift>(luma, cb, cr, out);
  }
  static void GrayRow8(const float* luma, uint16_t* out) { Sse2GrayRow8(luma, out); }
};
#endif

constexpr McuConverters kScalarConverters = ConvertersOf<ScalarForm>();
#if defined(__SSE2__)
constexpr McuConverters kSse2Converters = ConvertersOf<Sse2Form>();
#endif

// The widest form this processor runs; all give the same pixels.
const McuConverters& ChooseConverters() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_cpu_init();  // this runs among the static initialisers
  if (ColourAvx2Built() && __builtin_cpu_supports("avx2")) {
    return Avx2Converters();
  }
#endif
#if defined(__SSE2__)
  return kSse2Converters;
#else
  return kScalarConverters;
#endif
}

const McuConverters& kConverters = ChooseConverters();

}  // namespace

void YCbCrToPixel(float y, float cb, float cr, uint16_t* pixel) {
  Pixel(y, cb, cr, pixel);
}

const McuConverters& ScalarConverters() {
  return kScalarConverters;
}

#if defined(__SSE2__)
const McuConverters& Sse2Converters() {
  return kSse2Converters;
}
#endif

void ConvertMcu1x1(const float* blocks, uint16_t* pixels, uint32_t stride) {
  kConverters.by_mode[0](blocks, pixels, stride);
}
void ConvertMcu1x2(const float* blocks, uint16_t* pixels, uint32_t stride) {
  kConverters.by_mode[1](blocks, pixels, stride);
}
void ConvertMcu2x1(const float* blocks, uint16_t* pixels, uint32_t stride) {
  kConverters.by_mode[2](blocks, pixels, stride);
}
void ConvertMcu2x2(const float* blocks, uint16_t* pixels, uint32_t stride) {
  kConverters.by_mode[3](blocks, pixels, stride);
}
void ConvertMcuGray(const float* blocks, uint16_t* pixels, uint32_t stride) {
  kConverters.by_mode[4](blocks, pixels, stride);
}

void ConvertMcuRow(const DecodeState& state, RawLayer& layer, uint32_t y, const float* samples) {
  if (layer.pixels == nullptr || y >= state.height) {
    return;
  }
  ConvertMcuRowInto(state, layer.pixels + uint64_t{y} * state.width * 4, y, samples);
}

void ConvertMcuRowInto(const DecodeState& state, uint16_t* rows, uint32_t y, const float* samples) {
  if (state.sampling_mode == SamplingMode::kNone) {
    return;
  }
  const ConvertMcuFn convert = kConverters.by_mode[ModeIndex(state.sampling_mode)];
  const uint32_t width = state.width;
  const uint32_t height = state.height;
  const uint32_t mcu_width = static_cast<uint32_t>(state.mcu_width);
  const uint32_t mcu_height = static_cast<uint32_t>(state.mcu_height);
  const size_t block_step = static_cast<size_t>(state.blocks_per_mcu) * 64;
  if (y >= height || rows == nullptr) {
    return;
  }
  const bool full_rows = uint64_t{y} + mcu_height <= height;

  // Partial MCUs are converted whole into scratch (stride 32) and only their image part copied.
  uint16_t scratch[32 * 32 * 4];
  uint16_t* dest = rows;
  const float* block = samples;
  uint32_t x = 0;
  for (int32_t i = 0; i < state.mcus_across && x < width; ++i, block += block_step) {
    if (full_rows && uint64_t{x} + mcu_width <= width) {
      convert(block, dest, width);
      x += mcu_width;
      dest += static_cast<size_t>(mcu_width) * 4;
      continue;
    }
    convert(block, scratch, 32);
    const uint32_t n = mcu_width < width - x ? mcu_width : width - x;
    for (uint32_t r = 0; r < mcu_height && uint64_t{y} + r < height; ++r) {
      const uint16_t* from = scratch + static_cast<size_t>(r) * 32 * 4;
      uint16_t* to = dest + static_cast<size_t>(r) * width * 4;
      for (uint32_t k = 0; k < n * 4; ++k) {
        to[k] = from[k];
      }
    }
    x += n;
    dest += static_cast<size_t>(n) * 4;
  }
}

void ConvertOneMcu(const DecodeState& state, uint16_t* rows, uint32_t y, int32_t mcu,
                   const float* samples) {
  if (state.sampling_mode == SamplingMode::kNone || rows == nullptr) {
    return;
  }
  const uint32_t width = state.width;
  const uint32_t height = state.height;
  const uint32_t mcu_width = static_cast<uint32_t>(state.mcu_width);
  const uint32_t mcu_height = static_cast<uint32_t>(state.mcu_height);
  const uint64_t x = uint64_t{static_cast<uint32_t>(mcu)} * mcu_width;
  if (y >= height || x >= width) {
    return;
  }
  const ConvertMcuFn convert = kConverters.by_mode[ModeIndex(state.sampling_mode)];
  uint16_t* dest = rows + x * 4;
  if (uint64_t{y} + mcu_height <= height && x + mcu_width <= width) {
    convert(samples, dest, width);
    return;
  }
  // A partial MCU is converted whole into scratch (stride 32) and only its image part copied.
  uint16_t scratch[32 * 32 * 4];
  convert(samples, scratch, 32);
  const auto n = static_cast<uint32_t>(mcu_width < width - x ? mcu_width : width - x);
  for (uint32_t r = 0; r < mcu_height && uint64_t{y} + r < height; ++r) {
    const uint16_t* from = scratch + static_cast<size_t>(r) * 32 * 4;
    uint16_t* to = dest + static_cast<size_t>(r) * width * 4;
    for (uint32_t k = 0; k < n * 4; ++k) {
      to[k] = from[k];
    }
  }
}

}  // namespace corvi
