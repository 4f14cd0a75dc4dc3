// The entropy coder of the rewriter: symbol statistics, Huffman codes built from them, and the
// two passes over the coefficients (T.81 F.1.2, K.2).
#include "merge/huffman_encode.h"

#include <algorithm>
#include <bit>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "base/raw_layer.h"
#include "decode/decode_state.h"
#include "merge/merge.h"
#include "platform/system_info.h"

namespace corvi {
namespace {

// Bits in the magnitude of `value`: 0 for 0.
inline int32_t MagnitudeBits(int32_t value) {
  const uint32_t magnitude =
      value < 0 ? 0u - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
  return 32 - std::countl_zero(magnitude);
}

// The tables of one block's component.
struct BlockTables {
  HuffmanStats* dc;
  HuffmanStats* ac;
  int32_t slot;
};

// The components of an MCU, block by block, in the order of the coefficient store.
int32_t PlanBlocks(const MergeState& state, BlockTables (&plan)[6]) {
  int32_t n = 0;
  for (int32_t slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = state.components[slot];
    if (c == nullptr) {
      continue;
    }
    for (int32_t k = 0; k < c->h * c->v && n < 6; ++k) {
      plan[n++] = {state.dc_stats[c->dc_index], state.ac_stats[c->ac_index], slot};
    }
  }
  return n;
}

// Growable output of the entropy-coded bytes with a 64-bit accumulator. The bytes that come out
// depend only on the sequence of bits: most significant first, 0x00 after every 0xFF, the last
// byte filled with 1 bits.
class BitSink {
 public:
  explicit BitSink(uint64_t expected) {
    capacity = expected < 4096 ? 4096 : expected;
    data = AllocateArray<uint8_t>(capacity);
    AdviseHugePages(data, capacity);
  }
  BitSink(const BitSink&) = delete;
  BitSink& operator=(const BitSink&) = delete;
  ~BitSink() { delete[] data; }

  // Appends the low `n` bits of `value`, n from 0 to 32: a code and its value bits at once.
  inline void Put(uint64_t value, int32_t n) {
    acc = (acc << n) | (value & ((uint64_t{1} << n) - 1));
    bits += n;
    if (bits >= 32) {
      Drain();
    }
  }

  void Finish() {
    const int32_t fill = (8 - bits % 8) % 8;
    Put((1u << fill) - 1, fill);
    while (bits >= 8) {
      Emit(static_cast<uint8_t>(acc >> (bits - 8)));
      bits -= 8;
    }
  }

  uint8_t* Release(uint32_t& out_length) {
    uint8_t* p = data;
    data = nullptr;
    out_length = static_cast<uint32_t>(length);
    return p;
  }

 private:
  // Moves whole bytes out while 8 or more bits wait.
  void Drain() {
    if (length + 16 > capacity) {
      Grow();
    }
    while (bits >= 8) {
      const auto byte = static_cast<uint8_t>(acc >> (bits - 8));
      data[length++] = byte;
      if (byte == 0xFF) {
        data[length++] = 0x00;
      }
      bits -= 8;
    }
    acc &= (uint64_t{1} << bits) - 1;
  }

  void Emit(uint8_t byte) {
    if (length + 2 > capacity) {
      Grow();
    }
    data[length++] = byte;
    if (byte == 0xFF) {
      data[length++] = 0x00;
    }
  }

  void Grow() {
    const uint64_t grown = capacity * 2;
    if (grown > 0xFFFFFFFFu) {
      throw RawLayerException(L"Image too large for this machine's memory");
    }
    uint8_t* p = AllocateArray<uint8_t>(grown);
    std::memcpy(p, data, length);
    delete[] data;
    data = p;
    capacity = grown;
  }

  uint8_t* data = nullptr;  // owned until released
  uint64_t length = 0;
  uint64_t capacity = 0;
  uint64_t acc = 0;  // the low `bits` bits wait, the oldest highest
  int32_t bits = 0;
};

// A block as the two passes read it: its DC value, the mask of its nonzero AC coefficients in
// zig-zag order, and those coefficients one after the other, lowest zig-zag index first.
class DenseBlock {
 public:
  // `values` in zig-zag order, or in natural order (gathered here) when `natural`.
  DenseBlock(const int16_t* block, bool natural) {
    if (natural) {
      for (int32_t k = 0; k < 64; ++k) {
        gathered[k] = block[zigzag[k]];
      }
      values = gathered;
    } else {
      values = block;
    }
    nonzero = NonzeroMask(values);
  }
  int32_t Dc() const { return values[0]; }
  int32_t Next(int32_t k) const { return values[k]; }
  uint64_t nonzero;

 private:
  int16_t gathered[64];
  const int16_t* values;
};

// The same read from a packed block (see PackBlock); `end` is where the next block starts.
class PackedBlock {
 public:
  explicit PackedBlock(const uint8_t* block) {
    std::memcpy(&nonzero, block, sizeof nonzero);
    std::memcpy(&dc, block + 8, sizeof dc);
    end = block + kPackedBlockHead;
  }
  int32_t Dc() const { return dc; }
  int32_t Next(int32_t /*k*/) {
    int16_t value;
    std::memcpy(&value, end, sizeof value);
    end += sizeof value;
    return value;
  }
  uint64_t nonzero;
  const uint8_t* end;

