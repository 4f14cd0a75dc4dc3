// Reading and writing numbers stored in a byte order.
#include "base/byte_order.h"

#include <bit>
#include <utility>

namespace corvi {

uint8_t NativeByteOrder() {
  return std::endian::native == std::endian::big ? kMotorolaOrder : kIntelOrder;
}

uint16_t ReadOrdered16(const uint8_t* p, uint8_t byte_order) {
  if (byte_order == kMotorolaOrder) {
    return static_cast<uint16_t>((p[0] << 8) | p[1]);
  }
  return static_cast<uint16_t>((p[1] << 8) | p[0]);
}

uint32_t ReadOrdered32(const uint8_t* p, uint8_t byte_order) {
  if (byte_order == kMotorolaOrder) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
  }
  return (uint32_t{p[3]} << 24) | (uint32_t{p[2]} << 16) | (uint32_t{p[1]} << 8) | p[0];
}

uint64_t ReadOrdered64(const uint8_t* p, uint8_t byte_order) {
  uint64_t high = ReadOrdered32(p, byte_order);
  uint64_t low = ReadOrdered32(p + 4, byte_order);
  if (byte_order != kMotorolaOrder) {
    std::swap(high, low);
  }
  return (high << 32) | low;
}

void WriteOrdered16(uint8_t* p, uint16_t v, uint8_t byte_order) {
  if (byte_order == kMotorolaOrder) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
  } else {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
  }
}

void WriteOrdered32(uint8_t* p, uint32_t v, uint8_t byte_order) {
  for (int i = 0; i < 4; ++i) {
    int shift = byte_order == kMotorolaOrder ? 24 - 8 * i : 8 * i;
    p[i] = static_cast<uint8_t>(v >> shift);
  }
}

void WriteOrdered64(uint8_t* p, uint64_t v, uint8_t byte_order) {
  for (int i = 0; i < 8; ++i) {
    int shift = byte_order == kMotorolaOrder ? 56 - 8 * i : 8 * i;
    p[i] = static_cast<uint8_t>(v >> shift);
  }
}

}  // namespace corvi
