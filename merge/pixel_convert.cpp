// Pixels to level-shifted 8 by 8 sample blocks: compositing over the background, RGB to YCbCr,
// chroma downsampling and replication at the right and bottom edges.
#include "merge/pixel_convert.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#include <xmmintrin.h>
#endif

#include "base/raw_layer.h"
#include "merge/merge.h"

namespace corvi {
namespace {

// Weights out of 255, divided by the channels' full scale of 65535.
constexpr float kYR = 0.0011596857f;
constexpr float kYG = 0.0022888533f;
constexpr float kYB = 0.00044251163f;
constexpr float kCbR = -0.00065613794f;
constexpr float kCbG = -0.0012817578f;
constexpr float kCbB = 0.0019378958f;
constexpr float kCrR = 0.0019378958f;
constexpr float kCrG = -0.0016327153f;
constexpr float kCrB = -0.00030518044f;

inline float Clamp(float v) {
  return v < -128.0f ? -128.0f : (v > 127.0f ? 127.0f : v);
}

// Scratch for MCUs that cross the right or bottom edge: 32 pixels a row.
constexpr int32_t kScratchStride = 32;

using ConvertMcu = void (*)(float*, const uint16_t*, int32_t, const Background&);

// Converts the pixels of one MCU, `width` across and `height` down, into the three planes: four
// opaque pixels at a time where the vector form exists, the others one by one.
template <int32_t kWidth, int32_t kHeight>
void ToPlanes(const uint16_t* pixels, int32_t stride, const Background& background,
              float (&y)[kHeight][kWidth], float (&cb)[kHeight][kWidth],
              float (&cr)[kHeight][kWidth]) {
  for (int32_t r = 0; r < kHeight; ++r) {
    const uint16_t* row = pixels + static_cast<int64_t>(r) * stride * 4;
    for (int32_t c = 0; c < kWidth; c += 4) {
      if (!OpaqueQuadToYCbCr(row + c * 4, &y[r][c], &cb[r][c], &cr[r][c])) {
        for (int32_t i = c; i < c + 4; ++i) {
          const YCbCr v = PixelToYCbCr(row + i * 4, background);
          y[r][i] = v.y;
          cb[r][i] = v.cb;
          cr[r][i] = v.cr;
        }
      }
    }
  }
}

// Copies an 8 by 8 quadrant of a plane into a block.
template <int32_t kWidth, int32_t kHeight>
void CopyBlock(const float (&plane)[kHeight][kWidth], int32_t top, int32_t left, float* block) {
  for (int32_t r = 0; r < 8; ++r) {
    std::memcpy(block + r * 8, &plane[top + r][left], 8 * sizeof(float));
  }
}

}  // namespace

bool OpaqueQuadToYCbCr(const uint16_t* pixels, float* y, float* cb, float* cr) {
#if defined(__SSE2__)
  const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels));
  const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixels + 8));
  // All four alphas 65535: every 16-bit lane of the alpha positions all ones.
  const __m128i ones = _mm_cmpeq_epi16(_mm_and_si128(low, high), _mm_set1_epi16(-1));
  if ((_mm_movemask_epi8(ones) & 0xC0C0) != 0xC0C0) {
    return false;
  }
  // Widen to 32 bits and to float (exact below 2^24), then transpose to channel vectors.
  const __m128i zero = _mm_setzero_si128();
  __m128 p0 = _mm_cvtepi32_ps(_mm_unpacklo_epi16(low, zero));
  __m128 p1 = _mm_cvtepi32_ps(_mm_unpackhi_epi16(low, zero));
  __m128 p2 = _mm_cvtepi32_ps(_mm_unpacklo_epi16(high, zero));
  __m128 p3 = _mm_cvtepi32_ps(_mm_unpackhi_epi16(high, zero));
  _MM_TRANSPOSE4_PS(p0, p1, p2, p3);
  const __m128 r = p0;
  const __m128 g = p1;
  const __m128 b = p2;
  // The same operations in the same order as PixelToYCbCr, lane by lane.
  const __m128 lowest = _mm_set1_ps(-128.0f);
  const __m128 highest = _mm_set1_ps(127.0f);
  auto clamp = [&](__m128 v) { return _mm_min_ps(_mm_max_ps(v, lowest), highest); };
  auto weigh = [&](float wr, float wg, float wb) {
    return _mm_add_ps(_mm_add_ps(_mm_mul_ps(r, _mm_set1_ps(wr)), _mm_mul_ps(g, _mm_set1_ps(wg))),
                      _mm_mul_ps(b, _mm_set1_ps(wb)));
  };
  _mm_storeu_ps(y, clamp(_mm_sub_ps(weigh(kYR, kYG, kYB), _mm_set1_ps(128.0f))));
  _mm_storeu_ps(cb, clamp(weigh(kCbR, kCbG, kCbB)));
  _mm_storeu_ps(cr, clamp(weigh(kCrR, kCrG, kCrB)));
  return true;
