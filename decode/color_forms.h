// The MCU layouts of the colour conversion, written once over a form that converts eight pixels
// of a row: the plain, SSE2 and AVX2 forms share them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "decode/color.h"

namespace corvi {

inline uint16_t* RowAt(uint16_t* pixels, int row, uint32_t stride) {
  return pixels + static_cast<size_t>(row) * stride * 4;
}

// Blocks Y, Cb, Cr; 8 by 8 pixels.
template <class Form>
void Mcu1x1(const float* blocks, uint16_t* pixels, uint32_t stride) {
  const float* cb = blocks + 64;
  const float* cr = blocks + 128;
  for (int r = 0; r < 8; ++r) {
    Form::template Row8<0>(blocks + 8 * r, cb + 8 * r, cr + 8 * r, RowAt(pixels, r, stride));
  }
}

// Blocks Y0, Y1, Cb, Cr; 16 across, 8 down, a chroma sample per two pixels of a row.
template <class Form>
void Mcu1x2(const float* blocks, uint16_t* pixels, uint32_t stride) {
  const float* cb = blocks + 128;
  const float* cr = blocks + 192;
  for (int r = 0; r < 8; ++r) {
    uint16_t* out = RowAt(pixels, r, stride);
    Form::template Row8<1>(blocks + 8 * r, cb + 8 * r, cr + 8 * r, out);
    Form::template Row8<1>(blocks + 64 + 8 * r, cb + 8 * r + 4, cr + 8 * r + 4, out + 32);
  }
}

// Blocks Y0 (top), Y1 (bottom), Cb, Cr; 8 across, 16 down, a chroma row per two pixel rows.
template <class Form>
void Mcu2x1(const float* blocks, uint16_t* pixels, uint32_t stride) {
  const float* cb = blocks + 128;
  const float* cr = blocks + 192;
  for (int r = 0; r < 16; ++r) {
    const float* luma = blocks + 64 * (r >> 3) + 8 * (r & 7);
    Form::template Row8<0>(luma, cb + 8 * (r >> 1), cr + 8 * (r >> 1), RowAt(pixels, r, stride));
  }
}

// Blocks Y0 Y1 (top), Y2 Y3 (bottom), Cb, Cr; 16 by 16, a chroma sample per square of four.
template <class Form>
void Mcu2x2(const float* blocks, uint16_t* pixels, uint32_t stride) {
  const float* cb = blocks + 256;
  const float* cr = blocks + 320;
  for (int r = 0; r < 16; ++r) {
    const float* luma = blocks + 128 * (r >> 3) + 8 * (r & 7);
    const float* cb_row = cb + 8 * (r >> 1);
    const float* cr_row = cr + 8 * (r >> 1);
    uint16_t* out = RowAt(pixels, r, stride);
    Form::template Row8<1>(luma, cb_row, cr_row, out);
    Form::template Row8<1>(luma + 64, cb_row + 4, cr_row + 4, out + 32);
  }
}

// One block Y; grey pixels without the colour matrix.
template <class Form>
void McuGray(const float* blocks, uint16_t* pixels, uint32_t stride) {
  for (int r = 0; r < 8; ++r) {
    Form::GrayRow8(blocks + 8 * r, RowAt(pixels, r, stride));
  }
}

template <class Form>
constexpr McuConverters ConvertersOf() {
  return McuConverters{
      {&Mcu1x1<Form>, &Mcu1x2<Form>, &Mcu2x1<Form>, &Mcu2x2<Form>, &McuGray<Form>}};
}

}  // namespace corvi
