// A decoded image: 16-bit RGBA pixels, an optional thumbnail layer and its metadata.
#include "base/raw_layer.h"

#include "platform/system_info.h"

namespace corvi {

RawLayer::~RawLayer() {
  Reset();
}

void RawLayer::Reset() {
  width = 0;
  height = 0;
  FreePixels();
  if (thumbnail != nullptr) {
    thumbnail->Reset();
    delete thumbnail;
    thumbnail = nullptr;
  }
  properties.Clear();
}

void RawLayer::AllocatePixels() {
  FreePixels();
  const uint64_t count = uint64_t{width} * height * 4;
  pixels = AllocateArray<uint16_t>(count);
  // The decoder writes every pixel once, soon after this: with huge pages the first touch of the
  // buffer faults once per 2 MB instead of once per 4 KB.
  AdviseHugePages(pixels, count * sizeof(uint16_t));
}

void RawLayer::FreePixels() {
  delete[] pixels;
  pixels = nullptr;
}

void CheckAllocation(uint64_t bytes) {
  uint64_t physical = PhysicalMemoryBytes();
  uint64_t allowed = physical == 0 ? (uint64_t{1} << 32) : physical / 2;
  if (bytes > allowed) {
    throw RawLayerException(L"Image too large for this machine's memory");
  }
}

}  // namespace corvi
