// The decoder's state for one stream, the driver DecodeImage and the sampling plan.
#include "decode/decode_state.h"

#include <cstdio>
#include <memory>

#include "base/byte_order.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/huffman.h"
#include "decode/progressive.h"
#include "decode/sequential.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/segment_fields.h"
#include "platform/format.h"

namespace corvi {

DecodeState::~DecodeState() {
  for (ComponentInfo*& c : components) {
    delete c;
    c = nullptr;
  }
  for (QuantTable*& q : quant_tables) {
    delete q;
    q = nullptr;
  }
  for (int i = 0; i < 4; ++i) {
    delete dc_tables[i];
    dc_tables[i] = nullptr;
    delete ac_tables[i];
    ac_tables[i] = nullptr;
  }
}

const char* ModeName(uint8_t frame_mode) {
  switch (frame_mode) {
    case 0xC0:
      return "Baseline";
    case 0xC1:
      return "Extended sequential";
    case 0xC2:
      return "Progressive";
    case 0xC3:
      return "Lossless";
    case 0xC5:
      return "Differential sequential";
    case 0xC6:
      return "Differential progressive";
    case 0xC7:
      return "Differential lossless";
    case 0xC9:
      return "Extended sequential arithmetic";
    case 0xCA:
      return "Progressive arithmetic";
    case 0xCB:
      return "Lossless arithmetic";
    case 0xCD:
      return "Differential sequential arithmetic";
    case 0xCE:
      return "Differential progressive arithmetic";
    case 0xCF:
      return "Differential lossless arithmetic";
    default:
      return "???";
  }
}

const uint32_t zigzag[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,   //
    12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,  //
    35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,  //
    58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63,  //
};

namespace {

// Out of line, so that the buffers below take no room in DecodeImage's frame: a chain of nested
// thumbnails runs DecodeImage once per level on the same stack.
[[gnu::noinline]] void NameFrame(const DecodeState& state, RawLayer& layer) {
  char mode[100];
  std::snprintf(mode, sizeof mode, "%s %s", ModeName(state.frame_mode),
                LayoutOf(state.sampling_mode).name);
  layer.properties.SetCompressionMode(mode);
}

[[noreturn, gnu::noinline]] void ThrowUnsupportedMode(uint8_t frame_mode) {
  wchar_t message[200];
  FormatBuffer(message, 200, L"Unsupported image format (mode=SOF%d)",
               static_cast<int>(frame_mode) - 0xC0);
  throw RawLayerException(message);
}

}  // namespace

void DecodeImage(const MarkerList& markers, DecodeState& state, RawLayer& layer, bool header_only) {
  for (uint32_t i = 0; i < markers.count; ++i) {
    markers.items[i]->Apply(state, layer, header_only);
  }
  if (markers.compressed_data == nullptr || markers.compressed_length < 0) {
    throw RawLayerException(L"No compressed image data");
  }
  PlanSampling(state);
  NameFrame(state, layer);

  layer.FreePixels();
  if (header_only || state.width == 0 || state.height == 0) {
    return;
  }
  CheckLimit(L"Too many pixels", uint64_t{state.width} * state.height, state.limits.max_pixels);
  if (state.frame_mode == 0xC0) {
    DecodeSequential(state, layer, markers.compressed_data, markers.compressed_length);
  } else if (state.frame_mode == 0xC2) {
    DecodeProgressive(state, layer, markers.compressed_data, markers.compressed_length);
  } else {
    ThrowUnsupportedMode(state.frame_mode);
  }
}

int32_t ReadQuantTable(QuantTable* (&tables)[4], const TableEntry& entry) {
  const int32_t index = entry.id;  // Tq
  if (index >= 4) {
    throw RawLayerException(L"Invalid quantization table index");
  }
  if (tables[index] != nullptr) {
    throw RawLayerException(L"Duplicate quantization table index");
  }
  auto table = std::make_unique<QuantTable>();
  const bool wide = entry.precision == 16;  // only bit 0x10 of Pq decides
  table->precision = entry.precision;
  for (uint32_t i = 0; i < 64; ++i) {
    const uint32_t value = wide ? ReadBig16(entry.values + 2 * i) : entry.values[i];
    table->values[zigzag[i]] = static_cast<float>(value);
  }
  tables[index] = table.release();
  return index;
}

SamplingPlan PlanFrameSampling(const ComponentInfo* const (&components)[4], uint32_t width,
                               uint32_t height) {
  int32_t h[4];
  int32_t v[4];
  for (int slot = 0; slot < 4; ++slot) {
    const ComponentInfo* c = components[slot];
    h[slot] = c != nullptr ? c->h : -1;
    v[slot] = c != nullptr ? c->v : -1;
  }
  const SamplingMode mode = MatchSampling(h, v);
  if (mode == SamplingMode::kNone) {
    constexpr size_t kCapacity = 200;
    wchar_t message[kCapacity];
    size_t used = FormatBuffer(message, kCapacity, L"Unsupported sampling (");
    for (int slot = 0; slot < 4; ++slot) {
      const ComponentInfo* c = components[slot];
      if (c != nullptr && used + 1 < kCapacity) {
        used +=
            FormatBuffer(message + used, kCapacity - used, L" comp %d: %d x %d", slot, c->h, c->v);
      }
    }
    if (used + 1 < kCapacity) {
      FormatBuffer(message + used, kCapacity - used, L" )");
    }
    throw RawLayerException(message);
  }
  const SamplingLayout& layout = LayoutOf(mode);
  // Unsigned 32-bit arithmetic: the frame's sizes are at most 65535, so nothing wraps.
  const auto mcu_width = static_cast<uint32_t>(layout.mcu_width);
  const auto mcu_height = static_cast<uint32_t>(layout.mcu_height);
  const uint32_t across = (width + mcu_width - 1) / mcu_width;
  const uint32_t down = (height + mcu_height - 1) / mcu_height;
  return SamplingPlan{mode,
                      layout.mcu_width,
                      layout.mcu_height,
                      layout.blocks_per_mcu,
                      static_cast<int32_t>(across),
                      static_cast<int32_t>(down),
                      static_cast<int32_t>(across * down)};
}

void SetToolDecoding(DecodeState& state) {
  state.limits = Limits::None();
  state.keep_pixels = false;
  state.threads = true;
}

void PlanSampling(DecodeState& state) {
  const SamplingPlan plan = PlanFrameSampling(state.components, state.width, state.height);
  TakePlan(plan, state);
  state.blocks_per_row = plan.blocks_per_mcu * plan.mcus_across;
}

int32_t ComponentSlot(uint8_t id, int32_t position) {
  int32_t slot = id < 4 ? id : position;
  return slot < 4 ? slot : -1;
}

}  // namespace corvi
