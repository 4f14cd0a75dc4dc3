// The checker's bit reader: the refill that meets stuffed zeros, markers and the end of data,
// and the long way of a symbol decode.
#include "check/entropy_reader.h"

namespace corvi {

void EntropyReader::RefillSlow() {
  while (bits <= 56) {
    if (stop == nullptr) {
      if (next == limit) {
        stop = next;
      } else if (*next != 0xFF) {
        acc |= uint64_t{*next} << (56 - bits);
        bits += 8;
        ++next;
        continue;
      } else if (limit - next >= 2 && next[1] == 0) {
        acc |= uint64_t{0xFF} << (56 - bits);  // a stuffed zero: the data byte 0xFF
        bits += 8;
        next += 2;
        continue;
      } else {
        // A marker, fill bytes before one, or a lone 0xFF at the end: the data stops here.
        stop = next;
      }
    }
    // Past the stop: zeros, counted as such.
    fake += 64 - bits;
    bits = 64;
  }
}

bool EntropyReader::DecodeLong(const CheckTable& table, uint32_t& symbol) {
  // T.81 F.2.2.3: the code grows a bit at a time until it lies within its length's codes. The
  // lookup has found no code of up to kLookBits bits, so the search goes on from there.
  const uint32_t window = static_cast<uint32_t>(acc >> 48);
  for (int length = CheckTable::kLookBits + 1; length <= 16; ++length) {
    const auto code = static_cast<int32_t>(window >> (16 - length));
    if (code <= table.maxcode[length]) {
      Skip(length);
      symbol = table.values[(code + table.valoffset[length]) & 0xFF];
      return true;
    }
  }
  return false;
}

}  // namespace corvi
