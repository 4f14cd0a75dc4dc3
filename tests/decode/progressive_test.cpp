// Progressive decoding: block decoding, the scan walks, restarts and the walk between scans.
#include "decode/progressive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "decode/huffman.h"
#include "jpeg/jpeg_reader.h"
#include "tests/support/jpeg_builder.h"

namespace corvi {
namespace {

using test::BitWriter;
using test::Bytes;
using test::JpegBuilder;

// Both tables give every symbol a 4-bit code: the code is the symbol's index in the list.
const Bytes kDcSymbols = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
const Bytes kAcSymbols = {0x00, 0x01, 0x02, 0x11, 0x20, 0xF0, 0x10, 0xF1};
enum AcCode : uint32_t { kEob, kRun0Size1, kRun0Size2, kRun1Size1, kEob2, kZrl, kRun15Size1 = 7 };
std::vector<uint8_t> FourBits(size_t n) {
  return {0, 0, 0, static_cast<uint8_t>(n)};
}

// DC differences as a 4-bit size code and magnitude bits, then pieces of (value, bit count).
Bytes Bits(const std::vector<std::pair<uint32_t, uint32_t>>& tail, std::vector<int32_t> dc = {},
           size_t at_least = 0) {
  std::vector<std::pair<uint32_t, uint32_t>> pieces;
  for (int32_t diff : dc) {
    uint32_t size = 0;
    for (int32_t m = diff < 0 ? -diff : diff; m != 0; m >>= 1) {
      ++size;
    }
    pieces.push_back({size, 4});
    pieces.push_back({static_cast<uint32_t>(diff < 0 ? diff + (1 << size) - 1 : diff), size});
  }
  pieces.insert(pieces.end(), tail.begin(), tail.end());
  BitWriter w;
  for (const auto& [value, count] : pieces) {
    w.Put(value, count);
  }
  Bytes bytes = w.Finish();
  bytes.resize(std::max(bytes.size(), at_least), 0);
  return bytes;
}
Bytes Dc(std::vector<int32_t> diffs) {
  return Bits({}, std::move(diffs));
}
// Padded to the four bytes of the reader's first refill: it stops right behind them, and the
// walk between scans sees the bytes that follow.
Bytes DcFilled(std::vector<int32_t> diffs) {
  return Bits({}, std::move(diffs), 4);
}

// SOI, tables and an SOF2 frame, grey unless given; scans are appended by the test.
JpegBuilder Header(uint16_t width = 8, uint16_t height = 8,
                   const std::vector<std::array<uint8_t, 3>>& components = {{1, 0x11, 0}}) {
  JpegBuilder b;
  b.Soi().Dqt(0).Sof(0xC2, 8, width, height, components);
  b.Dht(0, 0, FourBits(kDcSymbols.size()), kDcSymbols);
  b.Dht(1, 0, FourBits(kAcSymbols.size()), kAcSymbols);
  return b;
}

// Plans the frame as DecodeImage does, then runs the scans into a store of its own, so that the
// DC coefficient of each block can be looked at.
struct ScanRun {
  std::vector<int16_t> dc;
  std::wstring error;
};

ScanRun RunScans(const Bytes& bytes, uint32_t max_scans) {
  ScanRun run;
  test::ScanResult scanned = test::ScanBytes(bytes);
  if (!scanned.error.empty()) {
    run.error = L"scan: " + scanned.error;
    return run;
  }
  DecodeState state;
  state.limits.max_scans = max_scans;
  RawLayer layer;
  std::vector<int16_t> coefficients;
  try {
    DecodeImage(*scanned.markers, state, layer, true);
    for (ComponentInfo* c : state.components) {
      if (c != nullptr && c->quant_index >= 0 && c->quant_index < 4) {
        c->quant_table = state.quant_tables[c->quant_index];
      }
    }
    coefficients.assign(static_cast<size_t>(state.mcu_count) * state.blocks_per_mcu * 64, 0);
    BitReader reader;
    reader.cursor = scanned.markers->compressed_data;
    reader.end = reader.cursor + scanned.markers->compressed_length;
    CoefficientStore store;
    store.coefficients = coefficients.data();
    DecodeScans(state, layer, store, reader);
  } catch (const RawLayerException& e) {
    run.error = e.message;
  }
  for (size_t i = 0; i < coefficients.size(); i += 64) {
    run.dc.push_back(coefficients[i]);
  }
  return run;
}

// A first DC scan puts 2 << 1; a refinement then sets bit 0 (giving 5) if `between` lets it.
Bytes Refined(const Bytes& between, bool refine = true) {
  JpegBuilder b = Header();
  b.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(DcFilled({2})).Raw(between);
  if (refine) {
    b.Sos({{1, 0x00}}, 0, 0, 0x10).Entropy(Bits({{1, 1}}));
  }
  return b.Eoi().bytes();
}

// A DC scan of 1, then a scan with the given tables and band over one zero byte.
Bytes SecondScan(uint8_t tables, uint8_t ss, uint8_t se, uint8_t ah_al, const Bytes& data = {0}) {
  JpegBuilder b = Header();
  b.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(Dc({1}));
  return b.Sos({{1, tables}}, ss, se, ah_al).Raw(data).Eoi().bytes();
}

Bytes ManyScans(int32_t count) {
  JpegBuilder b = Header();
  b.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(Dc({1}));
  for (int32_t i = 1; i < count; ++i) {
    b.Sos({{1, 0x00}}, 0, 0, 0x10).Entropy({0x00});
  }
  return b.Eoi().bytes();
}

struct ScansCase {
  const char* name;
  Bytes bytes;
  const wchar_t* error;
  std::vector<int16_t> dc;  // of each block; empty: not looked at
  uint32_t max_scans = 1000;
};

TEST(DecodeScans, WalksBindsAndRestartsScanByScan) {
  const wchar_t* const kUnexpected = L"Unexpected JPEG marker between scans";
  const wchar_t* const kOffset = L"Invalid offset or corrupt data";
  const wchar_t* const kNoDc = L"Missing DC Huffman table";
  const wchar_t* const kNoAc = L"Missing AC Huffman table";
  const wchar_t* const kNotInFrame = L"Scan component is not part of the frame";
  // A new DC table 0 with one code, 0, for size 3: the bits 0 101 give a difference of 5.
  JpegBuilder dht = Header();
  dht.Sos({{1, 0x00}}, 0, 0, 0).Entropy(Dc({2})).Dht(0, 0, {1}, {0x03});
  dht.Sos({{1, 0x00}}, 0, 0, 0).Entropy(Bits({{0, 1}, {5, 3}})).Eoi();
  // The predictor starts over behind the restart marker.
  JpegBuilder dri = Header(16, 8);
  dri.Sos({{1, 0x00}}, 0, 0, 0).Entropy(Dc({1, 1})).Dri(1);
  dri.Sos({{1, 0x00}}, 0, 0, 0).Entropy(Dc({3})).Raw({0xFF, 0xD0}).Entropy(Dc({3})).Eoi();
  // The next scan's data starts where the stored length says, not behind the fields SOS claims.
  JpegBuilder long_sos = Header();
  long_sos.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(DcFilled({2}));
  long_sos.Segment(0xDA, {0x01, 0x01, 0x00, 0x00, 0x00, 0x10, 0x00});
  long_sos.Entropy(Bits({{1, 1}})).Eoi();
  // A scan that names no component still counts its MCUs and restarts between them.
  JpegBuilder no_components = Header(16, 8);
  no_components.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(DcFilled({2, 0})).Dri(1);
  no_components.Sos({}).Raw({0xFF, 0xD0});
  no_components.Sos({{1, 0x00}}, 0, 0, 0x10).Entropy(Bits({{1, 1}})).Raw({0xFF, 0xD0});
  no_components.Entropy(Bits({{1, 1}})).Eoi();
  // 17x17 in 2x2: luma covers 3x3 blocks, restarting every 4 blocks; Cb 2x2 blocks, where the
  // interval ends with the scan, so no search runs.
  JpegBuilder by_block = Header(17, 17, {{1, 0x22, 0}, {2, 0x11, 0}, {3, 0x11, 0}});
  by_block.Dri(4).Sos({{1, 0x00}}, 0, 0, 0);
  by_block.Entropy(Dc({1, 1, 1, 1})).Raw({0xFF, 0xD0}).Entropy(Dc({1, 1, 1, 1}));
  by_block.Raw({0xFF, 0xD1}).Entropy(Dc({1}));
  by_block.Sos({{2, 0x00}}, 0, 0, 0).Entropy(Dc({5, 5, 5, 5}));
  by_block.Sos({{3, 0x00}}, 0, 0, 0).Entropy(Dc({7, 1, 1, 1})).Eoi();
  // 17x8 in 1x1: 3 MCUs of 3 blocks, restarting after every MCU.
  JpegBuilder by_mcu = Header(17, 8, {{1, 0x11, 0}, {2, 0x11, 0}, {3, 0x11, 0}});
  by_mcu.Dri(1).Sos({{1, 0x00}, {2, 0x00}, {3, 0x00}}, 0, 0, 0);
  by_mcu.Entropy(Dc({1, 2, 3})).Raw({0xFF, 0xD0}).Entropy(Dc({1, 2, 3})).Raw({0xFF, 0xD1});
  by_mcu.Entropy(Dc({4, 5, 6})).Eoi();
  const Bytes next_scan = JpegBuilder().Sos({{1, 0x00}}, 0, 0, 0x10).bytes();
  // Ids 0 and 2 make new slots 0 and 2 in a grey frame: neither has blocks in the store.
  const Bytes id0 = JpegBuilder().Sos({{0, 0}}, 0, 0, 0).Entropy(Dc({1})).bytes();
  const Bytes id2 = JpegBuilder().Sos({{2, 0}}, 0, 0, 0).Entropy(Dc({1})).bytes();

  const ScansCase cases[] = {
      // Between scans: filler passes; DHT and DRI apply; anything else is refused.
      {"nothing between", Refined({}), L"", {5}},
      {"zero bytes", Refined({0, 0, 0}), L"", {5}},
      {"stuffed pair", Refined({0xFF, 0x00}), L"", {5}},
      {"stray byte", Refined({0x12}), L"Missing marker prefix", {4}},
      {"DQT", Refined(JpegBuilder().Dqt(1).bytes()), kUnexpected, {4}},
      {"APP1", Refined(JpegBuilder().Segment(0xE1, {0, 0}).bytes()), kUnexpected, {4}},
      {"fill byte", Refined({0xFF, 0xFF, 0x00, 0x02}), kUnexpected, {4}},
      {"DHT", Refined(JpegBuilder().Dht(1, 1, FourBits(8), kAcSymbols).bytes()), L"", {5}},
      {"DRI", Refined(JpegBuilder().Dri(0).bytes()), L"", {5}},
      {"DRI of 4 bytes", Refined({0xFF, 0xDD, 0, 6, 0, 1, 0, 0}), L"DRI header is wrong size", {4}},
      // The two length bytes are claimed before the code is judged.
      {"zero bytes up to the end", Refined({0, 0}, false), kOffset, {}},
      {"lone prefix", Refined({0xFF}, false), kOffset, {}},
      {"COM with half a length", Refined({0xFF, 0xFE, 0x00}, false), kOffset, {}},
      {"COM with its length", Refined({0xFF, 0xFE, 0x00, 0x02}, false), kUnexpected, {}},
      {"DHT of stored length 0", Refined({0xFF, 0xC4, 0x00, 0x00}, false), kOffset, {}},
      // What the segments between bind.
      {"DHT binds the next scan", dht.bytes(), L"", {5}},
      {"DRI restarts the next scan", dri.bytes(), L"", {3, 3}},
      {"SOS longer than its fields", long_sos.bytes(), L"", {5}},
      {"scan without components", no_components.bytes(), L"", {5, 5}},
      // Tables are bound where the band needs them, even with no readable data.
      {"DC first, no DC table", SecondScan(0x20, 0, 0, 0x00), kNoDc, {}},
      {"DC first, no DC table, no data", SecondScan(0x20, 0, 0, 0x00, {}), L"", {}},
      {"DC first, no DC table, restart", SecondScan(0x20, 0, 0, 0, {0xFF, 0xD0}), kNoDc, {}},
      {"DC first, no DC table, next SOS", SecondScan(0x20, 0, 0, 0, next_scan), kNoDc, {}},
      {"DC first, no AC table", SecondScan(0x02, 0, 0, 0x00), L"", {}},
      {"DC refinement, no DC table", SecondScan(0x20, 0, 0, 0x10), L"", {}},
      {"AC first, no AC table", SecondScan(0x02, 1, 63, 0x00), kNoAc, {}},
      {"AC refinement, no AC table", SecondScan(0x02, 1, 63, 0x10), kNoAc, {}},
      {"AC first, no DC table", SecondScan(0x20, 1, 63, 0x00), L"", {}},
      {"component 0", Refined(id0), kNotInFrame, {}},
      {"component 2", Refined(id2), kNotInFrame, {}},
      // Blocks: Y0 Y1 Y2 Y3 Cb Cr of each MCU.
      {"restarts by block", by_block.bytes(), L"", {1, 2, 4, 1, 5,  7, 3, 0, 2, 0, 10, 8,
                                                    3, 4, 0, 0, 15, 9, 1, 0, 0, 0, 20, 10}},
      {"restarts by MCU", by_mcu.bytes(), L"", {1, 2, 3, 1, 2, 3, 4, 5, 6}},
      // The scan count is a caller's limit: without one any count decodes.
      {"1000 scans", ManyScans(1000), L"", {}, 1000},
      {"1001 scans", ManyScans(1001), L"Too many scans (1001, limit 1000)", {}, 1000},
      {"3000 scans, no limit", ManyScans(3000), L"", {}, 0},
  };
  for (const ScansCase& c : cases) {
    SCOPED_TRACE(c.name);
    const ScanRun run = RunScans(c.bytes, c.max_scans);
    EXPECT_EQ(run.error, c.error);
    if (!c.dc.empty()) {
      EXPECT_EQ(run.dc, c.dc);
    }
  }
}

// One block through DecodeProgressiveBlock, band after band: a band of `times` calls reads on from
// where the one before it stopped unless it gives bits of its own.
struct Band {
  int32_t ss, se, ah, al;
  Bytes bits;
  int32_t times = 1;
};
struct BlockCase {
  const char* name;
  std::vector<std::pair<uint32_t, int16_t>> before;  // (zig-zag index, value)
  uint32_t eob_run;
  std::vector<Band> bands;
  std::vector<std::pair<uint32_t, int16_t>> after;  // every other coefficient is 0
  uint32_t eob_run_after;
  int32_t predictor_after = 10;
  int32_t consumed = -1;  // bits read from the last band's data; -1: not looked at
};

TEST(DecodeProgressiveBlock, DecodesEachKindOfBand) {
  const Bytes eob2 = Bits({{kEob2, 4}, {3, 2}, {kRun0Size1, 4}, {1, 1}, {kEob, 4}});
  const Bytes minus3 = Bits({{kRun0Size2, 4}, {0, 2}, {kEob, 4}});
  // clang-format off
  const BlockCase cases[] = {
      // A run of 7 with this block counted; the run is over after six more, reading nothing.
      {"EOB2 with bits 11", {}, 0, {{1, 63, 0, 0, eob2, 7}}, {}, 0, 10, 6},
      {"the run is over", {}, 0, {{1, 63, 0, 0, eob2, 8}}, {{1, 1}}, 0},
      {"refinement in a run on a zero block", {}, 3, {{1, 63, 1, 0, {0xAA}}}, {}, 2, 10, 0},
      // -3 scaled by Al 1, then a correction bit of 1 or 0.
      {"correction 1", {}, 0, {{1, 63, 0, 1, minus3}, {1, 63, 1, 0, Bits({{kEob, 4}, {1, 1}})}},
       {{1, -7}}, 0},
      {"correction 0", {}, 0, {{1, 63, 0, 1, minus3}, {1, 63, 1, 0, Bits({{kEob, 4}, {0, 1}})}},
       {{1, -6}}, 0},
      // The 4 at k 1 takes its correction on the way; the new 1 lands on the second zero.
      {"new coefficient after its run", {{1, 4}}, 0,
       {{1, 63, 1, 0, Bits({{kRun1Size1, 4}, {1, 1}, {1, 1}, {kEob, 4}})}}, {{1, 5}, {3, 1}}, 0},
      {"ZRL past the band", {}, 0, {{1, 5, 0, 0, Bits({{kZrl, 4}, {1, 1}, {kRun0Size1, 4}})}}, {}, 0},
      {"run 15 past the band", {}, 0, {{1, 5, 0, 0, Bits({{kRun15Size1, 4}, {1, 1}})}}, {}, 0},
      {"run 1 past 63", {}, 0, {{63, 63, 0, 0, Bits({{kRun1Size1, 4}, {1, 1}})}}, {}, 0},
      // The DC difference -3 from 10; the coefficient is shifted, the predictor is not.
      {"DC first and refinement", {}, 0, {{0, 0, 0, 2, Bits({{1, 1}}, {-3})}, {0, 0, 2, 1, {}}},
       {{0, 30}}, 0, 7},
  };
  // clang-format on
  for (const BlockCase& c : cases) {
    SCOPED_TRACE(c.name);
    HuffmanTable dc, ac;
    for (auto [table, symbols] : {std::pair{&dc, &kDcSymbols}, std::pair{&ac, &kAcSymbols}}) {
      Bytes payload = FourBits(symbols->size());
      payload.resize(16, 0);
      payload.insert(payload.end(), symbols->begin(), symbols->end());
      int32_t position = 0;
      BuildHuffmanTable(*table, payload.data(), position);
    }
    ComponentInfo component;
    component.dc_table = &dc;
    component.ac_table = &ac;
    DecodeState state;
    int16_t block[64] = {};
    for (const auto& [k, value] : c.before) {
      block[zigzag[k]] = value;
    }
    int32_t predictor = 10;
    uint32_t eob_run = c.eob_run;
    BitReader reader;
    const uint8_t* start = nullptr;
    for (const Band& band : c.bands) {
      state.spectral_start = band.ss;
      state.spectral_end = band.se;
      state.approx_high = band.ah;
      state.approx_low = band.al;
      if (!band.bits.empty()) {
        reader.cursor = band.bits.data();
        reader.end = band.bits.data() + band.bits.size();
        reader.Clear();
        start = reader.cursor;
      }
      for (int32_t i = 0; i < band.times; ++i) {
        DecodeProgressiveBlock(state, block, reader, component, predictor, eob_run);
      }
    }
    int16_t expected[64] = {};
    for (const auto& [k, value] : c.after) {
      expected[zigzag[k]] = value;
    }
    EXPECT_EQ(std::vector<int16_t>(block, block + 64),
              std::vector<int16_t>(expected, expected + 64));
    EXPECT_EQ(eob_run, c.eob_run_after);
    EXPECT_EQ(predictor, c.predictor_after);
    if (c.consumed >= 0) {
      EXPECT_EQ((reader.cursor - start) * 8 - reader.bit_count, c.consumed);
    }
  }
}

}  // namespace
}  // namespace corvi
