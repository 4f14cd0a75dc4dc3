// A growable array of output bytes for the rewriter.
#pragma once

#include <cstdint>

namespace corvi {

struct ByteBuffer {
  uint8_t* data = nullptr;  // owned
  int32_t length = 0;
  int32_t capacity = 0;

  ByteBuffer() = default;
  ByteBuffer(const ByteBuffer&) = delete;
  ByteBuffer& operator=(const ByteBuffer&) = delete;
  ~ByteBuffer() { delete[] data; }

  void Reserve(int32_t needed);
  void AppendByte(uint8_t byte);
  void AppendBlock(const uint8_t* bytes, int32_t count);
};

}  // namespace corvi
