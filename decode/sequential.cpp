// Baseline (sequential Huffman) scan decoding, one MCU row at a time.
#include "decode/sequential.h"

#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/color.h"
#include "decode/decode_state.h"
#include "decode/huffman.h"
#include "decode/idct.h"

namespace corvi {
namespace {

// Binds the quantisation and Huffman tables that a component's indices name.
void BindTables(const DecodeState& state, ComponentInfo& c) {
  if (c.quant_index < 0 || c.quant_index > 3 || state.quant_tables[c.quant_index] == nullptr) {
    throw RawLayerException(L"Missing quantization table index");
  }
  c.quant_table = state.quant_tables[c.quant_index];
  if (c.dc_index < 0 || c.dc_index > 3 || state.dc_tables[c.dc_index] == nullptr) {
    throw RawLayerException(L"Missing Huffman table index");
  }
  c.dc_table = state.dc_tables[c.dc_index];
  if (c.ac_index < 0 || c.ac_index > 3 || state.ac_tables[c.ac_index] == nullptr) {
    throw RawLayerException(L"Missing Huffman table index");
  }
  c.ac_table = state.ac_tables[c.ac_index];
}

// Bits looked at by one access to an AcLookup.
constexpr uint32_t kLookaheadBits = 10;
constexpr uint32_t kLookaheadEntries = uint32_t{1} << kLookaheadBits;

// One entry of the combined AC lookup, packed in 32 bits so that one load gives everything: a
// code of at most 8 bits together with its extra bits, so that one table access yields the run
// and the extended value. Bits 0 to 4: the bits of the code and its extra bits, 0 for no entry
// (decode this symbol the long way: longer codes, codes whose extra bits do not fit, ZRL); bits
// 8 to 11: the zeros before the coefficient; bit 15: a symbol that ends the block (size 0, not
// ZRL), whose bit count is that of its code; bits 16 to 31: the coefficient, as the long way
// stores it.
using AcEntry = uint32_t;
constexpr AcEntry kEndOfBlock = 1u << 15;

inline AcEntry PackAcEntry(uint32_t total, uint32_t run, bool end, int32_t value) {
  return total | run << 8 | (end ? kEndOfBlock : 0) |
         static_cast<uint32_t>(static_cast<uint16_t>(value)) << 16;
}

// Fills `lookup` from the complete codes of page 0 of `table`: the top 8 of the looked-at bits
// find the code exactly as DecodeSymbol does, the bits behind it are the extra bits.
void BuildAcLookup(const HuffmanTable& table, AcEntry* lookup) {
  for (uint32_t p = 0; p < kLookaheadEntries; ++p) {
    AcEntry e = 0;
    const uint32_t entry = table.pages[p >> (kLookaheadBits - 8)];
    const uint32_t n = entry >> 8;
    if (n >= 1 && n <= 8) {
      const uint32_t run = (entry >> 4) & 15;
      const uint32_t size = entry & 15;
      if (size == 0) {
        if (run != 15) {
          e = PackAcEntry(n, 0, true, 0);
        }
      } else if (n + size <= kLookaheadBits) {
        const uint32_t extra = (p >> (kLookaheadBits - n - size)) & ((uint32_t{1} << size) - 1);
        e = PackAcEntry(n + size, run, false, Extend(extra, size));
      }
    }
    lookup[p] = e;
  }
}

// The literal refill step of DecodeSymbol on page 0, taken inline: when the refill brings the
// accumulator above 24 bits the symbol can be decoded without another refill, so committing the
// new bits now ends in the state the full decode stores. Returns false, with nothing changed,
// when the data ran short: then only the full decode knows which bytes it keeps.
inline bool RefillForSymbol(const uint8_t*& cursor, const uint8_t* end, uint32_t& bits,
                            uint32_t& bit_count) {
  const uint8_t* c = cursor;
  uint32_t b = bits;
  uint32_t n = bit_count;
  RefillBits(c, end, b, n);
  if (n <= 24) {
    return false;
  }
  cursor = c;
  bits = b;
  bit_count = n;
  return true;
}

// One MCU with the AC lookups of the four component slots. The reader lives in locals and goes
// back into a BitReader only around the long way. Bytes are taken exactly where DecodeSymbol and
// ReceiveBits would take them: a refill is only done where their steps do one, because near the
// end of the data the bytes a refill took can be dropped again (a failed refill behind a link),
// and bytes taken early would survive that.
int16_t* DecodeMcuFast(const DecodeState& state, int16_t* out, BitReader& reader,
                       int32_t* dc_predictors, const AcEntry* const* lookups) {
  BitReader slow = reader;
  const uint8_t* cursor = reader.cursor;
  const uint8_t* const end = reader.end;
  uint32_t bits = reader.bits;
  uint32_t bit_count = reader.bit_count;
  for (int32_t slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = state.components[slot];
    if (c == nullptr || c->h * c->v <= 0) {
      continue;
    }
    const HuffmanTable& dc_table = *c->dc_table;
    const HuffmanTable& ac_table = *c->ac_table;
    const uint16_t* const page0 = ac_table.pages;
    const uint16_t* const dc_page0 = dc_table.pages;
    const AcEntry* lookup = lookups[slot];
    for (int32_t b = c->h * c->v; b > 0; --b) {
      std::memset(out, 0, 64 * sizeof(int16_t));

      // DC difference: the symbol is a bit count with no upper limit tested; the predictor runs
      // in uint32_t and the coefficient takes its low 16 bits.
      // A code of page 0 with its extra bits all held takes no refill: it is taken here. A code
      // that the bits held do not cover is refilled for as DecodeSymbol does (see the AC loop).
      int32_t diff;
      for (;;) {
        const uint32_t entry = dc_page0[bits >> 24];
        const uint32_t n = entry >> 8;  // 1 to 8 for a code; 0xFE and 0xFF lie above any count
        const uint32_t size = entry & 0xFF;
        if (n <= bit_count && size <= 16 && n + size <= bit_count) {
          bits <<= n;
          diff = size != 0 ? Extend(bits >> (32 - size), size) : 0;
          bits = size != 0 ? bits << size : bits;
          bit_count -= n + size;
          break;
        }
        if (n > bit_count && ((entry & 0xFF00) != 0xFE00 || bit_count < 8) && bit_count <= 24 &&
            RefillForSymbol(cursor, end, bits, bit_count)) {
          continue;
        }
        slow.cursor = cursor;
        slow.bits = bits;
        slow.bit_count = bit_count;
        const uint32_t s = DecodeSymbol(slow, dc_table);
        diff = s != 0 ? Extend(ReceiveBits(slow, s), s) : 0;
        cursor = slow.cursor;
        bits = slow.bits;
        bit_count = slow.bit_count;
        break;
      }
      const uint32_t predictor =
          static_cast<uint32_t>(dc_predictors[slot]) + static_cast<uint32_t>(diff);
      dc_predictors[slot] = static_cast<int32_t>(predictor);
      out[0] = static_cast<int16_t>(static_cast<uint16_t>(predictor));

      // AC coefficients. Every symbol with size 0 but ZRL ends the block, and a run that would
      // take k past 63 ends it too, after its value bits are read: no coefficient exists there,
      // and nothing is written outside the block.
      uint32_t k = 1;
      while (k < 64) {
        const AcEntry e = lookup[bits >> (32 - kLookaheadBits)];
        const uint32_t total = e & 31;
        if (total != 0 && total <= bit_count) {
          bits <<= total;
          bit_count -= total;
          if ((e & kEndOfBlock) != 0) {
            break;
          }
          k += (e >> 8) & 15;
          if (k > 63) {  // no coefficient there: the value is read and dropped, the block ends
            break;
          }
          out[zigzag[k]] = static_cast<int16_t>(static_cast<uint16_t>(e >> 16));
          ++k;
          continue;
        }
        // A code of page 0 that the bits held do not cover (or no bits at all): DecodeSymbol
        // refills here. A link with 8 bits held is followed first, so it goes the long way.
        const uint32_t entry = page0[bits >> 24];
        if ((entry >> 8) > bit_count && ((entry & 0xFF00) != 0xFE00 || bit_count < 8) &&
            bit_count <= 24 && RefillForSymbol(cursor, end, bits, bit_count)) {
          continue;
        }
        // The long way for one symbol.
        slow.cursor = cursor;
        slow.bits = bits;
        slow.bit_count = bit_count;
        const uint32_t rs = DecodeSymbol(slow, ac_table);
        const uint32_t run = rs >> 4;
        const uint32_t size = rs & 15;
        bool done = false;
        if (size != 0) {
          k += run;
          const int32_t value = Extend(ReceiveBits(slow, size), size);
          if (k > 63) {
            done = true;
          } else {
            out[zigzag[k]] = static_cast<int16_t>(static_cast<uint16_t>(value));
            ++k;
          }
        } else if (run == 15) {
          k += 16;
        } else {
          done = true;
        }
        cursor = slow.cursor;
        bits = slow.bits;
        bit_count = slow.bit_count;
        if (done) {
          break;
        }
      }
      out += 64;
    }
  }
  reader.cursor = cursor;
  reader.bits = bits;
  reader.bit_count = bit_count;
  return out;
}

// Frames of fewer MCU rows are decoded on one thread: a second one would not pay for itself.
constexpr int32_t kPipelineMinRows = 16;
// Rows of coefficients in flight between the two threads.
constexpr int32_t kPipelineRows = 4;

// The hand-over of decoded rows from the entropy decoder to the transform thread.
class RowPipeline {
 public:
  // Waits until row `r` is published (true), or the decoder has stopped before it (false).
  bool WaitForRow(int32_t r) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return published > r || closed; });
    return published > r;
  }
  void Finished(int32_t r) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      finished = r + 1;
    }
    changed.notify_all();
  }
  // Waits until the slot of row `r` in a ring of `ring` rows is free.
  void WaitForSlot(int32_t r, int32_t ring) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return finished > r - ring; });
  }
  void Publish(int32_t r) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      published = r + 1;
    }
    changed.notify_all();
  }
  // No more rows: the transform thread finishes those published and stops.
  void Close() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      closed = true;
    }
    changed.notify_all();
  }

 private:
  std::mutex mutex;
  std::condition_variable changed;
  int32_t published = 0;  // rows decoded and handed over
  int32_t finished = 0;   // rows transformed and converted
  bool closed = false;
};

