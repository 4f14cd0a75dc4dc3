// Reference decoders written step by step from the rules, without lookups or shortcuts: the
// production decoders are compared with these on the same input. And the decoder's golden files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/golden.h"
#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// What a decode gives: the error text (empty on success), the frame size and a hash of the
// pixels (0 when none were decoded).
struct DecodeOutcome {
  std::wstring error;
  uint32_t width = 0;
  uint32_t height = 0;
  uint64_t pixel_hash = 0;

  bool operator==(const DecodeOutcome&) const = default;
};

// FNV-1a over the RGBA samples, low byte first.
uint64_t HashPixels(const uint16_t* pixels, uint64_t count);

// The library's decode of a file held in memory, with no limits. `skip_idle` and `keep_pixels`
// as in DecodeState; without pixels kept the hash is 0.
DecodeOutcome DecodeWithLibrary(const Bytes& bytes, bool skip_idle = true, bool keep_pixels = true,
                                bool threads = false);

// The same file with the baseline scan decoded by the literal reference: one MCU at a time
// through DecodeSymbol and ReceiveBits, every block cleared and decoded in full. Frames of
// other modes give the library's outcome.
DecodeOutcome DecodeLiterally(const Bytes& bytes);

// A file made from another, for comparing decodes of damaged streams.
struct Variant {
  std::string name;
  Bytes bytes;
  bool planned;  // a plan of the scans made from the markers holds (see scan_threads.h)
};

// The file itself; each scan's data cut at `scan_cuts` points (one: halfway), the segments behind
// kept, with one kind of filler or segment put behind each scan but the last in turn; and at
// `points` points across the data: a cut closed by EOI, a restart marker, a run of zero bytes.
std::vector<Variant> DamagedVariants(const Bytes& file, size_t scan_cuts, size_t points);

}  // namespace corvi::test
