// Sample blocks of one MCU row to 16-bit RGBA pixels: level shift, colour matrix, widening.
#include "decode/color.h"

#include <cstddef>
#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "base/raw_layer.h"
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
inline void Row8(const float* luma, const float* cb, const float* cr, uint16_t* out) {
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
inline void GrayRow8(const float* luma, uint16_t* out) {
  const __m128 scale = _mm_set1_ps(257.0f);
  const __m128 offset = _mm_set1_ps(32896.5f);
  const __m128i low = Channels4(_mm_add_ps(_mm_mul_ps(_mm_loadu_ps(luma), scale), offset));
  const __m128i high = Channels4(_mm_add_ps(_mm_mul_ps(_mm_loadu_ps(luma + 4), scale), offset));
  const __m128i v = Pack8(low, high);
  Store8(v, v, v, out);
}
#else
template <int kChromaShift>
inline void Row8(const float* luma, const float* cb, const float* cr, uint16_t* out) {
  for (int x = 0; x < 8; ++x) {
    Pixel(luma[x], cb[x >> kChromaShift], cr[x >> kChromaShift], out + 4 * x);
  }
}

inline void GrayRow8(const float* luma, uint16_t* out) {
  for (int x = 0; x < 8; ++x) {
    const uint16_t v = ToChannel(luma[x] * 257.0f + 32896.5f);
    out[4 * x + 0] = v;
    out[4 * x + 1] = v;
    out[4 * x + 2] = v;
    out[4 * x + 3] = 65535;
  }
}
#endif

inline uint16_t* RowAt(uint16_t* pixels, int row, uint32_t stride) {
  return pixels + static_cast<size_t>(row) * stride * 4;
}

using ConvertMcu = void (*)(const float*, uint16_t*, uint32_t);

}  // namespace

void YCbCrToPixel(float y, float cb, float cr, uint16_t* pixel) {
  Pixel(y, cb, cr, pixel);
}

// Blocks Y, Cb, Cr; 8 by 8 pixels.
void ConvertMcu1x1(const float* blocks, uint16_t* pixels, uint32_t stride) {
  const float* cb = blocks + 64;
  const float* cr = blocks + 128;
  for (int r = 0; r < 8; ++r) {
    Row8<0>(blocks + 8 * r, cb + 8 * r, cr + 8 * r, RowAt(pixels, r, stride));
  }
}

// Blocks Y0, Y1, Cb, Cr; 16 across, 8 down, a chroma sample per two pixels of a row.
void ConvertMcu1x2(const float* blocks, uint16_t* pixels, uint32_t stride) {
  const float* cb = blocks + 128;
  const float* cr = blocks + 192;
  for (int r = 0; r < 8; ++r) {
    uint16_t* out = RowAt(pixels, r, stride);
    Row8<1>(blocks + 8 * r, cb + 8 * r, cr + 8 * r, out);
    Row8<1>(blocks + 64 + 8 * r, cb + 8 * r + 4, cr + 8 * r + 4, out + 32);
  }
}

// Blocks Y0 (top), Y1 (bottom), Cb, Cr; 8 across, 16 down, a chroma row per two pixel rows.
void ConvertMcu2x1(const float* blocks, uint16_t* pixels, uint32_t stride) {
  const float* cb = blocks + 128;
  const float* cr = blocks + 192;
  for (int r = 0; r < 16; ++r) {
    const float* luma = blocks + 64 * (r >> 3) + 8 * (r & 7);
    Row8<0>(luma, cb + 8 * (r >> 1), cr + 8 * (r >> 1), RowAt(pixels, r, stride));
  }
}

// Blocks Y0 Y1 (top), Y2 Y3 (bottom), Cb, Cr; 16 by 16, a chroma sample per square of four.
void ConvertMcu2x2(const float* blocks, uint16_t* pixels, uint32_t stride) {
  const float* cb = blocks + 256;
  const float* cr = blocks + 320;
  for (int r = 0; r < 16; ++r) {
    const float* luma = blocks + 128 * (r >> 3) + 8 * (r & 7);
    const float* cb_row = cb + 8 * (r >> 1);
    const float* cr_row = cr + 8 * (r >> 1);
    uint16_t* out = RowAt(pixels, r, stride);
    Row8<1>(luma, cb_row, cr_row, out);
    Row8<1>(luma + 64, cb_row + 4, cr_row + 4, out + 32);
  }
}

// One block Y; grey pixels without the colour matrix.
void ConvertMcuGray(const float* blocks, uint16_t* pixels, uint32_t stride) {
  for (int r = 0; r < 8; ++r) {
    GrayRow8(blocks + 8 * r, RowAt(pixels, r, stride));
  }
}

void ConvertMcuRow(const DecodeState& state, RawLayer& layer, uint32_t y, const float* samples) {
  if (layer.pixels == nullptr || y >= state.height) {
    return;
  }
  ConvertMcuRowInto(state, layer.pixels + uint64_t{y} * state.width * 4, y, samples);
}

void ConvertMcuRowInto(const DecodeState& state, uint16_t* rows, uint32_t y,
                       const float* samples) {
  ConvertMcu convert = nullptr;
  switch (state.sampling_mode) {
    case 1:
      convert = ConvertMcu1x1;
      break;
    case 2:
      convert = ConvertMcu1x2;
      break;
    case 3:
      convert = ConvertMcu2x1;
      break;
    case 4:
      convert = ConvertMcu2x2;
      break;
    case 5:
      convert = ConvertMcuGray;
      break;
    default:
      return;
  }
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

}  // namespace corvi
