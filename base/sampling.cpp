// The five sampling layouts that the decoder and the rewriter handle.
#include "base/sampling.h"

namespace corvi {
namespace {

constexpr SamplingLayout kLayouts[kSamplingModes] = {
    {"1x1", {{1, 1}, {1, 1}, {1, 1}}, 8, 8, 3},      {"1x2", {{2, 1}, {1, 1}, {1, 1}}, 16, 8, 4},
    {"2x1", {{1, 2}, {1, 1}, {1, 1}}, 8, 16, 4},     {"2x2", {{2, 2}, {1, 1}, {1, 1}}, 16, 16, 6},
    {"gray", {{1, 1}, {-1, -1}, {-1, -1}}, 8, 8, 1},
};

}  // namespace

const SamplingLayout& LayoutOf(SamplingMode mode) {
  return kLayouts[ModeIndex(mode)];
}

SamplingMode MatchSampling(const int32_t h[4], const int32_t v[4]) {
  if (h[0] != -1 || v[0] != -1) {
    return SamplingMode::kNone;
  }
  for (int32_t i = 0; i < kSamplingModes; ++i) {
    bool same = true;
    for (int32_t slot = 1; slot <= 3; ++slot) {
      same = same && h[slot] == kLayouts[i].factors[slot - 1][0] &&
             v[slot] == kLayouts[i].factors[slot - 1][1];
    }
    if (same) {
      return static_cast<SamplingMode>(i + 1);
    }
  }
  return SamplingMode::kNone;
}

}  // namespace corvi
