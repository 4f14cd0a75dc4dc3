// The rewriter: Merge writes a new baseline JPEG from a parsed file's segments and a pixel layer.
#pragma once

#include <cstdint>

#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"

namespace corvi {

struct MarkerList;
struct PropertyList;
struct RawLayer;
struct Background;
struct HuffmanStats;

// A file opened for rewriting (read and write, created when missing, not emptied), held
// exclusively: a second open of the same file fails while this one lives.
struct OutputFile {
  wchar_t* name = nullptr;  // owned copy, for messages
  int handle = -1;          // platform file handle; -1 when no file is open
  uint32_t size = 0;        // bytes in the file; raised to `position` whenever it passes it
  uint32_t position = 0;    // bytes written since the truncation

  // Opens or creates the file; throws "File %s: failed on CreateFile: ..." or "GetFileSize".
  explicit OutputFile(const wchar_t* file_name);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();  // frees the name, closes the file

  void Truncate();  // to 0 bytes, position 0
  void Write(const uint8_t* bytes, uint32_t count);
};

// Everything the encoder knows of the frame; owns all it points to.
struct MergeState {
  ComponentInfo* components[4] = {};      // by component id 0 to 3
  QuantTable* quant_tables[4] = {};       // quantiser values, by DQT index
  QuantTable* reciprocal_tables[4] = {};  // AAN scale / quantiser, by DQT index
  HuffmanStats* dc_stats[4] = {};         // by DC selector; made on first use
  HuffmanStats* ac_stats[4] = {};         // by AC selector
  uint32_t width = 0;
  uint32_t height = 0;
  uint8_t* entropy_data = nullptr;  // owned; the finished scan
  uint32_t entropy_length = 0;
  SamplingMode sampling_mode = SamplingMode::kNone;
  int32_t mcu_width = 8;
  int32_t mcu_height = 8;
  int32_t blocks_per_mcu = 0;
  int32_t mcus_across = 0;
  int32_t mcus_down = 0;
  int32_t mcu_count = 0;
  // Where a regenerated thumbnail is written for a moment: null for the current directory.
  const wchar_t* temp_directory = nullptr;

  MergeState() = default;
  MergeState(const MergeState&) = delete;
  MergeState& operator=(const MergeState&) = delete;
  ~MergeState();
};

// Rewrites `file` from `layer` (only its size and pixels are read) and the segments of a parsed
// file: the frame size, quantisation tables, sampling and segments are kept, the Huffman tables
// are built for the new data, DRI is dropped, Exif values take the `overrides` and the Exif
// thumbnail is made anew from the layer. Transparent pixels show `background`. The file is
// truncated first: after a failure it is empty or holds what was written before the failure.
// A regenerated thumbnail goes through "tempthumb.jpg" in `temp_directory` (null: the current
// directory). Throws RawLayerException.
void Merge(OutputFile& file, const RawLayer& layer, const MarkerList& markers,
           const PropertyList& overrides, const Background& background,
           const wchar_t* temp_directory = nullptr);

// Reads the frame, tables and scan into `state`, brings the layer to the frame's size and
// leaves the finished entropy-coded data in `state`.
void EncodeFrame(MergeState& state, const RawLayer& layer, const MarkerList& markers,
                 const Background& background);

void ReadFrame(const JPEGReader::Marker& marker, MergeState& state);
void ReadQuantisation(const JPEGReader::Marker& marker, MergeState& state);
void ReadScan(const JPEGReader::Marker& marker, MergeState& state);
void PlanMergeSampling(MergeState& state);

// The coefficient rounding of the encoder: half away from zero, saturated to ±32767, NaN to 0.
int16_t RoundCoefficient(float x);

}  // namespace corvi
