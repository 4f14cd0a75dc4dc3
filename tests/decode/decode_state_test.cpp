// Tests of the decode driver: segment Apply refusals, the slot rule, the sampling plan, the mode
// names and the refusal of frames too large for the machine.
#include "decode/decode_state.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstring>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/huffman.h"
#include "jpeg/jpeg_reader.h"
#include "platform/system_info.h"
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::JpegBuilder;
using Components = std::vector<std::array<uint8_t, 3>>;
using ScanComponents = std::vector<std::array<uint8_t, 2>>;

const std::vector<uint8_t> kOneCode = {1};  // one 1-bit code

const Components kYCbCr = {{1, 0x11, 0}, {2, 0x11, 0}, {3, 0x11, 0}};
const ScanComponents kScanYCbCr = {{1, 0x00}, {2, 0x00}, {3, 0x00}};

// SOI, DQT 0, the frame, DC and AC table 0, the scan and one entropy byte, EOI.
Bytes Frame(uint8_t sof, uint16_t width, uint16_t height, const Components& components,
            const ScanComponents& scan) {
  return JpegBuilder()
      .Soi()
      .Dqt(0)
      .Sof(sof, 8, width, height, components)
      .Dht(0, 0, kOneCode, {0x00})
      .Dht(1, 0, kOneCode, {0x00})
      .Sos(scan)
      .Entropy({0x00})
      .Eoi()
      .bytes();
}

struct Decoded {
  std::wstring error;
  std::string mode;  // the "Compression Mode" property, empty when absent
};

Decoded Decode(const Bytes& bytes, bool header_only, DecodeState& state, RawLayer& layer) {
  Decoded result;
  test::ScanResult scan = test::ScanBytes(bytes);
  EXPECT_EQ(scan.error, L"");
  try {
    DecodeImage(*scan.markers, state, layer, header_only);
  } catch (const RawLayerException& e) {
    result.error = e.message;
  }
  if (const Property* p = layer.properties.Find(0xC001)) {
    result.mode = reinterpret_cast<const char*>(p->data);
  }
  return result;
}

Decoded Decode(const Bytes& bytes, bool header_only = false) {
  DecodeState state;
  RawLayer layer;
  return Decode(bytes, header_only, state, layer);
}

struct RefusalCase {
  const char* name;
  Bytes bytes;
  const wchar_t* error;
};

