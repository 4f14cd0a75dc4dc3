// Huffman tables for the checker: a lookup of short codes and the canonical limits of T.81
// F.2.2.3 for the rest. Decoding for a check needs a symbol's length and its extra bits, never
// a coefficient's value.
#pragma once

#include <cstdint>
#include <string>

namespace corvi {

struct CheckTable {
  static constexpr int kLookBits = 10;
  // By the next kLookBits bits: the code's length (bits 8 to 12; 0 when the code is longer or
  // no code starts there) and its symbol (bits 0 to 7).
  uint16_t lookup[1 << kLookBits];
  // For a sequential AC table, by the same bits: the bits a whole symbol takes with its extra
  // bits (bits 0 to 4) and how far it moves the coefficient index (bits 8 to 15: run + 1, 16
  // for ZRL, kEndOfBlock for the other symbols of size 0); 0 when the long way must decide.
  uint16_t step[1 << kLookBits];
  // For a sequential AC table, by the next kRunBits bits: the symbols that lie wholly in them,
  // read one after another up to an end of block: the bits they take (bits 0 to 3), whether the
  // last one ends the block (bit 4), and how far they move the coefficient index (bits 8 to
  // 14). 0 where not even one symbol fits. Built by BuildRunTable.
  static constexpr int kRunBits = 12;
  uint16_t runs[1 << kRunBits];
  int32_t maxcode[18];    // the largest code of each length, -1 for none; [17] ends the search
  int32_t valoffset[18];  // symbol index of a code of each length, less the code
  uint8_t values[256];
};

constexpr uint16_t kEndOfBlock = 0x80;  // a step of 128: past any block
constexpr uint16_t kRunEndsBlock = 0x10;

// Builds `table` from a DHT table's 16 counts and its symbols, refusing what libjpeg-turbo
// refuses: more than 256 symbols, a code that does not fit its length, and in a DC table a
// symbol above 15. False with the reason in `error`.
bool BuildCheckTable(const uint8_t* counts, const uint8_t* symbols, bool dc, CheckTable& table,
                     std::string& error);

// Fills `table.runs` from `table.step`: worth its cost for scans of many blocks.
void BuildRunTable(CheckTable& table);

// The tables of T.81 K.3 that libjpeg-turbo takes for slots 0 (luminance) and 1 (chrominance)
// of a scan that names a table no DHT defined: counts and symbols.
struct StandardTable {
  const uint8_t* counts;
  const uint8_t* symbols;
};
StandardTable StandardHuffmanTable(bool dc, int slot);

}  // namespace corvi
