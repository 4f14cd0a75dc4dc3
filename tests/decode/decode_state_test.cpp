// The decode driver: segment Apply refusals, the slot rule, the sampling plan, the mode names,
// the frame's properties and the refusal of frames too large for the machine or the caller.
#include "decode/decode_state.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/huffman.h"
#include "jpeg/jpeg_reader.h"
#include "platform/system_info.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/literal_decode.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;
using Components = std::vector<std::array<uint8_t, 3>>;
using ScanComponents = std::vector<std::array<uint8_t, 2>>;

const Components kGray = {{1, 0x11, 0}};
const Components kYCbCr = {{1, 0x11, 0}, {2, 0x11, 0}, {3, 0x11, 0}};
const ScanComponents kScanYCbCr = {{1, 0x00}, {2, 0x00}, {3, 0x00}};

// Components of the given luma sampling and then chroma of 1x1.
Components Luma(uint8_t sampling) {
  return {{1, sampling, 0}, {2, 0x11, 0}, {3, 0x11, 0}};
}

// SOI, DQT 0, the frame, DC and AC table 0 of one code each, the scan and one byte, EOI.
Bytes Frame(uint8_t sof, uint16_t width, uint16_t height, const Components& components = kGray,
            const ScanComponents& scan = {{1, 0}}) {
  return JpegBuilder()
      .Soi()
      .Dqt(0)
      .Sof(sof, 8, width, height, components)
      .Dht(0, 0, {1}, {0x00})
      .Dht(1, 0, {1}, {0x00})
      .Sos(scan)
      .Entropy({0x00})
      .Eoi()
      .bytes();
}

// A grey 8x8 frame and scan behind what `add` puts after SOI.
template <class Add>
Bytes With(Add add) {
  JpegBuilder b;
  b.Soi();
  add(b);
  return b.Sof(0xC0, 8, 8, 8, kGray).Sos({{1, 0x00}}).Entropy({0x00}).Eoi().bytes();
}

std::wstring Decode(const Bytes& bytes, bool header_only, DecodeState& state, RawLayer& layer) {
  test::ScanResult scan = test::ScanBytes(bytes);
  EXPECT_EQ(scan.error, L"");
  try {
    DecodeImage(*scan.markers, state, layer, header_only);
  } catch (const RawLayerException& e) {
    return e.message;
  }
  return L"";
}

struct ImageCase {
  const char* name;
  Bytes bytes;
  bool header_only = false;
  uint64_t max_pixels = 1;  // 1: the default limits
};

