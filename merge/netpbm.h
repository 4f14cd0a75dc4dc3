// Reading netpbm images (PGM, PPM, PAM) into a pixel layer for the rewriter.
#pragma once

#include <cstdint>

namespace corvi {

struct RawLayer;

// True when the bytes start like a netpbm file: "P" and a format digit 1 to 7. Formats that
// ReadNetpbm refuses (P1 to P4) are recognised too, so that they get a message of their own.
bool IsNetpbm(const uint8_t* data, uint32_t length);

// Reads the first image of a binary PGM (P5), PPM (P6) or PAM (P7: GRAYSCALE, GRAYSCALE_ALPHA,
// RGB, RGB_ALPHA) into `layer`: its width, height and 16-bit RGBA pixels. Samples are scaled from
// MAXVAL to 65535 with rounding; grey becomes red = green = blue, and a missing alpha channel is
// opaque. Bytes behind the first image are ignored. Throws RawLayerException naming the problem.
void ReadNetpbm(const uint8_t* data, uint32_t length, RawLayer& layer);

// A sample of 0 to `maxval` as 16 bits: floor((s × 65535 + floor(maxval / 2)) / maxval).
uint16_t ScaleNetpbmSample(uint32_t sample, uint32_t maxval);

}  // namespace corvi