#else
  (void)pixels;
  (void)y;
  (void)cb;
  (void)cr;
  return false;
#endif
}

YCbCr PixelToYCbCr(const uint16_t* pixel, const Background& background) {
  const uint32_t a = pixel[3];
  uint32_t r;
  uint32_t g;
  uint32_t b;
  if (a == 65535) {
    r = pixel[0];
    g = pixel[1];
    b = pixel[2];
  } else if (a == 0) {
    r = background.red;
    g = background.green;
    b = background.blue;
  } else {
    const uint32_t inverse = 65535 - a;
    r = (background.red * inverse + pixel[0] * a) / 65535;
    g = (background.green * inverse + pixel[1] * a) / 65535;
    b = (background.blue * inverse + pixel[2] * a) / 65535;
  }
  const auto fr = static_cast<float>(r);
  const auto fg = static_cast<float>(g);
  const auto fb = static_cast<float>(b);
  YCbCr out;
  out.y = Clamp(((fr * kYR + fg * kYG) + fb * kYB) - 128.0f);
  out.cb = Clamp((fr * kCbR + fg * kCbG) + fb * kCbB);
  out.cr = Clamp((fr * kCrR + fg * kCrG) + fb * kCrB);
  return out;
}

float PixelToGray(const uint16_t* pixel, const Background& background) {
  const uint32_t a = pixel[3];
  uint32_t g;
  if (a == 65535) {
    g = (uint32_t{pixel[0]} + pixel[1] + pixel[2]) / 3;
  } else {
    const uint32_t back = (uint32_t{background.red} + background.green + background.blue) / 3;
    if (a == 0) {
      g = back;
    } else {
      const uint32_t own = (uint32_t{pixel[0]} + pixel[1] + pixel[2]) / 3;
      g = (back * (65535 - a) + own * a) / 65535;
    }
  }
  return Clamp(static_cast<float>(g) * 0.0038910506f - 128.0f);
}

void ConvertMCU1(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background) {
  float y[8][8];
  float cb[8][8];
  float cr[8][8];
  ToPlanes<8, 8>(pixels, stride, background, y, cb, cr);
  std::memcpy(blocks, y, sizeof y);
  std::memcpy(blocks + 64, cb, sizeof cb);
  std::memcpy(blocks + 128, cr, sizeof cr);
}

void ConvertMCU2(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background) {
  float y[8][16];
  float cb[8][16];
  float cr[8][16];
  ToPlanes<16, 8>(pixels, stride, background, y, cb, cr);
  CopyBlock<16, 8>(y, 0, 0, blocks);
  CopyBlock<16, 8>(y, 0, 8, blocks + 64);
  for (int32_t r = 0; r < 8; ++r) {
    for (int32_t k = 0; k < 8; ++k) {
      blocks[128 + r * 8 + k] = (cb[r][2 * k] + cb[r][2 * k + 1]) * 0.5f;
      blocks[192 + r * 8 + k] = (cr[r][2 * k] + cr[r][2 * k + 1]) * 0.5f;
    }
  }
}

