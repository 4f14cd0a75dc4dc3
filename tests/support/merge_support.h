// Helpers of the rewriter's tests: a synthetic layer, Merge into bytes, decoding, hashing.
#pragma once

#include <cstdint>
#include <string>

#include "base/raw_layer.h"
#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// A width × height gradient: red across, green down, blue falling along the diagonal; a fully
// transparent rectangle at (4, 4)-(9, 8), and the last six columns half transparent.
void MakeGradientLayer(RawLayer& layer, uint32_t width, uint32_t height);

struct MergeOutput {
  Bytes bytes;         // the output file after Merge, which held other bytes before
  std::wstring error;  // the exception's text; empty when Merge succeeded
  uint32_t size = 0;   // OutputFile bookkeeping after Merge
  uint32_t position = 0;
};
// Merges into a file that held other bytes; a thumbnail goes through a private directory.
MergeOutput MergeBytes(const Bytes& jpeg, const RawLayer& layer, const Background& background,
                       const PropertyList* overrides = nullptr);

// Decodes with corvi's decoder; false when the stream does not scan or decode.
bool DecodeBytes(const Bytes& jpeg, RawLayer& layer);

uint64_t Fnv1a64(const Bytes& bytes);

}  // namespace corvi::test
