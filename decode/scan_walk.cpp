// The geometry of a frame and of its scans.
#include "decode/scan_walk.h"

#include <algorithm>

#include "jpeg/segment_fields.h"

namespace corvi {
namespace {

int32_t CeilDiv(int64_t a, int64_t b) {
  return static_cast<int32_t>((a + b - 1) / b);
}

}  // namespace

FrameGeometry PlanFrame(const FrameFields& frame) {
  FrameGeometry g;
  g.count = static_cast<int32_t>(std::min<size_t>(frame.components.size(), 4));
  for (int32_t i = 0; i < g.count; ++i) {
    g.h_max = std::max<int32_t>(g.h_max, frame.components[i].h);
    g.v_max = std::max<int32_t>(g.v_max, frame.components[i].v);
  }
  g.mcus_across = CeilDiv(frame.width, int64_t{8} * g.h_max);
  g.mcus_down = CeilDiv(frame.height, int64_t{8} * g.v_max);
  for (int32_t i = 0; i < g.count; ++i) {
    FrameGeometry::Component& c = g.components[i];
    c.h = frame.components[i].h;
    c.v = frame.components[i].v;
    // T.81 A.1.1: xi = ceil(X * Hi / Hmax), in blocks of 8.
    c.blocks_across = CeilDiv(CeilDiv(int64_t{frame.width} * c.h, g.h_max), 8);
    c.blocks_down = CeilDiv(CeilDiv(int64_t{frame.height} * c.v, g.v_max), 8);
    c.padded_across = g.mcus_across * c.h;
    c.padded_down = g.mcus_down * c.v;
  }
  return g;
}

int32_t BlocksInMcu(const FrameGeometry& frame, const int32_t* frame_indices, int32_t count) {
  if (count == 1) {
    return 1;
  }
  int32_t blocks = 0;
  for (int32_t i = 0; i < count; ++i) {
    const FrameGeometry::Component& c = frame.components[frame_indices[i]];
    blocks += c.h * c.v;
  }
  return blocks;
}

ScanGeometry PlanScan(const FrameGeometry& frame, const int32_t* frame_indices, int32_t count) {
  ScanGeometry scan;
  scan.count = count;
  for (int32_t i = 0; i < count; ++i) {
    scan.frame_index[i] = frame_indices[i];
  }
  if (count == 1) {
    // T.81 A.2.2: a non-interleaved scan codes the component's own blocks, row by row.
    const FrameGeometry::Component& c = frame.components[frame_indices[0]];
    scan.units_across = c.blocks_across;
    scan.units = int64_t{c.blocks_across} * c.blocks_down;
    scan.blocks_in_unit = 1;
    return scan;
  }
  // T.81 A.2.3: an MCU holds each component's h x v blocks in turn, row by row.
  scan.units_across = frame.mcus_across;
  scan.units = int64_t{frame.mcus_across} * frame.mcus_down;
  int32_t b = 0;
  for (int32_t i = 0; i < count; ++i) {
    const FrameGeometry::Component& c = frame.components[frame_indices[i]];
    for (int32_t y = 0; y < c.v; ++y) {
      for (int32_t x = 0; x < c.h && b < 10; ++x, ++b) {
        scan.block_slot[b] = static_cast<uint8_t>(i);
        scan.block_x[b] = static_cast<uint8_t>(x);
        scan.block_y[b] = static_cast<uint8_t>(y);
      }
    }
  }
  scan.blocks_in_unit = b;
  return scan;
}

}  // namespace corvi
