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

// Appends segments to a byte stream; each segment's stored length is its payload's plus 2.
class JpegBuilder {
 public:
  JpegBuilder& Soi() { return Raw({0xFF, 0xD8}); }
  JpegBuilder& Eoi() { return Raw({0xFF, 0xD9}); }
  JpegBuilder& Raw(std::initializer_list<uint8_t> bytes) { return Raw(Bytes(bytes)); }
  JpegBuilder& Raw(const Bytes& bytes);
  JpegBuilder& Segment(uint8_t code, const Bytes& payload);
  JpegBuilder& Dqt(uint8_t id, uint8_t value = 1);  // 8-bit, every entry `value`
  // table_class 0 DC, 1 AC; `counts` has up to 16 entries.
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

// A grey 8x8 baseline file whose DC and AC tables each hold one 1-bit code for symbol 0, so
// every block is flat. Under 200 bytes.
Bytes TinyGrayJpeg();

struct ScanResult {
  std::unique_ptr<ByteCoverage> coverage;
  std::unique_ptr<MarkerList> markers;
  std::wstring error;  // the exception's text, empty when the scan succeeded
};
// Scans bytes in memory under the nesting depths of `limits` (by default none, as in the tool).
ScanResult ScanBytes(const Bytes& bytes, const Limits& limits = Limits::None());

// The dump of a scanned list as the tool prints it, without the file line.
std::string DumpText(const ScanResult& result, const Bytes& bytes);

// [start, end) of each scan's entropy-coded data: from behind its SOS to the next marker that
// is neither a stuffed zero nor a restart marker.
std::vector<std::pair<size_t, size_t>> ScanDataRanges(const Bytes& file);

// A fresh temporary directory, removed with its contents when the test program ends.
std::string MakeTempDir();
// Writes `bytes` to `name` in a fresh temporary directory and returns the path.
std::string WriteTempFile(const std::string& name, const Bytes& bytes);
Bytes ReadFile(const std::string& path);  // empty when it cannot be read
std::string CorpusPath(const std::string& name);
bool CorpusAvailable();
// The paths of the corpus's JPEG files, in name order.
std::vector<std::string> CorpusFiles();

}  // namespace corvi::test