 private:
  int16_t dc;
};

// First pass over one block: counts its symbols.
template <typename Block>
inline void CountBlock(Block& block, int32_t& prediction, const BlockTables& tables) {
  const int32_t dc = block.Dc();
  const int32_t diff = dc - prediction;
  prediction = dc;
  tables.dc->entries[MagnitudeBits(diff)].frequency++;
  HuffmanStats::Entry* ac = tables.ac->entries;
  int32_t last = 0;  // zig-zag index of the last coefficient coded
  for (uint64_t mask = block.nonzero; mask != 0; mask &= mask - 1) {
    const int32_t k = std::countr_zero(mask);
    int32_t run = k - last - 1;
    if (run > 15) {
      const int32_t n = ((run - 16) / 16) + 1;
      ac[0xF0].frequency += n;
      run -= 16 * n;
    }
    ac[run * 16 + MagnitudeBits(block.Next(k))].frequency++;
    last = k;
  }
  if (last != 63) {
    ac[0x00].frequency++;  // zeros up to the end
  }
}

// Second pass over one block: puts out its codes and value bits.
template <typename Block>
inline void WriteBlock(Block& block, int32_t& prediction, const BlockTables& tables,
                       BitSink& sink) {
  const int32_t dc = block.Dc();
  const int32_t diff = dc - prediction;
  prediction = dc;
  const int32_t category = MagnitudeBits(diff);
  const HuffmanStats::Entry& dc_entry = tables.dc->entries[category];
  // The code, then `category` value bits: the low bits of diff, or of diff - 1 when negative.
  const uint64_t dc_bits =
      static_cast<uint32_t>(diff < 0 ? diff - 1 : diff) & ((uint64_t{1} << category) - 1);
  sink.Put((uint64_t{dc_entry.code} << category) | dc_bits, dc_entry.length + category);
  const HuffmanStats::Entry* ac = tables.ac->entries;
  int32_t last = 0;
  for (uint64_t mask = block.nonzero; mask != 0; mask &= mask - 1) {
    const int32_t k = std::countr_zero(mask);
    int32_t run = k - last - 1;
    while (run > 15) {
      sink.Put(ac[0xF0].code, ac[0xF0].length);
      run -= 16;
    }
    const int32_t value = block.Next(k);
    const int32_t size = MagnitudeBits(value);
    const HuffmanStats::Entry& entry = ac[run * 16 + size];
    const uint64_t value_bits =
        static_cast<uint32_t>(value < 0 ? value - 1 : value) & ((uint64_t{1} << size) - 1);
    sink.Put((uint64_t{entry.code} << size) | value_bits, entry.length + size);
    last = k;
  }
  if (last != 63) {
    sink.Put(ac[0x00].code, ac[0x00].length);
  }
}

}  // namespace

uint64_t NonzeroMaskPlain(const int16_t* values) {
  uint64_t nonzero = 0;
  for (int32_t k = 1; k < 64; ++k) {
    nonzero |= static_cast<uint64_t>(values[k] != 0) << k;
  }
  return nonzero;
}

uint64_t NonzeroMask(const int16_t* values) {
#if defined(__SSE2__)
  // Compare with zero eight at a time and pack the results into bytes for movemask.
  const __m128i zero = _mm_setzero_si128();
  uint64_t zeros = 0;
  for (int32_t i = 0; i < 4; ++i) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(values + 16 * i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(values + 16 * i + 8));
    const __m128i packed = _mm_packs_epi16(_mm_cmpeq_epi16(a, zero), _mm_cmpeq_epi16(b, zero));
    zeros |= static_cast<uint64_t>(static_cast<uint32_t>(_mm_movemask_epi8(packed))) << (16 * i);
  }
  return ~zeros & ~uint64_t{1};
#else
  return NonzeroMaskPlain(values);
#endif
}

