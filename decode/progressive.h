// Progressive Huffman decoding: the whole image's coefficients, scan after scan.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

namespace corvi {

struct BitReader;
struct ComponentInfo;
struct DecodeState;
struct RawLayer;

// The coefficients of the whole frame in the layout of the interleaved walk, all 0 at first.
// The MCU rows from `touched_rows` on have never been written: every coefficient there is 0.
// From `ac_touched_rows` on, no scan with an AC band has decoded a block: all AC coefficients
// there are 0.
// A DC value that the blocks of one component in one MCU row take when the row is next read or
// written: a first DC scan that runs dry fills whole rows this way without touching them.
struct PendingDc {
  int16_t value = 0;
  uint8_t set = 0;
  uint8_t coded_only = 0;  // only the blocks a single-component scan codes, not the MCU padding
};

struct CoefficientStore {
  int16_t* coefficients = nullptr;  // not owned
  int64_t touched_rows = 0;
  int64_t ac_touched_rows = 0;
  std::vector<PendingDc> pending;  // 4 a row, by slot; empty until a row is filled
  // When set, a scan walk publishes here the MCU rows below which it has decoded (or passed)
  // every unit, each time it has decoded the last unit of a row.
  std::atomic<int64_t>* decoded_rows = nullptr;
  // The MCU rows from the top that were transformed and converted while the scans ran.
  int64_t finished_rows = 0;
};

// Transforms and converts whole MCU rows [first, last) once no scan changes them any more;
// `worker` (0 or 1) names the buffers of the thread that calls.
class RowFinisher {
 public:
  virtual void Finish(int64_t first, int64_t last, int32_t worker) = 0;

 protected:
  ~RowFinisher() = default;
};

// Decodes an SOF2 frame into `layer.pixels`; called by DecodeImage after PlanSampling.
void DecodeProgressive(DecodeState& state, RawLayer& layer, const uint8_t* data, int32_t length);

// Decodes the scan at the reader's cursor and every scan behind it, applying the DHT, DRI and
// SOS segments between them (`layer` is what their Apply is given). More scans than the state's
// limit allows are refused with "Too many scans (N, limit L)".
// With `follow`, rows may be finished while the scans run (see DecodeScansOnTwoThreads).
void DecodeScans(DecodeState& state, RawLayer& layer, CoefficientStore& store, BitReader& reader,
                 RowFinisher* follow = nullptr);

// Applies the DHT, DRI and SOS segments from `base` (the first byte behind a scan's data) up to
// and including the next SOS, passing zero bytes and stuffed FF 00 pairs before each marker.
// Returns the offset behind that SOS, at or past `remaining` when its length reaches past the
// data. Throws for any other marker or byte.
int64_t WalkToNextScan(DecodeState& state, RawLayer& layer, const uint8_t* base, int32_t remaining);

// Binds the Huffman tables of the latest SOS to its components; throws "Scan component is not
// part of the frame" for a component without a quantisation table.
void BindScanTables(DecodeState& state);

// Decodes one scan with the parameters of the latest SOS. The block layout is that of the
// components with a bound quantisation table (the planned frame); a scan naming any other
// component throws "Scan component is not part of the frame".
void DecodeScan(DecodeState& state, CoefficientStore& store, BitReader& reader);

}  // namespace corvi
