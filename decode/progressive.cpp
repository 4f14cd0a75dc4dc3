// Progressive Huffman decoding: the whole image's coefficients, scan after scan.
#include "decode/progressive.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>
#include <thread>
#include <type_traits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "base/byte_coverage.h"
#include "base/limits.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/color.h"
#include "decode/decode_state.h"
#include "decode/huffman.h"
#include "decode/idct.h"
#include "decode/scan_threads.h"
#include "decode/sequential.h"
#include "jpeg/markers.h"
#include "platform/system_info.h"

namespace corvi {
namespace {

// How far ahead of the decoder a walk asks for the store's blocks.
constexpr int64_t kPrefetchBlocks = 8;

// T.81 B.2.3: at most 10 blocks in an MCU. The planned layouts have 6 at most.
constexpr int32_t kMaxBlocksPerMcu = 10;

// The blocks of one MCU as the coefficient store holds them. The store is laid out once, for
// the components that PlanSampling saw, and those are exactly the slots whose quantisation
// table DecodeProgressive has bound. A slot that a later SOS creates has none and stays out:
// its blocks have no place in the store.
struct BlockLayout {
  int32_t first[4];  // the component's first block within an MCU; -1 when not in the layout
  int32_t h[4];
  int32_t v[4];
  int32_t blocks_per_mcu;
};

BlockLayout PlannedLayout(const DecodeState& state) {
  BlockLayout layout{};
  int32_t count = 0;
  for (int slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = state.components[slot];
    layout.first[slot] = -1;
    if (c == nullptr || c->quant_table == nullptr || c->h <= 0 || c->v <= 0) {
      continue;
    }
    if (c->h > kMaxBlocksPerMcu || c->v > kMaxBlocksPerMcu ||
        c->h * c->v > kMaxBlocksPerMcu - count) {
      throw RawLayerException(L"Inconsistent block layout");
    }
    layout.first[slot] = count;
    layout.h[slot] = c->h;
    layout.v[slot] = c->v;
    count += c->h * c->v;
  }
  // The store was sized from the planned geometry; any other count would walk out of it.
  if (count != state.blocks_per_mcu || state.mcus_across < 0 || state.mcus_down < 0 ||
      int64_t{state.mcus_across} * state.mcus_down != state.mcu_count) {
    throw RawLayerException(L"Inconsistent block layout");
  }
  layout.blocks_per_mcu = count;
  return layout;
}

// The band and bit position of the current scan, clamped so that no index leaves a block even
// if the state was set by other means than SOS Apply, which refuses such values.
struct ScanBand {
  int32_t start;  // Ss
  int32_t end;    // Se
  int32_t high;   // Ah
  uint32_t low;   // Al
};

ScanBand BandOf(const DecodeState& state) {
  ScanBand band{};
  band.start = state.spectral_start < 0 ? 0 : state.spectral_start;
  band.end = state.spectral_end > 63 ? 63 : state.spectral_end;
  band.high = state.approx_high;
  band.low = static_cast<uint32_t>(state.approx_low) & 15;
  return band;
}

inline int16_t Low16(uint32_t value) {
  return static_cast<int16_t>(static_cast<uint16_t>(value));
}

// T.81 G.1.2: one block's part of a scan. DC first scan (G.1.2.1), DC refinement (G.1.2.1),
// AC first scan (G.1.2.2) and AC refinement (G.1.2.3), in one loop so that a band from 0 past
// 0 goes on from DC to AC in the same block.
// T.81 G.1.2.2: one AC symbol: the run `r` and the extended value `s`, or for EOBn (a size of 0
// but ZRL) the end-of-band run of this block and 2^r - 1 + the next r bits more (r ≤ 14), with
// `s` 0.
inline void DecodeAcSymbol(BitReader& reader, const HuffmanTable& table, int32_t& r, int32_t& s,
                           uint32_t& eob_run) {
  const uint32_t rs = DecodeSymbol(reader, table);
  r = static_cast<int32_t>(rs >> 4);
  const uint32_t size = rs & 15;
  s = 0;
  if (size != 0) {
    s = Extend(ReceiveBits(reader, size), size);
  } else if (r != 15) {
    eob_run = uint32_t{1} << r;
    if (r != 0) {
      eob_run += ReceiveBits(reader, static_cast<uint32_t>(r));
    }
  }
}

inline void DecodeBlock(const ScanBand& band, int16_t* block, BitReader& reader,
                        const ComponentInfo& component, int32_t& dc_predictor, uint32_t& eob_run) {
  const int32_t end = band.end;
  const uint32_t low = band.low;
  const bool refine = band.high != 0;
  const int32_t p1 = static_cast<int32_t>(uint32_t{1} << low);
  int32_t k = band.start;
  while (k <= end) {
    if (k == 0) {
      if (refine) {
        uint32_t bit = ReceiveBits(reader, 1);
        block[0] = Low16(static_cast<uint16_t>(block[0]) | (bit << low));
      } else {
        if (component.dc_table == nullptr) {
          throw RawLayerException(L"Missing DC Huffman table");
        }
        uint32_t s = DecodeSymbol(reader, *component.dc_table);
        int32_t diff = s != 0 ? Extend(ReceiveBits(reader, s), s) : 0;
        // The predictor runs in 32 bits with wrap-around; the block takes its low 16 bits.
        uint32_t predictor = static_cast<uint32_t>(dc_predictor) + static_cast<uint32_t>(diff);
        dc_predictor = static_cast<int32_t>(predictor);
        block[0] = Low16((predictor & 0xFFFF) << low);
      }
      k = 1;
      continue;
    }
    if (component.ac_table == nullptr) {
      throw RawLayerException(L"Missing AC Huffman table");
    }
    // A run of 1000 reaches past any band: the block ends, or in a refinement scan the walk
    // goes on to the band's end reading correction bits.
    int32_t r = 1000;
    int32_t s = 0;
    if (eob_run == 0) {
      DecodeAcSymbol(reader, *component.ac_table, r, s, eob_run);
      if (eob_run != 0) {
        r = 1000;
      }
    }
    if (!refine) {
      k += r;
    } else {
      // Skip r zero coefficients; each non-zero one on the way takes a correction bit.
      for (; k <= end; ++k) {
        int16_t& c = block[zigzag[k]];
        if (c == 0) {
          if (--r < 0) {
            break;
          }
        } else if (ReceiveBits(reader, 1) != 0) {
          c = Low16(static_cast<uint32_t>(c > 0 ? c + p1 : c - p1));
        }
      }
    }
    if (s != 0 && k <= end) {
      block[zigzag[k]] = Low16(static_cast<uint32_t>(s) << low);
    }
    ++k;
  }
  if (eob_run != 0) {
    --eob_run;
  }
}

// The four kinds of scan that encoders write, each with a loop of its own; DecodeBlock's
// general loop is kept for a band that runs from DC into AC. Each gives what DecodeBlock gives.
enum class BlockKind { kMixed, kDcFirst, kDcRefine, kAcFirst, kAcRefine };

BlockKind KindOf(const ScanBand& band) {
  if (band.start == 0 && band.end == 0) {
    return band.high == 0 ? BlockKind::kDcFirst : BlockKind::kDcRefine;
  }
  if (band.start >= 1 && band.start <= band.end) {
    return band.high == 0 ? BlockKind::kAcFirst : BlockKind::kAcRefine;
  }
  return BlockKind::kMixed;
}

// Calls `run` with the kind as a compile-time constant (std::integral_constant): each routine is
// instantiated once a kind.
template <typename Run>
void ForKind(BlockKind kind, Run&& run) {
  switch (kind) {
    case BlockKind::kDcFirst:
      return run(std::integral_constant<BlockKind, BlockKind::kDcFirst>{});
    case BlockKind::kDcRefine:
      return run(std::integral_constant<BlockKind, BlockKind::kDcRefine>{});
    case BlockKind::kAcFirst:
      return run(std::integral_constant<BlockKind, BlockKind::kAcFirst>{});
    case BlockKind::kAcRefine:
      return run(std::integral_constant<BlockKind, BlockKind::kAcRefine>{});
    case BlockKind::kMixed:
      return run(std::integral_constant<BlockKind, BlockKind::kMixed>{});
  }
}

// T.81 G.1.2.2: runs, values and end-of-band runs of a first AC scan.
inline void DecodeAcFirst(const ScanBand& band, int16_t* block, BitReader& reader,
                          const HuffmanTable& table, uint32_t& eob_run) {
  if (eob_run != 0) {
    --eob_run;
    return;
  }
  const int32_t end = band.end;
  const uint32_t low = band.low;
  for (int32_t k = band.start; k <= end;) {
    const uint32_t rs = DecodeSymbol(reader, table);
    const uint32_t r = rs >> 4;
    const uint32_t size = rs & 15;
    if (size != 0) {
      const int32_t s = Extend(ReceiveBits(reader, size), size);
      k += static_cast<int32_t>(r);
      if (k <= end) {
        block[zigzag[k]] = Low16(static_cast<uint32_t>(s) << low);
      }
      ++k;
    } else if (r == 15) {
      k += 16;  // ZRL
    } else {
      eob_run = uint32_t{1} << r;
      if (r != 0) {
        eob_run += ReceiveBits(reader, r);
      }
      --eob_run;  // this block is the run's first
      return;
    }
  }
}

// Bit j set for each j from `first` to `last` (0 ≤ first, last ≤ 63); none when first > last.
inline uint64_t BandMask(int32_t first, int32_t last) {
  if (first > last) {
    return 0;
  }
  const uint64_t upto = last == 63 ? ~uint64_t{0} : (uint64_t{1} << (last + 1)) - 1;
  return upto & ~((uint64_t{1} << first) - 1);
}

// For each byte of a mask in natural order, the same positions in coded (zig-zag) order.
struct CodedOrderTable {
  uint64_t part[8][256];
};

constexpr CodedOrderTable MakeCodedOrderTable() {
  uint32_t coded_of_natural[64] = {};
  for (uint32_t j = 0; j < 64; ++j) {
    coded_of_natural[zigzag[j]] = j;
  }
  CodedOrderTable table{};
  for (uint32_t byte = 0; byte < 8; ++byte) {
    for (uint32_t value = 0; value < 256; ++value) {
      uint64_t mask = 0;
      for (uint32_t bit = 0; bit < 8; ++bit) {
        if ((value >> bit) & 1) {
          mask |= uint64_t{1} << coded_of_natural[byte * 8 + bit];
        }
      }
      table.part[byte][value] = mask;
    }
  }
  return table;
}

const CodedOrderTable kCodedOrder = MakeCodedOrderTable();

// Bit j set where the AC coefficient at coded position j is not zero (bit 0 stays clear). The DC
// value is not read: on two threads, a DC refinement may be writing it meanwhile.
inline uint64_t NonzeroInCodedOrder(const int16_t* block) {
  uint64_t natural = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  auto zeros = [&](int32_t first, int32_t second) {  // 8 coefficients from each, 16 bits
    const __m128i a =
        _mm_cmpeq_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + first)), zero);
    const __m128i b =
        _mm_cmpeq_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + second)), zero);
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(a, b)));
  };
  natural |= uint64_t{~zeros(8, 16) & 0xFFFFu} << 8;
  natural |= uint64_t{~zeros(24, 32) & 0xFFFFu} << 24;
  natural |= uint64_t{~zeros(40, 48) & 0xFFFFu} << 40;
  const uint32_t last = ~zeros(56, 1);  // coefficients 56 to 63, then 1 to 8
  natural |= uint64_t{last & 0xFFu} << 56;
  natural |= uint64_t{(last >> 8) & 0x7Fu} << 1;