// The blocks of one MCU as exhausted data decodes them: flat, with each component's last DC.
int16_t* FlatMcu(const DecodeState& state, int16_t* out, const int32_t* dc_predictors) {
  for (int32_t slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = state.components[slot];
    if (c == nullptr || c->h * c->v <= 0) {
      continue;
    }
    for (int32_t b = c->h * c->v; b > 0; --b) {
      std::memset(out, 0, 64 * sizeof(int16_t));
      out[0] = static_cast<int16_t>(static_cast<uint16_t>(dc_predictors[slot]));
      out += 64;
    }
  }
  return out;
}

}  // namespace

void DecodeSequential(DecodeState& state, RawLayer& layer, const uint8_t* data, int32_t length) {
  // Refuse the image before anything is allocated: the pixels (or one MCU row of them) plus one
  // MCU row of coefficients and samples, all sizes in 64 bits (a 200-byte file can declare
  // 65535 x 65535).
  const uint64_t row_values = uint64_t{static_cast<uint32_t>(state.blocks_per_row)} * 64;
  const uint64_t rows_kept = state.keep_pixels ? state.height : uint64_t(state.mcu_height);
  const uint64_t pixel_count = uint64_t{state.width} * rows_kept;
  CheckAllocation(pixel_count * 4 * sizeof(uint16_t) +
                  row_values * (sizeof(int16_t) + sizeof(float)));
  std::unique_ptr<uint16_t[]> row_buffer;
  if (state.keep_pixels) {
    layer.AllocatePixels();
  } else {
    row_buffer.reset(AllocateArray<uint16_t>(pixel_count * 4));
  }

  for (QuantTable* table : state.quant_tables) {
    if (table != nullptr) {
      ScaleQuantTable(*table);
    }
  }
  for (ComponentInfo* c : state.components) {
    if (c != nullptr) {
      BindTables(state, *c);
    }
  }

  std::unique_ptr<AcEntry[]> lookup_block(new AcEntry[4 * kLookaheadEntries]);
  const AcEntry* lookups[4] = {nullptr, nullptr, nullptr, nullptr};
  for (int32_t slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = state.components[slot];
    if (c != nullptr) {
      AcEntry* lookup = lookup_block.get() + static_cast<size_t>(slot) * kLookaheadEntries;
      BuildAcLookup(*c->ac_table, lookup);
      lookups[slot] = lookup;
    }
  }

  // Rows of coefficients between the entropy decoder and the transform: one when both run on
  // this thread, a ring when the transform and the colour conversion run on a second one.
  const bool two_threads = state.threads && state.mcus_down >= kPipelineMinRows &&
                           std::thread::hardware_concurrency() >= 2;
  const int32_t ring = two_threads ? kPipelineRows : 1;
  std::unique_ptr<int16_t[]> coefficients(AllocateArray<int16_t>(row_values * ring));
  std::unique_ptr<float[]> samples(AllocateArray<float>(row_values));
  std::unique_ptr<uint8_t[]> convert_row(new uint8_t[static_cast<size_t>(ring)]);

  // The transform and conversion of one decoded row (of ring slot `slot`).
  auto finish_row = [&](int32_t r, int32_t slot) {
    if (convert_row[slot] == 0) {
      return;  // a row of flat blocks whose pixels nobody keeps
    }
    const int16_t* in = coefficients.get() + static_cast<size_t>(slot) * row_values;
    float* transformed = samples.get();
    for (int32_t m = 0; m < state.mcus_across; ++m) {
      for (const ComponentInfo* c : state.components) {
        if (c == nullptr || c->h * c->v <= 0) {
          continue;
        }
        for (int32_t b = c->h * c->v; b > 0; --b) {
          InverseDCT(in, transformed, *c->quant_table);
          in += 64;
          transformed += 64;
        }
      }
    }
    const uint32_t y = static_cast<uint32_t>(r) * static_cast<uint32_t>(state.mcu_height);
    if (state.keep_pixels) {
      ConvertMcuRow(state, layer, y, samples.get());
    } else {
      ConvertMcuRowInto(state, row_buffer.get(), y, samples.get());
    }
  };

  int32_t countdown = state.restart_interval != 0 ? state.restart_interval : 0x7FFFFFFF;
  uint32_t restart_number = 0;
  BitReader reader;
  reader.cursor = data;
  reader.end = data + length;
  int32_t dc_predictors[4] = {0, 0, 0, 0};
  const bool skip = state.skip_idle;

  // Idle: the reader gives nothing more until a restart step, so every MCU up to it decodes flat
  // with the components' last DC values. That holds once no bit is held and none can be taken,
  // and also once a whole MCU decoded at a data stop consumed nothing: the next one starts from
  // the same bits with the same tables and does the same.
  bool idle = false;
  // Decodes the next row into ring slot `slot`; false when the frame is done early.
  auto decode_row = [&](int32_t slot) {
    idle = idle || (skip && Exhausted(reader));
    // Without pixels to keep, flat blocks change nothing: once no restart can find more data
    // (none are coming, or the cursor stands at the end), the frame is done.
    if (idle && !state.keep_pixels &&
        (state.restart_interval == 0 || reader.cursor == reader.end)) {
      return false;
    }
    int16_t* out = coefficients.get() + static_cast<size_t>(slot) * row_values;
    bool row_read = false;  // some MCU of the row read the data
    for (int32_t m = 0; m < state.mcus_across;) {
      int32_t run = 1;
      if (idle || (skip && Exhausted(reader))) {
        idle = true;
        // Flat up to the next restart or the end of the row, without a symbol decoded.
        run = countdown < state.mcus_across - m ? countdown : state.mcus_across - m;
        for (int32_t i = 0; i < run; ++i) {
          out = FlatMcu(state, out, dc_predictors);
        }
      } else {
        const bool stuck = skip && AtDataStop(reader);
        const uint32_t bits = reader.bits;
        const uint32_t bit_count = reader.bit_count;
        out = DecodeMcuFast(state, out, reader, dc_predictors, lookups);
        row_read = true;
        idle = stuck && reader.bit_count == bit_count && reader.bits == bits;
      }
      m += run;
      countdown -= run;
      if (countdown == 0) {
        SeekRestartMarker(reader, restart_number);
        ++restart_number;
        std::memset(dc_predictors, 0, sizeof dc_predictors);
        countdown = state.restart_interval;
        idle = false;
      }
    }
    convert_row[slot] = state.keep_pixels || row_read || !skip ? 1 : 0;
    return true;
  };

  // One thread: each row decoded into the first slot, then transformed and converted.
  auto one_thread = [&]() {
    for (int32_t r = 0; r < state.mcus_down; ++r) {
      if (!decode_row(0)) {
        break;
      }
      finish_row(r, 0);
    }
  };
  if (!two_threads) {
    one_thread();
    return;
  }

  // Two threads: this one decodes rows into the ring, the other transforms and converts them in
  // order. Rows are handed over whole; the pixels are those one thread would give.
  RowPipeline pipe;
  std::thread transformer;
  try {
    transformer = std::thread([&]() {
      for (int32_t r = 0;; ++r) {
        if (!pipe.WaitForRow(r)) {
          return;
        }
        finish_row(r, r % ring);
        pipe.Finished(r);
      }
    });
  } catch (const std::system_error&) {
    one_thread();  // no thread to be had: this one does all
    return;
  }
  try {
    for (int32_t r = 0; r < state.mcus_down; ++r) {
      pipe.WaitForSlot(r, ring);
      if (!decode_row(r % ring)) {
        break;
      }
      pipe.Publish(r);
    }
  } catch (...) {
    pipe.Close();
    transformer.join();
    throw;
  }
  pipe.Close();
  transformer.join();
}

void SeekRestartMarker(BitReader& reader, uint32_t restart_number) {
  reader.Clear();
  const uint8_t expected = static_cast<uint8_t>(0xD0 + (restart_number & 7));
  const uint8_t* p = reader.cursor;
  const uint8_t* end = reader.end;
  // Only the pair 0xFF `expected` counts; other markers and entropy-coded bytes are passed over.
  while (end - p >= 2) {
    const void* found = std::memchr(p, 0xFF, static_cast<size_t>(end - p - 1));
    if (found == nullptr) {
      break;
    }
    p = static_cast<const uint8_t*>(found);
    if (p[1] == expected) {
      reader.cursor = p + 2;
      return;
    }
    ++p;
  }
  reader.cursor = end;
}

}  // namespace corvi
