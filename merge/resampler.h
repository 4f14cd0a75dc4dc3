// Rescaling of a pixel layer to the frame's size: a nine-tap mean weighted by alpha, a point
// sampler for whole-number steps, and the fit that makes up for a rounded step.
#pragma once

#include <cstdint>

namespace corvi {

// Source coordinates are fixed-point with 12 fraction bits: 4096 is one source pixel.
struct ResampleTarget {
  uint16_t* pixels = nullptr;  // owned; RGBA, 4 channels a pixel; null before the first pass
  uint16_t* cursor = nullptr;  // the next pixel to write
  int32_t width = 0;
  int32_t height = 0;

  ResampleTarget() = default;
  ResampleTarget(const ResampleTarget&) = delete;
  ResampleTarget& operator=(const ResampleTarget&) = delete;
  ~ResampleTarget() { delete[] pixels; }
};

struct Resampler {
  int32_t source_width = 0;
  int32_t source_height = 0;
  const uint16_t* source_pixels = nullptr;  // not owned
  int32_t x_start = 0;
  int32_t y_start = 0;
  int32_t x_end = 0;  // the walk stops before this source x
  int32_t y_end = 0;
  int32_t x_step = 0;  // source distance from one target column to the next
  int32_t y_step = 0;
  ResampleTarget* target = nullptr;

  // `extent_*`: the source size as floats; `scale_*`: target size over source size. Throws
  // "Unsupported scale factor" where a step would come out below 1 or a coordinate would not fit.
  Resampler(int32_t width, int32_t height, const uint16_t* pixels, float extent_x, float extent_y,
            float scale_x, float scale_y);

  void Resample();
  void PointSample();

 private:
  void AllocateTarget();
};

// Makes `target` exactly width × height by dropping or repeating the last rows and columns of
// the source.
void FitToSize(ResampleTarget& target, int32_t source_width, int32_t source_height,
               const uint16_t* source_pixels, int32_t width, int32_t height);

}  // namespace corvi