TEST(DecodeImage, RefusesWithExactMessages) {
  const Bytes no_sos = JpegBuilder().Soi().Dqt(0).Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}}).Eoi().bytes();
  auto with = [](auto&& add) {
    JpegBuilder b;
    b.Soi();
    add(b);
    return b.Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}}).Sos({{1, 0x00}}).Entropy({0x00}).Eoi().bytes();
  };
  const RefusalCase cases[] = {
      {"no scan", no_sos, L"No compressed image data"},
      {"DQT index 4", with([](JpegBuilder& b) { b.Dqt(4); }), L"Invalid quantization table index"},
      {"DQT twice", with([](JpegBuilder& b) { b.Dqt(0).Dqt(0); }),
       L"Duplicate quantization table index"},
      {"DQT twice in one segment", with([](JpegBuilder& b) {
         Bytes payload(130, 1);
         payload[0] = 0x01;
         payload[65] = 0x21;  // 8-bit, index 1 again
         b.Segment(0xDB, payload);
       }),
       L"Duplicate quantization table index"},
      {"DHT class 2", with([](JpegBuilder& b) { b.Dht(2, 0, kOneCode, {0}); }),
       L"Invalid Huffman table ID"},
      {"DHT index 4", with([](JpegBuilder& b) { b.Dht(1, 4, kOneCode, {0}); }),
       L"Invalid Huffman table ID"},
      {"DHT over-full", with([](JpegBuilder& b) {
         b.Dht(0, 0, {3}, {0, 1, 2});
       }),
       L"Invalid Huffman code table"},
      {"precision 12", JpegBuilder().Soi().Sof(0xC0, 12, 8, 8, {{1, 0x11, 0}}).Eoi().bytes(),
       L"Unsupported image format (precision=12)"},
      {"two components",
       JpegBuilder().Soi().Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}, {2, 0x11, 0}}).Eoi().bytes(),
       L"Unsupported image format (number of components=2)"},
      {"Ss above Se", JpegBuilder().Soi().Sos({{1, 0}}, 5, 3).Eoi().bytes(),
       L"Invalid spectral endpoints"},
      {"Se 64", JpegBuilder().Soi().Sos({{1, 0}}, 0, 64).Eoi().bytes(),
       L"Invalid spectral endpoints"},
      {"Ah 2 Al 0", JpegBuilder().Soi().Sos({{1, 0}}, 0, 63, 0x20).Eoi().bytes(),
       L"Only single bit refinement is supported in progressive JPEG"},
      {"gray 2x2", Frame(0xC0, 8, 8, {{1, 0x22, 0}}, {{1, 0}}),
       L"Unsupported sampling ( comp 1: 2 x 2 )"},
      {"id 0", Frame(0xC0, 8, 8, {{0, 0x11, 0}}, {{0, 0}}),
       L"Unsupported sampling ( comp 0: 1 x 1 )"},
      {"ids 0, 1, 2", Frame(0xC0, 8, 8, {{0, 0x11, 0}, {1, 0x11, 0}, {2, 0x11, 0}}, {{0, 0}}),
       L"Unsupported sampling ( comp 0: 1 x 1 comp 1: 1 x 1 comp 2: 1 x 1 )"},
      {"4x1 luma", Frame(0xC0, 8, 8, {{1, 0x41, 0}, {2, 0x11, 0}, {3, 0x11, 0}}, kScanYCbCr),
       L"Unsupported sampling ( comp 1: 4 x 1 comp 2: 1 x 1 comp 3: 1 x 1 )"},
      {"2x1 chroma", Frame(0xC0, 8, 8, {{1, 0x11, 0}, {2, 0x21, 0}, {3, 0x11, 0}}, kScanYCbCr),
       L"Unsupported sampling ( comp 1: 1 x 1 comp 2: 2 x 1 comp 3: 1 x 1 )"},
      {"no component at all", JpegBuilder().Soi().Sos({}).Entropy({0}).Eoi().bytes(),
       L"Unsupported sampling ( )"},
      {"lossless", Frame(0xC3, 8, 8, {{1, 0x11, 0}}, {{1, 0}}),
       L"Unsupported image format (mode=SOF3)"},
      {"arithmetic", Frame(0xC9, 8, 8, {{1, 0x11, 0}}, {{1, 0}}),
       L"Unsupported image format (mode=SOF9)"},
      {"scan names one of three components", Frame(0xC0, 8, 8, kYCbCr, {{1, 0}}),
       L"Missing Huffman table index"},
      {"quantisation table 2 undefined", Frame(0xC0, 8, 8, {{1, 0x11, 2}}, {{1, 0}}),
       L"Missing quantization table index"},
      {"progressive, quantisation table 2 undefined", Frame(0xC2, 8, 8, {{1, 0x11, 2}}, {{1, 0}}),
       L"Missing quantization table index"},
  };
  for (const RefusalCase& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Decode(c.bytes).error, c.error);
  }
}

TEST(DecodeImage, NamesTheModeBeforeRefusingIt) {
  const struct {
    const char* name;
    Bytes bytes;
    bool header_only;
    const char* mode;
    const wchar_t* error;
  } cases[] = {
      {"baseline gray", Frame(0xC0, 8, 8, {{1, 0x11, 0}}, {{1, 0}}), false, "Baseline gray", L""},
      {"progressive 2x2 header only",
       Frame(0xC2, 8, 8, {{1, 0x22, 0}, {2, 0x11, 0}, {3, 0x11, 0}}, kScanYCbCr), true,
       "Progressive 2x2", L""},
      {"lossless header only", Frame(0xC3, 8, 8, {{1, 0x11, 0}}, {{1, 0}}), true, "Lossless gray",
       L""},
      {"lossless", Frame(0xC3, 8, 8, {{1, 0x11, 0}}, {{1, 0}}), false, "Lossless gray",
       L"Unsupported image format (mode=SOF3)"},
      {"1x2", Frame(0xC1, 0, 8, {{1, 0x21, 0}, {2, 0x11, 0}, {3, 0x11, 0}}, kScanYCbCr), false,
       "Extended sequential 1x2", L""},
      {"2x1", Frame(0xCF, 8, 0, {{1, 0x12, 0}, {2, 0x11, 0}, {3, 0x11, 0}}, kScanYCbCr), false,
       "Differential lossless arithmetic 2x1", L""},
      {"no frame", JpegBuilder().Soi().Sos(kScanYCbCr).Entropy({0}).Eoi().bytes(), false, "??? 1x1",
       L""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Decoded d = Decode(c.bytes, c.header_only);
    EXPECT_EQ(d.mode, c.mode);
    EXPECT_EQ(d.error, c.error);
  }
}

TEST(ComponentSlot, IdBelowFourElsePosition) {
  const struct {
    uint8_t id;
    int32_t position, slot;
  } cases[] = {{0, 1, 0},  {1, 1, 1},  {3, 3, 3},  {3, 7, 3},    {82, 1, 1},
               {71, 2, 2}, {66, 3, 3}, {4, 4, -1}, {255, 4, -1}, {9, 2, 2}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << int{c.id} << " at " << c.position);
    EXPECT_EQ(ComponentSlot(c.id, c.position), c.slot);
  }
}