#else
  for (int i = 1; i < 64; ++i) {
    natural |= uint64_t{block[i] != 0 ? 1u : 0u} << i;
  }
#endif
  uint64_t coded = 0;
  for (int byte = 0; byte < 8; ++byte) {
    coded |= kCodedOrder.part[byte][(natural >> (8 * byte)) & 0xFF];
  }
  return coded;
}

// T.81 G.1.2.3: one more bit of the band; new coefficients of ±1 and a correction bit for each
// non-zero coefficient passed on the way, also inside an end-of-band run. The correction bits
// are the bulk of the work: they come straight from a local copy of the accumulator, which is
// handed back to the reader around every other read.
inline void DecodeAcRefine(const ScanBand& band, int16_t* block, BitReader& reader,
                           const HuffmanTable& table, uint32_t& eob_run) {
  const int32_t end = band.end;
  const uint32_t low = band.low;
  const int32_t p1 = static_cast<int32_t>(uint32_t{1} << low);
  uint32_t bits = reader.bits;
  uint32_t count = reader.bit_count;
  auto correct = [&](int16_t& c) {
    uint32_t bit;
    if (count != 0) {
      bit = bits >> 31;
      bits <<= 1;
      --count;
    } else {
      reader.bits = bits;  // no bits held: refill through the reader
      reader.bit_count = 0;
      bit = ReceiveBits(reader, 1);
      bits = reader.bits;
      count = reader.bit_count;
    }
    if (bit != 0) {
      c = Low16(static_cast<uint32_t>(c > 0 ? c + p1 : c - p1));
    }
  };
  // The band's non-zero coefficients in coded order. A correction never makes one zero, so the
  // mask only grows, with each new coefficient.
  uint64_t nonzero = NonzeroInCodedOrder(block) & BandMask(band.start, end);
  // Corrects the non-zero coefficients at coded positions [from, to], in order.
  auto correct_range = [&](int32_t from, int32_t to) {
    uint64_t passed = nonzero & BandMask(from, to);
    while (passed != 0) {
      const int32_t j = __builtin_ctzll(passed);
      passed &= passed - 1;
      int16_t& c = block[zigzag[j]];
      if (count == 0) {
        correct(c);
        continue;
      }
      // The bit is as likely 1 as 0: added without a branch, away from zero.
      const uint32_t bit = bits >> 31;
      bits <<= 1;
      --count;
      const uint32_t step = static_cast<uint32_t>(c > 0 ? p1 : -p1) & (0u - bit);
      c = Low16(static_cast<uint32_t>(c) + step);
    }
  };
  int32_t k = band.start;
  if (eob_run == 0) {
    while (k <= end) {
      reader.bits = bits;
      reader.bit_count = count;
      int32_t r;
      int32_t s;
      DecodeAcSymbol(reader, table, r, s, eob_run);
      bits = reader.bits;
      count = reader.bit_count;
      if (eob_run != 0) {
        break;
      }
      // Skip r zero coefficients, correcting the non-zero ones on the way: the walk stops on
      // the zero after them, or behind the band.
      uint64_t zeros = ~nonzero & BandMask(k, end);
      for (int32_t i = 0; i < r && zeros != 0; ++i) {
        zeros &= zeros - 1;
      }
      const int32_t stop = zeros != 0 ? __builtin_ctzll(zeros) : end + 1;
      correct_range(k, stop - 1);
      k = stop;
      if (s != 0 && k <= end) {
        const int16_t value = Low16(static_cast<uint32_t>(s) << low);
        block[zigzag[k]] = value;
        if (value != 0) {
          nonzero |= uint64_t{1} << k;
        }
      }
      ++k;
    }
  }
  if (eob_run != 0) {
    correct_range(k, end);
    --eob_run;
  }
  reader.bits = bits;
  reader.bit_count = count;
}

