// libFuzzer target: the fuzzed bytes are a template that the rewriter merges with a small fixed
// layer and one Exif override, catching the exception where the merge tool catches it.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string>

#include "base/byte_coverage.h"
#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "jpeg/jpeg_reader.h"
#include "merge/merge.h"
#include "platform/file_write.h"

namespace {

constexpr uint32_t kLayerWidth = 13;
constexpr uint32_t kLayerHeight = 7;
// Big frames merge correctly but slowly; keep the fuzzer on the many small ones.
constexpr uint64_t kMaxFramePixels = uint64_t{1} << 22;

// The private directory of the process: the output file and the rewriter's "tempthumb.jpg".
// Both files and the directory are removed at exit.
class ScratchDirectory {
 public:
  ScratchDirectory() : path(corvi::PlatformMakeTempDirectory(nullptr)) {}
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;
  ~ScratchDirectory() {
    if (!path.empty()) {
      corvi::PlatformDeleteFile(output.c_str());
      corvi::PlatformDeleteFile((path + L"/tempthumb.jpg").c_str());
      corvi::PlatformRemoveDirectory(path.c_str());
    }
  }

  const std::wstring path;
  const std::wstring output = path + L"/merged.jpg";
};

// 13 × 7 pixels: a colour ramp whose alpha is 0 on a diagonal band and half on the last row, so
// both the background and the blend are taken.
std::unique_ptr<corvi::RawLayer> MakeLayer() {
  auto layer = std::make_unique<corvi::RawLayer>();
  layer->width = kLayerWidth;
  layer->height = kLayerHeight;
  layer->AllocatePixels();
  for (uint32_t y = 0; y < kLayerHeight; ++y) {
    for (uint32_t x = 0; x < kLayerWidth; ++x) {
      uint16_t* p = layer->pixels + (size_t{y} * kLayerWidth + x) * 4;
      p[0] = static_cast<uint16_t>(x * 5041);
      p[1] = static_cast<uint16_t>(y * 10922);
      p[2] = static_cast<uint16_t>((x + y) * 3276);
      p[3] = (x + y) % 5 == 0 ? 0 : y == kLayerHeight - 1 ? 0x8000 : 0xFFFF;
    }
  }
  return layer;
}

bool IsFrameCode(uint8_t code) {
  return code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC;
}

// Whether some frame segment declares more pixels than the fuzzer wants to encode.
bool HasHugeFrame(const corvi::MarkerList& markers) {
  for (uint32_t i = 0; i < markers.count; ++i) {
    const corvi::JPEGReader::Marker& marker = *markers.items[i];
    if (!IsFrameCode(marker.code) || marker.length < 5) {
      continue;
    }
    const uint64_t height = corvi::ReadBig16(marker.payload + 1);  // Y
    const uint64_t width = corvi::ReadBig16(marker.payload + 3);   // X
    if (width * height > kMaxFramePixels) {
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static ScratchDirectory scratch;
  static const std::unique_ptr<corvi::RawLayer> layer = MakeLayer();
  if (size == 0 || size > (1u << 24) || scratch.path.empty()) {
    return 0;
  }
  auto length = static_cast<int32_t>(size);
  try {
    auto coverage = std::make_unique<corvi::ByteCoverage>(data, length);
    auto markers = std::make_unique<corvi::MarkerList>();
    markers->Scan(*coverage, data, length - 2);
    if (HasHugeFrame(*markers)) {
      return 0;
    }
    corvi::PropertyList overrides;
    static const uint8_t kMake[] = "corvi-fuzz";
    overrides.SetString(0x10F, kMake, sizeof kMake);  // Make, its terminator counted
    corvi::Background background;
    corvi::OutputFile file(scratch.output.c_str());
    corvi::Merge(file, *layer, *markers, overrides, background, scratch.path.c_str());
  } catch (const corvi::RawLayerException&) {
    // The tool prints one failure line and goes on; nothing to check here.
  } catch (const std::bad_alloc&) {
    // Likewise "Out of memory".
  }
  return 0;
}
