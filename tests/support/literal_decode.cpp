// Reference decoders written step by step from the rules, without lookups or shortcuts.
#include "tests/support/literal_decode.h"

#include <algorithm>
#include <cstring>
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

// The table `index` names, or the refusal the library gives when there is none.
template <class Table>
Table* Bound(Table* const (&tables)[4], int32_t index, const wchar_t* missing) {
  if (index < 0 || index > 3 || tables[index] == nullptr) {
    throw RawLayerException(missing);
  }
  return tables[index];
}

// One MCU: each block cleared, its DC difference and its AC symbols read one by one, and the
// block transformed into `samples`.
void LiteralMcu(const DecodeState& state, BitReader& reader, int32_t* dc_predictors,
                float*& samples) {
  for (int32_t slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = state.components[slot];
    for (int32_t b = c != nullptr ? c->h * c->v : 0; b > 0; --b) {
      int16_t block[64] = {};
      const uint32_t s = DecodeSymbol(reader, *c->dc_table);
      dc_predictors[slot] = static_cast<int32_t>(static_cast<uint32_t>(dc_predictors[slot]) +
                                                 (s != 0 ? Extend(ReceiveBits(reader, s), s) : 0));
      block[0] = static_cast<int16_t>(static_cast<uint16_t>(dc_predictors[slot]));
      for (uint32_t k = 1; k < 64;) {
        const uint32_t rs = DecodeSymbol(reader, *c->ac_table);
        if ((rs & 15) == 0 && rs != 0xF0) {
          break;  // end of block
        }
        k += rs >> 4;
        if ((rs & 15) == 0) {
          k += 1;  // ZRL: sixteen zeros
          continue;
        }
        const int32_t value = Extend(ReceiveBits(reader, rs & 15), rs & 15);
        if (k > 63) {
          break;
        }
        block[zigzag[k++]] = static_cast<int16_t>(static_cast<uint16_t>(value));
      }
      InverseDCT(block, samples, *c->quant_table);
      samples += 64;
    }
  }
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
      c->quant_table =
          Bound(state.quant_tables, c->quant_index, L"Missing quantization table index");
      c->dc_table = Bound(state.dc_tables, c->dc_index, L"Missing Huffman table index");
      c->ac_table = Bound(state.ac_tables, c->ac_index, L"Missing Huffman table index");
    }
  }
  std::vector<float> samples(static_cast<size_t>(state.blocks_per_row) * 64);
  int32_t countdown = state.restart_interval != 0 ? state.restart_interval : 0x7FFFFFFF;
  uint32_t restart_number = 0;
  BitReader reader;
  reader.cursor = data;
  reader.end = data + length;
  int32_t dc_predictors[4] = {0, 0, 0, 0};
  for (int32_t r = 0; r < state.mcus_down; ++r) {
    float* out = samples.data();
    for (int32_t m = 0; m < state.mcus_across; ++m) {
      LiteralMcu(state, reader, dc_predictors, out);
      if (--countdown == 0) {
        SeekRestartMarker(reader, restart_number++);
        std::memset(dc_predictors, 0, sizeof dc_predictors);
        countdown = state.restart_interval;
      }
    }
    ConvertMcuRow(state, layer, static_cast<uint32_t>(r * state.mcu_height), samples.data());
  }
}

}  // namespace

DecodeOutcome DecodeWithLibrary(const Bytes& bytes, bool skip_idle, bool keep_pixels, bool threads,
                                bool literal) {
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
  DecodeOutcome outcome;
  try {
    DecodeImage(*scan.markers, state, layer, literal);
    if (literal && (state.frame_mode != 0xC0 || state.width == 0 || state.height == 0)) {
      return DecodeWithLibrary(bytes);
    }
    if (literal) {
      LiteralSequential(state, layer, scan.markers->compressed_data,
                        scan.markers->compressed_length);
    }
  } catch (const RawLayerException& e) {
    outcome.error = e.message;
  }
  outcome.width = layer.width;
  outcome.height = layer.height;
  if (outcome.error.empty() && layer.pixels != nullptr) {
    outcome.pixel_hash = HashPixels(layer.pixels, uint64_t{layer.width} * layer.height * 4);
  }
  return outcome;
}

uint64_t HashPixels(const uint16_t* pixels, uint64_t count) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (uint64_t i = 0; i < count; ++i) {
    for (uint32_t byte : {pixels[i] & 0xFFu, static_cast<uint32_t>(pixels[i] >> 8)}) {
      hash = (hash ^ byte) * 0x100000001b3ull;
    }
  }
  return hash;
}

std::vector<Variant> DamagedVariants(const Bytes& file, size_t scan_cuts, size_t points) {
  std::vector<Variant> variants{{"intact", file, true}};
  // The file with bytes `from` to `to` replaced by `with`.
  auto splice = [&file](size_t from, size_t to, const Bytes& with) {
    Bytes out(file.begin(), file.begin() + static_cast<ptrdiff_t>(from));
    out.insert(out.end(), with.begin(), with.end());
    out.insert(out.end(), file.begin() + static_cast<ptrdiff_t>(to), file.end());
    return out;
  };
  // Filler before the marker behind a scan is passed over; anything else is refused there.
  const Variant behind[] = {
      {"zero bytes", {0, 0, 0}, true},
      {"stuffed pair", {0xFF, 0x00}, true},
      {"stray byte", {0x12}, false},
      {"fill byte", {0xFF}, false},
      {"restart marker", {0xFF, 0xD3}, false},
      {"segment", {0xFF, 0xE1, 0x00, 0x04, 'a', 'b'}, false},
      {"empty DHT", {0xFF, 0xC4, 0x00, 0x02}, false},
  };
  const auto ranges = ScanDataRanges(file);
  for (size_t s = 0; s < ranges.size(); ++s) {
    const auto [start, end] = ranges[s];
    const std::string scan = "scan " + std::to_string(s) + ": ";
    // The scan runs dry at the next marker, where a plan says; a later refinement may then go
    // wrong anywhere.
    for (size_t i = 0; i < scan_cuts; ++i) {
      const size_t keep = scan_cuts == 1 ? (end - start) / 2 : (end - start) * i / scan_cuts;
      variants.push_back(
          {scan + "data cut at " + std::to_string(i), splice(start + keep, end, {}), false});
    }
    // Behind the last scan only the end-of-image marker follows.
    if (s + 1 < ranges.size()) {
      const Variant& b = behind[s % std::size(behind)];
      variants.push_back({scan + b.name + " behind", splice(end, end, b.bytes), b.planned});
    }
  }
  const size_t first = ranges.empty() ? 2 : ranges.front().first;
  for (size_t i = 1; i <= points && first + 4 < file.size(); ++i) {
    const size_t at = first + (file.size() - 4 - first) * i / (points + 1);
    const std::string where = " at " + std::to_string(at);
    variants.push_back({"cut" + where, splice(at, file.size(), {0xFF, 0xD9}), false});
    const uint8_t restart = static_cast<uint8_t>(0xD0 + i % 8);
    variants.push_back({"restart marker" + where, splice(at, at + 2, {0xFF, restart}), false});
    const size_t zeros = std::min(at + 20, file.size() - 2) - at;
    variants.push_back({"zeros" + where, splice(at, at + zeros, Bytes(zeros, 0)), false});
  }
  return variants;
}

}  // namespace corvi::test