struct PlanCase {
  int32_t factors[3][2];  // slots 1 to 3; 0 for none
  int32_t mode, mcu_width, mcu_height, blocks_per_mcu, across, down;
};

TEST(PlanSampling, DerivesTheMcuGeometryOfEachLayout) {
  // A frame of 17 x 9 pixels: partial MCUs in both directions.
  const PlanCase cases[] = {
      {{{1, 1}, {1, 1}, {1, 1}}, 1, 8, 8, 3, 3, 2},  {{{2, 1}, {1, 1}, {1, 1}}, 2, 16, 8, 4, 2, 2},
      {{{1, 2}, {1, 1}, {1, 1}}, 3, 8, 16, 4, 3, 1}, {{{2, 2}, {1, 1}, {1, 1}}, 4, 16, 16, 6, 2, 1},
      {{{1, 1}, {0, 0}, {0, 0}}, 5, 8, 8, 1, 3, 2},
  };
  for (const PlanCase& c : cases) {
    SCOPED_TRACE(c.mode);
    DecodeState state;
    state.width = 17;
    state.height = 9;
    for (int slot = 1; slot <= 3; ++slot) {
      if (c.factors[slot - 1][0] != 0) {
        state.components[slot] = new ComponentInfo();
        state.components[slot]->h = c.factors[slot - 1][0];
        state.components[slot]->v = c.factors[slot - 1][1];
      }
    }
    PlanSampling(state);
    EXPECT_EQ(state.sampling_mode, static_cast<SamplingMode>(c.mode));
    EXPECT_EQ(state.mcu_width, c.mcu_width);
    EXPECT_EQ(state.mcu_height, c.mcu_height);
    EXPECT_EQ(state.blocks_per_mcu, c.blocks_per_mcu);
    EXPECT_EQ(state.mcus_across, c.across);
    EXPECT_EQ(state.mcus_down, c.down);
    EXPECT_EQ(state.mcu_count, c.across * c.down);
    EXPECT_EQ(state.blocks_per_row, c.blocks_per_mcu * c.across);
  }
}

TEST(DQTMarker, StoresEntriesInNaturalOrder) {
  Bytes payload{0x12};  // 16-bit, index 2
  for (uint32_t i = 0; i < 64; ++i) {
    payload.push_back(static_cast<uint8_t>(i == 63 ? 0xFF : 0));
    payload.push_back(static_cast<uint8_t>(i));
  }
  Bytes eight(65, 0);
  eight[0] = 0x20;  // only bit 0x10 decides the precision: 8-bit, index 0
  for (uint32_t i = 0; i < 64; ++i) {
    eight[1 + i] = static_cast<uint8_t>(100 + i);
  }
  Bytes bytes = JpegBuilder()
                    .Soi()
                    .Segment(0xDB, payload)
                    .Segment(0xDB, eight)
                    .Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}})
                    .Sos({{1, 0}})
                    .Entropy({0})
                    .Eoi()
                    .bytes();
  DecodeState state;
  RawLayer layer;
  EXPECT_EQ(Decode(bytes, true, state, layer).error, L"");
  ASSERT_NE(state.quant_tables[2], nullptr);
  ASSERT_NE(state.quant_tables[0], nullptr);
  EXPECT_EQ(state.quant_tables[2]->precision, 16u);
  EXPECT_EQ(state.quant_tables[0]->precision, 8u);
  for (uint32_t i = 0; i < 64; ++i) {
    EXPECT_EQ(state.quant_tables[2]->values[zigzag[i]], i == 63 ? 65343.0f : static_cast<float>(i))
        << i;
    EXPECT_EQ(state.quant_tables[0]->values[zigzag[i]], static_cast<float>(100 + i)) << i;
  }
  EXPECT_EQ(state.quant_tables[2]->values[8], 2.0f);  // coded second: row 1, column 0
}

