// The report of one file: its segments, Exif directories, thumbnails, byte counts, properties,
// and the checker's verdict with its issues. Inspect builds it; the renderers print it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "check/issue.h"
#include "check/stream_check.h"
#include "jpeg/segment_fields.h"

namespace corvi {

struct FileRun;

// One Exif entry. `bytes` holds its value in the file's byte order: all of it up to 256 bytes,
// else the first 64 (`cut`).
struct ExifEntryRecord {
  uint32_t tag = 0;  // the file's 16 bits; the directory gives the tag space
  std::string name;  // the tag's name, "???" when it has none
  uint16_t type = 0;
  uint32_t count = 0;
  int64_t first = 0;  // value bytes as the dump prints them, last inclusive
  int64_t last = -1;
  std::string bytes;
  bool cut = false;
};

// One Exif directory (a chain's directories one by one), in walk order.
struct ExifDirectoryRecord {
  std::string name;        // IFD0, IFD1, Exif, GPS, Interoperability, MakerNote
  std::string make;        // of a maker note: Canon or SONY
  int32_t parent = -1;     // index of the directory it hangs from, -1 for a chain's first
  int32_t segment = -1;    // index of its APP1 segment in the stream's segments
  uint8_t byte_order = 0;  // 0 Intel, 1 Motorola
  std::vector<ExifEntryRecord> entries;
};

// A stream: the file, or an Exif thumbnail inside it.
struct StreamReport {
  int64_t first = 0;  // the stream's range in the file, last inclusive
  int64_t last = -1;
  std::vector<SegmentRecord> segments;
  size_t segments_omitted = 0;
  int64_t eoi = -1;  // the end-of-image marker's 0xFF; -1 where the stream has none
  std::vector<ExifDirectoryRecord> directories;
  size_t directories_omitted = 0;  // past the report's bound, counted with their entries
  size_t entries_omitted = 0;
  std::vector<StreamReport> thumbnails;
  size_t thumbnails_deeper = 0;  // thumbnails nested deeper than the report goes, counted
};

// A range of bytes no structure claimed, and the segments around it.
struct UnclaimedRange {
  int64_t first = 0;
  int64_t last = 0;
  std::string inside;  // the segment that holds it, empty when it lies between segments
  std::string after;   // the segment or stretch in front of it
  std::string before;  // the segment or stretch behind it
};

// One metadata property as `corvi -d` collects it: its value bytes in this machine's order.
struct PropertyRecord {
  uint32_t id = 0;
  std::string name;  // as `corvi -d` prints it, "???" for an id without a name
  uint32_t type = 0;
  uint32_t count = 0;
  std::string bytes;
};

struct FileReport {
  std::string file;  // the name as given: bytes, not necessarily UTF-8
  uint64_t length = 0;
  bool unreadable = false;  // the name could not be opened: one issue says why

  // corvi's scan: the counts of its report line, or its failure.
  bool scanned = false;
  uint32_t identified = 0;
  uint32_t left = 0;
  std::string scan_failure;  // corvi's message, empty when the scan succeeded
  std::vector<UnclaimedRange> unclaimed;
  size_t unclaimed_omitted = 0;

  Verdict verdict = Verdict::kClean;
  IssueList issues;

  // The frame: zero and empty when the file has none.
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t components = 0;
  std::string sampling;  // "2x2,1x1,1x1": h x v of each component
  std::string process;   // "Baseline", "Progressive", ...
  uint32_t precision = 0;
  uint32_t scans = 0;

  std::vector<PropertyRecord> properties;
  std::string make, model, date;  // text properties, "" when absent

  // With decoding: the size decoded, or the failure line's message.
  bool decode_ran = false;
  bool decoded = false;
  uint32_t decoded_width = 0;
  uint32_t decoded_height = 0;
  std::string decode_failure;

  StreamReport stream;
};

struct InspectOptions {
  bool decode = false;  // decode the pixels as `corvi -d` does, keeping none
  bool full = true;     // keep segments, Exif entries and thumbnails, not only the summary
};

// Inspects the file at `path` (bytes, as the system takes them). Never throws: a name that
// cannot be opened gives a broken report with one issue of kind "unreadable".
FileReport Inspect(const std::string& path, const InspectOptions& options);
// Inspects bytes held by the caller, reported under `name`.
FileReport InspectBytes(const std::string& name, const uint8_t* data, size_t size,
                        const InspectOptions& options);
// The report of bytes that corvi's pipeline has run over already (with its decode stage when
// `options.decode` is set), for a caller that wants the run too.
FileReport InspectRun(const std::string& name, const FileRun& run, const uint8_t* data, size_t size,
                      const InspectOptions& options);
// The report of a name that cannot be opened: broken, with one issue of kind "unreadable"
// whose message is the system's text.
FileReport UnreadableReport(const std::string& name, const std::string& reason);

}  // namespace corvi
