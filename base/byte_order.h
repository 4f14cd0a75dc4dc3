// Reading and writing numbers stored in a byte order: JPEG's big-endian fields, TIFF's two orders.
#pragma once

#include <cstdint>

namespace corvi {

// Byte orders of stored values: a TIFF header's flag, or the machine's own order.
constexpr uint8_t kIntelOrder = 0;
constexpr uint8_t kMotorolaOrder = 1;
uint8_t NativeByteOrder();

uint16_t ReadOrdered16(const uint8_t* p, uint8_t byte_order);
uint32_t ReadOrdered32(const uint8_t* p, uint8_t byte_order);
uint64_t ReadOrdered64(const uint8_t* p, uint8_t byte_order);
void WriteOrdered16(uint8_t* p, uint16_t value, uint8_t byte_order);
void WriteOrdered32(uint8_t* p, uint32_t value, uint8_t byte_order);
void WriteOrdered64(uint8_t* p, uint64_t value, uint8_t byte_order);

// The JPEG stream's big-endian fields.
inline uint16_t ReadBig16(const uint8_t* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
inline void WriteBig16(uint8_t* p, uint16_t value) {
  p[0] = static_cast<uint8_t>(value >> 8);
  p[1] = static_cast<uint8_t>(value);
}

}  // namespace corvi
