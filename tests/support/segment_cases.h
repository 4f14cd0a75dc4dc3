// Shared by the segment tests: byte helpers, one-segment streams and a table of scans that each
// give an exact message, or leave an exact count of bytes unclaimed and dump an exact text.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

inline Bytes Text(const char* text) {
  return Bytes(text, text + std::strlen(text));
}

// Bytes written as hex pairs separated by blanks: "FF D8 FF D9".
inline Bytes Hex(const char* text) {
  Bytes bytes;
  for (const char* p = text; *p != 0; p += p[2] == 0 ? 2 : 3) {
    bytes.push_back(static_cast<uint8_t>(std::stoi(std::string(p, 2), nullptr, 16)));
  }
  return bytes;
}

inline Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    all.insert(all.end(), part.begin(), part.end());
  }
  return all;
}

// SOI, one segment, EOI: the segment's 0xFF is at offset 2 and its payload at offset 6.
inline Bytes OneSegment(uint8_t code, const Bytes& payload) {
  return JpegBuilder().Soi().Segment(code, payload).Eoi().bytes();
}

struct SegmentCase {
  const char* name;
  Bytes stream;
  std::wstring error;  // empty: the scan succeeds, leaves `left` bytes and dumps `dump`
  uint32_t left;
  std::string dump;
};

inline void ExpectScans(const std::vector<SegmentCase>& cases) {
  for (const SegmentCase& c : cases) {
    SCOPED_TRACE(c.name);
    ScanResult result = ScanBytes(c.stream);
    EXPECT_EQ(result.error, c.error);
    if (c.error.empty() && result.error.empty()) {
      EXPECT_EQ(result.coverage->LeftCount(), c.left);
      EXPECT_EQ(DumpText(result, c.stream), c.dump);
    }
  }
}

}  // namespace corvi::test
