// Sample blocks of one MCU row to 16-bit RGBA pixels: level shift, colour matrix, widening.
#pragma once

#include <cstdint>

namespace corvi {

struct DecodeState;
struct RawLayer;

void YCbCrToPixel(float y, float cb, float cr, uint16_t* pixel);

// Each takes the float blocks of one MCU, the MCU's top left pixel and a row stride in pixels.
void ConvertMcu1x1(const float* blocks, uint16_t* pixels, uint32_t stride);
void ConvertMcu1x2(const float* blocks, uint16_t* pixels, uint32_t stride);
void ConvertMcu2x1(const float* blocks, uint16_t* pixels, uint32_t stride);
void ConvertMcu2x2(const float* blocks, uint16_t* pixels, uint32_t stride);
void ConvertMcuGray(const float* blocks, uint16_t* pixels, uint32_t stride);

// Converts MCU number `mcu` of the MCU row whose top line is `y` into `rows` (as above): the
// pixels that ConvertMcuRowInto gives for that MCU.
void ConvertOneMcu(const DecodeState& state, uint16_t* rows, uint32_t y, int32_t mcu,
                   const float* samples);

// The five converters of one form, by sampling mode 1 to 5 (1x1, 1x2, 2x1, 2x2, grey). The forms
// are bit for bit equal: plain C++, four lanes (SSE2, where built) and eight lanes (AVX2; use it
// only where ColourAvx2Built() and the processor has AVX2). The functions above and the row
// conversion use the widest form the processor runs.
using ConvertMcuFn = void (*)(const float* blocks, uint16_t* pixels, uint32_t stride);
struct McuConverters {
  ConvertMcuFn by_mode[5];
};
const McuConverters& ScalarConverters();
const McuConverters& Sse2Converters();
const McuConverters& Avx2Converters();
bool ColourAvx2Built();

// Converts one MCU row whose top line is `y`; partial MCUs at the edges go through scratch.
void ConvertMcuRow(const DecodeState& state, RawLayer& layer, uint32_t y, const float* samples);
// The same into `rows`, the first of the MCU row's lines, `state.width` pixels apart: the layer's
// pixels at line `y`, or a buffer of one MCU row.
void ConvertMcuRowInto(const DecodeState& state, uint16_t* rows, uint32_t y, const float* samples);

}  // namespace corvi