void BuildHuffmanCode(HuffmanStats& stats) {
  HuffmanStats::Entry* e = stats.entries;
  int64_t freq[256];
  int32_t next[256];
  for (int32_t i = 0; i < 256; ++i) {
    freq[i] = e[i].frequency;
    next[i] = -1;
    e[i].length = 0;
    e[i].code = 0;
  }
  // Symbol 255 stands in for the reserved all-ones code.
  freq[255] = 1;

  // Tree building: join the two rarest; among equals the higher symbol comes first.
  for (;;) {
    int32_t c1 = -1;
    int32_t c2 = -1;
    for (int32_t i = 255; i >= 0; --i) {
      if (freq[i] == 0) {
        continue;
      }
      if (c1 < 0 || freq[i] < freq[c1]) {
        c2 = c1;
        c1 = i;
      } else if (c2 < 0 || freq[i] < freq[c2]) {
        c2 = i;
      }
    }
    if (c2 < 0) {
      break;
    }
    e[c1].length++;
    int32_t k = c1;
    while (next[k] >= 0) {
      k = next[k];
      e[k].length++;
    }
    next[k] = c2;
    e[c2].length++;
    k = c2;
    while (next[k] >= 0) {
      k = next[k];
      e[k].length++;
    }
    freq[c1] += freq[c2];
    freq[c2] = 0;
  }

  // Length limiting (T.81 K.3): move pairs of the longest codes up until none is over 16.
  for (;;) {
    int32_t longest = -1;
    int32_t partner = -1;
    for (int32_t i = 255; i >= 0; --i) {
      if (e[i].length == 0) {
        continue;
      }
      if (longest < 0 || e[i].length > e[longest].length) {
        longest = i;
        partner = -1;
      } else if (partner < 0 && e[i].length == e[longest].length) {
        partner = i;
      }
    }
    if (longest < 0 || e[longest].length <= 16) {
      break;
    }
    e[longest].length--;
    int32_t c = -1;
    for (int32_t i = 255; i >= 0; --i) {
      const int32_t l = e[i].length;
      if (l >= 1 && l <= 15 && (c < 0 || l > e[c].length)) {
        c = i;
      }
    }
    if (partner < 0 || c < 0) {
      break;  // cannot happen in a full tree; keeps a damaged table from looping
    }
    const int32_t d = e[c].length;
    e[partner].length = d + 1;
    e[c].length = d + 1;
  }

  // Canonical codes, in symbol order within each length.
  uint32_t code = 0;
  for (int32_t l = 1; l <= 16; ++l) {
    for (int32_t i = 0; i < 256; ++i) {
      if (e[i].length == l) {
        e[i].code = code++;
      }
    }
    code <<= 1;
  }
  e[255].length = 0;  // the pseudo-symbol leaves; nobody holds the all-ones code
}

namespace {

void BuildAllCodes(MergeState& state) {
  for (int32_t i = 0; i < 4; ++i) {
    if (state.dc_stats[i] != nullptr) {
      BuildHuffmanCode(*state.dc_stats[i]);
    }
    if (state.ac_stats[i] != nullptr) {
      BuildHuffmanCode(*state.ac_stats[i]);
    }
  }
}

void TakeEntropyData(MergeState& state, BitSink& sink) {
  sink.Finish();
  delete[] state.entropy_data;
  state.entropy_data = nullptr;
  state.entropy_data = sink.Release(state.entropy_length);
}

// A first guess of the scan's size: a byte for every 16 coefficients.
uint64_t ExpectedScanBytes(const MergeState& state) {
  return static_cast<uint64_t>(state.mcu_count) * static_cast<uint64_t>(state.blocks_per_mcu) * 4;
}

}  // namespace

void EncodeScan(MergeState& state, const int16_t* coefficients) {
  BlockTables plan[6];
  const int32_t blocks = PlanBlocks(state, plan);
  int32_t predictions[4] = {};
  const int16_t* block = coefficients;
  for (int32_t m = 0; m < state.mcu_count; ++m) {
    for (int32_t b = 0; b < blocks; ++b, block += 64) {
      DenseBlock dense(block, true);
      CountBlock(dense, predictions[plan[b].slot], plan[b]);
    }
  }
  BuildAllCodes(state);
  BitSink sink(ExpectedScanBytes(state));
  block = coefficients;
  std::fill(predictions, predictions + 4, 0);
  for (int32_t m = 0; m < state.mcu_count; ++m) {
    for (int32_t b = 0; b < blocks; ++b, block += 64) {
      DenseBlock dense(block, true);
      WriteBlock(dense, predictions[plan[b].slot], plan[b], sink);
    }
  }
  TakeEntropyData(state, sink);
}

size_t PackBlock(const int16_t* block, uint8_t* out) {
  const uint64_t nonzero = NonzeroMask(block);
  std::memcpy(out, &nonzero, sizeof nonzero);
  std::memcpy(out + 8, block, sizeof(int16_t));
  uint8_t* next = out + kPackedBlockHead;
  for (uint64_t mask = nonzero; mask != 0; mask &= mask - 1) {
    std::memcpy(next, block + std::countr_zero(mask), sizeof(int16_t));
    next += sizeof(int16_t);
  }
  return static_cast<size_t>(next - out);
}

size_t CountPackedBlock(const uint8_t* block, int32_t& prediction, HuffmanStats& dc,
                        HuffmanStats& ac) {
  PackedBlock packed(block);
  CountBlock(packed, prediction, BlockTables{&dc, &ac, 0});
  return static_cast<size_t>(packed.end - block);
}

void WritePackedScan(MergeState& state, const uint8_t* blocks) {
  BlockTables plan[6];
  const int32_t count = PlanBlocks(state, plan);
  BuildAllCodes(state);
  BitSink sink(ExpectedScanBytes(state));
  int32_t predictions[4] = {};
  const uint8_t* next = blocks;
  for (int32_t m = 0; m < state.mcu_count; ++m) {
    for (int32_t b = 0; b < count; ++b) {
      PackedBlock packed(next);
      WriteBlock(packed, predictions[plan[b].slot], plan[b], sink);
      next = packed.end;
    }
  }
  TakeEntropyData(state, sink);
}

}  // namespace corvi
