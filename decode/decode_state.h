// The decoder's state for one stream, the driver DecodeImage and the sampling plan.
#pragma once

#include <cstdint>

#include "base/limits.h"
#include "base/sampling.h"

namespace corvi {

struct HuffmanTable;
struct MarkerList;
struct TableEntry;
struct RawLayer;

// One dequantisation table: 64 values in natural order (index = 8 × row + column).
struct QuantTable {
  uint32_t precision = 8;  // 8 or 16, of the DQT entry
  float values[64] = {};
};

// One colour component of the frame and of the latest scan.
struct ComponentInfo {
  int32_t h = 1;            // Hi
  int32_t v = 1;            // Vi
  int32_t quant_index = 0;  // Tqi
  int32_t dc_index = 0;     // Tdj; -1 after an SOS that does not name the component
  int32_t ac_index = 0;     // Taj; -1 likewise
  bool in_scan = false;
  const QuantTable* quant_table = nullptr;  // bound by the scan decoders
  const HuffmanTable* dc_table = nullptr;
  const HuffmanTable* ac_table = nullptr;
};

// Owns everything it points to.
struct DecodeState {
  ComponentInfo* components[4] = {};  // by slot
  QuantTable* quant_tables[4] = {};
  HuffmanTable* dc_tables[4] = {};
  HuffmanTable* ac_tables[4] = {};
  uint8_t frame_mode = 0xFF;  // the frame segment's marker code
  int32_t precision = 8;
  uint32_t width = 0;
  uint32_t height = 0;
  int32_t restart_interval = 0;
  int32_t spectral_start = 0;   // Ss
  int32_t spectral_end = 63;    // Se
  int32_t approx_high = 0;      // Ah
  int32_t approx_low = 0;       // Al
  int32_t scan_components = 0;  // Ns
  SamplingMode sampling_mode = SamplingMode::kNone;
  int32_t mcu_width = 8;
  int32_t mcu_height = 8;
  int32_t blocks_per_mcu = 0;
  int32_t mcus_across = 0;
  int32_t mcus_down = 0;
  int32_t mcu_count = 0;
  int32_t blocks_per_row = 0;

  // What the caller allows this stream; the thumbnail of a stream gets the same.
  Limits limits;
  // False: each MCU row is converted into a reused row buffer and dropped, so no pixel buffer
  // is allocated; the layer keeps its size and properties. The tool's decode works this way.
  bool keep_pixels = true;
  // False: also the work that is shown to change nothing is done (the scans and blocks read
  // from exhausted data, the rows that no data reached). For comparisons in the tests.
  bool skip_idle = true;
  // True: a baseline frame's entropy decoding and its transform and colour conversion run on two
  // threads, rows handed over in order. The pixels are the same; the wall time is shorter.
  bool threads = false;

  DecodeState() = default;
  DecodeState(const DecodeState&) = delete;
  DecodeState& operator=(const DecodeState&) = delete;
  ~DecodeState();  // components, quantisation tables, then DC and AC table of each index
};

// The name of a frame's process by its marker code 0xC0 to 0xCF ("Baseline", "Progressive",
// "Extended sequential arithmetic", ...); "???" for the codes that are no frame.
const char* ModeName(uint8_t frame_mode);

// ITU T.81 Figure A.6: entry i is the natural index of the i-th coefficient in coded order.
extern const uint32_t zigzag[64];

// T.81 B.2.4.1: takes one table of a DQT segment (64 entries in zig-zag order, 8 or 16 bits each)
// into `tables`, in natural order, and returns its index. Throws for an index of 4 or more and
// for an index already taken.
int32_t ReadQuantTable(QuantTable* (&tables)[4], const TableEntry& entry);

// What the tool decodes with, and the file map with it: no limits, so every file is reported as
// it is; no pixels kept, each MCU row going through a reused row buffer; two threads.
void SetToolDecoding(DecodeState& state);

// Applies every segment in file order, plans the sampling, names the mode and decodes the pixels
// unless `header_only`.
void DecodeImage(const MarkerList& markers, DecodeState& state, RawLayer& layer, bool header_only);

// A frame's sampling layout and MCU grid.
struct SamplingPlan {
  SamplingMode mode;
  int32_t mcu_width;
  int32_t mcu_height;
  int32_t blocks_per_mcu;
  int32_t mcus_across;
  int32_t mcus_down;
  int32_t mcu_count;
};

// The plan of a frame of `width` x `height` whose components are `components` (by slot); throws
// "Unsupported sampling ( comp N: H x V ... )" for factors that match no layout.
SamplingPlan PlanFrameSampling(const ComponentInfo* const (&components)[4], uint32_t width,
                               uint32_t height);

// Copies a plan into a decoder's or rewriter's state.
template <typename State>
void TakePlan(const SamplingPlan& plan, State& state) {
  state.sampling_mode = plan.mode;
  state.mcu_width = plan.mcu_width;
  state.mcu_height = plan.mcu_height;
  state.blocks_per_mcu = plan.blocks_per_mcu;
  state.mcus_across = plan.mcus_across;
  state.mcus_down = plan.mcus_down;
  state.mcu_count = plan.mcu_count;
}

// Accepts or refuses the sampling factors and derives the MCU geometry.
void PlanSampling(DecodeState& state);

// The slot of a component entry: the id when below 4, else the entry's position from 1; a slot
// of 4 or more is ignored (returns -1).
int32_t ComponentSlot(uint8_t id, int32_t position);

}  // namespace corvi
