// Helpers of the rewriter's tests: synthetic layers, Merge into bytes, decoding, golden case
// inputs, text and picture comparison.
#include "tests/support/merge_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/property.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "merge/merge.h"
#include "tests/support/process.h"
#include "tests/support/tiff_builder.h"

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

Bytes MakeExifThumbnail(bool motorola, const Bytes& thumbnail, uint32_t extra, uint32_t padding) {
  TiffBuilder b(motorola);
  auto dir = b.Directory(
      {{0x10F, 2, 4, TiffBuilder::Ascii("Cam")}, {0x201, 4, 1, {}, 0}, {0x202, 4, 1, {}, 0}});
  b.Append(Bytes(padding, 0));
  Bytes stored = thumbnail;
  stored.insert(stored.end(), extra, 0);
  b.Patch32(dir.value_field[1], b.Append(stored));
  b.Patch32(dir.value_field[2], static_cast<uint32_t>(stored.size()));
  return b.ExifPayload();
}

MergeOutput MergeBytes(const Bytes& jpeg, const RawLayer& layer, const Background& background,
                       const PropertyList* overrides) {
  MergeOutput out;
  ScanResult scan = ScanBytes(jpeg);
  if (!scan.error.empty()) {
    out.error = "scan: " + Narrow(scan.error);
    return out;
  }
  const std::filesystem::path dir = MakeTempDir(), previous = std::filesystem::current_path();
  std::filesystem::current_path(dir);
  std::ofstream("out.jpg", std::ios::binary) << "old contents";
  uint32_t size = 0, position = 0;
  try {
    OutputFile file(L"out.jpg");
    try {
      const PropertyList none;
      Merge(file, layer, *scan.markers, overrides != nullptr ? *overrides : none, background);
    } catch (const RawLayerException& e) {
      out.error = Narrow(e.message != nullptr ? e.message : L"(null)");
    }
    size = file.size, position = file.position;
  } catch (const RawLayerException& e) {
    out.error = "open: " + Narrow(e.message != nullptr ? e.message : L"(null)");
  }
  std::filesystem::current_path(previous);
  out.bytes = ReadFile((dir / "out.jpg").string());
  EXPECT_EQ(out.bytes.empty(), !out.error.empty());
  EXPECT_TRUE(size == out.bytes.size() && position == size) << size << " " << position;
  const auto files = std::distance(std::filesystem::directory_iterator(dir), {});
  EXPECT_TRUE(!out.error.empty() || files == 1) << "a temporary file is left";
  std::filesystem::remove_all(dir);
  return out;
}

bool DecodeBytes(const Bytes& jpeg, RawLayer& layer) {
  ScanResult scan = ScanBytes(jpeg);
  try {
    DecodeState state;
    if (scan.error.empty()) {
      DecodeImage(*scan.markers, state, layer, false);
    }
  } catch (const RawLayerException&) {
    return false;
  }
  return layer.pixels != nullptr;
}

void ExpectGoldenCases(const std::string& name,
                       const std::function<std::string(const std::string&)>& run) {
  std::istringstream in(Slurp(std::string(CORVI_GOLDEN_DIR) + "/" + name));
  std::string text;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line[0] != ' ') {
      std::istringstream out(line[0] == '#' ? "" : run(line));
      text += line + "\n";
      for (std::string result; std::getline(out, result);) {
        text += "  " + result + "\n";
      }
    }
  }
  EXPECT_NE(text, "") << "no cases in " << name;
  ExpectGolden(name, text);
}

std::string Fnv1a64(const void* data, size_t size) {
  unsigned long long hash = 0xCBF29CE484222325u;
  for (size_t i = 0; i < size; ++i) {
    hash = (hash ^ static_cast<const uint8_t*>(data)[i]) * 0x100000001B3u;
  }
  char text[20];
  std::snprintf(text, sizeof text, "%016llX", hash);
  return text;
}

std::string Hex(const uint8_t* data, size_t size) {
  std::string out;
  for (size_t i = 0; i < size; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, " %02X", data[i]);
    out += byte + (i == 0);
  }
  return out;
}

std::string Narrow(const std::wstring& text) {
  std::string out;
  for (wchar_t c : text) {
    out += c < 0x80 ? static_cast<char>(c) : '?';
  }
  return out;
}

std::vector<uint8_t> Rgb8(const RawLayer& layer, const Background* background, bool gray) {
  const Background b = background != nullptr ? *background : Background{0, 0, 0};
  const uint32_t under[3] = {b.red, b.green, b.blue}, under_gray = (b.red + b.green + b.blue) / 3;
  std::vector<uint8_t> out;
  for (const uint16_t* p = layer.pixels; p < layer.pixels + 4 * layer.width * layer.height;
       p += 4) {
    const uint32_t a = background != nullptr ? p[3] : 65535;
    for (int32_t k = 0; k < 3; ++k) {
      const uint32_t c = gray ? (p[0] + p[1] + p[2]) / 3 : p[k], u = gray ? under_gray : under[k];
      out.push_back(static_cast<uint8_t>((u * (65535 - a) + c * a) / 65535 >> 8));
    }
  }
  return out;
}

double Psnr(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  double sum = 1e-9;
  for (size_t i = 0; i < a.size() && a.size() == b.size(); ++i) {
    sum += (a[i] - b[i]) * (a[i] - b[i]);
  }
  return a.size() != b.size() ? 0 : 10 * std::log10(255.0 * 255.0 * a.size() / sum);
}

}  // namespace corvi::test
