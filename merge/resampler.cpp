// Rescaling of a pixel layer to the frame's size: a nine-tap mean weighted by alpha, a point
// sampler for whole-number steps, and the fit that makes up for a rounded step.
#include "merge/resampler.h"

#include <cmath>
#include <cstring>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

// Coordinates stay below 2^30, so that a coordinate plus a step never wraps.
constexpr double kMaxCoordinate = 1073741824.0;

// floor(value + 0.5) of a single-precision value, widened to double for the rounding down; a
// result outside 0 .. 2^30 cannot be walked and is refused.
int32_t RoundToFixed(float value, double lowest) {
  const double rounded = std::floor(static_cast<double>(value));
  if (!(rounded >= lowest && rounded <= kMaxCoordinate)) {
    throw RawLayerException(L"Unsupported scale factor");
  }
  return static_cast<int32_t>(rounded);
}

// Number of steps from start to end, rounded up.
int32_t StepCount(int32_t start, int32_t end, int32_t step) {
  return (step - start + end - 1) / step;
}

}  // namespace

Resampler::Resampler(int32_t width, int32_t height, const uint16_t* pixels, float extent_x,
                     float extent_y, float scale_x, float scale_y)
    : source_width(width), source_height(height), source_pixels(pixels) {
  x_end = RoundToFixed(extent_x * 4096.0f + 0.5f, 0.0);
  y_end = RoundToFixed(extent_y * 4096.0f + 0.5f, 0.0);
  // A step below 1 would never leave its place: the frame is over 8192 times the layer.
  x_step = RoundToFixed(4096.0f / scale_x + 0.5f, 1.0);
  y_step = RoundToFixed(4096.0f / scale_y + 0.5f, 1.0);
}

void Resampler::AllocateTarget() {
  target->width = StepCount(x_start, x_end, x_step);
  target->height = StepCount(y_start, y_end, y_step);
  delete[] target->pixels;
  target->pixels = nullptr;
  const uint64_t count = static_cast<uint64_t>(target->width > 0 ? target->width : 0) *
                         static_cast<uint64_t>(target->height > 0 ? target->height : 0) * 4;
  target->pixels = AllocateArray<uint16_t>(count);
  target->cursor = target->pixels;
}

void Resampler::Resample() {
  if (x_start % 4096 == 0 && y_start % 4096 == 0 && x_step % 4096 == 0 && y_step % 4096 == 0) {
    PointSample();
    return;
  }
  // Taps at 0, about a third and about two thirds of a step.
  const int32_t dx2 = (2 * x_step) / 3;
  const int32_t dx1 = dx2 >> 1;
  const int32_t dy2 = (2 * y_step) / 3;
  const int32_t dy1 = dy2 >> 1;
  AllocateTarget();
  uint16_t* out = target->cursor;
  const int32_t width = target->width;
  const uint64_t stride = static_cast<uint64_t>(source_width) * 4;
  for (int32_t y = y_start; y < y_end; y += y_step) {
    const int32_t rows[3] = {y >> 12, (y + dy1) >> 12, (y + dy2) >> 12};
    if (rows[2] < 0 || rows[0] >= source_height) {
      std::memset(out, 0, static_cast<size_t>(width) * 4 * sizeof(uint16_t));
      out += static_cast<size_t>(width) * 4;
      continue;
    }
    const bool rows_inside = rows[0] >= 0 && rows[2] < source_height;
    for (int32_t x = x_start; x < x_end; x += x_step) {
      const int32_t columns[3] = {x >> 12, (x + dx1) >> 12, (x + dx2) >> 12};
      if (columns[2] < 0 || columns[0] >= source_width) {
        out[0] = out[1] = out[2] = out[3] = 0;
        out += 4;
        continue;
      }
      uint64_t sum_r = 0;
      uint64_t sum_g = 0;
      uint64_t sum_b = 0;
      uint32_t sum_a = 0;
      // A tap's colour counts in proportion to its alpha.
      auto add_tap = [&](int32_t r, int32_t c) {
        const uint16_t* p =
            source_pixels + static_cast<uint64_t>(r) * stride + static_cast<uint64_t>(c) * 4;
        const uint32_t a = p[3];
        sum_r += uint64_t{p[0]} * a;
        sum_g += uint64_t{p[1]} * a;
        sum_b += uint64_t{p[2]} * a;
        sum_a += a;
      };
      if (rows_inside && columns[0] >= 0 && columns[2] < source_width) {
        // An interior pixel: all nine taps inside, no test for each.
        for (int32_t r : rows) {
          for (int32_t c : columns) {
            add_tap(r, c);
          }
        }
      } else {
        for (int32_t r : rows) {
          for (int32_t c : columns) {
            if (r >= 0 && r < source_height && c >= 0 && c < source_width) {
              add_tap(r, c);
            }
          }
        }
      }
      if (sum_a == 0) {
        out[0] = out[1] = out[2] = out[3] = 0;
      } else {
        out[0] = static_cast<uint16_t>(sum_r / sum_a);
        out[1] = static_cast<uint16_t>(sum_g / sum_a);
        out[2] = static_cast<uint16_t>(sum_b / sum_a);
        out[3] = static_cast<uint16_t>(sum_a / 9);  // what lies outside counts as transparent
      }
      out += 4;
    }
  }
  target->cursor = out;
}

void Resampler::PointSample() {
  AllocateTarget();
  uint16_t* out = target->cursor;
  const int32_t width = target->width;
  for (int32_t y = y_start; y < y_end; y += y_step) {
    const int32_t r = y >> 12;
    if (r < 0 || r >= source_height) {
      std::memset(out, 0, static_cast<size_t>(width) * 4 * sizeof(uint16_t));
      out += static_cast<size_t>(width) * 4;
      continue;
    }
    const uint16_t* row = source_pixels + static_cast<uint64_t>(r) * source_width * 4;
    for (int32_t x = x_start; x < x_end; x += x_step) {
      const int32_t c = x >> 12;
      if (c < 0 || c >= source_width) {
        out[0] = out[1] = out[2] = out[3] = 0;
      } else {
        std::memcpy(out, row + static_cast<uint64_t>(c) * 4, 4 * sizeof(uint16_t));
      }
      out += 4;
    }
  }
  target->cursor = out;
}

void FitToSize(ResampleTarget& target, int32_t source_width, int32_t source_height,
               const uint16_t* source_pixels, int32_t width, int32_t height) {
  if (width < 1 || height < 1) {
    target.width = 0;
    target.height = 0;
    delete[] target.pixels;
    target.pixels = new uint16_t[1];
    target.cursor = target.pixels;
    return;
  }
  target.width = width;
  target.height = height;
  delete[] target.pixels;
  target.pixels = nullptr;
  target.pixels = AllocateArray<uint16_t>(static_cast<uint64_t>(width) * height * 4);
  uint16_t* out = target.pixels;
  for (int32_t y = 0; y < height; ++y) {
    const int32_t r = y < source_height ? y : source_height - 1;
    const uint16_t* row = source_pixels + static_cast<uint64_t>(r) * source_width * 4;
    for (int32_t x = 0; x < width; ++x) {
      const int32_t c = x < source_width ? x : source_width - 1;
      std::memcpy(out, row + static_cast<uint64_t>(c) * 4, 4 * sizeof(uint16_t));
      out += 4;
    }
  }
  target.cursor = out;
}

}  // namespace corvi
