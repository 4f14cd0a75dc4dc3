// The check of one scan's entropy-coded data: a block routine for each kind of scan that decodes
// symbols and stores nothing but what a later scan needs (one bit per coefficient of a
// progressive frame), the restart markers between intervals, and the record of where the data
// ran out.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "check/check_table.h"
#include "check/issue.h"
#include "decode/scan_walk.h"
#include "jpeg/segment_fields.h"

namespace corvi {

class EntropyReader;

// Which coefficients of each block of a progressive frame are non-zero so far: what an AC
// refinement scan needs to know which correction bits follow. One bit per coefficient, in
// zig-zag order; memory is taken per component when its first AC scan comes, and pages that no
// scan reaches are never touched.
class CoefficientMasks {
 public:
  explicit CoefficientMasks(const FrameGeometry& frame);
  CoefficientMasks(const CoefficientMasks&) = delete;
  CoefficientMasks& operator=(const CoefficientMasks&) = delete;
  ~CoefficientMasks();

  // The masks of component `index`, allocated on first use; null when the memory cannot be had.
  uint64_t* Masks(int32_t index);
  // Blocks of a row of component `index` whose mask is not zero.
  uint32_t* RowCounts(int32_t index) { return rows[index].get(); }
  int32_t Stride(int32_t index) const { return frame.components[index].padded_across; }
  // Bytes taken so far.
  uint64_t Bytes() const { return bytes; }

 private:
  const FrameGeometry& frame;
  uint64_t* masks[4] = {};
  std::unique_ptr<uint32_t[]> rows[4];
  uint64_t bytes = 0;
};

struct ScanCheckInput {
  const FrameFields* frame_fields = nullptr;
  const FrameGeometry* frame = nullptr;
  const ScanFields* fields = nullptr;
  ScanGeometry geometry;
  const CheckTable* dc[4] = {};  // by component of the scan; null where the scan needs none
  const CheckTable* ac[4] = {};
  const uint16_t* ac_runs[4] = {};  // BuildRunTable's tables of the AC tables, where built
  bool progressive = false;
  uint32_t restart_interval = 0;
  int32_t scan_number = 1;             // from 1, in the stream
  const uint8_t* file_base = nullptr;  // issue offsets count from here
  int32_t thumbnail = 0;
};

struct ScanCheckResult {
  int64_t units = 0;
  int64_t decoded = 0;     // units decoded before their data ran out
  bool data_lost = false;  // some interval's data ran out or held a bad code
};

// Checks the scan whose data starts at the reader's position. On return the reader stands
// behind the last bit the scan took; the bytes from there to the next marker are the caller's.
ScanCheckResult CheckScanData(const ScanCheckInput& input, EntropyReader& reader,
                              CoefficientMasks& masks, IssueList& issues);

// Looks for the next marker from `p` as a decoder does between segments: every byte that is not
// a marker's 0xFF or fill in front of it counts as stray (FF 00 pairs too).
struct MarkerFound {
  bool found = false;
  uint8_t code = 0;
  const uint8_t* ff = nullptr;      // the first 0xFF: fill bytes, then the marker
  const uint8_t* marker = nullptr;  // the 0xFF directly in front of the code
  int64_t stray = 0;                // bytes passed over before `ff`
  const uint8_t* stray_start = nullptr;
};
MarkerFound FindMarker(const uint8_t* p, const uint8_t* end);

}  // namespace corvi
