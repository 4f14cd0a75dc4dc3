// Reference decoders written step by step from the rules, without lookups or shortcuts.
#include "tests/support/literal_decode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
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

std::vector<Variant> DamagedVariants(const Bytes& file, size_t scan_cuts, size_t points) {
  std::vector<Variant> variants{{"intact", file, true}};
  const auto ranges = ScanDataRanges(file);
  auto part = [&](size_t from, size_t to) { return Bytes(file.begin() + from, file.begin() + to); };
  for (size_t s = 0; s < ranges.size(); ++s) {
    const auto [start, end] = ranges[s];
    const std::string scan = "scan " + std::to_string(s) + ": ";
    // The scan runs dry at the next marker, where a plan says; a later refinement may then go
    // wrong anywhere.
    for (size_t i = 0; i < scan_cuts; ++i) {
      const size_t keep = scan_cuts == 1 ? (end - start) / 2 : (end - start) * i / scan_cuts;
      Bytes cut = part(0, start + keep);
      cut.insert(cut.end(), file.begin() + static_cast<ptrdiff_t>(end), file.end());
      variants.push_back({scan + "data cut at " + std::to_string(i), cut, false});
    }
    if (s + 1 == ranges.size()) {
      break;  // behind the last scan only the end-of-image marker follows
    }
    // Filler before the marker behind the scan is passed over; anything else is refused there.
    const struct {
      const char* name;
      Bytes bytes;
      bool planned;
    } behind[] = {
        {"zero bytes", {0, 0, 0}, true},
        {"stuffed pair", {0xFF, 0x00}, true},
        {"stray byte", {0x12}, false},
        {"fill byte", {0xFF}, false},
        {"restart marker", {0xFF, 0xD3}, false},
        {"segment", {0xFF, 0xE1, 0x00, 0x04, 'a', 'b'}, false},
        {"empty DHT", {0xFF, 0xC4, 0x00, 0x02}, false},
    };
    const auto& b = behind[s % std::size(behind)];
    Bytes inserted = part(0, end);
    inserted.insert(inserted.end(), b.bytes.begin(), b.bytes.end());
    inserted.insert(inserted.end(), file.begin() + static_cast<ptrdiff_t>(end), file.end());
    variants.push_back({scan + b.name + " behind", inserted, b.planned});
  }
  const size_t first = ranges.empty() ? 2 : ranges.front().first;
  for (size_t i = 1; i <= points && first + 4 < file.size(); ++i) {
    const size_t at = first + (file.size() - 4 - first) * i / (points + 1);
    const std::string where = " at " + std::to_string(at);
    Bytes cut = part(0, at);
    cut.insert(cut.end(), {0xFF, 0xD9});
    variants.push_back({"cut" + where, cut, false});
    Bytes marked = file;
    marked[at] = 0xFF;
    marked[at + 1] = static_cast<uint8_t>(0xD0 + i % 8);
    variants.push_back({"restart marker" + where, marked, false});
    Bytes zeroed = file;
    std::fill(zeroed.begin() + at, zeroed.begin() + std::min(at + 20, file.size() - 2), 0);
    variants.push_back({"zeros" + where, zeroed, false});
  }
  return variants;
}

}  // namespace corvi::test
