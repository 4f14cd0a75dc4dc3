// Shared by the segment tests: byte helpers, one-segment streams, a text report of a scan and
// the comparison of such reports with the golden files.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "platform/format.h"
#include "tests/support/golden.h"
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

// A scan of `stream` as text: the error, the segment count, the bytes left unclaimed, the
// compressed length and, when the scan succeeded, the dump. The bytes are copied to a buffer of
// their exact size, so that the address sanitizer sees any read behind them.
inline std::string ScanReport(const Bytes& stream, const Limits& limits = Limits::None()) {
  const Bytes exact(stream);
  ScanResult r = ScanBytes(exact, limits);
  std::string text = r.error.empty() ? "" : "error: " + EncodeUtf8(r.error.c_str()) + "\n";
  text += std::to_string(r.markers->count) + " segments, " +
          std::to_string(r.coverage->LeftCount()) + " of " + std::to_string(exact.size()) +
          " bytes left, compressed " + std::to_string(r.markers->compressed_length) + "\n";
  return r.error.empty() ? text + DumpText(r, exact) : text;
}

using NamedStreams = std::vector<std::pair<std::string, Bytes>>;

// The reports of named streams, each under a "== NAME" line, compared with one golden file.
inline void ExpectGoldenScans(const std::string& golden, const NamedStreams& streams) {
  std::string text;
  for (const auto& [name, stream] : streams) {
    text += "== " + name + "\n" + ScanReport(stream);
  }
  ExpectGolden(golden, text);
}

}  // namespace corvi::test
