// The encoder's Huffman codes and the two passes over the coefficients.
#include "merge/huffman_encode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
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
// symbols met are coded, and the pseudo-symbol 255 is not. Returns the longest length.
int32_t ExpectValidCode(const HuffmanStats& stats) {
  int32_t longest = 0;
  uint32_t next = 0;
  for (int32_t length = 1; length <= 16; ++length, next <<= 1) {
    for (int32_t s = 0; s < 256; ++s) {
      const HuffmanStats::Entry& e = stats.entries[s];
      EXPECT_TRUE(e.length != length || (e.code == next++ && e.code != (1u << length) - 1)) << s;
    }
  }
  for (int32_t s = 0; s < 256; ++s) {
    EXPECT_EQ(stats.entries[s].length > 0, stats.entries[s].frequency > 0 && s != 255) << s;
    EXPECT_LE(stats.entries[s].length, 16) << s;
    longest = std::max(longest, stats.entries[s].length);
  }
  return longest;
}

using Frequencies = std::vector<std::pair<int32_t, int64_t>>;  // symbol, count

Frequencies Generate(int32_t count, int64_t (*f)(int32_t)) {
  Frequencies out;
  for (int32_t s = 0; s < count; ++s) {
    out.push_back({s, f(s)});
  }
  return out;
}

int64_t Fibonacci(int32_t s) {
  int64_t a = 1, b = 1;
  for (int32_t i = 0; i < s; ++i) {
    a = std::exchange(b, a + b);
  }
  return a;
}

TEST(BuildHuffmanCode, GivesLimitedCanonicalPrefixCodes) {
  struct Case {
    const char* name;
    Frequencies frequencies;
    int32_t longest;               // -1: not checked
    std::vector<int32_t> lengths;  // of symbols 0, 1, ...
  };
  const Case cases[] = {
      {"fibonacci, a tree 30 deep", Generate(30, Fibonacci), 16, {15, 16, 15, 15, 14, 14, 13, 13,
                                                                  12, 12, 11, 11, 10, 10, 9,  9,
                                                                  8,  8,  7,  7,  6,  6,  5,  5,
                                                                  4,  4,  3,  3,  2,  2}},
      {"flat 256, symbol 255 forced to 1",
       Generate(256, [](int32_t) { return int64_t{1000}; }),
       8,
       {}},
      {"ramp of 256", Generate(256, [](int32_t s) { return int64_t{s} * s * s + 1; }), -1, {}},
      {"single symbol", {{0, 7}}, 1, {1}},
      {"unused table", {}, 0, {}},
      {"two symbols", {{0, 3}, {1, 1}}, 2, {1, 2}},
      {"three symbols, the higher of equals taken first", {{0, 1}, {1, 1}, {2, 2}}, 3, {2, 3, 1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    HuffmanStats stats;
    for (const auto& [symbol, count] : c.frequencies) {
      stats.entries[symbol].frequency = count;
    }
    stats.entries[7].length = 5;  // stale values are cleared
    stats.entries[7].code = 3;
    BuildHuffmanCode(stats);
    const int32_t longest = ExpectValidCode(stats);
    EXPECT_TRUE(c.longest < 0 || longest == c.longest) << longest;
    for (size_t i = 0; i < c.lengths.size(); ++i) {
      EXPECT_EQ(stats.entries[i].length, c.lengths[i]) << i;
    }
  }
}

// Each case's entropy-coded bytes are pinned in tests/golden/merge_huffman.txt: end of block
// only before the last coefficient, ZRL runs, fill bits that make 0xFF (stuffed), categories up
// to 11 for DC differences and 10 for AC values.
TEST(EncodeScan, WritesBytesMatchingGoldenText) {
  // Blocks of {zig-zag index, value}.
  using Block = std::vector<std::pair<int, int16_t>>;
  const std::vector<Block> cases[] = {{{}},
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
  std::string golden;
  for (const std::vector<Block>& c : cases) {
    const int32_t blocks = static_cast<int32_t>(c.size());
    std::vector<int16_t> coefficients(64 * c.size(), 0);
    for (int32_t b = 0; b < blocks; ++b) {
      for (const auto& [k, v] : c[b]) {
        coefficients[64 * b + zigzag[k]] = v;
      }
    }
    // One grey component (id 1, tables 0 and 0) over `blocks` blocks in a row.
    MergeState state;
    state.components[1] = new ComponentInfo();
    state.dc_stats[0] = new HuffmanStats();
    state.ac_stats[0] = new HuffmanStats();
    state.width = static_cast<uint32_t>(8 * blocks);
    state.height = 8;
    state.sampling_mode = SamplingMode::kGray;
    state.blocks_per_mcu = state.mcus_down = 1;
    state.mcus_across = state.mcu_count = blocks;
    EncodeScan(state, coefficients.data());
    ASSERT_NE(state.entropy_data, nullptr);
    golden += testing::PrintToString(c) + " => " +
              test::Hex(state.entropy_data, state.entropy_length) + "\n";
  }
  test::ExpectGolden("merge_huffman.txt", golden);
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
