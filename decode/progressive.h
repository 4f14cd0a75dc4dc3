// Progressive Huffman decoding: the whole image's coefficients, scan after scan.
#pragma once

#include <cstdint>

namespace corvi {

struct BitReader;
struct ComponentInfo;
struct DecodeState;
struct RawLayer;

void DecodeProgressive(DecodeState& state, RawLayer& layer, const uint8_t* data, int32_t length);

// Decodes the scan at the reader's cursor and every scan behind it.
void DecodeScans(DecodeState& state, int16_t* coefficients, BitReader& reader);
void DecodeScan(DecodeState& state, int16_t* coefficients, BitReader& reader);
void DecodeProgressiveBlock(const DecodeState& state, int16_t* block, BitReader& reader,
                            const ComponentInfo& component, int32_t& dc_predictor,
                            uint32_t& eob_run);

}  // namespace corvi
