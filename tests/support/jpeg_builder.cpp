// Builders of synthetic JPEG streams for the tests, and a scan of bytes held in memory.
#include "tests/support/jpeg_builder.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "base/raw_layer_exception.h"
#include "platform/format.h"

namespace corvi::test {

JpegBuilder& JpegBuilder::Raw(const Bytes& bytes) {
  data.insert(data.end(), bytes.begin(), bytes.end());
  return *this;
}

JpegBuilder& JpegBuilder::Segment(uint8_t code, const Bytes& payload) {
  const size_t length = payload.size() + 2;
  Raw({0xFF, code, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)});
  return Raw(payload);
}

JpegBuilder& JpegBuilder::Dqt(uint8_t id, uint8_t value) {
  Bytes payload(65, value);
  payload[0] = id;
  return Segment(0xDB, payload);
}

JpegBuilder& JpegBuilder::Dht(uint8_t table_class, uint8_t id, const std::vector<uint8_t>& counts,
                              const Bytes& symbols) {
  Bytes payload{static_cast<uint8_t>((table_class << 4) | id)};
  payload.insert(payload.end(), counts.begin(), counts.end());
  payload.resize(17, 0);
  payload.insert(payload.end(), symbols.begin(), symbols.end());
  return Segment(0xC4, payload);
}

JpegBuilder& JpegBuilder::Sof(uint8_t code, uint8_t precision, uint16_t width, uint16_t height,
                              const std::vector<std::array<uint8_t, 3>>& components) {
  Bytes payload{precision};
  for (const uint16_t v : {height, width}) {
    payload.insert(payload.end(), {static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v)});
  }
  payload.push_back(static_cast<uint8_t>(components.size()));
  for (const auto& c : components) {
    payload.insert(payload.end(), c.begin(), c.end());
  }
  return Segment(code, payload);
}

JpegBuilder& JpegBuilder::Sos(const std::vector<std::array<uint8_t, 2>>& components, uint8_t ss,
                              uint8_t se, uint8_t ah_al) {
  Bytes payload{static_cast<uint8_t>(components.size())};
  for (const auto& c : components) {
    payload.insert(payload.end(), c.begin(), c.end());
  }
  payload.insert(payload.end(), {ss, se, ah_al});
  return Segment(0xDA, payload);
}

Bytes TinyGrayJpeg() {
  const std::vector<uint8_t> one_code = {1};
  return JpegBuilder()
      .Soi()
      .Dqt(0)
      .Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}})
      .Dht(0, 0, one_code, {0x00})
      .Dht(1, 0, one_code, {0x00})
      .Sos({{1, 0x00}})
      .Entropy({0x00})
      .Eoi()
      .bytes();
}

ScanResult ScanBytes(const Bytes& bytes, const Limits& limits) {
  ScanResult result;
  const auto length = static_cast<int32_t>(bytes.size());
  result.coverage = std::make_unique<ByteCoverage>(bytes.data(), length);
  result.coverage->max_thumbnail_depth = limits.max_thumbnail_depth;
  result.coverage->max_directory_depth = limits.max_directory_depth;
  result.markers = std::make_unique<MarkerList>();
  try {
    result.markers->Scan(*result.coverage, bytes.data(), length - 2);
  } catch (const RawLayerException& e) {
    result.error = e.message != nullptr ? e.message : L"(null)";
  }
  return result;
}

std::string DumpText(const ScanResult& result, const Bytes& bytes) {
  OutStream stream;
  result.markers->Dump(bytes.data(), 1, stream);
  return stream.Text();
}

std::vector<std::pair<size_t, size_t>> ScanDataRanges(const Bytes& file) {
  std::vector<std::pair<size_t, size_t>> ranges;
  size_t position = 2;
  while (position + 4 <= file.size() && file[position] == 0xFF) {
    const uint8_t code = file[position + 1];
    position += 2 + (size_t{file[position + 2]} << 8 | file[position + 3]);
    if (code != 0xDA) {
      continue;
    }
    size_t end = position;
    while (end + 1 < file.size() &&
           !(file[end] == 0xFF && file[end + 1] != 0 && (file[end + 1] & 0xF8) != 0xD0)) {
      ++end;
    }
    ranges.emplace_back(position, end);
    position = end;
  }
  return ranges;
}

std::string MakeTempDir() {
  struct Made : std::vector<std::string> {
    ~Made() {
      for (const std::string& path : *this) {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
      }
    }
  };
  static Made made;
  char pattern[] = "/tmp/corvi-test-XXXXXX";
  return mkdtemp(pattern) == nullptr ? "/tmp" : made.emplace_back(pattern);
}

std::string WriteTempFile(const std::string& name, const Bytes& bytes) {
  std::string path = MakeTempDir() + "/" + name;
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  return path;
}

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string CorpusPath(const std::string& name) {
  return std::string(CORVI_CORPUS_DIR) + "/" + name;
}

bool CorpusAvailable() {
  return access(CorpusPath("SOURCES.md").c_str(), R_OK) == 0;
}

std::vector<std::string> CorpusFiles() {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(CORVI_CORPUS_DIR, error)) {
    if (entry.path().extension() == ".jpg") {
      files.push_back(entry.path().string());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace corvi::test
