// The rewriter's driver: the output file, reading the frame, tables and scan of a parsed file,
// the sampling plan, and the path from pixels to entropy-coded data.
#include "merge/merge.h"

#include <cmath>
#include <cstring>
#include <memory>

#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "jpeg/markers.h"
#include "merge/byte_buffer.h"
#include "merge/forward_dct.h"
#include "merge/huffman_encode.h"
#include "merge/pixel_convert.h"
#include "merge/resampler.h"
#include "platform/error_text.h"
#include "platform/file_map.h"
#include "platform/file_write.h"
#include "platform/format.h"
#include "platform/system_info.h"

namespace corvi {
namespace {

// Frees an array of floats or pixels on every way out.
template <typename T>
struct ArrayGuard {
  T* p;
  explicit ArrayGuard(T* array) : p(array) {}
  ArrayGuard(const ArrayGuard&) = delete;
  ArrayGuard& operator=(const ArrayGuard&) = delete;
  ~ArrayGuard() { delete[] p; }
};

void WriteAll(OutputFile& file, const uint8_t* bytes, uint32_t count) {
  file.Write(bytes, count);
}

// The pixels of the frame's size: the layer's own, or a resampled copy held in `scratch`.
const uint16_t* FramePixels(const MergeState& state, const RawLayer& layer,
                            ResampleTarget& scratch) {
  if (layer.width == state.width && layer.height == state.height) {
    return layer.pixels;
  }
  // Both factors in single precision, target over source.
  const float scale_x = static_cast<float>(state.width) / static_cast<float>(layer.width);
  const float scale_y = static_cast<float>(state.height) / static_cast<float>(layer.height);
  if (layer.width > 0x7FFFFFFF || layer.height > 0x7FFFFFFF) {
    throw RawLayerException(L"Unsupported scale factor");
  }
  Resampler resampler(static_cast<int32_t>(layer.width), static_cast<int32_t>(layer.height),
                      layer.pixels, static_cast<float>(layer.width),
                      static_cast<float>(layer.height), scale_x, scale_y);
  resampler.target = &scratch;
  resampler.Resample();
  const auto width = static_cast<int32_t>(state.width);
  const auto height = static_cast<int32_t>(state.height);
  if (scratch.width != width || scratch.height != height) {
    ResampleTarget fitted;
    FitToSize(fitted, scratch.width, scratch.height, scratch.pixels, width, height);
    delete[] scratch.pixels;
    scratch.pixels = fitted.pixels;
    scratch.cursor = nullptr;
    scratch.width = fitted.width;
    scratch.height = fitted.height;
    fitted.pixels = nullptr;
  }
  return scratch.pixels;
}

}  // namespace

OutputFile::OutputFile(const wchar_t* file_name) {
  size_t n = std::wcslen(file_name);
  name = new wchar_t[n + 1];
  std::wmemcpy(name, file_name, n + 1);
  handle = PlatformOpenWrite(name);
  if (handle < 0) {
    uint32_t code = LastPlatformError();
    std::unique_ptr<wchar_t[]> owned(name);
    name = nullptr;
    ThrowPlatformError(owned.get(), L"CreateFile", code);
  }
  size = PlatformFileSize(handle);
  if (size == 0xFFFFFFFF) {
    uint32_t code = LastPlatformError();
    PlatformCloseFile(handle);
    handle = -1;
    std::unique_ptr<wchar_t[]> owned(name);
    name = nullptr;
    ThrowPlatformError(owned.get(), L"GetFileSize", code);
  }
}

OutputFile::~OutputFile() {
  delete[] name;
  if (handle >= 0) {
    PlatformCloseFile(handle);
  }
}

void OutputFile::Truncate() {
  if (!PlatformSeek(handle, 0)) {
    ThrowPlatformError(name, L"SetFilePointer", LastPlatformError());
  }
  if (!PlatformTruncate(handle)) {
    ThrowPlatformError(name, L"SetEndOfFile", LastPlatformError());
  }
  size = 0;
  position = 0;
}

void OutputFile::Write(const uint8_t* bytes, uint32_t count) {
  int64_t written = PlatformWrite(handle, bytes, count);
  if (written < 0) {
    ThrowPlatformError(name, L"WriteFile", LastPlatformError());
  }
  position += static_cast<uint32_t>(written);
  if (position > size) {
    size = position;
  }
  if (static_cast<uint64_t>(written) < count) {
    ThrowPlatformError(name, L"WriteFile", PlatformDiskFullCode());
  }
}

MergeState::~MergeState() {
  for (int32_t i = 0; i < 4; ++i) {
    delete components[i];
    delete quant_tables[i];
    delete reciprocal_tables[i];
    delete dc_stats[i];
    delete ac_stats[i];
  }
  delete[] entropy_data;
}

void Merge(OutputFile& file, const RawLayer& layer, const MarkerList& markers,
           const PropertyList& overrides, const Background& background,
           const wchar_t* temp_directory) {
  file.Truncate();  // the old contents are gone from here on, whatever happens next
  MergeState state;
  state.temp_directory = temp_directory;
  EncodeFrame(state, layer, markers, background);
  // Every segment goes into one buffer first: the DHT segments need the finished statistics.
  ByteBuffer out;
  out.Reserve(1024);
  out.AppendByte(0xFF);
  out.AppendByte(0xD8);
  for (uint32_t i = 0; i < markers.count; ++i) {
    markers.items[i]->Write(state, layer, overrides, background, out);
  }
  WriteAll(file, out.data, static_cast<uint32_t>(out.length));
  WriteAll(file, state.entropy_data, state.entropy_length);
  out.length = 0;
  out.AppendByte(0xFF);
  out.AppendByte(0xD9);
  WriteAll(file, out.data, static_cast<uint32_t>(out.length));
}

void EncodeFrame(MergeState& state, const RawLayer& layer, const MarkerList& markers,
                 const Background& background) {
  bool seen_frame = false;
  bool seen_tables = false;
  bool seen_scan = false;
  for (uint32_t i = 0; i < markers.count; ++i) {
    const JPEGReader::Marker* marker = markers.items[i];
    if (dynamic_cast<const SOFMarker*>(marker) != nullptr) {
      ReadFrame(*marker, state);
      seen_frame = true;
    } else if (dynamic_cast<const DQTMarker*>(marker) != nullptr) {
      ReadQuantisation(*marker, state);
      seen_tables = true;
    } else if (dynamic_cast<const SOSMarker*>(marker) != nullptr) {
      ReadScan(*marker, state);
      seen_scan = true;
    }
  }
  if (!seen_frame) {
    throw RawLayerException(L"Missing SOF marker");
  }
  if (!seen_tables) {
    throw RawLayerException(L"Missing DQT marker");
  }
  if (!seen_scan) {
    throw RawLayerException(L"Missing SOS marker");
  }

  for (int32_t slot = 0; slot < 4; ++slot) {
    ComponentInfo* c = state.components[slot];
    if (c == nullptr) {
      continue;
    }
    if (c->quant_index < 0 || c->quant_index > 3 ||
        state.reciprocal_tables[c->quant_index] == nullptr) {
      throw RawLayerException(L"Missing quantization table index");
    }
    c->quant_table = state.reciprocal_tables[c->quant_index];
    if (c->dc_index < 0 || c->dc_index >= 4) {
      throw RawLayerException(L"Missing Huffman table index");
    }
    if (state.dc_stats[c->dc_index] == nullptr) {
      state.dc_stats[c->dc_index] = new HuffmanStats();
    }
    c->dc_table = nullptr;  // the encoder reads the statistics through the state
    if (c->ac_index < 0 || c->ac_index > 3) {
      throw RawLayerException(L"Missing Huffman table index");
    }
    if (state.ac_stats[c->ac_index] == nullptr) {
      state.ac_stats[c->ac_index] = new HuffmanStats();
    }
  }

  PlanMergeSampling(state);
  if (state.width == 0 || state.height == 0) {
    wchar_t message[200];
    FormatBuffer(message, 200, L"Unsupported frame size (width=%u, height=%u)", state.width,
                 state.height);
    throw RawLayerException(message);
  }

  if (layer.pixels == nullptr && layer.width != 0 && layer.height != 0) {
    throw RawLayerException(L"Layer has no pixels");  // a header-only decode, say
  }

  // The coefficient store holds every block of the frame. It is refused, before anything is
  // allocated, where 64 floats a block would not fit, with a resampled layer beside them. What
  // is kept is the rounded 16-bit coefficients, packed: one row of MCUs at a time is converted
  // to float samples, transformed, rounded, packed and counted before the next, which gives the
  // same integers as converting the whole frame first, since every block stands alone.
  const uint64_t block_count =
      static_cast<uint64_t>(state.blocks_per_mcu) * static_cast<uint64_t>(state.mcu_count);
  uint64_t needed = block_count * 64 * sizeof(float);
  if (layer.width != state.width || layer.height != state.height) {
    needed += static_cast<uint64_t>(state.width) * state.height * 4 * sizeof(uint16_t);
  }
  CheckAllocation(needed);
  // Packed, a block takes at most kPackedBlockMax bytes; only the pages that are written are
  // ever touched.
  uint8_t* packed = AllocateArray<uint8_t>(block_count * kPackedBlockMax);
  ArrayGuard<uint8_t> packed_guard(packed);
  const uint64_t row_floats =
      static_cast<uint64_t>(state.mcus_across) * static_cast<uint64_t>(state.blocks_per_mcu) * 64;
  float* row_blocks = AllocateArray<float>(row_floats);
  ArrayGuard<float> row_guard(row_blocks);

  // Each block of an MCU with its component's tables and prediction: luminance blocks first, then
  // Cb, then Cr, which is ascending component id.
  const QuantTable* tables[6] = {};
  HuffmanStats* dc[6] = {};
  HuffmanStats* ac[6] = {};
  int32_t slots[6] = {};
  {
    int32_t n = 0;
    for (int32_t slot = 0; slot < 4; ++slot) {
      const ComponentInfo* c = state.components[slot];
      for (int32_t k = 0; c != nullptr && k < c->h * c->v && n < 6; ++k, ++n) {
        tables[n] = c->quant_table;
        dc[n] = state.dc_stats[c->dc_index];
        ac[n] = state.ac_stats[c->ac_index];
        slots[n] = slot;
      }
    }
  }

  ResampleTarget scratch;
  const uint16_t* pixels = FramePixels(state, layer, scratch);
  RawLayer sized;  // the frame's pixels, borrowed: the layer's own or the resampled ones
  sized.width = state.width;
  sized.height = state.height;
  sized.pixels = const_cast<uint16_t*>(pixels);
  int32_t predictions[4] = {};
  uint8_t* out = packed;
  try {
    for (int32_t row = 0; row < state.mcus_down; ++row) {
      ConvertPixelRow(state, sized, row, row_blocks, background);
      float* block = row_blocks;
      for (int32_t m = 0; m < state.mcus_across; ++m) {
        for (int32_t k = 0; k < state.blocks_per_mcu; ++k, block += 64) {
          ForwardDCT(block, *tables[k]);
          int16_t rounded[64];
          RoundBlockZigzag(block, rounded);  // in coded order
          PackBlock(rounded, out);
          out += CountPackedBlock(out, predictions[slots[k]], *dc[k], *ac[k]);
        }
      }
    }
  } catch (...) {
    sized.pixels = nullptr;
    throw;
  }
  sized.pixels = nullptr;
  WritePackedScan(state, packed);
}

int16_t RoundCoefficient(float x) {
  // Half away from zero: x + 0.5 for x >= 0, x - 0.5 (the same as x + -0.5) below; then the
  // saturation, and NaN, from a quantiser of 0, to 0. Written without branches to vectorise.
  float t = x + (x >= 0.0f ? 0.5f : -0.5f);
  t = t > 32767.0f ? 32767.0f : t;
  t = t < -32767.0f ? -32767.0f : t;
  t = t == t ? t : 0.0f;
  return static_cast<int16_t>(static_cast<int32_t>(t));
}

// The rewriter's rule: a component's id is its slot, and an id of 4 or more is refused. The
// slot's record is made when a frame or scan first names it.
ComponentInfo& ComponentById(MergeState& state, uint8_t id) {
  if (id >= 4) {
    throw RawLayerException(L"Invalid component ID");
  }
  if (state.components[id] == nullptr) {
    state.components[id] = new ComponentInfo();
  }
  return *state.components[id];
}

void ReadFrame(const JPEGReader::Marker& marker, MergeState& state) {
  if (marker.code != 0xC0) {
    throw RawLayerException(L"Merge only supports baseline Huffman");
  }
  const FrameFields& frame = static_cast<const SOFMarker&>(marker).frame;
  if (frame.precision != 8) {
    wchar_t message[200];
    FormatBuffer(message, 200, L"Unsupported image format (precision=%u)",
                 unsigned{frame.precision});
    throw RawLayerException(message);
  }
  state.height = frame.height;
  state.width = frame.width;
  for (int32_t slot = 0; slot < 4; ++slot) {
    delete state.components[slot];
    state.components[slot] = nullptr;
  }
  for (const FrameComponent& record : frame.components) {
    ComponentInfo& c = ComponentById(state, record.id);
    c.h = record.h;
    c.v = record.v;
    c.quant_index = record.quant_table;
  }
}

void ReadQuantisation(const JPEGReader::Marker& marker, MergeState& state) {
  for (const TableEntry& entry : static_cast<const DQTMarker&>(marker).tables.tables) {
    const int32_t index = ReadQuantTable(state.quant_tables, entry);
    const QuantTable* table = state.quant_tables[index];
    auto reciprocal = std::make_unique<QuantTable>();
    reciprocal->precision = 8;
    for (int32_t i = 0; i < 64; ++i) {
      reciprocal->values[i] = AANScale[i] / table->values[i];  // +infinity for a quantiser of 0
    }
    state.reciprocal_tables[index] = reciprocal.release();
  }
}

void ReadScan(const JPEGReader::Marker& marker, MergeState& state) {
  for (ComponentInfo* c : state.components) {
    if (c != nullptr) {
      c->dc_index = -1;
      c->ac_index = -1;
    }
  }
  const ScanFields& scan = static_cast<const SOSMarker&>(marker).scan;
  for (const ScanComponent& entry : scan.components) {
    ComponentInfo& c = ComponentById(state, entry.id);
    c.dc_index = entry.dc_table;
    c.ac_index = entry.ac_table;
  }
  if (scan.spectral_start != 0 || scan.spectral_end != 63 || scan.approx_high != 0 ||
      scan.approx_low != 0) {
    throw RawLayerException(L"Merge only supports baseline Huffman");
  }
}

void PlanMergeSampling(MergeState& state) {
  TakePlan(PlanFrameSampling(state.components, state.width, state.height), state);
}

}  // namespace corvi
