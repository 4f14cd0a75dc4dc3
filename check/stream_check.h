// The check of one JPEG stream (a file, or a thumbnail inside one) the way a decoder reads it:
// marker after marker from the start of image, the tables, the frame, every scan's data, up to
// the end of image; what follows the end is the caller's.
#pragma once

#include <cstdint>
#include <vector>

#include "check/issue.h"
#include "jpeg/segment_fields.h"

namespace corvi {

// One segment in file order, also the tables and scans behind the first scan.
struct SegmentRecord {
  uint8_t code = 0;
  int64_t first = 0;       // the segment's 0xFF, from the start of the file
  int64_t last = 0;        // its last payload byte, as the dump prints it
  int64_t data_last = -1;  // of a scan: the last byte of its entropy-coded data, restart markers
                           // included; -1 where it has none or the walk stopped inside it
  SegmentFields fields;
};

struct StreamCheckOptions {
  int32_t thumbnail = 0;        // how deep the stream is nested; 0 for the file
  bool keep_segments = true;    // record the segments (the report wants them; a summary not)
  size_t max_segments = 10000;  // segments recorded at most; the rest are counted
  // Large sequential scans read several AC symbols a lookup; false reads one at a time (the
  // plain form, which the tests compare the other with).
  bool run_tables = true;
};

struct StreamCheck {
  std::vector<SegmentRecord> segments;
  size_t segments_omitted = 0;
  bool has_frame = false;
  FrameFields frame;
  bool process_checked = true;  // false for arithmetic, lossless and hierarchical frames
  uint32_t scans = 0;
  int64_t end = -1;        // behind the end-of-image marker, from the start of the file; -1 without
  int64_t mpf_index = -1;  // an APP2 MPF segment's TIFF header, from the start of the file
  int32_t mpf_length = 0;  // and the bytes of its payload from there
  uint64_t mask_bytes = 0;  // memory the progressive masks took
  IssueList issues;
};

// Checks the stream of `length` bytes at offset `first` of the file at `file`.
StreamCheck CheckStream(const uint8_t* file, int64_t first, int64_t length,
                        const StreamCheckOptions& options);

}  // namespace corvi