template <BlockKind kind>
inline void DecodeUnit(const ScanBand& band, int16_t* block, BitReader& reader,
                       const ComponentInfo& component, int32_t& dc_predictor, uint32_t& eob_run) {
  if constexpr (kind == BlockKind::kDcFirst) {
    if (component.dc_table == nullptr) {
      throw RawLayerException(L"Missing DC Huffman table");
    }
    const uint32_t s = DecodeSymbol(reader, *component.dc_table);
    const int32_t diff = s != 0 ? Extend(ReceiveBits(reader, s), s) : 0;
    const uint32_t predictor = static_cast<uint32_t>(dc_predictor) + static_cast<uint32_t>(diff);
    dc_predictor = static_cast<int32_t>(predictor);
    block[0] = Low16((predictor & 0xFFFF) << band.low);
  } else if constexpr (kind == BlockKind::kDcRefine) {
    const uint32_t bit = ReceiveBits(reader, 1);
    block[0] = Low16(static_cast<uint16_t>(block[0]) | (bit << band.low));
  } else if constexpr (kind == BlockKind::kAcFirst || kind == BlockKind::kAcRefine) {
    if (component.ac_table == nullptr) {
      throw RawLayerException(L"Missing AC Huffman table");
    }
    if constexpr (kind == BlockKind::kAcFirst) {
      DecodeAcFirst(band, block, reader, *component.ac_table, eob_run);
    } else {
      DecodeAcRefine(band, block, reader, *component.ac_table, eob_run);
    }
  } else {
    DecodeBlock(band, block, reader, component, dc_predictor, eob_run);
  }
}

