// Baseline (sequential Huffman) scan decoding, one MCU row at a time.
#pragma once

#include <cstdint>

namespace corvi {

struct BitReader;
struct DecodeState;
struct RawLayer;

void DecodeSequential(DecodeState& state, RawLayer& layer, const uint8_t* data, int32_t length);

// The restart step: drops the reader's bits and moves its cursor behind the next FF Dn with
// n = restart_number & 7, or to the end.
void SeekRestartMarker(BitReader& reader, uint32_t restart_number);

}  // namespace corvi
