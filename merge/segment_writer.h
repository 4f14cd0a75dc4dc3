// Segment re-emission helpers: the scope object that brackets one segment, and the table
// definitions of a rebuilt DHT segment.
#pragma once

#include <cstdint>

namespace corvi {

struct ByteBuffer;
struct HuffmanStats;

// Appends 0xFF, the code and a placeholder length; Finish, at destruction too, stores the
// segment's length (its own two bytes and everything appended since).
class SegmentWriter {
 public:
  SegmentWriter(uint8_t code, ByteBuffer& buffer);
  SegmentWriter(const SegmentWriter&) = delete;
  SegmentWriter& operator=(const SegmentWriter&) = delete;
  ~SegmentWriter() { Finish(); }
  void Finish();

 private:
  ByteBuffer& out;
  int32_t position;  // index of the length field
  bool finished = false;
};

// One table definition of T.81 B.2.4.2: class and id, 16 counts, symbols by length.
void WriteHuffmanTable(const HuffmanStats& stats, uint8_t id, bool ac, ByteBuffer& out);

}  // namespace corvi
