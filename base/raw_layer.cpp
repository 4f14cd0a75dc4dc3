// A decoded image: 16-bit RGBA pixels, an optional thumbnail layer and its metadata.
#include "base/raw_layer.h"

#include "platform/system_info.h"

namespace corvi {

RawLayer::~RawLayer() { Reset(); }

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
  pixels = AllocateArray<uint16_t>(uint64_t{width} * height * 4);
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