// Each case gives a line: its name, the error, the size, the "Compression Mode" and "Pixel
// Format" properties; the whole text is pinned in a golden file.
TEST(DecodeImage, RefusesNamesAndSizesFrames) {
  const ImageCase cases[] = {
      {"no scan", JpegBuilder().Soi().Dqt(0).Sof(0xC0, 8, 8, 8, kGray).Eoi().bytes()},
      {"DQT index 4", With([](JpegBuilder& b) { b.Dqt(4); })},
      {"DQT twice", With([](JpegBuilder& b) { b.Dqt(0).Dqt(0); })},
      {"DQT twice in one segment", With([](JpegBuilder& b) {
         Bytes payload(130, 1);
         payload[0] = 0x01;
         payload[65] = 0x21;  // only bit 0x10 decides the precision: 8-bit, index 1 again
         b.Segment(0xDB, payload);
       })},
      {"DHT class 2", With([](JpegBuilder& b) { b.Dht(2, 0, {1}, {0}); })},
      {"DHT index 4", With([](JpegBuilder& b) { b.Dht(1, 4, {1}, {0}); })},
      {"DHT over-full", With([](JpegBuilder& b) {
         b.Dht(0, 0, {3}, {0, 1, 2});
       })},
      {"precision 12", JpegBuilder().Soi().Sof(0xC0, 12, 9, 7, kGray).Eoi().bytes(), true},
      {"two components",
       JpegBuilder().Soi().Sof(0xC0, 8, 9, 7, {{1, 0x11, 0}, {2, 0x11, 0}}).Eoi().bytes(), true},
      {"Ss above Se", JpegBuilder().Soi().Sos({{1, 0}}, 5, 3).Eoi().bytes()},
      {"Se 64", JpegBuilder().Soi().Sos({{1, 0}}, 0, 64).Eoi().bytes()},
      {"Ah 2 Al 0", JpegBuilder().Soi().Sos({{1, 0}}, 0, 63, 0x20).Eoi().bytes()},
      {"gray 2x2", Frame(0xC0, 8, 8, {{1, 0x22, 0}})},
      {"id 0", Frame(0xC0, 8, 8, {{0, 0x11, 0}}, {{0, 0}})},
      {"ids 0, 1, 2", Frame(0xC0, 8, 8, {{0, 0x11, 0}, {1, 0x11, 0}, {2, 0x11, 0}}, {{0, 0}})},
      {"4x1 luma", Frame(0xC0, 8, 8, Luma(0x41), kScanYCbCr)},
      {"2x1 chroma", Frame(0xC0, 8, 8, {{1, 0x11, 0}, {2, 0x21, 0}, {3, 0x11, 0}}, kScanYCbCr)},
      {"no component at all", JpegBuilder().Soi().Sos({}).Entropy({0}).Eoi().bytes()},
      {"lossless", Frame(0xC3, 8, 8)},
      {"lossless header only", Frame(0xC3, 8, 8), true},
      {"arithmetic", Frame(0xC9, 8, 8)},
      {"scan names one of three components", Frame(0xC0, 8, 8, kYCbCr)},
      {"quantisation table 2 undefined", Frame(0xC0, 8, 8, {{1, 0x11, 2}})},
      {"progressive, quantisation table 2 undefined", Frame(0xC2, 8, 8, {{1, 0x11, 2}})},
      {"baseline gray", Frame(0xC0, 8, 8)},
      {"progressive 2x2 header only", Frame(0xC2, 8, 8, Luma(0x22), kScanYCbCr), true},
      {"1x2, no width", Frame(0xC1, 0, 8, Luma(0x21), kScanYCbCr)},
      {"2x1, no height", Frame(0xCF, 8, 0, Luma(0x12), kScanYCbCr)},
      {"no frame", JpegBuilder().Soi().Sos(kScanYCbCr).Entropy({0}).Eoi().bytes()},
      {"16-bit YCbCr",
       JpegBuilder().Soi().Sof(0xC2, 16, 9, 7, kYCbCr).Sos(kScanYCbCr).Eoi().bytes(), true},
      {"ids 82, 71, 66 take slots by position",
       Frame(0xC0, 9, 7, {{82, 0x11, 0}, {71, 0x11, 0}, {66, 0x11, 0}},
             {{82, 0}, {71, 0}, {66, 0}}),
       true},
      {"four components: the fourth falls out",
       Frame(0xC0, 9, 7, {{1, 0x11, 0}, {2, 0x11, 0}, {3, 0x11, 0}, {4, 0x11, 0}},
             {{1, 0}, {2, 0}, {3, 0}, {4, 0}}),
       true},
      {"second frame wins",
       JpegBuilder()
           .Soi()
           .Sof(0xC0, 8, 9, 7, kYCbCr)
           .Sof(0xC1, 16, 5, 3, kGray)
           .Sos({{1, 0}})
           .Eoi()
           .bytes(),
       true},
      // A caller's limit refuses what the machine could hold; no data, so only the check costs.
      {"over the caller's limit", Frame(0xC0, 20000, 20000), false, uint64_t{1} << 28},
      {"at the caller's limit", Frame(0xC0, 20000, 20000), false, 400000000},
      {"no limit", Frame(0xC0, 20000, 20000), false, 0},
  };
  std::string text;
  for (const ImageCase& c : cases) {
    DecodeState state;
    if (c.max_pixels != 1) {
      state.limits.max_pixels = c.max_pixels;
      state.keep_pixels = false;
    }
    RawLayer layer;
    const std::wstring error = Decode(c.bytes, c.header_only, state, layer);
    const Property* mode = layer.properties.Find(0xC001);
    const Property* format = layer.properties.Find(0xC000);
    uint32_t format_value = 0;
    if (format != nullptr) {
      std::memcpy(&format_value, format->data, sizeof format_value);
    }
    char line[160];
    std::snprintf(line, sizeof line, "%s: %ux%u, mode '%s', format %06X: ", c.name, layer.width,
                  layer.height, mode != nullptr ? reinterpret_cast<const char*>(mode->data) : "",
                  format_value);
    text += line + std::string(error.begin(), error.end()) + "\n";
  }
  test::ExpectGolden("decode_image_cases.txt", text);
}

