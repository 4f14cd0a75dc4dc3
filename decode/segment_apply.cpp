// Apply of the table, frame, scan and restart segments: they fill the DecodeState from the fields
// their Parse read.
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

// T.81 B.2.4.1: the tables in the order they stand.
void DQTMarker::Apply(DecodeState& state, RawLayer&, bool) {
  for (const TableEntry& table : tables.tables) {
    ReadQuantTable(state.quant_tables, table);
  }
}

// T.81 B.2.2: P, Y, X, Nf, then Ci, Hi/Vi, Tqi for each component.
void SOFMarker::Apply(DecodeState& state, RawLayer& layer, bool) {
  state.frame_mode = code;
  state.precision = frame.precision;
  if (state.precision != 8 && state.precision != 16) {
    wchar_t message[200];
    FormatBuffer(message, 200, L"Unsupported image format (precision=%d)", state.precision);
    throw RawLayerException(message);
  }
  state.height = frame.height;
  state.width = frame.width;
  layer.height = state.height;
  layer.width = state.width;
  const uint32_t count = frame.count;
  if (count != 1 && count != 3 && count != 4) {
    wchar_t message[200];
    FormatBuffer(message, 200, L"Unsupported image format (number of components=%u)", count);
    throw RawLayerException(message);
  }
  layer.properties.SetLong(0xC000, PixelFormat(count, state.precision));
  for (size_t i = 0; i < frame.components.size(); ++i) {
    const FrameComponent& entry = frame.components[i];
    // The decoder's rule: an id of 4 or more lands in the slot of its position.
    const int32_t slot = ComponentSlot(entry.id, static_cast<int32_t>(i) + 1);
    if (slot < 0) {
      continue;
    }
    ComponentInfo& c = SlotComponent(state, slot);
    c.h = entry.h;
    c.v = entry.v;
    c.quant_index = entry.quant_table;
  }
}

// T.81 B.2.4.2: Tc/Th, 16 counts, then the symbols. A later table replaces an earlier one.
void DHTMarker::Apply(DecodeState& state, RawLayer&, bool) {
  for (const TableEntry& table : tables.tables) {
    if (table.table_class > 1 || table.id > 3) {
      throw RawLayerException(L"Invalid Huffman table ID");
    }
    HuffmanTable*& slot =
        table.table_class == 1 ? state.ac_tables[table.id] : state.dc_tables[table.id];
    delete slot;
    slot = nullptr;
    slot = new HuffmanTable();
    int32_t position = 0;
    BuildHuffmanTable(*slot, table.counts, position);  // a failure leaves the table for the state
  }
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
  state.scan_components = scan.count;
  for (size_t i = 0; i < scan.components.size(); ++i) {
    const ScanComponent& entry = scan.components[i];
    const int32_t slot = ComponentSlot(entry.id, static_cast<int32_t>(i) + 1);
    if (slot < 0) {
      continue;
    }
    ComponentInfo& c = SlotComponent(state, slot);
    c.dc_index = entry.dc_table;
    c.ac_index = entry.ac_table;
    c.in_scan = true;
  }
  state.spectral_start = scan.spectral_start;
  state.spectral_end = scan.spectral_end;
  if (state.spectral_start > state.spectral_end || state.spectral_end >= 64) {
    throw RawLayerException(L"Invalid spectral endpoints");
  }
  state.approx_low = scan.approx_low;
  state.approx_high = scan.approx_high;
  if (state.approx_high != 0 && state.approx_high != state.approx_low + 1) {
    throw RawLayerException(L"Only single bit refinement is supported in progressive JPEG");
  }
}

// T.81 B.2.4.4: Ri.
void DRIMarker::Apply(DecodeState& state, RawLayer&, bool) {
  state.restart_interval = interval;
}

}  // namespace corvi
