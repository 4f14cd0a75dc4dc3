// The geometry of a frame and of each of its scans, and the walk over a scan's units (the MCUs
// of an interleaved scan, the blocks of a single-component one) interval by interval between
// restart markers. What a unit's blocks mean is the business of the routine the walk drives.
#pragma once

#include <cstdint>

namespace corvi {

struct FrameFields;

// T.81 A.1.1: component sizes from the sampling factors.
struct FrameGeometry {
  struct Component {
    int32_t h = 1;              // Hi
    int32_t v = 1;              // Vi
    int32_t blocks_across = 0;  // blocks that cover the component's own samples
    int32_t blocks_down = 0;
    int32_t padded_across = 0;  // blocks of the interleaved layout: whole MCUs
    int32_t padded_down = 0;
  };
  int32_t count = 0;
  Component components[4];
  int32_t h_max = 1;
  int32_t v_max = 1;
  int32_t mcus_across = 0;  // MCUs of an interleaved scan
  int32_t mcus_down = 0;
};

// The geometry of a frame of 1 to 4 components with factors of 1 to 4 and a size above 0.
FrameGeometry PlanFrame(const FrameFields& frame);

struct ScanGeometry {
  int32_t count = 0;            // components in the scan
  int32_t frame_index[4] = {};  // each one's index in the frame
  int64_t units = 0;            // MCUs, or blocks of the one component
  int32_t units_across = 0;     // units in a row
  int32_t blocks_in_unit = 0;   // blocks of one MCU; 1 in a single-component scan
  uint8_t block_slot[10] = {};  // each block of a unit: its component's index in the scan
  // Per block of a unit: its column and row within the component's h x v group.
  uint8_t block_x[10] = {};
  uint8_t block_y[10] = {};
};

// The geometry of a scan of `count` frame components (their indices). An interleaved scan's
// MCU holds at most 10 blocks; the caller refuses more first.
ScanGeometry PlanScan(const FrameGeometry& frame, const int32_t* frame_indices, int32_t count);

// Blocks of an MCU that a scan of these components needs, for the T.81 limit of 10.
int32_t BlocksInMcu(const FrameGeometry& frame, const int32_t* frame_indices, int32_t count);

// Drives `routine` over a scan's units. `routine.Run(first, last)` decodes units [first, last)
// and returns the unit at which its data ran out, or `last`; the units behind that one up to the
// interval's end are not decoded. Between intervals `routine.Restart(number, next)` takes the
// restart marker (numbers count from 0; `next` is the first unit behind it) and returns false
// when no later interval can be decoded, which ends the walk. Returns how many units were
// decoded.
template <typename Routine>
int64_t WalkScan(const ScanGeometry& scan, uint32_t restart_interval, Routine& routine) {
  int64_t decoded = 0;
  uint32_t restarts = 0;
  for (int64_t unit = 0; unit < scan.units;) {
    const int64_t end = restart_interval != 0 && scan.units - unit > restart_interval
                            ? unit + restart_interval
                            : scan.units;
    decoded += routine.Run(unit, end) - unit;
    unit = end;
    if (unit < scan.units && !routine.Restart(restarts++, unit)) {
      break;
    }
  }
  return decoded;
}

}  // namespace corvi
