// The scaled float forward DCT of Arai, Agui and Nakajima with quantisation folded in.
#pragma once

#include <cstdint>

namespace corvi {

struct QuantTable;

// 1 / (8 × a(r) × a(c)) in natural order, a(0) = 1, a(k) = √2 cos(kπ/16).
extern const float AANScale[64];

// Transforms the block of level-shifted samples in place into quantised coefficients (floats),
// multiplying each by its entry of `reciprocal_table`.
void ForwardDCT(float* block, const QuantTable& reciprocal_table);

// Rounds the 64 coefficients of a block as RoundCoefficient does and stores them in zig-zag
// order. The vector form gives exactly what the plain form gives.
void RoundBlockZigzag(const float* block, int16_t* out);
void RoundBlockZigzagPlain(const float* block, int16_t* out);

}  // namespace corvi
