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
const std::vector<uint8_t> kDcSymbols = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
const std::vector<uint8_t> kAcSymbols = {0x00, 0x01, 0x02, 0x11, 0x20, 0xF0, 0x10, 0xF1};
enum AcCode : uint32_t { kEob, kRun0Size1, kRun0Size2, kRun1Size1, kEob2, kZrl, kRun15Size1 = 7 };

std::vector<uint8_t> FourBitCounts(size_t n) {
  std::vector<uint8_t> counts(16, 0);
  counts[3] = static_cast<uint8_t>(n);
  return counts;
}

// The DC difference `diff` as a 4-bit size code and its magnitude bits (T.81 F.1.2.1).
void PutDc(BitWriter& w, int32_t diff) {
  uint32_t size = 0;
  for (int32_t m = diff < 0 ? -diff : diff; m != 0; m >>= 1) {
    ++size;
  }
  w.Put(size, 4);
  if (size != 0) {
    w.Put(static_cast<uint32_t>(diff < 0 ? diff + (1 << size) - 1 : diff), size);
  }
}

Bytes Bits(std::initializer_list<std::pair<uint32_t, uint32_t>> pieces) {
  BitWriter w;
  for (const auto& [value, count] : pieces) {
    w.Put(value, count);
  }
  return w.Finish();
}

Bytes DcBits(std::initializer_list<int32_t> diffs) {
  BitWriter w;
  for (int32_t d : diffs) {
    PutDc(w, d);
  }
  return w.Finish();
}

// The same, padded with zero bytes to the four that the reader's first refill takes, so that the
// reader stops right behind them and the walk between scans sees the bytes that follow.
Bytes DcBitsFilled(std::initializer_list<int32_t> diffs) {
  Bytes bytes = DcBits(diffs);
  while (bytes.size() < 4) {
    bytes.push_back(0x00);
  }
  return bytes;
}

// SOI, tables and an SOF2 frame; scans are appended by the test.
JpegBuilder ProgressiveHeader(uint16_t width, uint16_t height,
                              const std::vector<std::array<uint8_t, 3>>& components) {
  JpegBuilder b;
  b.Soi().Dqt(0).Sof(0xC2, 8, width, height, components);
  b.Dht(0, 0, FourBitCounts(kDcSymbols.size()), kDcSymbols);
  b.Dht(1, 0, FourBitCounts(kAcSymbols.size()), kAcSymbols);
  return b;
}

JpegBuilder GrayHeader(uint16_t width, uint16_t height) {
  return ProgressiveHeader(width, height, {{1, 0x11, 0}});
}

// Plans the frame as DecodeImage does, then runs the scans into a store of its own, so that the
// coefficients can be looked at.
struct ScanRun {
  std::vector<int16_t> coefficients;
  std::wstring error;

  int16_t At(size_t block, size_t natural) const { return coefficients.at(block * 64 + natural); }
};

ScanRun RunScans(const Bytes& bytes, uint32_t max_scans = 1000) {
  ScanRun run;
  test::ScanResult scanned = test::ScanBytes(bytes);
  if (!scanned.error.empty()) {
    run.error = L"scan: " + scanned.error;
    return run;
  }
  DecodeState state;
  state.limits.max_scans = max_scans;
  RawLayer layer;
  try {
    DecodeImage(*scanned.markers, state, layer, true);
    for (ComponentInfo* c : state.components) {
      if (c != nullptr && c->quant_index >= 0 && c->quant_index < 4) {
        c->quant_table = state.quant_tables[c->quant_index];
      }
    }
    run.coefficients.assign(static_cast<size_t>(state.mcu_count) * state.blocks_per_mcu * 64, 0);
    BitReader reader;
    reader.cursor = scanned.markers->compressed_data;
    reader.end = reader.cursor + scanned.markers->compressed_length;
    CoefficientStore store;
    store.coefficients = run.coefficients.data();
    DecodeScans(state, layer, store, reader);
  } catch (const RawLayerException& e) {
    run.error = e.message != nullptr ? e.message : L"(null)";
  }
  return run;
}