// Counts a unit of the scan; on the last one of an interval, drops the bits, finds the next
// restart marker and clears the DC predictors. The end-of-band run goes on.
struct RestartCounter {
  int32_t interval;
  int32_t countdown;
  uint32_t restart_number = 0;

  explicit RestartCounter(int32_t restart_interval)
      : interval(restart_interval),
        countdown(restart_interval != 0 ? restart_interval : 0x7FFFFFFF) {}

  // True when a restart was done.
  bool Count(BitReader& reader) {
    if (--countdown != 0) {
      return false;
    }
    SeekRestartMarker(reader, restart_number);
    ++restart_number;
    countdown = interval;
    return true;
  }
};

// What exhausted data does to the rest of a scan, or nothing when the full walk must decide: a
// block that would throw for a missing table is not passed over.
struct IdleScan {
  bool allowed;  // units may be passed over once the reader is exhausted
  bool dc_fill;  // a first DC scan: each passed unit takes its component's last DC value
  bool ac;       // the band holds AC coefficients
  // What a unit does depends on the block's own AC coefficients (correction bits): a unit that
  // consumed nothing says so for the next one only where no AC coefficient has been decoded.
  bool reads_block;
};

IdleScan IdleOf(const DecodeState& state, const ScanBand& band, bool skip_idle) {
  IdleScan idle{skip_idle, band.start == 0 && band.high == 0, band.end >= 1,
                band.end >= 1 && band.high != 0};
  for (const ComponentInfo* c : state.components) {
    if (c == nullptr || !c->in_scan) {
      continue;
    }
    if ((idle.dc_fill && c->dc_table == nullptr) || (idle.ac && c->ac_table == nullptr)) {
      idle.allowed = false;
    }
  }
  return idle;
}

// An end-of-band run counts one unit per block passed.
inline void PassRun(uint32_t& eob_run, uint64_t blocks) {
  eob_run = blocks >= eob_run ? 0 : eob_run - static_cast<uint32_t>(blocks);
}

// The blocks of a slot that a single-component scan codes: the leading block columns and rows
// that the component's own size needs.
struct CodedExtent {
  int64_t columns;
  int64_t rows;
};

CodedExtent CodedExtentOf(const DecodeState& state, const BlockLayout& layout, int32_t slot) {
  CodedExtent e{(int64_t{state.width} + 7) / 8, (int64_t{state.height} + 7) / 8};
  if (e.columns > int64_t{state.mcus_across} * layout.h[slot]) {
    e.columns = int64_t{state.mcus_across} * layout.h[slot];
  }
  if (e.rows > int64_t{state.mcus_down} * layout.v[slot]) {
    e.rows = int64_t{state.mcus_down} * layout.v[slot];
  }
  return e;
}

// Writes the DC values pending for MCU row `row` into its blocks. A zero into a row that no data
// has reached is already there: those pages stay untouched.
void ApplyPending(const DecodeState& state, const BlockLayout& layout, CoefficientStore& store,
                  int64_t row) {
  if (store.pending.empty()) {
    return;
  }
  const int64_t mcus_across = state.mcus_across;
  const int64_t mcu_stride = int64_t{layout.blocks_per_mcu} * 64;
  for (int32_t slot = 0; slot < 4; ++slot) {
    PendingDc& p = store.pending[static_cast<size_t>(row) * 4 + static_cast<size_t>(slot)];
    if (p.set == 0) {
      continue;
    }
    p.set = 0;
    if (p.value == 0 && row >= store.touched_rows) {
      continue;
    }
    const int64_t h = layout.h[slot];
    const int64_t v = layout.v[slot];
    CodedExtent e{mcus_across * h, (row + 1) * v};
    if (p.coded_only != 0) {
      e = CodedExtentOf(state, layout, slot);
    }
    int16_t* mcu_row = store.coefficients + row * mcus_across * mcu_stride;
    for (int64_t br = 0; br < v && row * v + br < e.rows; ++br) {
      for (int64_t x = 0; x < e.columns; ++x) {
        mcu_row[(x / h) * mcu_stride + (layout.first[slot] + br * h + x % h) * 64] = p.value;
      }
    }
    if (row >= store.touched_rows) {
      store.touched_rows = row + 1;
    }
  }
}

