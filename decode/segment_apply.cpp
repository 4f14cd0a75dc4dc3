// Apply of the table, frame, scan and restart segments: they fill the DecodeState.
// Parse has claimed every byte read here, so the payload is read without bounds tests.
#include <memory>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "decode/huffman.h"
#include "jpeg/markers.h"
#include "platform/format.h"

namespace corvi {
namespace {

// The component record of `slot`, created with the factors 1x1 when the slot is empty.
ComponentInfo& SlotComponent(DecodeState& state, int32_t slot) {
  if (state.components[slot] == nullptr) {
    state.components[slot] = new ComponentInfo();
  }
  return *state.components[slot];
}

// Pixel Format values by component count (1, 3, 4) for 8-bit and other precisions.
uint32_t PixelFormat(uint32_t count, int32_t precision) {
  bool eight = precision == 8;
  switch (count) {
    case 1:
      return eight ? 0x000803 : 0x101004;
    case 3:
      return eight ? 0x021808 : 0x10300C;
    default:
      return eight ? 0x26200A : 0x34400D;
  }
}

}  // namespace

// T.81 B.2.4.1: Pq/Tq, then 64 entries in zig-zag order.
void DQTMarker::Apply(DecodeState& state, RawLayer&, bool) {
  if (length < 1) {
    return;
  }
  int32_t position = 0;
  do {
    ReadQuantTable(state.quant_tables, payload, position);
  } while (position < length);
}

// T.81 B.2.2: P, Y, X, Nf, then Ci, Hi/Vi, Tqi for each component.
void SOFMarker::Apply(DecodeState& state, RawLayer& layer, bool) {
  state.frame_mode = code;
  state.precision = payload[0];
  if (state.precision != 8 && state.precision != 16) {
    wchar_t message[200];
    FormatBuffer(message, 200, L"Unsupported image format (precision=%d)", state.precision);
    throw RawLayerException(message);
  }
  state.height = ReadBig16(payload + 1);
  state.width = ReadBig16(payload + 3);
  layer.height = state.height;
  layer.width = state.width;
  uint32_t count = payload[5];
  if (count != 1 && count != 3 && count != 4) {
    wchar_t message[200];
    FormatBuffer(message, 200, L"Unsupported image format (number of components=%u)", count);
    throw RawLayerException(message);
  }
  layer.properties.SetLong(0xC000, PixelFormat(count, state.precision));
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* entry = payload + 6 + 3 * i;
    int32_t slot = ComponentSlot(entry[0], static_cast<int32_t>(i) + 1);
    if (slot < 0) {
      continue;
    }
    ComponentInfo& c = SlotComponent(state, slot);
    c.h = entry[1] >> 4;
    c.v = entry[1] & 0x0F;
    c.quant_index = entry[2];
  }
}

// T.81 B.2.4.2: Tc/Th, 16 counts, then the symbols. A later table replaces an earlier one.
void DHTMarker::Apply(DecodeState& state, RawLayer&, bool) {
  if (length < 1) {
    return;
  }
  int32_t position = 0;
  do {
    uint8_t b = payload[position];
    ++position;
    uint32_t table_class = b >> 4;  // Tc
    uint32_t index = b & 0x0F;      // Th
    if (table_class > 1 || index > 3) {
      throw RawLayerException(L"Invalid Huffman table ID");
    }
    HuffmanTable*& slot = (b & 0x10) != 0 ? state.ac_tables[index] : state.dc_tables[index];
    delete slot;
    slot = nullptr;
    slot = new HuffmanTable();
    BuildHuffmanTable(*slot, payload, position);  // a failure leaves the table for the state
  } while (position < length);
}

// T.81 B.2.3: Ns, then Csj and Tdj/Taj for each component, Ss, Se, Ah/Al.
void SOSMarker::Apply(DecodeState& state, RawLayer&, bool) {
  for (ComponentInfo* c : state.components) {
    if (c != nullptr) {
      c->dc_index = -1;
      c->ac_index = -1;
      c->in_scan = false;
    }
  }
  uint32_t count = payload[0];
  state.scan_components = static_cast<int32_t>(count);
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* entry = payload + 1 + 2 * i;
    int32_t slot = ComponentSlot(entry[0], static_cast<int32_t>(i) + 1);
    if (slot < 0) {
      continue;
    }
    ComponentInfo& c = SlotComponent(state, slot);
    c.dc_index = entry[1] >> 4;
    c.ac_index = entry[1] & 0x0F;
    c.in_scan = true;
  }
  const uint8_t* tail = payload + 1 + 2 * count;
  state.spectral_start = tail[0];
  state.spectral_end = tail[1];
  if (state.spectral_start > state.spectral_end || state.spectral_end >= 64) {
    throw RawLayerException(L"Invalid spectral endpoints");
  }
  state.approx_low = tail[2] & 0x0F;
  state.approx_high = tail[2] >> 4;
  if (state.approx_high != 0 && state.approx_high != state.approx_low + 1) {
    throw RawLayerException(L"Only single bit refinement is supported in progressive JPEG");
  }
}

// T.81 B.2.4.4: Ri.
void DRIMarker::Apply(DecodeState& state, RawLayer&, bool) {
  state.restart_interval = ReadBig16(payload);
}

}  // namespace corvi
