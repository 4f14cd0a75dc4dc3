// What one stream may cost a caller of the library: frame size, scan count and nesting depths.
#pragma once

#include <cstdint>

#include "base/raw_layer_exception.h"

namespace corvi {

// A count above a limit throws a LimitExceeded naming the count and the limit; a limit of 0
// means none. The defaults suit a library caller that opens files from anywhere; the
// command-line tool sets no limit, so that it reports every file as it is.
struct Limits {
  uint64_t max_pixels = uint64_t{1} << 28;  // width × height of a decoded frame
  uint32_t max_scans = 1000;                // scans of a progressive frame
  uint32_t max_thumbnail_depth = 16;        // Exif thumbnails inside thumbnails
  uint32_t max_directory_depth = 256;       // TIFF directories inside directories

  static constexpr Limits None() { return Limits{0, 0, 0, 0}; }
};

// The refusal of a count above a limit. It is a RawLayerException, but the places that drop a
// failing part silently (a thumbnail, a maker note) pass it on: a limit ends the whole file.
struct LimitExceeded : RawLayerException {
  using RawLayerException::RawLayerException;
};

// Throws "`what` (COUNT, limit LIMIT)" when `limit` is set and `count` is above it.
void CheckLimit(const wchar_t* what, uint64_t count, uint64_t limit);

}  // namespace corvi
