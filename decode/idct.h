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

// One block of 64 coefficients in natural order to 64 samples centred on zero, with the widest
// of the forms below that the processor runs.
void InverseDCT(const int16_t* coefficients, float* samples, const QuantTable& table);

// The forms, bit for bit equal: plain C++, four lanes (SSE2, where built) and eight lanes (AVX2;
// call it only where InverseDCTAvx2Built() and the processor has AVX2).
void InverseDCTScalar(const int16_t* coefficients, float* samples, const QuantTable& table);
void InverseDCTSse2(const int16_t* coefficients, float* samples, const QuantTable& table);
void InverseDCTAvx2(const int16_t* coefficients, float* samples, const QuantTable& table);
bool InverseDCTAvx2Built();

}  // namespace corvi
