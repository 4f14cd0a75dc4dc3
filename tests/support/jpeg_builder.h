// Builders of synthetic JPEG streams for the tests, and a scan of bytes held in memory.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/byte_coverage.h"
#include "base/limits.h"
#include "jpeg/jpeg_reader.h"

namespace corvi::test {

using Bytes = std::vector<uint8_t>;

// Appends segments to a byte stream. Lengths are computed unless given.
class JpegBuilder {
 public:
  JpegBuilder& Soi() { return Raw({0xFF, 0xD8}); }
  JpegBuilder& Eoi() { return Raw({0xFF, 0xD9}); }
  JpegBuilder& Raw(std::initializer_list<uint8_t> bytes) { return Raw(Bytes(bytes)); }
  JpegBuilder& Raw(const Bytes& bytes);
  // 0xFF, code, stored length (payload + 2), payload.
  JpegBuilder& Segment(uint8_t code, const Bytes& payload);
  // A segment whose stored length is given, whatever the payload.
  JpegBuilder& SegmentWithLength(uint8_t code, uint16_t stored_length, const Bytes& payload);
  // One 8-bit table with every entry `value`.
  JpegBuilder& Dqt(uint8_t id, uint8_t value = 1);
  // One table: class 0 DC, 1 AC; `counts` has 16 entries.
  JpegBuilder& Dht(uint8_t table_class, uint8_t id, const std::vector<uint8_t>& counts,
                   const Bytes& symbols);
  // components: {id, sampling byte, quant table}.
  JpegBuilder& Sof(uint8_t code, uint8_t precision, uint16_t width, uint16_t height,
                   const std::vector<std::array<uint8_t, 3>>& components);
  // components: {id, tables byte}.
  JpegBuilder& Sos(const std::vector<std::array<uint8_t, 2>>& components, uint8_t ss = 0,
                   uint8_t se = 63, uint8_t ah_al = 0);
  JpegBuilder& Dri(uint16_t interval) {
    return Segment(0xDD, {static_cast<uint8_t>(interval >> 8), static_cast<uint8_t>(interval)});
  }
  JpegBuilder& Entropy(const Bytes& bytes) { return Raw(bytes); }
  const Bytes& bytes() const { return data; }

 private:
  Bytes data;
};

// Writes Huffman codes and bits MSB first, stuffing 0x00 behind every 0xFF.
class BitWriter {
 public:
  void Put(uint32_t value, uint32_t bit_count);
  // Pads the last byte with 1 bits, as encoders do.
  Bytes Finish();

 private:
  Bytes data;
  uint32_t accumulator = 0;
  uint32_t count = 0;
};

// A grey 8x8 baseline file: DC table with one 1-bit code for symbol 0 and AC table with one
// 1-bit code for symbol 0 (end of block), so every block is flat. Under 200 bytes.
Bytes TinyGrayJpeg();

// The result of scanning bytes in memory: the list and the coverage over them.
struct ScanResult {
  std::unique_ptr<ByteCoverage> coverage;
  std::unique_ptr<MarkerList> markers;
  std::wstring error;  // the exception's text, empty when the scan succeeded
};
// The nesting depths of `limits` apply; by default there are none, as in the tool.
ScanResult ScanBytes(const Bytes& bytes, const Limits& limits = Limits::None());

// Dumps a scanned list as the tool would (without the file line) and returns the text.
std::string DumpText(const ScanResult& result, const Bytes& bytes);

// The entropy-coded data of every scan: [start, end) from behind each SOS to the next marker
// that is neither a stuffed zero nor a restart marker.
std::vector<std::pair<size_t, size_t>> ScanDataRanges(const Bytes& file);

// Writes bytes to a file under a fresh temporary directory and returns its path.
std::string WriteTempFile(const std::string& name, const Bytes& bytes);
std::string MakeTempDir();

// Reads a whole file; empty when it cannot be read.
Bytes ReadFile(const std::string& path);
std::string CorpusPath(const std::string& name);
bool CorpusAvailable();

}  // namespace corvi::test