// The frame's size reaches the layer before the component count is judged; a 12-bit frame is
// refused before it; a second SOF replaces the first, Pixel Format included.
TEST(SOFMarker, SetsTheSizeAndPixelFormatInItsOrder) {
  const struct {
    const char* name;
    Bytes bytes;
    const wchar_t* error;
    uint32_t width, height;
    uint32_t pixel_format;  // 0 when the property is absent
  } cases[] = {
      {"two components",
       JpegBuilder().Soi().Sof(0xC0, 8, 9, 7, {{1, 0x11, 0}, {2, 0x11, 0}}).Eoi().bytes(),
       L"Unsupported image format (number of components=2)", 9, 7, 0},
      {"precision 12", JpegBuilder().Soi().Sof(0xC0, 12, 9, 7, {{1, 0x11, 0}}).Eoi().bytes(),
       L"Unsupported image format (precision=12)", 0, 0, 0},
      {"16-bit YCbCr",
       JpegBuilder().Soi().Sof(0xC2, 16, 9, 7, kYCbCr).Sos(kScanYCbCr).Eoi().bytes(), L"", 9, 7,
       0x10300C},
      {"ids 82, 71, 66 take slots by position",
       Frame(0xC0, 9, 7, {{82, 0x11, 0}, {71, 0x11, 0}, {66, 0x11, 0}},
             {{82, 0}, {71, 0}, {66, 0}}),
       L"", 9, 7, 0x021808},
      {"four components: the fourth falls out",
       Frame(0xC0, 9, 7, {{1, 0x11, 0}, {2, 0x11, 0}, {3, 0x11, 0}, {4, 0x11, 0}},
             {{1, 0}, {2, 0}, {3, 0}, {4, 0}}),
       L"", 9, 7, 0x26200A},
      {"second frame wins",
       JpegBuilder()
           .Soi()
           .Sof(0xC0, 8, 9, 7, kYCbCr)
           .Sof(0xC1, 16, 5, 3, {{1, 0x11, 0}})
           .Sos({{1, 0}})
           .Eoi()
           .bytes(),
       L"", 5, 3, 0x101004},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    DecodeState state;
    RawLayer layer;
    EXPECT_EQ(Decode(c.bytes, true, state, layer).error, c.error);
    EXPECT_EQ(layer.width, c.width);
    EXPECT_EQ(layer.height, c.height);
    const Property* format = layer.properties.Find(0xC000);
    uint32_t value = 0;
    if (format != nullptr) {
      std::memcpy(&value, format->data, sizeof value);
    }
    EXPECT_EQ(value, c.pixel_format);
  }
}

TEST(DHTMarker, LaterDefinitionReplacesTheEarlier) {
  Bytes bytes = JpegBuilder()
                    .Soi()
                    .Dht(1, 3, kOneCode, {0x11})
                    .Dht(1, 3, {2}, {0x22, 0x33})
                    .Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}})
                    .Sos({{1, 0x03}})
                    .Entropy({0})
                    .Dri(7)
                    .Eoi()
                    .bytes();
  DecodeState state;
  RawLayer layer;
  EXPECT_EQ(Decode(bytes, true, state, layer).error, L"");
  ASSERT_NE(state.ac_tables[3], nullptr);
  EXPECT_EQ(state.ac_tables[3]->pages[255], 0x0133);
  EXPECT_EQ(state.dc_tables[3], nullptr);
  EXPECT_EQ(state.components[1]->ac_index, 3);
  EXPECT_EQ(state.restart_interval, 0);  // the DRI stands behind the scan
}

TEST(DecodeImage, RefusesAHugeFrameBeforeAllocating) {
  const uint64_t needed = uint64_t{65535} * 65535 * 8;
  if (PhysicalMemoryBytes() / 2 >= needed) {
    GTEST_SKIP() << "this machine could hold the frame";
  }
  const RefusalCase cases[] = {
      {"baseline",
       Frame(0xC0, 65535, 65535, {{1, 0x22, 0}, {2, 0x11, 0}, {3, 0x11, 0}}, kScanYCbCr),
       L"Image too large for this machine's memory"},
      {"progressive", Frame(0xC2, 65535, 65535, {{1, 0x11, 0}}, {{1, 0}}),
       L"Image too large for this machine's memory"},
  };
  for (const RefusalCase& c : cases) {
    SCOPED_TRACE(c.name);
    auto start = std::chrono::steady_clock::now();
    RawLayer layer;
    DecodeState state;
    state.limits = Limits::None();
    EXPECT_EQ(Decode(c.bytes, false, state, layer).error, c.error);
    EXPECT_EQ(layer.pixels, nullptr);
    EXPECT_EQ(layer.width, 65535u);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  }
}

// A library caller's limits refuse what the machine could hold; the message names both numbers.
TEST(DecodeImage, LimitsRefuseLargeFramesAndNameTheCount) {
  const Bytes bytes = Frame(0xC0, 20000, 20000, {{1, 0x11, 0}}, {{1, 0}});
  const struct {
    uint64_t max_pixels;
    const wchar_t* error;
  } cases[] = {
      {uint64_t{1} << 28, L"Too many pixels (400000000, limit 268435456)"},
      {400000000, L""},
      {0, L""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.max_pixels);
    RawLayer layer;
    DecodeState state;
    state.limits.max_pixels = c.max_pixels;
    state.keep_pixels = false;  // no data: nothing but the check costs anything
    EXPECT_EQ(Decode(bytes, false, state, layer).error, c.error);
  }
}

}  // namespace
}  // namespace corvi