// Gives every block of `slot` in MCU row `row` the DC value `value`, later.
void SetPending(const DecodeState& state, const BlockLayout& layout, CoefficientStore& store,
                int64_t row, int32_t slot, int16_t value, bool coded_only) {
  if (store.pending.empty()) {
    store.pending.resize(static_cast<size_t>(state.mcus_down) * 4);
  }
  PendingDc& p = store.pending[static_cast<size_t>(row) * 4 + static_cast<size_t>(slot)];
  if (p.set != 0 && (p.coded_only != 0) != coded_only) {
    ApplyPending(state, layout, store, row);  // the two cover different blocks
  }
  p = PendingDc{value, 1, static_cast<uint8_t>(coded_only ? 1 : 0)};
}

// Stores the DC value of a passed block in a row whose pending values have been applied.
inline void FillDc(CoefficientStore& store, int64_t row, int16_t* block, int16_t value) {
  if (value == 0 && row >= store.touched_rows) {
    return;
  }
  if (block[0] != value) {
    block[0] = value;
  }
  if (row >= store.touched_rows) {
    store.touched_rows = row + 1;
  }
}

// Records that a unit of MCU row `row` was decoded from data.
inline void MarkDecoded(CoefficientStore& store, const IdleScan& idle, int64_t row) {
  if (row >= store.touched_rows) {
    store.touched_rows = row + 1;
  }
  if (idle.ac && row >= store.ac_touched_rows) {
    store.ac_touched_rows = row + 1;
  }
}

// Whether a unit decoded at a data stop, which left the reader as it found it, shows that every
// following unit up to the next restart consumes nothing either: they start from the same bits
// with the same tables and no end-of-band run (a unit inside a run reads no symbol, so it says
// nothing of the units behind the run), and a refinement's correction bits find no AC
// coefficient.
inline bool Settled(bool stuck, uint32_t eob_run_before, const BitReader& before,
                    const BitReader& after, const IdleScan& idle, const CoefficientStore& store,
                    int64_t row) {
  return stuck && eob_run_before == 0 && after.bit_count == before.bit_count &&
         after.bits == before.bits && (!idle.reads_block || row >= store.ac_touched_rows);
}

template <BlockKind kind>
void InterleavedWalk(const DecodeState& state, const BlockLayout& layout, const ScanBand& band,
                     CoefficientStore& store, BitReader& shared_reader) {
  // The blocks of an MCU that this scan decodes: their offsets in the MCU and their slots.
  int32_t offsets[kMaxBlocksPerMcu];
  int32_t slots[kMaxBlocksPerMcu];
  int32_t unit_count = 0;
  for (int32_t slot = 0; slot < 4; ++slot) {
    if (layout.first[slot] < 0 || !state.components[slot]->in_scan) {
      continue;
    }
    for (int32_t i = 0; i < layout.h[slot] * layout.v[slot]; ++i) {
      offsets[unit_count] = layout.first[slot] + i;
      slots[unit_count] = slot;
      ++unit_count;
    }
  }
  const int64_t mcu_count = state.mcu_count;
  const int64_t mcus_across = state.mcus_across > 0 ? state.mcus_across : 1;
  RestartCounter restart(state.restart_interval);
  if (unit_count == 0) {
    // Nothing to decode; only the restart steps move the reader. Once it stands at the end
    // they change nothing more.
    if (restart.interval == 0) {
      return;
    }
    for (int64_t m = 0; m + 1 < mcu_count; ++m) {
      if (restart.Count(shared_reader) && shared_reader.cursor == shared_reader.end) {
        return;
      }
    }
    return;
  }
  const IdleScan idle = IdleOf(state, band, state.skip_idle);
  int32_t dc_predictors[4] = {};
  uint32_t eob_run = 0;
  const int64_t mcu_stride = int64_t{layout.blocks_per_mcu} * 64;
  int16_t* const coefficients = store.coefficients;
  BitReader reader = shared_reader;  // a local for the loop, written back once
  bool settled = false;
  int64_t ready_row = -1;  // the row whose pending DC values have been applied
  for (int64_t m = 0; m < mcu_count;) {
    if (idle.allowed && (settled || Exhausted(reader))) {
      // Up to the next restart or the end of the scan, no unit reads a bit.
      int64_t run = mcu_count - m;
      if (restart.countdown < run) {
        run = restart.countdown;
      }
      if (idle.dc_fill) {
        // Whole MCU rows take their values later; the rows cut by the run's ends now.
        int64_t i = m;
        const int64_t last = m + run;
        while (i < last) {
          const int64_t row = i / mcus_across;
          const int64_t row_end = (row + 1) * mcus_across;
          if (i == row * mcus_across && row_end <= last) {
            for (int32_t u = 0; u < unit_count; u += layout.h[slots[u]] * layout.v[slots[u]]) {
              const int32_t slot = slots[u];
              SetPending(state, layout, store, row, slot,
                         Low16((static_cast<uint32_t>(dc_predictors[slot]) & 0xFFFF) << band.low),
                         false);
            }
            i = row_end;
            continue;
          }
          ApplyPending(state, layout, store, row);
          const int64_t stop = row_end < last ? row_end : last;
          for (; i < stop; ++i) {
            int16_t* mcu = coefficients + i * mcu_stride;
            for (int32_t u = 0; u < unit_count; ++u) {
              FillDc(store, row, mcu + offsets[u] * 64,
                     Low16((static_cast<uint32_t>(dc_predictors[slots[u]]) & 0xFFFF) << band.low));
            }
          }
        }
        ready_row = -1;
      }
      PassRun(eob_run, static_cast<uint64_t>(run) * static_cast<uint32_t>(unit_count));
      m += run;
      restart.countdown -= static_cast<int32_t>(run - 1);  // the last unit is counted below
    } else {
      const int64_t row = m / mcus_across;
      if (row != ready_row) {
        ApplyPending(state, layout, store, row);
        ready_row = row;
      }
      const bool stuck = idle.allowed && AtDataStop(reader);
      const BitReader before = reader;
      const uint32_t run_before = eob_run;
      int16_t* mcu = coefficients + m * mcu_stride;
      if (m + kPrefetchBlocks < mcu_count) {
        __builtin_prefetch(mcu + kPrefetchBlocks * mcu_stride, 1);
      }
      for (int32_t u = 0; u < unit_count; ++u) {
        int32_t slot = slots[u];
        DecodeUnit<kind>(band, mcu + offsets[u] * 64, reader, *state.components[slot],
                         dc_predictors[slot], eob_run);
      }
      settled = Settled(stuck, run_before, before, reader, idle, store, row);
      MarkDecoded(store, idle, row);
      ++m;
      if (store.decoded_rows != nullptr && m % mcus_across == 0) {
        store.decoded_rows->store(m / mcus_across, std::memory_order_release);
      }
    }
    if (m < mcu_count && restart.Count(reader)) {
      std::memset(dc_predictors, 0, sizeof(dc_predictors));
      settled = false;
    }
  }
  shared_reader = reader;
}

