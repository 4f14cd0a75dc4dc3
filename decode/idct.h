// Dequantisation and the inverse DCT (Arai, Agui and Nakajima), in single precision.
#pragma once

#include <cstdint>

namespace corvi {

struct QuantTable;

extern const float DctScale[64];
constexpr float c_sqrt2 = 1.4142135f;
constexpr float c_a = 1.847759f;
constexpr float c_b = 1.0823922f;
constexpr float c_c = 2.613126f;

// Folds the transform's output factors and the 1/8 into the table, once per stream.
void ScaleQuantTable(QuantTable& table);

// One block of 64 coefficients in natural order to 64 samples centred on zero.
void InverseDCT(const int16_t* coefficients, float* samples, const QuantTable& table);

}  // namespace corvi
