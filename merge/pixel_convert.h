// Pixels to level-shifted 8 by 8 sample blocks: compositing over the background, RGB to YCbCr,
// chroma downsampling and replication at the right and bottom edges.
#pragma once

#include <cstdint>

namespace corvi {

struct Background;
struct MergeState;
struct RawLayer;

// Fills the coefficient store (`blocks`, MCU after MCU) from a layer of the frame's size.
void ConvertPixels(const MergeState& state, const RawLayer& layer, float* blocks,
                   const Background& background);
// The same for one row of MCUs: `blocks` takes `mcus_across` MCUs.
void ConvertPixelRow(const MergeState& state, const RawLayer& layer, int32_t row, float* blocks,
                     const Background& background);

struct YCbCr {
  float y, cb, cr;
};
YCbCr PixelToYCbCr(const uint16_t* pixel, const Background& background);
float PixelToGray(const uint16_t* pixel, const Background& background);

// Four pixels at once when all four are opaque, with exactly the results of PixelToYCbCr; false,
// and nothing written, when one is not or the machine has no vector form.
bool OpaqueQuadToYCbCr(const uint16_t* pixels, float* y, float* cb, float* cr);

// One MCU of each sampling mode from the pixel at its top left corner; `stride` in pixels.
void ConvertMCU1(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background);
void ConvertMCU2(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background);
void ConvertMCU3(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background);
void ConvertMCU4(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background);
void ConvertMCU5(float* blocks, const uint16_t* pixels, int32_t stride,
                 const Background& background);

}  // namespace corvi