void ConvertMCU3(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background) {
  float y[16][8];
  float cb[16][8];
  float cr[16][8];
  ToPlanes<8, 16>(pixels, stride, background, y, cb, cr);
  CopyBlock<8, 16>(y, 0, 0, blocks);
  CopyBlock<8, 16>(y, 8, 0, blocks + 64);
  for (int32_t k = 0; k < 8; ++k) {
    for (int32_t c = 0; c < 8; ++c) {
      blocks[128 + k * 8 + c] = (cb[2 * k][c] + cb[2 * k + 1][c]) * 0.5f;
      blocks[192 + k * 8 + c] = (cr[2 * k][c] + cr[2 * k + 1][c]) * 0.5f;
    }
  }
}

void ConvertMCU4(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background) {
  float y[16][16];
  float cb[16][16];
  float cr[16][16];
  ToPlanes<16, 16>(pixels, stride, background, y, cb, cr);
  CopyBlock<16, 16>(y, 0, 0, blocks);
  CopyBlock<16, 16>(y, 0, 8, blocks + 64);
  CopyBlock<16, 16>(y, 8, 0, blocks + 128);
  CopyBlock<16, 16>(y, 8, 8, blocks + 192);
  for (int32_t k = 0; k < 8; ++k) {
    for (int32_t m = 0; m < 8; ++m) {
      const int32_t top = 2 * k;
      const int32_t bottom = 2 * k + 1;
      const int32_t left = 2 * m;
      const int32_t right = 2 * m + 1;
      // Lower left, upper left, upper right, lower right.
      blocks[256 + k * 8 + m] =
          (((cb[bottom][left] + cb[top][left]) + cb[top][right]) + cb[bottom][right]) * 0.25f;
      blocks[320 + k * 8 + m] =
          (((cr[bottom][left] + cr[top][left]) + cr[top][right]) + cr[bottom][right]) * 0.25f;
    }
  }
}

void ConvertMCU5(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background) {
  for (int32_t r = 0; r < 8; ++r) {
    const uint16_t* row = pixels + static_cast<int64_t>(r) * stride * 4;
    for (int32_t c = 0; c < 8; ++c) {
      blocks[r * 8 + c] = PixelToGray(row + c * 4, background);
    }
  }
}

void ConvertPixelRow(const MergeState& state, const RawLayer& layer, int32_t row, float* blocks,
                     const Background& background) {
  static constexpr ConvertMcu kConverters[5] = {ConvertMCU1, ConvertMCU2, ConvertMCU3, ConvertMCU4,
                                                ConvertMCU5};
  const ConvertMcu convert = kConverters[ModeIndex(state.sampling_mode)];
  const auto width = static_cast<int64_t>(layer.width);
  const auto height = static_cast<int64_t>(layer.height);
  const int32_t stride = static_cast<int32_t>(layer.width);
  uint16_t scratch[kScratchStride * kScratchStride * 4];
  float* out = blocks;
  const size_t mcu_floats = static_cast<size_t>(state.blocks_per_mcu) * 64;
  const int64_t y = int64_t{row} * state.mcu_height;
  int64_t x = 0;
  for (int32_t column = 0; column < state.mcus_across; ++column) {
    if (x + state.mcu_width <= width && y + state.mcu_height <= height) {
      convert(out, layer.pixels + (y * width + x) * 4, stride, background);
    } else {
      // The last real column and row repeat; the corner pixel fills the corner.
      for (int32_t r = 0; r < state.mcu_height; ++r) {
        const int64_t source_row = y + (r < height - y - 1 ? r : height - y - 1);
        for (int32_t c = 0; c < state.mcu_width; ++c) {
          const int64_t source_column = x + (c < width - x - 1 ? c : width - x - 1);
          std::memcpy(scratch + (r * kScratchStride + c) * 4,
                      layer.pixels + (source_row * width + source_column) * 4,
                      4 * sizeof(uint16_t));
        }
      }
      convert(out, scratch, kScratchStride, background);
    }
    out += mcu_floats;
    x += state.mcu_width;
  }
}

void ConvertPixels(const MergeState& state, const RawLayer& layer, float* blocks,
                   const Background& background) {
  const size_t row_floats =
      static_cast<size_t>(state.mcus_across) * static_cast<size_t>(state.blocks_per_mcu) * 64;
  for (int32_t row = 0; row < state.mcus_down; ++row) {
    ConvertPixelRow(state, layer, row, blocks + row * row_floats, background);
  }
}

}  // namespace corvi
