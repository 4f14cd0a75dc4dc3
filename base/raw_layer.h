// A decoded image: 16-bit RGBA pixels, an optional thumbnail layer and its metadata.
#pragma once

#include <cstdint>

#include "base/property.h"

namespace corvi {

// A colour behind transparent pixels: red, green, blue, 16 bits each.
struct Background {
  uint16_t red = 0xFFFF;
  uint16_t green = 0xFFFF;
  uint16_t blue = 0xFFFF;
};

struct RawLayer {
  uint32_t width = 0;
  uint32_t height = 0;
  uint16_t* pixels = nullptr;     // owned; width × height × 4 channels (red, green, blue, alpha)
  RawLayer* thumbnail = nullptr;  // owned, may be null
  PropertyList properties;

  RawLayer() = default;
  RawLayer(const RawLayer&) = delete;
  RawLayer& operator=(const RawLayer&) = delete;
  ~RawLayer();  // Reset, then the list

  void Reset();
  // Allocates `pixels` for width × height, uninitialised; throws a RawLayerException when the
  // size cannot be had.
  void AllocatePixels();
  void FreePixels();
};

// Refuses buffers of `bytes` in all that this machine cannot hold, before they are allocated:
// more than half of its physical memory. Throws "Image too large for this machine's memory".
void CheckAllocation(uint64_t bytes);

// Allocates `count` elements of T, or throws the same message when the memory cannot be had.
template <typename T>
T* AllocateArray(uint64_t count);

}  // namespace corvi

#include <new>

#include "base/raw_layer_exception.h"

namespace corvi {
template <typename T>
T* AllocateArray(uint64_t count) {
  if (count > UINT64_MAX / sizeof(T)) {
    throw RawLayerException(L"Image too large for this machine's memory");
  }
  CheckAllocation(count * sizeof(T));
  T* p = new (std::nothrow) T[count];
  if (p == nullptr) {
    throw RawLayerException(L"Image too large for this machine's memory");
  }
  return p;
}
}  // namespace corvi
