// Tests of baseline scan decoding: restarts and their markers, streams that end early, empty
// data, and damaged symbols that must decode without leaving the block or the accumulator.
#include "decode/sequential.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "decode/huffman.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/literal_decode.h"

namespace corvi {
namespace {

using test::BitWriter;
using test::Bytes;
using test::JpegBuilder;

// Gray frames of `mcus` 8x8 MCUs in one row. The DC table has one code, 00 for category 5, and
// the AC table one code, 0 for end of block: an MCU is the byte 00 vvvvv 0.
Bytes GrayFrame(uint16_t mcus, uint16_t restart_interval, const Bytes& entropy) {
  JpegBuilder b;
  b.Soi().Dqt(0).Sof(0xC0, 8, static_cast<uint16_t>(8 * mcus), 8, {{1, 0x11, 0}});
  b.Dht(0, 0, {0, 1}, {5}).Dht(1, 0, {1}, {0x00});
  if (restart_interval != 0) {
    b.Dri(restart_interval);
  }
  return b.Sos({{1, 0x00}}).Entropy(entropy).Eoi().bytes();
}

// The MCU byte for a DC difference of 16 to 31 or -31 to -16.
uint8_t Mcu(int32_t diff) {
  BitWriter w;
  w.Put(0, 2);
  w.Put(static_cast<uint32_t>(diff > 0 ? diff : diff + 31), 5);
  w.Put(0, 1);
  return w.Finish()[0];
}

struct Image {
  std::wstring error;
  uint32_t width = 0, height = 0;
  std::vector<uint16_t> pixels;  // RGBA