// --- The walk between scans ---

// Scan 1 puts DC 2 << 1; scan 2 refines bit 0 with a 1, giving 5, if the bytes between let it.
struct BetweenCase {
  const char* name;
  Bytes between;
  const wchar_t* error;
  int16_t dc;
};

TEST(DecodeScans, WalksTheSegmentsBetweenScans) {
  const Bytes dqt = JpegBuilder().Dqt(1).bytes();
  const Bytes com = JpegBuilder().Segment(0xFE, {'h', 'i'}).bytes();
  const Bytes app1 = JpegBuilder().Segment(0xE1, {0, 0}).bytes();
  const Bytes dht = JpegBuilder().Dht(1, 1, FourBitCounts(kAcSymbols.size()), kAcSymbols).bytes();
  const Bytes dri = JpegBuilder().Dri(0).bytes();
  const Bytes long_dri = JpegBuilder().Segment(0xDD, {0, 1, 0, 0}).bytes();
  const BetweenCase cases[] = {
      {"nothing", {}, L"", 5},
      {"zero bytes", {0x00, 0x00, 0x00}, L"", 5},
      {"stuffed pair", {0xFF, 0x00}, L"", 5},
      {"stray byte", {0x12}, L"Missing marker prefix", 4},
      {"DQT", dqt, L"Unexpected JPEG marker between scans", 4},
      {"COM", com, L"Unexpected JPEG marker between scans", 4},
      {"APP1", app1, L"Unexpected JPEG marker between scans", 4},
      {"fill byte", {0xFF, 0xFF, 0x00, 0x02}, L"Unexpected JPEG marker between scans", 4},
      {"DHT", dht, L"", 5},
      {"DRI", dri, L"", 5},
      {"DRI of 4 bytes", long_dri, L"DRI header is wrong size", 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    JpegBuilder b = GrayHeader(8, 8);
    b.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(DcBitsFilled({2})).Raw(c.between);
    b.Sos({{1, 0x00}}, 0, 0, 0x10).Entropy(Bits({{1, 1}})).Eoi();
    ScanRun run = RunScans(b.bytes());
    EXPECT_EQ(run.error, c.error);
    ASSERT_EQ(run.coefficients.size(), 64u);
    EXPECT_EQ(run.At(0, 0), c.dc);
  }
}

TEST(DecodeScans, SegmentsBetweenScansBindTheNextScan) {
  // The new DC table 0 has one code, 0, for size 3: the bits 0 101 give a difference of 5.
  std::vector<uint8_t> one_code(16, 0);
  one_code[0] = 1;
  JpegBuilder dht = GrayHeader(8, 8);
  dht.Sos({{1, 0x00}}, 0, 0, 0).Entropy(DcBits({2})).Dht(0, 0, one_code, {0x03});
  dht.Sos({{1, 0x00}}, 0, 0, 0).Entropy(Bits({{0, 1}, {5, 3}})).Eoi();
  // The predictor starts over behind the restart marker.
  JpegBuilder dri = GrayHeader(16, 8);
  dri.Sos({{1, 0x00}}, 0, 0, 0).Entropy(DcBits({1, 1})).Dri(1);
  dri.Sos({{1, 0x00}}, 0, 0, 0).Entropy(DcBits({3})).Raw({0xFF, 0xD0}).Entropy(DcBits({3}));
  dri.Eoi();
  // The next scan's data starts where the stored length says, not behind the fields SOS claims.
  JpegBuilder long_sos = GrayHeader(8, 8);
  long_sos.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(DcBitsFilled({2}));
  long_sos.Segment(0xDA, {0x01, 0x01, 0x00, 0x00, 0x00, 0x10, 0x00});  // one byte past Ah|Al
  long_sos.Entropy(Bits({{1, 1}})).Eoi();
  // A scan that names no component still counts its MCUs and restarts between them, which
  // moves the reader past the restart marker to the next SOS.
  JpegBuilder no_components = GrayHeader(16, 8);
  no_components.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(DcBitsFilled({2, 0})).Dri(1);
  no_components.Sos({}).Raw({0xFF, 0xD0});
  no_components.Sos({{1, 0x00}}, 0, 0, 0x10).Entropy(Bits({{1, 1}})).Raw({0xFF, 0xD0});
  no_components.Entropy(Bits({{1, 1}})).Eoi();
  const struct {
    const char* name;
    Bytes bytes;
    std::vector<int16_t> dc;  // of each block
  } cases[] = {
      {"DHT", dht.bytes(), {5}},
      {"DRI", dri.bytes(), {3, 3}},
      {"SOS longer than its fields", long_sos.bytes(), {5}},
      {"scan without components", no_components.bytes(), {5, 5}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ScanRun run = RunScans(c.bytes);
    EXPECT_EQ(run.error, L"");
    ASSERT_EQ(run.coefficients.size(), 64 * c.dc.size());
    for (size_t i = 0; i < c.dc.size(); ++i) {
      EXPECT_EQ(run.At(i, 0), c.dc[i]) << i;
    }
  }
}

// The two length bytes are claimed before the code is judged, and a length below 2 walks back
// onto bytes already claimed.
TEST(DecodeScans, ClaimsTheLengthBeforeJudgingTheCode) {
  const struct {
    const char* name;
    Bytes tail;  // between the first scan's data and the end-of-image marker
    const wchar_t* error;
  } cases[] = {
      {"zero bytes up to the end", {0x00, 0x00}, L"Invalid offset or corrupt data"},
      {"lone prefix", {0xFF}, L"Invalid offset or corrupt data"},
      {"COM without length", {0xFF, 0xFE}, L"Invalid offset or corrupt data"},
      {"COM with half a length", {0xFF, 0xFE, 0x00}, L"Invalid offset or corrupt data"},
      {"COM with its length", {0xFF, 0xFE, 0x00, 0x02}, L"Unexpected JPEG marker between scans"},
      {"DHT of stored length 0", {0xFF, 0xC4, 0x00, 0x00}, L"Invalid offset or corrupt data"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    JpegBuilder b = GrayHeader(8, 8);
    b.Sos({{1, 0x00}}, 0, 0, 0).Entropy(DcBitsFilled({2})).Raw(c.tail).Eoi();
    EXPECT_EQ(RunScans(b.bytes()).error, c.error);
  }
}

// A scan is walked whenever a byte is left behind its SOS, even one that yields no bits: a
// missing table throws on the first block. An SOS at the very end starts no scan.
TEST(DecodeScans, MissingTableThrowsEvenWithoutReadableData) {
  const Bytes next_scan = JpegBuilder().Sos({{1, 0x00}}, 0, 0, 0x10).bytes();
  const struct {
    const char* name;
    Bytes data;  // behind the SOS that names the undefined DC table 2
    const wchar_t* error;
  } cases[] = {
      {"nothing", {}, L""},
      {"a restart marker", {0xFF, 0xD0}, L"Missing DC Huffman table"},
      {"the next SOS", next_scan, L"Missing DC Huffman table"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    JpegBuilder b = GrayHeader(8, 8);
    b.Sos({{1, 0x00}}, 0, 0, 0).Entropy(DcBits({1}));
    b.Sos({{1, 0x20}}, 0, 0, 0).Raw(c.data).Eoi();
    EXPECT_EQ(RunScans(b.bytes()).error, c.error);
  }
}

struct ScanCountCase {
  int32_t scans;
  uint32_t max_scans;
  const wchar_t* error;
};

// The scan count is a caller's limit, not a rule of the format: without one any count decodes.
TEST(DecodeScans, LimitsTheScanCountOnlyWhereTheCallerAsks) {
  for (const auto& c : {ScanCountCase{1000, 1000, L""},
                        ScanCountCase{1001, 1000, L"Too many scans (1001, limit 1000)"},
                        ScanCountCase{3000, 0, L""}}) {
    SCOPED_TRACE(c.scans);
    JpegBuilder b = GrayHeader(8, 8);
    b.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(DcBits({1}));
    for (int32_t i = 1; i < c.scans; ++i) {
      b.Sos({{1, 0x00}}, 0, 0, 0x10).Entropy({0x00});
    }
    EXPECT_EQ(RunScans(b.Eoi().bytes(), c.max_scans).error, c.error);
  }
}

// --- Table binding and the components a scan may name ---

struct BindingCase {
  const char* name;
  uint8_t tables;  // Td << 4 | Ta of the second scan
  uint8_t ss, se, ah_al;
  const wchar_t* error;
};

TEST(DecodeScan, BindsTablesOnlyWhereTheBandNeedsThem) {
  const BindingCase cases[] = {
      {"DC first, no DC table", 0x20, 0, 0, 0x00, L"Missing DC Huffman table"},
      {"DC first, no AC table", 0x02, 0, 0, 0x00, L""},
      {"DC refinement, no DC table", 0x20, 0, 0, 0x10, L""},
      {"AC first, no AC table", 0x02, 1, 63, 0x00, L"Missing AC Huffman table"},
      {"AC refinement, no AC table", 0x02, 1, 63, 0x10, L"Missing AC Huffman table"},
      {"AC first, no DC table", 0x20, 1, 63, 0x00, L""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    JpegBuilder b = GrayHeader(8, 8);
    b.Sos({{1, 0x00}}, 0, 0, 0x01).Entropy(DcBits({1}));
    b.Sos({{1, c.tables}}, c.ss, c.se, c.ah_al).Entropy({0x00}).Eoi();
    EXPECT_EQ(RunScans(b.bytes()).error, c.error);
  }
}

TEST(DecodeScan, RefusesAComponentThatTheFrameLacks) {
  // Ids 0 and 2 make new slots 0 and 2 in a grey frame: neither has blocks in the store.
  for (uint8_t id : {uint8_t{0}, uint8_t{2}}) {
    SCOPED_TRACE(id);
    JpegBuilder b = GrayHeader(8, 8);
    b.Sos({{1, 0x00}}, 0, 0, 0).Entropy(DcBits({1}));
    b.Sos({{id, 0x00}}, 0, 0, 0).Entropy(DcBits({1})).Eoi();
    EXPECT_EQ(RunScans(b.bytes()).error, L"Scan component is not part of the frame");
  }
}

// --- Walks and restarts ---

TEST(DecodeScan, SingleComponentScansOf17x17In2x2CountAndRestartByBlock) {
  // Luma (2x2) covers 3x3 blocks; restarts every 4 blocks. Cb covers 2x2; the interval of 4
  // ends with the scan, so no search runs and the next segment is found where the data stops.
  JpegBuilder b = ProgressiveHeader(17, 17, {{1, 0x22, 0}, {2, 0x11, 0}, {3, 0x11, 0}});
  b.Dri(4).Sos({{1, 0x00}}, 0, 0, 0);
  b.Entropy(DcBits({1, 1, 1, 1})).Raw({0xFF, 0xD0});
  b.Entropy(DcBits({1, 1, 1, 1})).Raw({0xFF, 0xD1});
  b.Entropy(DcBits({1}));
  b.Sos({{2, 0x00}}, 0, 0, 0).Entropy(DcBits({5, 5, 5, 5}));
  b.Sos({{3, 0x00}}, 0, 0, 0).Entropy(DcBits({7})).Eoi();
  ScanRun run = RunScans(b.bytes());
  ASSERT_EQ(run.error, L"");
  ASSERT_EQ(run.coefficients.size(), 4u * 6 * 64);
  auto luma = [&](size_t by, size_t bx) {
    return run.At((by / 2 * 2 + bx / 2) * 6 + (by % 2) * 2 + bx % 2, 0);
  };
  const int16_t expected_luma[3][3] = {{1, 2, 3}, {4, 1, 2}, {3, 4, 1}};
  for (size_t by = 0; by < 4; ++by) {
    for (size_t bx = 0; bx < 4; ++bx) {
      SCOPED_TRACE(testing::Message() << by << "," << bx);
      EXPECT_EQ(luma(by, bx), by < 3 && bx < 3 ? expected_luma[by][bx] : 0);
    }
  }
  for (size_t m = 0; m < 4; ++m) {
    EXPECT_EQ(run.At(m * 6 + 4, 0), 5 * static_cast<int16_t>(m + 1));
  }
  EXPECT_EQ(run.At(5, 0), 7);
}

TEST(DecodeScan, InterleavedScanVisitsEdgeBlocksAndRestartsByMcu) {
  // 17x8 in 1x1 layout: 3 MCUs of 3 blocks, restart after every MCU.
  JpegBuilder b = ProgressiveHeader(17, 8, {{1, 0x11, 0}, {2, 0x11, 0}, {3, 0x11, 0}});
  b.Dri(1).Sos({{1, 0x00}, {2, 0x00}, {3, 0x00}}, 0, 0, 0);
  b.Entropy(DcBits({1, 2, 3})).Raw({0xFF, 0xD0});
  b.Entropy(DcBits({1, 2, 3})).Raw({0xFF, 0xD1});
  b.Entropy(DcBits({4, 5, 6})).Eoi();
  ScanRun run = RunScans(b.bytes());
  ASSERT_EQ(run.error, L"");
  const int16_t expected[9] = {1, 2, 3, 1, 2, 3, 4, 5, 6};
  for (size_t i = 0; i < 9; ++i) {
    EXPECT_EQ(run.At(i, 0), expected[i]) << i;
  }
}

// --- DecodeProgressiveBlock ---

class ProgressiveBlock : public testing::Test {
 protected:
  void SetUp() override { component.ac_table = Build(table, kAcSymbols); }
  static HuffmanTable* Build(HuffmanTable& into, const std::vector<uint8_t>& symbols) {
    Bytes payload = FourBitCounts(symbols.size());
    payload.insert(payload.end(), symbols.begin(), symbols.end());
    int32_t position = 0;
    BuildHuffmanTable(into, payload.data(), position);
    return &into;
  }
  void Band(int32_t ss, int32_t se, int32_t ah, int32_t al) {
    state.spectral_start = ss;
    state.spectral_end = se;
    state.approx_high = ah;
    state.approx_low = al;
  }
  void Read(const Bytes& bytes) {
    data = bytes;
    reader.cursor = data.data();
    reader.end = data.data() + data.size();
    reader.Clear();
  }
  void Decode() { DecodeProgressiveBlock(state, block, reader, component, dc_predictor, eob_run); }
  bool AllZero() const {
    for (int16_t c : block) {
      if (c != 0) {
        return false;
      }
    }
    return true;
  }

  HuffmanTable table;
  ComponentInfo component;
  DecodeState state;
  Bytes data;
  BitReader reader;
  int16_t block[64] = {};
  int32_t dc_predictor = 0;
  uint32_t eob_run = 0;
};

TEST_F(ProgressiveBlock, Eob2WithBits11EndsThisBlockAndSixMore) {
  Band(1, 63, 0, 0);
  Read(Bits({{kEob2, 4}, {3, 2}, {kRun0Size1, 4}, {1, 1}, {kEob, 4}}));
  Decode();
  EXPECT_EQ(eob_run, 6u);  // a run of 7, this block counted
  const uint8_t* after_eob = reader.cursor;
  const uint32_t bits_after_eob = reader.bit_count;
  for (int i = 0; i < 6; ++i) {
    Decode();
  }
  EXPECT_EQ(eob_run, 0u);
  EXPECT_EQ(reader.cursor, after_eob);
  EXPECT_EQ(reader.bit_count, bits_after_eob);
  EXPECT_TRUE(AllZero());
  Decode();  // the run is over: the next symbol is read
  EXPECT_EQ(block[zigzag[1]], 1);
}

TEST_F(ProgressiveBlock, RefinementInsideARunReadsNoBitsOnAZeroBlock) {
  Band(1, 63, 1, 0);
  Read({0xAA, 0xAA, 0xAA, 0xAA});
  eob_run = 3;
  Decode();
  EXPECT_EQ(eob_run, 2u);
  EXPECT_EQ(reader.cursor, data.data());
  EXPECT_EQ(reader.bit_count, 0u);
  EXPECT_TRUE(AllZero());
}

TEST_F(ProgressiveBlock, FirstScanScalesAndRefinementCorrects) {
  struct Case {
    uint32_t correction;
    int16_t expected;
  };
  for (const Case& c : {Case{1, -7}, Case{0, -6}}) {
    SCOPED_TRACE(c.correction);
    std::fill(std::begin(block), std::end(block), int16_t{0});
    eob_run = 0;
    Band(1, 63, 0, 1);
    Read(Bits({{kRun0Size2, 4}, {0, 2}, {kEob, 4}}));  // -3, then end of band
    Decode();
    EXPECT_EQ(block[zigzag[1]], -6);
    Band(1, 63, 1, 0);
    Read(Bits({{kEob, 4}, {c.correction, 1}}));
    Decode();
    EXPECT_EQ(block[zigzag[1]], c.expected);
    EXPECT_EQ(eob_run, 0u);
  }
}

TEST_F(ProgressiveBlock, RefinementPlacesANewCoefficientAfterItsRunOfZeros) {
  block[zigzag[1]] = 4;
  Band(1, 63, 1, 0);
  // Run 1, size 1, sign bit 1: the correction bit 1 makes the 4 at k 1 a 5 on the way, and the
  // new 1 lands on the second zero, k 3.
  Read(Bits({{kRun1Size1, 4}, {1, 1}, {1, 1}, {kEob, 4}}));
  Decode();
  EXPECT_EQ(block[zigzag[1]], 5);
  EXPECT_EQ(block[zigzag[2]], 0);
  EXPECT_EQ(block[zigzag[3]], 1);
}

TEST_F(ProgressiveBlock, RunsPastTheBandWriteNothing) {
  struct Case {
    int32_t ss, se;
    uint32_t symbol;
  };
  for (const Case& c : {Case{1, 5, kZrl}, Case{1, 5, kRun15Size1}, Case{63, 63, kRun15Size1},
                        Case{63, 63, kRun1Size1}}) {
    SCOPED_TRACE(testing::Message() << c.ss << ".." << c.se << " symbol " << c.symbol);
    std::fill(std::begin(block), std::end(block), int16_t{0});
    eob_run = 0;
    Band(c.ss, c.se, 0, 0);
    Read(Bits({{c.symbol, 4}, {1, 1}, {kRun0Size1, 4}, {1, 1}}));
    Decode();
    EXPECT_TRUE(AllZero());
  }
}

TEST_F(ProgressiveBlock, DcScansShiftTheCoefficientButNotThePredictor) {
  HuffmanTable dc;
  component.dc_table = Build(dc, kDcSymbols);
  Band(0, 0, 0, 2);
  BitWriter w;
  PutDc(w, -3);
  w.Put(1, 1);  // the refinement bit
  Read(w.Finish());
  dc_predictor = 10;
  Decode();
  EXPECT_EQ(dc_predictor, 7);
  EXPECT_EQ(block[0], 28);
  Band(0, 0, 2, 1);
  Decode();
  EXPECT_EQ(block[0], 30);
}

}  // namespace
}  // namespace corvi
