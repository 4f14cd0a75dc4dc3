// The map of a JPEG file as one self-contained HTML page, drawn from the file's report: every
// segment and every scan's data as a band of the file, corvi's claims, the unclaimed bytes, the
// Exif directories, nested thumbnails, the verdict and its issues and, on request, the decoded
// frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/byte_coverage.h"
#include "report/file_report.h"

namespace corvi {

// A segment's dump as corvi prints it, by the offset of the segment's 0xFF.
struct SegmentDump {
  int64_t first = 0;
  std::string text;
};

// Everything the page shows of one file: its report, and what corvi's own pass over it printed
// and claimed.
struct FileMap {
  FileReport report;
  std::string line;                // corvi's report line, or its failure line, without the line end
  std::string decode_text;         // with decoding: corvi -d's lines, or its failure line
  std::vector<ByteRange> claims;   // corvi's claims in claim order, up to a failure
  std::vector<SegmentDump> dumps;  // the file's segments and its thumbnails', in scan order
  bool dumps_cut = false;          // the dumps reached the page's bound; the rest go without
  int32_t mcu_width = 0;           // of the decoded frame, in pixels
  int32_t mcu_height = 0;
};

// Maps the `length` bytes at `data`, called `name` (bytes, as given): corvi's pipeline runs over
// them once (with the decode stage when `decode` is set), and the report is read from that run.
FileMap MapBytes(const std::string& name, const uint8_t* data, size_t length, bool decode);

// The page for `map`, whose file bytes are `bytes` (`map.report.length` of them).
std::string MapPage(const FileMap& map, const uint8_t* bytes);

// Text made safe to stand inside a JSON string inside an HTML script element.
std::string JsonString(const std::string& text);
// JSON text made safe to stand inside an HTML script element: "<", ">", "&", U+2028 and U+2029
// as escapes. They can only stand inside strings, where the escapes mean the same.
std::string ScriptSafe(const std::string& json);

}  // namespace corvi
