// libjpeg-turbo as a peer for the tests: a decoder (float DCT, box upsampling, RGB out) and an
// encoder of synthetic pictures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

struct Reference {
  bool ok = false;    // false when libjpeg is not built in or refused the file
  long warnings = 0;  // libjpeg's count of damaged-data warnings
  uint32_t width = 0, height = 0;
  std::vector<uint8_t> rgb;  // 3 bytes a pixel, row by row
};

// What libjpeg-turbo says of a file it reads to the end, as a checker would read it (jpeginfo -c
// decodes at 1/8 scale): the codes of its warnings, and of the error that stopped it.
struct LibjpegCheck {
  bool failed = false;
  int error_code = 0;
  std::string error;
  std::vector<int> warning_codes;
  std::vector<std::string> warnings;
  bool DamageWarned() const;  // a warning of damaged data: corrupt, premature end, bad code
  bool DataFailure() const;   // an error over the file's data, not over what libjpeg lacks
};
void CheckWithLibjpeg(const Bytes& file, LibjpegCheck& out);

// Whether the tests were built with libjpeg.
bool HaveLibjpeg();

void DecodeWithLibjpeg(const Bytes& file, Reference& out);

// Gradients with texture, grey or YCbCr with luma factors h x v, at quality 90.
struct EncodeRequest {
  uint32_t width = 64, height = 48;
  bool gray = false;
  int h = 2, v = 2;
  bool progressive = false;
  unsigned restart_interval = 0;  // in MCUs
};

// The encoded file, or nothing without libjpeg.
Bytes EncodeWithLibjpeg(const EncodeRequest& request);

}  // namespace corvi::test
