// A growable array of output bytes for the rewriter.
#include "merge/byte_buffer.h"

#include <cstring>

namespace corvi {

void ByteBuffer::Reserve(int32_t needed) {
  if (needed <= capacity) {
    return;
  }
  int32_t new_capacity = needed < 4 ? 4 : needed * 2;
  auto* grown = new uint8_t[static_cast<uint32_t>(new_capacity)];
  if (length > 0) {
    std::memcpy(grown, data, static_cast<size_t>(length));
  }
  delete[] data;
  data = grown;
  capacity = new_capacity;
}

void ByteBuffer::AppendByte(uint8_t byte) {
  Reserve(length + 1);
  data[length++] = byte;
}

void ByteBuffer::AppendBlock(const uint8_t* bytes, int32_t count) {
  if (count <= 0) {
    return;
  }
  Reserve(length + count);
  std::memcpy(data + length, bytes, static_cast<size_t>(count));
  length += count;
}

}  // namespace corvi