// A single-component scan codes the blocks that the component's own size needs (T.81 A.2.2):
// the leading min(MCUs × factor, ceil(size / 8)) block columns and rows.
template <BlockKind kind>
void SingleComponentWalk(const DecodeState& state, const BlockLayout& layout, const ScanBand& band,
                         CoefficientStore& store, BitReader& shared_reader) {
  int32_t slot = 0;
  while (slot < 4 && (state.components[slot] == nullptr || !state.components[slot]->in_scan)) {
    ++slot;
  }
  if (slot == 4) {
    return;
  }
  const ComponentInfo& component = *state.components[slot];
  const int64_t h = layout.h[slot];
  const int64_t v = layout.v[slot];
  const int64_t first = layout.first[slot];
  const int64_t mcus_across = state.mcus_across;
  int64_t columns = (int64_t{state.width} + 7) / 8;
  if (columns > mcus_across * h) {
    columns = mcus_across * h;
  }
  int64_t rows = (int64_t{state.height} + 7) / 8;
  if (rows > int64_t{state.mcus_down} * v) {
    rows = int64_t{state.mcus_down} * v;
  }
  const int64_t total = columns * rows;
  if (total <= 0) {
    return;
  }
  const int64_t mcu_stride = int64_t{layout.blocks_per_mcu} * 64;
  int16_t* const coefficients = store.coefficients;
  // The block at column x of block row y.
  auto block_at = [&](int64_t y, int64_t x) {
    return coefficients + (y / v) * mcus_across * mcu_stride + (first + (y % v) * h) * 64 +
           (x / h) * mcu_stride + (x % h) * 64;
  };
  const IdleScan idle = IdleOf(state, band, state.skip_idle);
  RestartCounter restart(state.restart_interval);
  int32_t dc_predictor = 0;
  uint32_t eob_run = 0;
  BitReader reader = shared_reader;  // a local for the loop, written back once
  int64_t done = 0;
  int64_t y = 0;
  int64_t x = 0;
  bool settled = false;
  int64_t ready_row = -1;  // the MCU row whose pending DC values have been applied
  while (done < total) {
    if (idle.allowed && (settled || Exhausted(reader))) {
      int64_t run = total - done;
      if (restart.countdown < run) {
        run = restart.countdown;
      }
      const int16_t value = Low16((static_cast<uint32_t>(dc_predictor) & 0xFFFF) << band.low);
      if (idle.dc_fill) {
        // Whole MCU rows take the value later; the rows cut by the run's ends now.
        int64_t i = done;
        const int64_t last = done + run;
        while (i < last) {
          const int64_t row = (i / columns) / v;
          const int64_t row_start = row * v * columns;
          int64_t row_end = (row + 1) * v * columns;
          if (row_end > total) {
            row_end = total;
          }
          if (i == row_start && row_end <= last) {
            SetPending(state, layout, store, row, slot, value, true);
            i = row_end;
            continue;
          }
          ApplyPending(state, layout, store, row);
          const int64_t stop = row_end < last ? row_end : last;
          for (; i < stop; ++i) {
            FillDc(store, row, block_at(i / columns, i % columns), value);
          }
        }
        ready_row = -1;
      }
      PassRun(eob_run, static_cast<uint64_t>(run));
      done += run;
      y = done / columns;
      x = done % columns;
      restart.countdown -= static_cast<int32_t>(run - 1);
    } else {
      if (y / v != ready_row) {
        ApplyPending(state, layout, store, y / v);
        ready_row = y / v;
      }
      const bool stuck = idle.allowed && AtDataStop(reader);
      const BitReader before = reader;
      const uint32_t run_before = eob_run;
      if (x + kPrefetchBlocks < columns) {
        // The store is far larger than the caches, and each scan walks it once: ask for the
        // blocks a little ahead of the decoder.
        __builtin_prefetch(block_at(y, x + kPrefetchBlocks), 1);
        __builtin_prefetch(block_at(y, x + kPrefetchBlocks) + 32, 1);
      }
      DecodeUnit<kind>(band, block_at(y, x), reader, component, dc_predictor, eob_run);
      settled = Settled(stuck, run_before, before, reader, idle, store, y / v);
      MarkDecoded(store, idle, y / v);
      ++done;
      if (++x == columns) {
        x = 0;
        ++y;
        if (store.decoded_rows != nullptr && y % v == 0) {
          store.decoded_rows->store(y / v, std::memory_order_release);
        }
      }
    }
    if (done < total && restart.Count(reader)) {
      dc_predictor = 0;
      settled = false;
    }
  }
  shared_reader = reader;
}

