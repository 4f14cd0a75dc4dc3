// The entropy coder of the rewriter: symbol statistics, Huffman codes built from them, and the
// two passes over the coefficients (T.81 F.1.2, K.2).
#pragma once

#include <cstddef>
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
// The two passes apart, over a packed store: per block the mask of its nonzero AC coefficients
// in zig-zag order (8 bytes, as NonzeroMask gives it), its DC value (2 bytes), then the nonzero
// AC values, lowest zig-zag index first (2 bytes each), all in the machine's byte order. Most
// coefficients are 0, so the store stays far below 128 bytes a block.
constexpr size_t kPackedBlockHead = 10;
constexpr size_t kPackedBlockMax = kPackedBlockHead + 63 * 2;
// Packs a block whose 64 values stand in zig-zag order; returns the bytes written.
size_t PackBlock(const int16_t* block, uint8_t* out);
// The first pass for one packed block, with its component's prediction and tables; returns the
// block's size.
size_t CountPackedBlock(const uint8_t* block, int32_t& prediction, HuffmanStats& dc,
                        HuffmanStats& ac);
// The codes of every table from the counts, then the second pass over all packed blocks.
void WritePackedScan(MergeState& state, const uint8_t* blocks);

}  // namespace corvi
