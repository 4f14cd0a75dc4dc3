// The checker's bit reader over entropy-coded data, and where the data stops: at a marker, or at
// the end of the stream. Past the stop it reads zeros, and it knows when a decode took any of
// them: that is where the data ran out.
#pragma once

#include <cstdint>
#include <cstring>

#include "check/check_table.h"

namespace corvi {

class EntropyReader {
 public:
  // Reads from `data` up to `end` (the end of the stream); nothing before `data` is looked at.
  void Start(const uint8_t* data, const uint8_t* end) {
    next = data;
    limit = end;
    stop = nullptr;
    acc = 0;
    bits = 0;
    fake = 0;
  }

  // At least 57 bits held (zeros past the stop).
  void Refill() {
    if (bits >= 57) {
      return;
    }
    if (stop == nullptr && limit - next >= 8) {
      uint64_t word;
      std::memcpy(&word, next, 8);
      word = __builtin_bswap64(word);
      const uint64_t inverted = ~word;
      if (((inverted - 0x0101010101010101ull) & ~inverted & 0x8080808080808080ull) == 0) {
        const int take = (64 - bits) & ~7;  // 8 to 64 bits: whole bytes only
        acc |= (word >> (64 - take)) << (64 - bits - take);
        bits += take;
        next += take >> 3;
        return;
      }
    }
    RefillSlow();
  }

  uint64_t Peek() const { return acc; }
  void Skip(int n) {
    acc <<= n;
    bits -= n;
  }
  // Whether a decode took bits from past the stop.
  bool RanOut() const { return bits < fake; }
  // Whether the 16 bits a long code may need reach past the stop: a code not found there may
  // have been cut by the stop rather than be wrong.
  bool WindowReachesStop() const { return bits - fake < 16; }

  // The next symbol of `table`; false for a code that the table does not hold. 16 bits must
  // be held.
  bool DecodeSymbol(const CheckTable& table, uint32_t& symbol) {
    const uint32_t entry = table.lookup[acc >> (64 - CheckTable::kLookBits)];
    const int length = static_cast<int>(entry >> 8);
    if (length != 0) {
      Skip(length);
      symbol = entry & 0xFF;
      return true;
    }
    return DecodeLong(table, symbol);
  }

  // Bits of the data not yet taken, as whole bytes held in the accumulator.
  int HeldBytes() const { return (bits - fake) > 0 ? (bits - fake) >> 3 : 0; }
  // An estimate of the offset of the next unread bit's byte, from the stream's data: the bytes
  // held are counted back from the read position (stuffed zeros aside).
  const uint8_t* Position() const { return next - HeldBytes(); }
  // Where the data stops, once the reader has seen it; null before.
  const uint8_t* Stop() const { return stop; }
  // Moves the read position to `p` with nothing held, for the walk between segments.
  void Seek(const uint8_t* p) { Start(p, limit); }
  const uint8_t* Next() const { return next; }
  const uint8_t* End() const { return limit; }

 private:
  void RefillSlow();
  bool DecodeLong(const CheckTable& table, uint32_t& symbol);

  const uint8_t* next = nullptr;   // the next byte not yet taken
  const uint8_t* limit = nullptr;  // the end of the stream
  const uint8_t* stop = nullptr;   // the marker's 0xFF, or `limit`; null until met
  uint64_t acc = 0;                // left-justified: the next bit is bit 63
  int bits = 0;                    // valid bits at the top of `acc`, the zeros past the stop too
  int fake = 0;                    // how many of `bits` are zeros past the stop
};

}  // namespace corvi