template <BlockKind kind>
void Walk(const DecodeState& state, const BlockLayout& layout, const ScanBand& band,
          CoefficientStore& store, BitReader& reader) {
  if (state.scan_components == 1) {
    SingleComponentWalk<kind>(state, layout, band, store, reader);
  } else {
    InterleavedWalk<kind>(state, layout, band, store, reader);
  }
}

// The transform and colour conversion of whole MCU rows, into the layer or, without pixels
// kept, into a row buffer of each worker. A worker's buffers are taken at its first rows.
class RowTransform final : public RowFinisher {
 public:
  RowTransform(const DecodeState& frame, RawLayer& out, const CoefficientStore& coefficients,
               const BlockLayout& blocks, uint64_t blocks_per_row, uint64_t row_pixels)
      : state(frame),
        layer(out),
        store(coefficients),
        layout(blocks),
        row_blocks(blocks_per_row),
        pixel_count(row_pixels) {
    for (int slot = 0; slot < 4; ++slot) {
      if (layout.first[slot] >= 0) {
        for (int32_t i = 0; i < layout.h[slot] * layout.v[slot]; ++i) {
          block_tables[layout.first[slot] + i] = state.components[slot]->quant_table;
        }
      }
    }
  }

  // Takes the worker's buffers unless it has them; throws where they cannot be had.
  void Prepare(int32_t worker) {
    if (samples[worker] == nullptr) {
      samples[worker].reset(AllocateArray<float>(row_blocks * 64));
    }
    if (!state.keep_pixels && rows[worker] == nullptr) {
      rows[worker].reset(AllocateArray<uint16_t>(pixel_count * 4));
    }
  }

  void Finish(int64_t first, int64_t last, int32_t worker) override {
    if (first >= last) {
      return;
    }
    Prepare(worker);
    float* const own_samples = samples[worker].get();
    for (int64_t r = first; r < last; ++r) {
      const int16_t* block = store.coefficients + r * static_cast<int64_t>(row_blocks) * 64;
      float* sample = own_samples;
      for (int64_t m = 0; m < state.mcus_across; ++m) {
        for (int32_t b = 0; b < layout.blocks_per_mcu; ++b) {
          InverseDCT(block, sample, *block_tables[b]);
          block += 64;
          sample += 64;
        }
      }
      const auto y = static_cast<uint32_t>(r * state.mcu_height);
      if (state.keep_pixels) {
        ConvertMcuRow(state, layer, y, own_samples);
      } else {
        ConvertMcuRowInto(state, rows[worker].get(), y, own_samples);
      }
    }
  }

 private:
  const DecodeState& state;
  RawLayer& layer;
  const CoefficientStore& store;
  const BlockLayout& layout;
  const uint64_t row_blocks;
  const uint64_t pixel_count;
  const QuantTable* block_tables[kMaxBlocksPerMcu] = {};
  std::unique_ptr<float[]> samples[2];
  std::unique_ptr<uint16_t[]> rows[2];
};

}  // namespace

void DecodeProgressive(DecodeState& state, RawLayer& layer, const uint8_t* data, int32_t length) {
  for (QuantTable* table : state.quant_tables) {
    if (table != nullptr) {
      ScaleQuantTable(*table);
    }
  }
  for (ComponentInfo* c : state.components) {
    if (c == nullptr) {
      continue;
    }
    if (c->quant_index < 0 || c->quant_index > 3 || state.quant_tables[c->quant_index] == nullptr) {
      throw RawLayerException(L"Missing quantization table index");
    }
    c->quant_table = state.quant_tables[c->quant_index];
  }
  const BlockLayout layout = PlannedLayout(state);

  // Refuse a frame whose buffers cannot all be had before taking any of them: the whole
  // image's coefficients, the pixels (or one MCU row of them) and one MCU row of samples.
  const uint64_t block_count =
      uint64_t(uint32_t(state.mcu_count)) * uint32_t(layout.blocks_per_mcu);
  const uint64_t row_blocks =
      uint64_t(uint32_t(state.mcus_across)) * uint32_t(layout.blocks_per_mcu);
  const uint64_t rows_kept = state.keep_pixels ? layer.height : uint64_t(state.mcu_height);
  const uint64_t pixel_count = uint64_t{layer.width} * rows_kept;
  const uint64_t store_bytes = block_count * 64 * sizeof(int16_t);
  CheckAllocation(store_bytes + pixel_count * 4 * sizeof(uint16_t) +
                  row_blocks * 64 * sizeof(float));
  // Zeroed by the allocator: a large block comes as fresh pages, and pages that no scan writes
  // are never touched.
  std::unique_ptr<int16_t, void (*)(void*)> owner(
      static_cast<int16_t*>(std::calloc(store_bytes != 0 ? store_bytes : 1, 1)), std::free);
  if (owner == nullptr) {
    throw RawLayerException(L"Image too large for this machine's memory");
  }
  // Each scan walks the whole store: huge pages spare the walks most of their TLB misses.
  AdviseHugePages(owner.get(), store_bytes);
  CoefficientStore store;
  store.coefficients = owner.get();

  BitReader reader;
  reader.cursor = data;
  reader.end = data + (length > 0 ? length : 0);
  reader.Clear();
  RowTransform transform(state, layer, store, layout, row_blocks, pixel_count);
  DecodeScans(state, layer, store, reader, state.keep_pixels ? nullptr : &transform);

  if (state.keep_pixels) {
    layer.AllocatePixels();
  }
  int64_t rows = state.mcus_down;
  if (state.skip_idle && !state.keep_pixels && store.touched_rows < rows) {
    rows = store.touched_rows;  // the rows below are flat grey, and nobody keeps them
  }
  for (int64_t r = 0; r < rows; ++r) {
    ApplyPending(state, layout, store, r);
  }
  const int64_t first = store.finished_rows < rows ? store.finished_rows : rows;
  // The rows are independent: with threads allowed, a second thread takes the lower half.
  if (state.threads && rows - first >= 16 && std::thread::hardware_concurrency() >= 2) {
    const int64_t half = first + (rows - first) / 2;
    transform.Prepare(1);  // here, where a failure can be thrown
    std::thread lower;
    try {
      lower = std::thread([&]() { transform.Finish(half, rows, 1); });
    } catch (const std::system_error&) {
      transform.Finish(first, rows, 0);  // no thread to be had: one does all
      return;
    }
    transform.Finish(first, half, 0);
    lower.join();
    return;
  }
  transform.Finish(first, rows, 0);
}

