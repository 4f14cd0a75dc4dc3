// Helpers of the rewriter's tests: a synthetic layer, Merge into bytes, decoding, hashing.
#include "tests/support/merge_support.h"

#include <filesystem>
#include <fstream>

#include "base/property.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "merge/merge.h"

namespace corvi::test {

void MakeGradientLayer(RawLayer& layer, uint32_t width, uint32_t height) {
  layer.width = width;
  layer.height = height;
  layer.AllocatePixels();
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      uint16_t* p = layer.pixels + (uint64_t{y} * width + x) * 4;
      const uint32_t red = x * 65535 / (width - 1), green = y * 65535 / (height - 1);
      p[0] = static_cast<uint16_t>(red);
      p[1] = static_cast<uint16_t>(green);
      p[2] = static_cast<uint16_t>(65535 - (red + green) / 2);
      const bool hole = x >= 4 && x < 10 && y >= 4 && y < 9;
      p[3] = hole ? 0 : x + 6 >= width ? 32768 : 65535;
    }
  }
}

MergeOutput MergeBytes(const Bytes& jpeg, const RawLayer& layer, const Background& background,
                       const PropertyList* overrides) {
  MergeOutput out;
  ScanResult scan = ScanBytes(jpeg);
  if (!scan.error.empty()) {
    out.error = L"scan: " + scan.error;
    return out;
  }
  const std::filesystem::path dir = MakeTempDir();
  const std::filesystem::path path = dir / "out.jpg";
  std::ofstream(path, std::ios::binary) << "old contents";
  {
    PropertyList no_overrides;
    try {
      OutputFile file(path.wstring().c_str());
      try {
        Merge(file, layer, *scan.markers, overrides != nullptr ? *overrides : no_overrides,
              background, dir.wstring().c_str());
      } catch (const RawLayerException& e) {
        out.error = e.message != nullptr ? e.message : L"(null)";
      }
      out.size = file.size;
      out.position = file.position;
    } catch (const RawLayerException& e) {
      out.error = L"open: " + std::wstring(e.message != nullptr ? e.message : L"(null)");
    }
  }
  out.bytes = ReadFile(path.string());
  std::filesystem::remove_all(dir);
  return out;
}

bool DecodeBytes(const Bytes& jpeg, RawLayer& layer) {
  ScanResult scan = ScanBytes(jpeg);
  if (!scan.error.empty()) {
    return false;
  }
  try {
    DecodeState state;
    DecodeImage(*scan.markers, state, layer, false);
  } catch (const RawLayerException&) {
    return false;
  }
  return layer.pixels != nullptr;
}

uint64_t Fnv1a64(const Bytes& bytes) {
  uint64_t hash = 0xCBF29CE484222325u;
  for (uint8_t b : bytes) {
    hash = (hash ^ b) * 0x100000001B3u;
  }
  return hash;
}

}  // namespace corvi::test
