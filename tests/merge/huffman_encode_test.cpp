// The encoder's Huffman codes and the two passes over the coefficients. The code lengths and the
// entropy-coded bytes are pinned in tests/golden/merge_huffman.txt.
#include "merge/huffman_encode.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "decode/decode_state.h"
#include "merge/merge.h"
#include "tests/support/merge_support.h"

namespace corvi {
namespace {

// Every coded symbol has at most 16 bits and the codes are canonical: in (length, symbol) order
// each is the one before plus 1, shifted to its length, from 0; none is all ones. Exactly the
// symbols met are coded, and the pseudo-symbol 255 is not. End of block comes only before the
// last coefficient; ZRL runs, fill bits that make 0xFF (stuffed), categories up to 11 for DC
// differences and 10 for AC values.
TEST(HuffmanEncode, CodesAndScanBytesMatchGoldenText) {
  std::vector<std::pair<std::string, std::vector<int64_t>>> cases = {
      {"single symbol", {7}},
      {"unused table", {}},
      {"two symbols", {3, 1}},
      {"three symbols, the higher of equals taken first", {1, 1, 2}},
      {"fibonacci, a tree 30 deep", {}},
      {"flat 256, symbol 255 forced to 1", std::vector<int64_t>(256, 1000)},
      {"ramp of 256", {}}};
  for (int64_t s = 0, a = 1, b = 1; s < 256; ++s, a = std::exchange(b, a + b)) {
    cases[4].second.resize(s < 30 ? s + 1 : 30, a);
    cases[6].second.push_back(s * s * s + 1);
  }
  std::ostringstream golden;
  for (const auto& [name, frequencies] : cases) {
    HuffmanStats stats;
    for (size_t s = 0; s < frequencies.size(); ++s) {
      stats.entries[s].frequency = frequencies[s];
    }
    stats.entries[7].length = 5, stats.entries[7].code = 3;  // stale values are cleared
    BuildHuffmanCode(stats);
    golden << name << " =>";
    uint32_t next = 0;
    for (int32_t length = 1; length <= 16; ++length, next <<= 1) {
      for (const HuffmanStats::Entry& e : stats.entries) {
        EXPECT_TRUE(e.length != length || (e.code == next++ && e.code != (1u << length) - 1));
      }
    }
    for (int32_t s = 0; s < 256; ++s) {
      const HuffmanStats::Entry& e = stats.entries[s];
      EXPECT_EQ(e.length > 0, e.frequency > 0 && s != 255) << name << " " << s;
      EXPECT_LE(e.length, 16) << name << " " << s;
      if (e.length > 0) {
        golden << " " << e.length;
      }
    }
    golden << "\n";
  }
  // Blocks of {zig-zag index, value}, in a row of one grey component.
  using Block = std::vector<std::pair<int, int16_t>>;
  const std::vector<Block> scans[] = {{{}},
                                      {{{63, 1}}},
                                      {{{63, 127}}},
                                      {{{16, 1}}},
                                      {{{17, 1}}},
                                      {{{32, -1}}},
                                      {{{33, 1}}},
                                      {{{1, 1}}},
                                      {{{1, -3}, {2, 2}, {3, -255}, {4, 1023}}},
                                      {{{0, -1}}, {{0, 0}}},
                                      {{{0, 5}}, {{0, -5}}},
                                      {{{0, 2047}}, {{0, 0}}}};
  for (const std::vector<Block>& c : scans) {
    std::vector<int16_t> coefficients(64 * c.size(), 0);
    for (size_t b = 0; b < c.size(); ++b) {
      for (const auto& [k, v] : c[b]) {
        coefficients[64 * b + zigzag[k]] = v;
      }
    }
    MergeState state;
    state.components[1] = new ComponentInfo();
    state.dc_stats[0] = new HuffmanStats();
    state.ac_stats[0] = new HuffmanStats();
    state.width = static_cast<uint32_t>(8 * c.size()), state.height = 8;
    state.sampling_mode = SamplingMode::kGray;
    state.blocks_per_mcu = state.mcus_down = 1;
    state.mcus_across = state.mcu_count = static_cast<int32_t>(c.size());
    EncodeScan(state, coefficients.data());
    ASSERT_NE(state.entropy_data, nullptr);
    golden << testing::PrintToString(c) << " => "
           << test::Hex(state.entropy_data, state.entropy_length) << "\n";
  }
  test::ExpectGolden("merge_huffman.txt", golden.str());
}

TEST(NonzeroMask, MatchesPlainForm) {
  std::mt19937 random(11);
  for (int round = 0; round < 20000; ++round) {
    int16_t values[64];
    for (int16_t& v : values) {
      const uint32_t r = random();
      v = (r % 4 == 0) ? static_cast<int16_t>(static_cast<int32_t>(r >> 8) % 65535 - 32767) : 0;
    }
    ASSERT_EQ(NonzeroMask(values), NonzeroMaskPlain(values)) << round;
    EXPECT_EQ(NonzeroMask(values) & 1, 0u);
  }
}

}  // namespace
}  // namespace corvi