int64_t WalkToNextScan(DecodeState& state, RawLayer& layer, const uint8_t* base,
                       int32_t remaining) {
  // The walk claims each byte once, which bounds it by the data.
  ByteCoverage coverage(base, remaining);
  int64_t position = 0;
  for (;;) {
    // Zero bytes, and stuffed FF 00 pairs, before a marker are passed over.
    coverage.IdentifyAt(position, 1);
    const uint8_t prefix = base[position++];
    if (prefix == 0) {
      continue;
    }
    if (prefix != 0xFF) {
      throw RawLayerException(L"Missing marker prefix");
    }
    coverage.IdentifyAt(position, 1);
    const uint8_t code = base[position++];
    if (code == 0) {
      continue;
    }
    // The length is claimed before the code is judged, also for a segment to be refused.
    coverage.IdentifyAt(position, 2);
    const int32_t length = ReadBig16(base + position) - 2;
    position += 2;
    const uint8_t* payload = base + position;  // inside the data: its length was claimed
    if (code == 0xC4) {
      DHTMarker marker(code, length, payload);
      marker.Parse(coverage);
      marker.Apply(state, layer, false);  // replaces tables for the scans to come
    } else if (code == 0xDD) {
      DRIMarker marker(code, length, payload);
      marker.Parse(coverage);
      marker.Apply(state, layer, false);  // the restart interval of the scans to come
    } else if (code == 0xDA) {
      SOSMarker marker(code, length, payload);
      marker.Parse(coverage);
      marker.Apply(state, layer, false);
    } else {
      throw RawLayerException(L"Unexpected JPEG marker between scans");
    }
    position += length;
    if (code == 0xDA) {
      return position;
    }
  }
}

void DecodeScans(DecodeState& state, RawLayer& layer, CoefficientStore& store, BitReader& reader,
                 RowFinisher* follow) {
  if (state.threads && DecodeScansOnTwoThreads(state, layer, store, reader, follow)) {
    return;
  }
  uint64_t scan_count = 0;
  while (reader.cursor < reader.end) {
    CheckLimit(L"Too many scans", ++scan_count, state.limits.max_scans);
    DecodeScan(state, store, reader);
    if (reader.cursor >= reader.end) {
      return;  // the range stops at the end-of-image marker
    }
    const auto remaining = static_cast<int32_t>(reader.end - reader.cursor);
    const int64_t position = WalkToNextScan(state, layer, reader.cursor, remaining);
    reader.Clear();
    // A length that reaches past the data leaves the next scan nothing to read.
    reader.cursor = position < remaining ? reader.cursor + position : reader.end;
  }
}

void BindScanTables(DecodeState& state) {
  // A component that the frame lacks has no blocks in the store: refuse the scan rather than
  // guess where its data belongs.
  for (ComponentInfo* c : state.components) {
    if (c == nullptr) {
      continue;
    }
    if (c->in_scan && c->quant_table == nullptr) {
      throw RawLayerException(L"Scan component is not part of the frame");
    }
    c->dc_table = c->dc_index >= 0 && c->dc_index <= 3 ? state.dc_tables[c->dc_index] : nullptr;
    c->ac_table = c->ac_index >= 0 && c->ac_index <= 3 ? state.ac_tables[c->ac_index] : nullptr;
  }
}

void DecodeScan(DecodeState& state, CoefficientStore& store, BitReader& reader) {
  BindScanTables(state);
  const BlockLayout layout = PlannedLayout(state);
  const ScanBand band = BandOf(state);
  ForKind(KindOf(band),
          [&](auto kind) { Walk<decltype(kind)::value>(state, layout, band, store, reader); });
}

}  // namespace corvi
