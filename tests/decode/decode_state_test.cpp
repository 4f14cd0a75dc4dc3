// The decode driver on hand-built streams kept as hex in golden files beside what each gives:
// segment refusals, the slot rule, the sampling plan, mode names, limits, progressive bands and
// the walk between scans, restarts. And the refusal of frames too large for the machine.
#include "decode/decode_state.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "platform/system_info.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/literal_decode.h"

namespace corvi {
namespace {

// Decodes one case: "[header]" reads the headers only, "[pixels=N]" sets that limit and keeps no
// pixels, "[scans=N]" sets that limit. Gives the error, the size, the "Compression Mode" and
// "Pixel Format" properties, the pixel hash and the first sample of each 8x8 block.
std::string Outcome(const std::string& name, const test::Bytes& bytes) {
  auto option = [&name](const char* key) {
    const size_t at = name.find(key);
    return at == std::string::npos ? -1 : std::stoll(name.substr(at + std::strlen(key)));
  };
  DecodeState state;
  if (const int64_t pixels = option("[pixels="); pixels >= 0) {
    state.limits.max_pixels = static_cast<uint64_t>(pixels);
    state.keep_pixels = false;
  }
  if (const int64_t scans = option("[scans="); scans >= 0) {
    state.limits.max_scans = static_cast<uint32_t>(scans);
  }
  RawLayer layer;
  test::ScanResult scan = test::ScanBytes(bytes);
  std::wstring error = scan.error.empty() ? L"" : L"scan: " + scan.error;
  try {
    if (error.empty()) {
      DecodeImage(*scan.markers, state, layer, name.find("[header]") != std::string::npos);
    }
  } catch (const RawLayerException& e) {
    error = e.message;
  }
  const Property* mode = layer.properties.Find(0xC001);
  const Property* format = layer.properties.Find(0xC000);
  uint32_t format_value = 0;
  if (format != nullptr) {
    std::memcpy(&format_value, format->data, sizeof format_value);
  }
  char line[200];
  std::snprintf(line, sizeof line, "= %ux%u, mode '%s', format %06X: %s", layer.width, layer.height,
                mode != nullptr ? reinterpret_cast<const char*>(mode->data) : "", format_value,
                std::string(error.begin(), error.end()).c_str());
  std::string text = line;
  if (layer.pixels != nullptr && error.empty()) {
    const uint64_t count = uint64_t{layer.width} * layer.height;
    std::snprintf(line, sizeof line, "\n= pixels %016llX:",
                  static_cast<unsigned long long>(test::HashPixels(layer.pixels, count * 4)));
    text += line;
    for (uint32_t y = 0; y < layer.height && count <= 4096; y += 8) {
      for (uint32_t x = 0; x < layer.width; x += 8) {
        std::snprintf(line, sizeof line, " %04X", layer.pixels[(size_t{y} * layer.width + x) * 4]);
        text += line;
      }
    }
  }
  return text + "\n";
}

// A case is a line "case NAME", its bytes as "<" lines of hex (a line ending in "*N" stands for
// N copies of itself) and the outcome lines "=", which the test writes anew.
void ExpectCases(const std::string& golden) {
  std::ifstream in(std::string(CORVI_GOLDEN_DIR) + "/" + golden);
  ASSERT_TRUE(in.good()) << golden;
  std::string text, name, line;
  test::Bytes bytes;
  bool open = false;
  auto finish = [&] {
    if (open) {
      text += Outcome(name, bytes);
    }
    bytes.clear();
  };
  while (std::getline(in, line)) {
    if (line.starts_with("=")) {
      continue;
    }
    if (line.starts_with("<")) {
      test::Bytes part;
      std::istringstream words(line.substr(1));
      for (std::string word; words >> word;) {
        for (int32_t n = word[0] == '*' ? std::stoi(word.substr(1)) - 1 : 0; n > 0; --n) {
          bytes.insert(bytes.end(), part.begin(), part.end());
        }
        if (word[0] != '*') {
          part.push_back(static_cast<uint8_t>(std::stoul(word, nullptr, 16)));
          bytes.push_back(part.back());
        }
      }
    } else {
      finish();
      open = line.starts_with("case ");
      name = line;
    }
    text += line + "\n";
  }
  finish();
  test::ExpectGolden(golden, text);
}

TEST(DecodeImage, RefusesNamesAndSizesFrames) {
  ExpectCases("decode_image_cases.txt");
}

TEST(DecodeImage, DecodesBandsRestartsAndTheWalkBetweenScans) {
  ExpectCases("decode_scan_cases.txt");
}

TEST(DecodeImage, RefusesAHugeFrameBeforeAllocating) {
  if (PhysicalMemoryBytes() / 2 >= uint64_t{65535} * 65535 * 8) {
    GTEST_SKIP() << "this machine could hold the frame";
  }
  for (const uint8_t sof : {0xC0, 0xC2}) {
    test::JpegBuilder b;
    b.Soi().Dqt(0).Sof(sof, 8, 65535, 65535, {{1, 0x22, 0}, {2, 0x11, 0}, {3, 0x11, 0}});
    b.Dht(0, 0, {1}, {0}).Dht(1, 0, {1}, {0}).Sos({{1, 0}, {2, 0}, {3, 0}}).Raw({0}).Eoi();
    const auto start = std::chrono::steady_clock::now();
    const test::DecodeOutcome outcome = test::DecodeWithLibrary(b.bytes());
    EXPECT_EQ(outcome.error, L"Image too large for this machine's memory");
    EXPECT_EQ(outcome.width, 65535u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  }
}

}  // namespace
}  // namespace corvi
