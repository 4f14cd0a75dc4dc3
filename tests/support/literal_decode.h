// A reference decoder written step by step from the rules, without lookups or shortcuts, for
// comparing the production decoder on the same input; and damaged variants of a file.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/golden.h"
#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// The error text (empty on success), the frame size and the pixel hash (0 without pixels).
struct DecodeOutcome {
  std::wstring error;
  uint32_t width = 0;
  uint32_t height = 0;
  uint64_t pixel_hash = 0;

  bool operator==(const DecodeOutcome&) const = default;
};

// FNV-1a 64 over the RGBA samples, low byte first.
uint64_t HashPixels(const uint16_t* pixels, uint64_t count);

// The library's decode with no limits, the flags as in DecodeState; or with `literal`, for a
// baseline frame, its header work and then the scan decoded one MCU at a time through DecodeSymbol
// and ReceiveBits, every block cleared and decoded in full.
DecodeOutcome DecodeWithLibrary(const Bytes& bytes, bool skip_idle = true, bool keep_pixels = true,
                                bool threads = false, bool literal = false);
inline DecodeOutcome DecodeLiterally(const Bytes& bytes) {
  return DecodeWithLibrary(bytes, true, true, false, true);
}

struct Variant {
  std::string name;
  Bytes bytes;
  bool planned;  // a plan of the scans made from the markers holds (see scan_threads.h)
};

// The file; each scan's data cut at `scan_cuts` points (one: halfway), and filler or a segment
// behind each scan but the last in turn; at `points` points across the data a cut closed by EOI,
// a restart marker, a run of zero bytes.
std::vector<Variant> DamagedVariants(const Bytes& file, size_t scan_cuts, size_t points);

}  // namespace corvi::test
