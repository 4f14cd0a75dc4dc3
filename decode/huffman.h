// Huffman decode tables and the bit reader of the entropy decoder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace corvi {

// A paged lookup table: pages of 256 entries looked up by 8 bits at a time. An entry's high byte
// is 1 to 8 for a complete code (low byte the symbol), 0xFE for a link (low byte the page), and
// 0xFF for a free entry.
struct HuffmanTable {
  uint16_t* pages = nullptr;  // owned; page_count × 256 entries in one block
  int32_t page_count = 0;
  int32_t page_capacity = 0;  // pages the block can hold; grows by doubling

  HuffmanTable() = default;
  HuffmanTable(const HuffmanTable&) = delete;
  HuffmanTable& operator=(const HuffmanTable&) = delete;
  ~HuffmanTable();
};

// Reads bits out of entropy-coded data; stops at a marker or at the end, reading zeros.
struct BitReader {
  const uint8_t* cursor = nullptr;  // next byte not yet taken into `bits`
  const uint8_t* end = nullptr;     // one past the last byte of the data
  uint32_t bits = 0;                // left-justified: the next bit is bit 31
  uint32_t bit_count = 0;           // valid bits at the top of `bits`; the bits below are zero

  void Clear() {
    bits = 0;
    bit_count = 0;
  }
};

// Takes bytes into the accumulator until it holds more than 24 bits. Stops before a marker (0xFF
// followed by anything but 0), before a lone 0xFF at the end and at the end; drops stuffed zeros.
// Taking bytes early changes nothing a decode sees: the bits are the same, and the cursor never
// passes a marker.
inline void RefillBits(const uint8_t*& cursor, const uint8_t* end, uint32_t& bits,
                       uint32_t& bit_count) {
  if (bit_count > 24) {
    return;
  }
  // Far from the end, and with no 0xFF among the next four bytes, the bytes that the loop below
  // would take one at a time are taken at once: as many as bring the count above 24.
  if (end - cursor >= 4) {
    uint32_t word;
    std::memcpy(&word, cursor, 4);
    word = __builtin_bswap32(word);
    const uint32_t inverted = ~word;
    if (((inverted - 0x01010101u) & ~inverted & 0x80808080u) == 0) {
      const uint32_t taken = (32 - bit_count) >> 3;   // 1 to 4 bytes
      const uint32_t filled = bit_count + 8 * taken;  // 25 to 32 bits
      const uint32_t keep = filled == 32 ? 0xFFFFFFFFu : ~(0xFFFFFFFFu >> filled);
      bits |= (word >> bit_count) & keep;
      bit_count = filled;
      cursor += taken;
      return;
    }
  }
  while (bit_count <= 24) {
    if (cursor == end) {
      return;
    }
    uint32_t b = *cursor;
    if (b == 0xFF) {
      if (end - cursor < 2 || cursor[1] != 0) {
        return;
      }
      cursor += 2;
    } else {
      cursor += 1;
    }
    bits |= b << (24 - bit_count);
    bit_count += 8;
  }
}

// Whether a refill can take no byte: the cursor stands at the end, at a marker or at a lone 0xFF
// at the end. Only a restart step moves it on from there.
inline bool AtDataStop(const BitReader& reader) {
  const uint8_t* cursor = reader.cursor;
  const ptrdiff_t left = reader.end - cursor;
  return left <= 0 || (cursor[0] == 0xFF && (left < 2 || cursor[1] != 0));
}

// Whether the reader gives no more bits: none held and none to take. Every symbol then reads 0
// and every bit 0 without a bit consumed, until a restart step moves the cursor.
inline bool Exhausted(const BitReader& reader) {
  return reader.bit_count == 0 && AtDataStop(reader);
}

// Builds `table` from the DHT payload at `position` (on the 16 counts); moves `position` past the
// counts and symbols. Throws "Invalid Huffman code table".
void BuildHuffmanTable(HuffmanTable& table, const uint8_t* payload, int32_t& position);
void AddHuffmanCode(HuffmanTable& table, int32_t page, uint32_t code, uint32_t length,
                    uint8_t symbol);

// The full symbol decode: links, refills and the end of the data. Throws "Corrupt image data".
uint32_t DecodeSymbolSlow(BitReader& reader, const HuffmanTable& table);
// The full bit read: refills, the end of the data and counts of 32 or more.
uint32_t ReceiveBitsSlow(BitReader& reader, uint32_t n);

// The next symbol; 0 when the data has run out. Throws "Corrupt image data" on a free entry.
// The inline part takes a complete code of page 0 that the bits held already cover; it gives what
// the full decode gives, since that one would find the same entry first.
inline uint32_t DecodeSymbol(BitReader& reader, const HuffmanTable& table) {
  uint32_t bits = reader.bits;
  uint32_t bit_count = reader.bit_count;
  uint32_t entry = table.pages[bits >> 24];
  uint32_t n = entry >> 8;  // 1 to 8 for a code; 0xFE and 0xFF lie above any bit count
  if (n <= bit_count) {
    reader.bits = bits << n;
    reader.bit_count = bit_count - n;
    return entry & 0xFF;
  }
  return DecodeSymbolSlow(reader, table);
}

// The next `n` bits (n ≥ 1), or 0 with nothing consumed when they cannot be had.
inline uint32_t ReceiveBits(BitReader& reader, uint32_t n) {
  uint32_t bit_count = reader.bit_count;
  if (n <= bit_count && n - 1 < 31) {  // 1 to 31 bits held: both shifts stay below 32
    uint32_t bits = reader.bits;
    reader.bits = bits << n;
    reader.bit_count = bit_count - n;
    return bits >> (32 - n);
  }
  return ReceiveBitsSlow(reader, n);
}

// T.81 F.2.2.1 EXTEND; size 0 gives 0, and sizes of 32 or more are defined too.
inline int32_t Extend(uint32_t value, uint32_t size) {
  if (size == 0) {
    return 0;
  }
  // Sizes of 32 and more come only from damaged DC symbols; the result is the formula's, taken
  // modulo 2^32: value + 1 below the threshold, which every value is for sizes above 32.
  if (size >= 32) {
    if (size > 32 || value < 0x80000000u) {
      return static_cast<int32_t>(value + 1);
    }
    return static_cast<int32_t>(value);
  }
  if (value < (uint32_t{1} << (size - 1))) {
    return static_cast<int32_t>(value - (uint32_t{1} << size) + 1);  // wraps as two's complement
  }
  return static_cast<int32_t>(value);
}

}  // namespace corvi
