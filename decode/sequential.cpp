// Baseline (sequential Huffman) scan decoding, one MCU row at a time.
#include "decode/sequential.h"

#include <cstring>
#include <memory>

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

}  // namespace

void DecodeSequential(DecodeState& state, RawLayer& layer, const uint8_t* data, int32_t length) {
  // Refuse the image before anything is allocated: the pixels plus one MCU row of coefficients
  // and samples, all sizes in 64 bits (a 200-byte file can declare 65535 x 65535).
  const uint64_t row_values = uint64_t{static_cast<uint32_t>(state.blocks_per_row)} * 64;
  const uint64_t pixel_bytes = uint64_t{state.width} * state.height * 4 * sizeof(uint16_t);
  CheckAllocation(pixel_bytes + row_values * (sizeof(int16_t) + sizeof(float)));
  layer.AllocatePixels();

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

  std::unique_ptr<int16_t[]> coefficients(AllocateArray<int16_t>(row_values));
  std::unique_ptr<float[]> samples(AllocateArray<float>(row_values));

  int32_t countdown = state.restart_interval != 0 ? state.restart_interval : 0x7FFFFFFF;
  uint32_t restart_number = 0;
  BitReader reader;
  reader.cursor = data;
  reader.end = data + length;
  int32_t dc_predictors[4] = {0, 0, 0, 0};

  for (int32_t r = 0; r < state.mcus_down; ++r) {
    int16_t* out = coefficients.get();
    for (int32_t m = 0; m < state.mcus_across; ++m) {
      out = DecodeSequentialMcu(state, out, reader, dc_predictors);
      if (--countdown == 0) {
        SeekRestartMarker(reader, restart_number);
        ++restart_number;
        std::memset(dc_predictors, 0, sizeof dc_predictors);
        countdown = state.restart_interval;
      }
    }

    // The whole row is decoded before its first block is transformed.
    const int16_t* in = coefficients.get();
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
    ConvertMcuRow(state, layer, static_cast<uint32_t>(r) * static_cast<uint32_t>(state.mcu_height),
                  samples.get());
  }
}

int16_t* DecodeSequentialMcu(DecodeState& state, int16_t* out, BitReader& reader,
                             int32_t* dc_predictors) {
  BitReader local = reader;  // the hot loop works on a copy, written back once
  for (int32_t slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = state.components[slot];
    if (c == nullptr || c->h * c->v <= 0) {
      continue;
    }
    const HuffmanTable& dc_table = *c->dc_table;
    const HuffmanTable& ac_table = *c->ac_table;
    for (int32_t b = c->h * c->v; b > 0; --b) {
      std::memset(out, 0, 64 * sizeof(int16_t));

      // T.81 F.2.2.1: DC difference. The symbol is a bit count with no upper limit tested; the
      // predictor runs in uint32_t and the coefficient takes its low 16 bits.
      uint32_t s = DecodeSymbol(local, dc_table);
      int32_t diff = s != 0 ? Extend(ReceiveBits(local, s), s) : 0;
      uint32_t predictor = static_cast<uint32_t>(dc_predictors[slot]) + static_cast<uint32_t>(diff);
      dc_predictors[slot] = static_cast<int32_t>(predictor);
      out[0] = static_cast<int16_t>(static_cast<uint16_t>(predictor));

      // T.81 F.2.2.2: AC coefficients. Every symbol with size 0 but ZRL ends the block, and a run
      // that would take k past 63 ends it too, before any bits of it are read: no coefficient
      // exists there, and nothing is written outside the block.
      uint32_t k = 1;
      while (k < 64) {
        uint32_t rs = DecodeSymbol(local, ac_table);
        uint32_t run = rs >> 4;
        uint32_t size = rs & 15;
        if (size != 0) {
          k += run;
          if (k > 63) {
            break;
          }
          int32_t value = Extend(ReceiveBits(local, size), size);
          out[zigzag[k]] = static_cast<int16_t>(static_cast<uint16_t>(value));
          ++k;
        } else if (run == 15) {
          k += 16;
        } else {
          break;
        }
      }
      out += 64;
    }
  }
  reader = local;
  return out;
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