// Entries come in zig-zag order: along the anti-diagonals, alternating in direction.
TEST(DQTMarker, StoresEntriesInNaturalOrder) {
  uint32_t coded[64];
  for (uint32_t k = 0, d = 0; d < 15; ++d) {
    for (uint32_t i = 0; i <= d; ++i) {
      const uint32_t row = d % 2 == 0 ? d - i : i;  // even diagonals run upwards
      if (row < 8 && d - row < 8) {
        coded[8 * row + d - row] = k++;
      }
    }
  }
  Bytes sixteen{0x12};  // 16-bit, index 2
  for (uint32_t i = 0; i < 64; ++i) {
    sixteen.insert(sixteen.end(), {static_cast<uint8_t>(i == 63 ? 0xFF : 0), uint8_t(i)});
  }
  const Bytes bytes = With([&](JpegBuilder& b) { b.Segment(0xDB, sixteen); });
  DecodeState state;
  RawLayer layer;
  EXPECT_EQ(Decode(bytes, true, state, layer), L"");
  ASSERT_NE(state.quant_tables[2], nullptr);
  EXPECT_EQ(state.quant_tables[2]->precision, 16u);
  for (uint32_t n = 0; n < 64; ++n) {
    EXPECT_EQ(state.quant_tables[2]->values[n], coded[n] == 63 ? 65343.0f : float(coded[n])) << n;
  }
}

TEST(DHTMarker, LaterDefinitionReplacesTheEarlier) {
  const Bytes bytes = JpegBuilder()
                          .Soi()
                          .Dht(1, 3, {1}, {0x11})
                          .Dht(1, 3, {2}, {0x22, 0x33})
                          .Sof(0xC0, 8, 8, 8, kGray)
                          .Sos({{1, 0x03}})
                          .Entropy({0})
                          .Dri(7)
                          .Eoi()
                          .bytes();
  DecodeState state;
  RawLayer layer;
  EXPECT_EQ(Decode(bytes, true, state, layer), L"");
  ASSERT_NE(state.ac_tables[3], nullptr);
  EXPECT_EQ(state.ac_tables[3]->pages[255], 0x0133);
  EXPECT_EQ(state.dc_tables[3], nullptr);
  EXPECT_EQ(state.components[1]->ac_index, 3);
  EXPECT_EQ(state.restart_interval, 0);  // the DRI stands behind the scan
}

TEST(DecodeImage, RefusesAHugeFrameBeforeAllocating) {
  if (PhysicalMemoryBytes() / 2 >= uint64_t{65535} * 65535 * 8) {
    GTEST_SKIP() << "this machine could hold the frame";
  }
  for (const Bytes& bytes :
       {Frame(0xC0, 65535, 65535, Luma(0x22), kScanYCbCr), Frame(0xC2, 65535, 65535)}) {
    const auto start = std::chrono::steady_clock::now();
    RawLayer layer;
    DecodeState state;
    state.limits = Limits::None();
    EXPECT_EQ(Decode(bytes, false, state, layer), L"Image too large for this machine's memory");
    EXPECT_EQ(layer.pixels, nullptr);
    EXPECT_EQ(layer.width, 65535u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  }
}

}  // namespace
}  // namespace corvi
