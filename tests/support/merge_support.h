// Helpers of the rewriter's tests: synthetic layers, Merge into bytes, decoding, golden case
// inputs, text and picture comparison.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "tests/support/golden.h"
#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// A width × height gradient: red across, green down, blue falling along the diagonal; a fully
// transparent rectangle at (4, 4)-(9, 8), and the last six columns half transparent.
void MakeGradientLayer(RawLayer& layer, uint32_t width, uint32_t height);

// An APP1 payload ("Exif\0\0" and TIFF) with Make "Cam" and `thumbnail` behind `padding` zero
// bytes, declared `extra` bytes longer than it is.
Bytes MakeExifThumbnail(bool motorola, const Bytes& thumbnail, uint32_t extra = 0,
                        uint32_t padding = 0);

struct MergeOutput {
  Bytes bytes;        // the output file after Merge, which held other bytes before
  std::string error;  // the exception's text; empty when Merge succeeded
};
// Merges into a file that held other bytes, in a fresh current directory. Expects the file empty
// exactly on an error, OutputFile's size and position at its end, and no temporary file left.
MergeOutput MergeBytes(const Bytes& jpeg, const RawLayer& layer, const Background& background,
                       const PropertyList* overrides = nullptr);

// Decodes with corvi's decoder; false when the stream does not scan or decode.
bool DecodeBytes(const Bytes& jpeg, RawLayer& layer);

// Golden file `name` holds its cases: each line that starts in column 0 is a case's input, '#'
// lines are notes, and the case's text follows indented. Runs each input and compares the file.
void ExpectGoldenCases(const std::string& name,
                       const std::function<std::string(const std::string&)>& run);

std::string Fnv1a64(const void* data, size_t size);  // 16 hex digits
std::string Hex(const uint8_t* data, size_t size);   // "0A FF ..."
std::string Narrow(const std::wstring& text);        // '?' for all but ASCII

// The top bytes of a layer's RGB, composited over `background` when given (and, for `gray`, the
// mean of the channels taken first, as grey frames do).
std::vector<uint8_t> Rgb8(const RawLayer& layer, const Background* background = nullptr,
                          bool gray = false);
// Of two 8-bit pictures of the same size; 0 when the sizes differ.
double Psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b);

}  // namespace corvi::test