  uint16_t At(uint32_t x, uint32_t y, uint32_t channel) const {
    return pixels[(static_cast<size_t>(y) * width + x) * 4 + channel];
  }
};

Image DecodeBytes(const Bytes& bytes) {
  Image image;
  test::ScanResult scan = test::ScanBytes(bytes);
  EXPECT_EQ(scan.error, L"");
  DecodeState state;
  RawLayer layer;
  try {
    DecodeImage(*scan.markers, state, layer, false);
  } catch (const RawLayerException& e) {
    image.error = e.message;
  }
  image.width = layer.width;
  image.height = layer.height;
  if (layer.pixels != nullptr && image.error.empty()) {
    image.pixels.assign(layer.pixels, layer.pixels + size_t{layer.width} * layer.height * 4);
  }
  return image;
}

// The grey level of a flat block whose DC coefficient is `dc` (0, or 16 to 31 either sign).
uint16_t GreyOfDc(int32_t dc) {
  Image one = DecodeBytes(GrayFrame(1, 0, dc == 0 ? Bytes{} : Bytes{Mcu(dc)}));
  return one.pixels.empty() ? 0 : one.At(0, 0, 0);
}

struct RestartCase {
  const char* name;
  uint16_t restart_interval;
  Bytes entropy;
  std::vector<int32_t> dc;  // expected DC of each MCU
};

Bytes RestartEveryMcu(int32_t count, int32_t missing) {
  Bytes bytes;
  for (int32_t i = 0; i < count; ++i) {
    bytes.push_back(Mcu(16 + i));
    if (i != missing) {
      bytes.push_back(0xFF);
      bytes.push_back(static_cast<uint8_t>(0xD0 + (i & 7)));
    }
  }
  return bytes;
}

TEST(DecodeSequential, RestartsAndMarkers) {
  const RestartCase cases[] = {
      {"D0 to D7, then D0", 1, RestartEveryMcu(10, -1), {16, 17, 18, 19, 20, 21, 22, 23, 24, 25}},
      {"D2 missing: search to end", 1, RestartEveryMcu(10, 2), {16, 17, 18, 0, 0, 0, 0, 0, 0, 0}},
      {"fill byte", 1, {Mcu(16), 0xFF, 0xFF, 0xD0, Mcu(17), 0xFF, 0xD1, Mcu(18)}, {16, 17, 18}},
      // The predictor runs on within the interval.
      {"interval 2", 2, {Mcu(-16), Mcu(16), 0xFF, 0xD0, Mcu(17), Mcu(-17)}, {-16, 0, 17, 0}},
      {"no DRI: a marker stops", 0, {Mcu(16), 0xFF, 0xD0, Mcu(17), Mcu(18)}, {16, 16, 16}},
      {"other restart numbers are passed over",
       1,
       {Mcu(16), 0xFF, 0xD5, Mcu(20), 0xFF, 0xD0, Mcu(17), 0xFF, 0xD1, Mcu(18)},
       {16, 17, 18}},
  };
  for (const RestartCase& c : cases) {
    SCOPED_TRACE(c.name);
    const auto mcus = static_cast<uint16_t>(c.dc.size());
    Image image = DecodeBytes(GrayFrame(mcus, c.restart_interval, c.entropy));
    ASSERT_EQ(image.error, L"");
    ASSERT_EQ(image.width, 8u * mcus);
    for (uint32_t m = 0; m < mcus; ++m) {
      SCOPED_TRACE(m);
      uint16_t expected = GreyOfDc(c.dc[m]);
      EXPECT_EQ(image.At(8 * m, 0, 0), expected);
      EXPECT_EQ(image.At(8 * m + 7, 7, 2), expected);
    }
  }
}

TEST(DecodeSequential, StreamEndingAfterTenMcusLeavesTheRestFlat) {
  Bytes full;
  for (int i = 0; i < 16; ++i) {
    full.push_back(Mcu(16));  // DC 16, 32, 48, ...
  }
  Bytes cut(full.begin(), full.begin() + 10);
  Image whole = DecodeBytes(GrayFrame(16, 0, full));
  Image ended = DecodeBytes(GrayFrame(16, 0, cut));
  ASSERT_EQ(whole.error, L"");
  ASSERT_EQ(ended.error, L"");
  for (uint32_t m = 0; m < 16; ++m) {
    SCOPED_TRACE(m);
    uint32_t source = m < 10 ? m : 9;
    EXPECT_EQ(ended.At(8 * m + 3, 5, 1), whole.At(8 * source, 0, 1));
  }
  EXPECT_NE(whole.At(8 * 10, 0, 1), whole.At(8 * 9, 0, 1));
}

TEST(DecodeSequential, EmptyDataGivesMidGrey) {
  const struct {
    const char* name;
    std::vector<std::array<uint8_t, 3>> components;
    uint16_t width, height;
  } cases[] = {
      {"2x2, partial MCUs", {{1, 0x22, 0}, {2, 0x11, 0}, {3, 0x11, 0}}, 17, 17},
      {"1x2", {{1, 0x21, 0}, {2, 0x11, 0}, {3, 0x11, 0}}, 33, 8},
      {"gray", {{1, 0x11, 0}}, 1, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::array<uint8_t, 2>> scan;
    for (const auto& component : c.components) {
      scan.push_back({component[0], 0x00});
    }
    Bytes bytes = JpegBuilder()
                      .Soi()
                      .Dqt(0)
                      .Sof(0xC0, 8, c.width, c.height, c.components)
                      .Dht(0, 0, {1}, {0})
                      .Dht(1, 0, {1}, {0})
                      .Sos(scan)
                      .Eoi()
                      .bytes();
    Image image = DecodeBytes(bytes);
    ASSERT_EQ(image.error, L"");
    ASSERT_EQ(image.pixels.size(), size_t{c.width} * c.height * 4);
    for (size_t i = 0; i < image.pixels.size(); ++i) {
      ASSERT_EQ(image.pixels[i], i % 4 == 3 ? 0xFFFF : 0x8080) << i;
    }
  }
}

struct DamageCase {
  const char* name;
  Bytes dc_symbols;  // one 1-bit code 0 per symbol: {s} or {s0, s1}
  Bytes ac_symbols;
  bool wide_quantisers;
  Bytes entropy;
  const wchar_t* error;
};

// Damaged symbols decode without undefined behaviour; runs under the sanitizers.
TEST(DecodeSequential, DamagedSymbolsStayInsideTheBlock) {
  const DamageCase cases[] = {
      {"AC runs past 63 end the block",
       {0, 0},
       {0x00, 0xF1},
       false,
       {0x7F, 0xFF, 0x00, 0xFF, 0x00, 0xFF, 0x00},
       L""},
      {"ZRL past 63", {0, 0}, {0x00, 0xF0}, false, {0x7F, 0xFF, 0x00, 0xFF, 0x00}, L""},
      {"DC symbol 200 reads no bits", {200}, {0x00}, false, {0x00, 0x00}, L""},
      {"DC symbol 32", {32}, {0x00}, false, {0x00, 0x12, 0x34, 0x56, 0x78, 0x00}, L""},
      {"DC category 15 with 16-bit quantisers",
       {15},
       {0x00, 0xAF},
       true,
       {0x7F, 0xFF, 0x00, 0xFF, 0x00, 0xFF, 0x00, 0xFF, 0x00, 0x3F, 0xFF, 0x00, 0xFF, 0x00},
       L""},
      {"a free DC entry", {0}, {0x00}, false, {0x80}, L"Corrupt image data"},
  };
  for (const DamageCase& c : cases) {
    SCOPED_TRACE(c.name);
    Bytes dqt(c.wide_quantisers ? 129 : 65, 0xFF);
    dqt[0] = c.wide_quantisers ? 0x10 : 0x00;
    const std::vector<uint8_t> dc_counts = {static_cast<uint8_t>(c.dc_symbols.size())};
    const std::vector<uint8_t> ac_counts = {static_cast<uint8_t>(c.ac_symbols.size())};
    Bytes bytes = JpegBuilder()
                      .Soi()
                      .Segment(0xDB, dqt)
                      .Sof(0xC0, 8, 16, 16, {{1, 0x11, 0}})
                      .Dht(0, 0, dc_counts, c.dc_symbols)
                      .Dht(1, 0, ac_counts, c.ac_symbols)
                      .Sos({{1, 0x00}})
                      .Entropy(c.entropy)
                      .Eoi()
                      .bytes();
    EXPECT_EQ(DecodeBytes(bytes).error, c.error);
  }
}

TEST(SeekRestartMarker, FindsOnlyTheExpectedPair) {
  const struct {
    const char* name;
    Bytes data;
    uint32_t restart_number;
    size_t cursor;  // offset after the search
  } cases[] = {
      {"D0 at the start", {0xFF, 0xD0, 0x12}, 0, 2},
      {"number 9 expects D1", {0xFF, 0xD0, 0xFF, 0xD1, 0x00}, 9, 4},
      {"fill byte", {0x12, 0xFF, 0xFF, 0xD3}, 3, 4},
      {"missing", {0xFF, 0xD4, 0xFF, 0x00}, 3, 4},
      {"lone 0xFF at the end", {0x00, 0xFF}, 0, 2},
      {"empty", {}, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    BitReader reader;
    reader.cursor = c.data.data();
    reader.end = c.data.data() + c.data.size();
    reader.bits = 0x80000000;
    reader.bit_count = 1;
    SeekRestartMarker(reader, c.restart_number);
    EXPECT_EQ(reader.cursor, c.data.data() + c.cursor);
    EXPECT_EQ(reader.bits, 0u);
    EXPECT_EQ(reader.bit_count, 0u);
  }
}

}  // namespace
}  // namespace corvi

namespace corvi {
namespace {

// Random tables with codes of 1 to 16 bits and random short streams that end in the middle of
// codes, at markers and at lone 0xFF bytes: the production decoder, with its lookups, gives what
// the literal reference gives. The tail of the data is where taking bytes early would differ.
TEST(DecodeSequential, MatchesTheLiteralDecoderOnShortDamagedStreams) {
  uint32_t seed = 12345;
  auto next = [&seed](uint32_t range) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 8) % range;
  };
  auto table = [&next](std::vector<uint8_t>& counts, Bytes& symbols, bool dc) {
    counts.assign(16, 0);
    symbols.clear();
    // A few short codes and a few long ones, within the code space.
    const uint32_t lengths[] = {1 + next(3), 2 + next(4), 9 + next(8), 9 + next(8)};
    uint64_t space = 0;  // used code space in units of 2^-16
    for (uint32_t length : lengths) {
      if (space + (uint64_t{1} << (16 - length)) > (uint64_t{1} << 16) - 1) {
        continue;
      }
      space += uint64_t{1} << (16 - length);
      ++counts[length - 1];
    }
    for (uint8_t count : counts) {
      for (uint8_t i = 0; i < count; ++i) {
        symbols.push_back(static_cast<uint8_t>(dc ? next(12) : next(256)));
      }
    }
    // Symbols follow the counts in length order; the builder writes them as given.
  };
  int differing = 0;
  for (int iteration = 0; iteration < 20000; ++iteration) {
    std::vector<uint8_t> dc_counts, ac_counts;
    Bytes dc_symbols, ac_symbols;
    table(dc_counts, dc_symbols, true);
    table(ac_counts, ac_symbols, false);
    Bytes entropy;
    const uint32_t length = next(10);
    for (uint32_t i = 0; i < length; ++i) {
      const uint32_t kind = next(8);
      if (kind == 0) {
        entropy.push_back(0xFF);
        entropy.push_back(0x00);
      } else {
        entropy.push_back(static_cast<uint8_t>(kind == 1 ? 0xFF : next(256)));
      }
    }
    if (next(2) == 0) {
      entropy.push_back(0xFF);
      entropy.push_back(static_cast<uint8_t>(0xD0 + next(8)));
      entropy.push_back(static_cast<uint8_t>(next(256)));
    }
    JpegBuilder b;
    b.Soi().Dqt(0).Sof(0xC0, 8, 16, 16, {{1, 0x11, 0}});
    b.Dht(0, 0, dc_counts, dc_symbols).Dht(1, 0, ac_counts, ac_symbols);
    if (next(3) == 0) {
      b.Dri(static_cast<uint16_t>(1 + next(2)));
    }
    const Bytes bytes = b.Sos({{1, 0x00}}).Entropy(entropy).Eoi().bytes();
    const test::DecodeOutcome literal = test::DecodeLiterally(bytes);
    const test::DecodeOutcome library = test::DecodeWithLibrary(bytes);
    if (!(literal == library)) {
      ++differing;
      if (differing <= 3) {
        ADD_FAILURE() << "iteration " << iteration << ": literal error '"
                      << std::string(literal.error.begin(), literal.error.end())
                      << "', library error '"
                      << std::string(library.error.begin(), library.error.end()) << "'";
      }
    }
  }
  EXPECT_EQ(differing, 0);
}

}  // namespace
}  // namespace corvi
