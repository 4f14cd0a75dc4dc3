// The entropy coder of the rewriter: symbol statistics, Huffman codes built from them, and the
// two passes over the coefficients (T.81 F.1.2, K.2).
#pragma once

#include <cstdint>

namespace corvi {

struct MergeState;

// Frequency, code length and code of the 256 symbols of one table.
struct HuffmanStats {
  struct Entry {
    int64_t frequency = 0;  // symbols met by the first pass; 64 bits so a huge frame cannot wrap
    int32_t length = 0;     // code length in bits; 0 for no code
    uint32_t code = 0;      // right-aligned
  };
  Entry entries[256];
};

// Fills length and code of every entry: lengths of at most 16 bits, no all-ones code.
void BuildHuffmanCode(HuffmanStats& stats);

// Bit k set where the k-th of 64 values (zig-zag order) is nonzero, for k from 1: the DC bit is
// always clear. The vector form and the plain form give the same mask.
uint64_t NonzeroMask(const int16_t* values);
uint64_t NonzeroMaskPlain(const int16_t* values);

// Counts the symbols of the frame's coefficients (blocks of 64 int16 in natural order, in MCU
// order), builds every table, and writes the scan into `state.entropy_data`.
void EncodeScan(MergeState& state, const int16_t* coefficients);
// The two passes apart, for blocks whose values stand in zig-zag order: the first pass for one
// block, counting its symbols with the component's prediction and tables; then the codes of
// every table and the second pass over all blocks.
void CountSymbols(const int16_t* block, int32_t& prediction, HuffmanStats& dc, HuffmanStats& ac);
void WriteScanZigzag(MergeState& state, const int16_t* coefficients);

}  // namespace corvi
