// Reference decoders written step by step from the rules, without lookups or shortcuts.
#include "tests/support/literal_decode.h"

#include <cstring>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/color.h"
#include "decode/decode_state.h"
#include "decode/huffman.h"
#include "decode/idct.h"
#include "decode/sequential.h"
#include "jpeg/jpeg_reader.h"

namespace corvi::test {
namespace {

void Bind(const DecodeState& state, ComponentInfo& c) {
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

// One MCU: each block cleared, its DC difference and its AC symbols read one by one.
int16_t* LiteralMcu(const DecodeState& state, int16_t* out, BitReader& reader,
                    int32_t* dc_predictors) {
  for (int32_t slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = state.components[slot];
    if (c == nullptr || c->h * c->v <= 0) {
      continue;
    }
    for (int32_t b = c->h * c->v; b > 0; --b) {
      std::memset(out, 0, 64 * sizeof(int16_t));
      const uint32_t s = DecodeSymbol(reader, *c->dc_table);
      const int32_t diff = s != 0 ? Extend(ReceiveBits(reader, s), s) : 0;
      const uint32_t predictor =
          static_cast<uint32_t>(dc_predictors[slot]) + static_cast<uint32_t>(diff);
      dc_predictors[slot] = static_cast<int32_t>(predictor);
      out[0] = static_cast<int16_t>(static_cast<uint16_t>(predictor));
      uint32_t k = 1;
      while (k < 64) {
        const uint32_t rs = DecodeSymbol(reader, *c->ac_table);
        const uint32_t run = rs >> 4;
        const uint32_t size = rs & 15;
        if (size != 0) {
          k += run;
          const int32_t value = Extend(ReceiveBits(reader, size), size);
          if (k > 63) {
            break;
          }
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
  return out;
}

void LiteralSequential(DecodeState& state, RawLayer& layer, const uint8_t* data, int32_t length) {
  layer.AllocatePixels();
  for (QuantTable* table : state.quant_tables) {
    if (table != nullptr) {
      ScaleQuantTable(*table);
    }
  }
  for (ComponentInfo* c : state.components) {
    if (c != nullptr) {
      Bind(state, *c);
    }
  }
  const size_t row_values = static_cast<size_t>(state.blocks_per_row) * 64;
  std::vector<int16_t> coefficients(row_values);
  std::vector<float> samples(row_values);
  int32_t countdown = state.restart_interval != 0 ? state.restart_interval : 0x7FFFFFFF;
  uint32_t restart_number = 0;
  BitReader reader;
  reader.cursor = data;
  reader.end = data + length;
  int32_t dc_predictors[4] = {0, 0, 0, 0};
  for (int32_t r = 0; r < state.mcus_down; ++r) {
    int16_t* out = coefficients.data();
    for (int32_t m = 0; m < state.mcus_across; ++m) {
      out = LiteralMcu(state, out, reader, dc_predictors);
      if (--countdown == 0) {
        SeekRestartMarker(reader, restart_number);
        ++restart_number;
        std::memset(dc_predictors, 0, sizeof dc_predictors);
        countdown = state.restart_interval;
      }
    }
    const int16_t* in = coefficients.data();
    float* transformed = samples.data();
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
                  samples.data());
  }
}

DecodeOutcome Outcome(const RawLayer& layer, const std::wstring& error) {
  DecodeOutcome outcome;
  outcome.error = error;
  outcome.width = layer.width;
  outcome.height = layer.height;
  if (error.empty() && layer.pixels != nullptr) {
    outcome.pixel_hash = HashPixels(layer.pixels, uint64_t{layer.width} * layer.height * 4);
  }
  return outcome;
}

}  // namespace

uint64_t HashPixels(const uint16_t* pixels, uint64_t count) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (uint64_t i = 0; i < count; ++i) {
    for (uint32_t byte : {pixels[i] & 0xFFu, static_cast<uint32_t>(pixels[i] >> 8)}) {
      hash = (hash ^ byte) * 0x100000001b3ull;
    }
  }
  return hash;
}

DecodeOutcome DecodeWithLibrary(const Bytes& bytes, bool skip_idle, bool keep_pixels,
                                bool threads) {
  ScanResult scan = ScanBytes(bytes);
  if (!scan.error.empty()) {
    return DecodeOutcome{scan.error};
  }
  DecodeState state;
  state.limits = Limits::None();
  state.skip_idle = skip_idle;
  state.keep_pixels = keep_pixels;
  state.threads = threads;
  RawLayer layer;
  std::wstring error;
  try {
    DecodeImage(*scan.markers, state, layer, false);
  } catch (const RawLayerException& e) {
    error = e.message;
  }
  return Outcome(layer, error);
}

DecodeOutcome DecodeLiterally(const Bytes& bytes) {
  ScanResult scan = ScanBytes(bytes);
  if (!scan.error.empty()) {
    return DecodeOutcome{scan.error};
  }
  DecodeState state;
  state.limits = Limits::None();
  RawLayer layer;
  std::wstring error;
  try {
    // The header work of DecodeImage, then the literal scan decoder for baseline frames.
    DecodeImage(*scan.markers, state, layer, true);
    if (state.frame_mode != 0xC0 || state.width == 0 || state.height == 0) {
      return DecodeWithLibrary(bytes);
    }
    LiteralSequential(state, layer, scan.markers->compressed_data, scan.markers->compressed_length);
  } catch (const RawLayerException& e) {
    error = e.message;
  }
  return Outcome(layer, error);
}

}  // namespace corvi::test
