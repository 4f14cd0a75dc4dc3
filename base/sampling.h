// The five sampling layouts that the decoder and the rewriter handle.
#pragma once

#include <cstdint>

namespace corvi {

// Y Cb Cr with chroma at full size or halved across, down or both, and grey. The names read rows
// by columns: "1x2" has two luma block columns, so luma factors 2x1.
enum class SamplingMode : int32_t { kNone = 0, k1x1 = 1, k1x2 = 2, k2x1 = 3, k2x2 = 4, kGray = 5 };

constexpr int32_t kSamplingModes = 5;

struct SamplingLayout {
  const char* name;       // as the compression mode prints it
  int32_t factors[3][2];  // h, v of component slots 1, 2, 3; -1, -1 for an absent slot
  int32_t mcu_width;      // pixels
  int32_t mcu_height;
  int32_t blocks_per_mcu;
};

// 0 to 4 for the five layouts, in the order above; a table index for each mode but kNone.
inline int32_t ModeIndex(SamplingMode mode) {
  return static_cast<int32_t>(mode) - 1;
}

// The layout of a mode other than kNone.
const SamplingLayout& LayoutOf(SamplingMode mode);

// The layout whose factors slots 1 to 3 have (h[i], v[i]; -1, -1 for an absent slot), with slot 0
// absent; kNone when there is none.
SamplingMode MatchSampling(const int32_t h[4], const int32_t v[4]);

}  // namespace corvi
