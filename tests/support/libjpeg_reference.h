// libjpeg-turbo as a reference decoder for the tests: float DCT, box upsampling, RGB out.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

struct Reference {
  bool ok = false;    // false when libjpeg is not built in or refused the file
  long warnings = 0;  // libjpeg's count of damaged-data warnings
  uint32_t width = 0, height = 0;
  std::vector<uint8_t> rgb;  // 3 bytes a pixel, row by row
};

// Whether the tests were built with libjpeg.
bool HaveLibjpeg();

// Decodes `file` with libjpeg; `out.ok` tells whether it could.
void DecodeWithLibjpeg(const Bytes& file, Reference& out);

// A picture for libjpeg to encode: gradients with texture, grey or YCbCr with luma factors h x v.
struct EncodeRequest {
  uint32_t width = 64;
  uint32_t height = 48;
  bool gray = false;
  int h = 2;
  int v = 2;
  bool progressive = false;
  unsigned restart_interval = 0;  // in MCUs
};

// The encoded file, or nothing without libjpeg.
Bytes EncodeWithLibjpeg(const EncodeRequest& request);

}  // namespace corvi::test
