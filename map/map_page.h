// The map of a JPEG file as one self-contained HTML page: every segment as a band of the file,
// its dump, its bytes and its claims, the unclaimed bytes, the Exif tree, nested thumbnails and,
// on request, the decoded frame.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/byte_coverage.h"

namespace corvi {

class OutStream;
struct MarkerList;

// One band of a map: a segment, the compressed data, or bytes between them.
struct MapBand {
  std::string kind;   // "SOI", "APP1", "DQT", ..., "data" (compressed data), "gap", "tail"
  int64_t first = 0;  // offsets from the start of the file, inclusive
  int64_t last = -1;
  std::string dump;  // the segment's dump as the tool prints it; empty for other bands
};

// One Exif entry as the page lists it.
struct MapExifRow {
  int32_t depth = 0;  // 0 for a directory of the segment, 1 inside a nested directory, ...
  uint32_t ifd = 0;
  uint32_t tag = 0;
  std::string name;
  uint32_t type = 0;
  uint32_t count = 0;
  std::string value;  // converted as the dump prints it
};

// The map of one stream: the file, or a thumbnail inside it.
struct StreamMap {
  int64_t first = 0;  // the stream's range in the file
  int64_t last = -1;
  std::vector<MapBand> bands;
  std::vector<ClaimRecord> claims;    // inside the stream's range, in claim order
  std::vector<ByteRange> unclaimed;   // inside the stream's range, in file order
  std::vector<MapExifRow> exif;       // the entries of its APP1 segments
  std::vector<StreamMap> thumbnails;  // the streams of its Exif thumbnails
};

// Everything the page shows of one file.
struct FileMap {
  std::string name;  // as given, UTF-8
  uint32_t length = 0;
  uint32_t identified = 0;
  uint32_t left = 0;
  std::string report;   // the tool's report line, or its failure line
  bool failed = false;  // the scan failed: the map shows what it reached
  ByteRange failed_at{0, 0};
  StreamMap file;
  // With decoding: the frame, or the failure line of the decode.
  bool decoded = false;
  std::string decode_report;  // "Decoded W x H pixels" and the properties, or the failure
  uint32_t width = 0;
  uint32_t height = 0;
  int32_t mcu_width = 0;
  int32_t mcu_height = 0;
};

// Maps, scans and (with `decode`) decodes the file, recording every claim. A scan or decode
// failure is part of the map; a file that cannot be opened throws RawLayerException.
FileMap MapFile(const wchar_t* name, bool decode);

// The page for `map`, whose file bytes are `bytes` (`map.length` of them).
std::string MapPage(const FileMap& map, const uint8_t* bytes);

// Text made safe to stand inside a JSON string inside an HTML script element.
std::string JsonString(const std::string& text);

}  // namespace corvi
