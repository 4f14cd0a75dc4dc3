// The encoder's Huffman codes and the two passes over the coefficients.
#include "merge/huffman_encode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "decode/decode_state.h"
#include "merge/merge.h"

namespace corvi {
namespace {

// Every coded symbol: at most 16 bits, not all ones, prefix-free, canonical in (length, symbol)
// order; exactly the symbols met are coded, and the pseudo-symbol 255 is not.
int32_t ExpectValidCode(const HuffmanStats& stats) {
  double kraft = 0;
  int32_t longest = 0;
  std::vector<int32_t> coded;  // ascending symbols
  for (int32_t s = 0; s < 256; ++s) {
    const HuffmanStats::Entry& e = stats.entries[s];
    SCOPED_TRACE(s);
    EXPECT_EQ(e.length > 0, e.frequency > 0 && s != 255);
    if (e.length == 0) {
      continue;
    }
    if (e.length > 16) {
      ADD_FAILURE() << "length " << e.length;
      return e.length;
    }
    EXPECT_LT(e.code, 1u << e.length);
    EXPECT_NE(e.code, (1u << e.length) - 1) << "all-ones code";
    kraft += std::ldexp(1.0, -e.length);
    longest = std::max(longest, e.length);
    coded.push_back(s);
  }
  EXPECT_LT(kraft, coded.empty() ? 1e-9 : 1.0);
  for (size_t i = 0; i < coded.size(); ++i) {
    for (size_t j = i + 1; j < coded.size(); ++j) {
      const HuffmanStats::Entry& a = stats.entries[coded[i]];
      const HuffmanStats::Entry& b = stats.entries[coded[j]];
      const uint32_t left_a = a.code << (16 - a.length), left_b = b.code << (16 - b.length);
      // Canonical: a shorter code, or an equal one of a lower symbol, comes first.
      EXPECT_EQ(left_a < left_b, a.length <= b.length) << coded[i] << " vs " << coded[j];
      const int32_t shorter = std::min(a.length, b.length);
      EXPECT_NE(a.code >> (a.length - shorter), b.code >> (b.length - shorter)) << "prefix";
    }
  }
  return longest;
}

struct Code {
  int32_t symbol, length;
  uint32_t code;
};
struct CodeCase {
  const char* name;
  std::vector<std::pair<int32_t, int64_t>> frequencies;  // symbol, count
  int32_t longest;
  std::vector<Code> exact;
  std::vector<int32_t> lengths = {};  // of symbols 0, 1, ... when given
};

std::vector<std::pair<int32_t, int64_t>> Frequencies(int32_t count, int64_t (*f)(int32_t)) {
  std::vector<std::pair<int32_t, int64_t>> out;
  for (int32_t s = 0; s < count; ++s) {
    out.push_back({s, f(s)});
  }
  return out;
}

TEST(BuildHuffmanCode, GivesLimitedCanonicalPrefixCodes) {
  const CodeCase cases[] = {
      {"fibonacci, a tree 30 deep",
       Frequencies(30,
                   [](int32_t s) {
                     int64_t a = 1, b = 1;
                     for (int32_t i = 0; i < s; ++i) {
                       a = std::exchange(b, a + b);
                     }
                     return a;
                   }),
       16,
       {},
       {15, 16, 15, 15, 14, 14, 13, 13, 12, 12, 11, 11, 10, 10, 9,
        9,  8,  8,  7,  7,  6,  6,  5,  5,  4,  4,  3,  3,  2,  2}},
      {"flat 256, symbol 255 forced to 1",
       Frequencies(256, [](int32_t) { return int64_t{1000}; }),
       8,
       {}},
      {"ramp of 256", Frequencies(256, [](int32_t s) { return int64_t{s} * s * s + 1; }), -1, {}},
      {"single symbol", {{0x00, 7}}, 1, {{0x00, 1, 0}}},
      {"unused table", {}, 0, {}},
      {"three symbols, the higher of equals taken first",
       {{0, 1}, {1, 1}, {2, 2}},
       3,
       {{0, 2, 0b10}, {1, 3, 0b110}, {2, 1, 0b0}}},
      {"two symbols", {{0x00, 3}, {0x01, 1}}, 2, {{0x00, 1, 0b0}, {0x01, 2, 0b10}}},
  };
  for (const CodeCase& c : cases) {
    SCOPED_TRACE(c.name);
    HuffmanStats stats;
    for (const auto& [symbol, count] : c.frequencies) {
      stats.entries[symbol].frequency = count;
    }
    stats.entries[7].length = 5;  // stale values are cleared
    stats.entries[7].code = 3;
    BuildHuffmanCode(stats);
    const int32_t longest = ExpectValidCode(stats);
    if (c.longest >= 0) {
      EXPECT_EQ(longest, c.longest);
    }
    for (size_t i = 0; i < c.lengths.size(); ++i) {
      EXPECT_EQ(stats.entries[i].length, c.lengths[i]) << i;
    }
    for (const Code& e : c.exact) {
      EXPECT_EQ(stats.entries[e.symbol].length, e.length) << e.symbol;
      EXPECT_EQ(stats.entries[e.symbol].code, e.code) << e.symbol;
    }
  }
}

// One grey component (id 1, tables 0 and 0) over `blocks` blocks in a row.
void SetUpGrayScan(MergeState& state, int32_t blocks) {
  state.components[1] = new ComponentInfo();
  state.dc_stats[0] = new HuffmanStats();
  state.ac_stats[0] = new HuffmanStats();
  state.width = static_cast<uint32_t>(8 * blocks);
  state.height = 8;
  state.sampling_mode = 5;
  state.blocks_per_mcu = 1;
  state.mcus_across = state.mcu_count = blocks;
  state.mcus_down = 1;
}

// Reads the scan back with the built codes: "d<category>/<value bits>" for each DC difference,
// then each AC symbol in hex with "/<value bits>" after it when its size is not 0.
std::string ReadTokens(const MergeState& state, int32_t blocks) {
  std::vector<int> bits;
  for (uint32_t i = 0; i < state.entropy_length; ++i) {
    const uint8_t b = state.entropy_data[i];
    for (int k = 7; k >= 0; --k) {
      bits.push_back((b >> k) & 1);
    }
    if (b == 0xFF) {
      EXPECT_TRUE(i + 1 < state.entropy_length && state.entropy_data[i + 1] == 0) << "stuffing";
      ++i;
    }
  }
  size_t pos = 0;
  auto decode = [&](const HuffmanStats& table) {
    uint32_t code = 0;
    for (int32_t length = 1; length <= 16 && pos < bits.size(); ++length) {
      code = (code << 1) | static_cast<uint32_t>(bits[pos++]);
      for (int32_t s = 0; s < 256; ++s) {
        if (table.entries[s].length == length && table.entries[s].code == code) {
          return s;
        }
      }
    }
    return -1;
  };
  auto value = [&](int32_t n) {
    std::string v = "/";
    for (int32_t i = 0; i < n && pos < bits.size(); ++i) {
      v += static_cast<char>('0' + bits[pos++]);
    }
    return n == 0 ? std::string() : v;
  };
  std::string out;
  for (int32_t b = 0; b < blocks; ++b) {
    const int32_t category = decode(*state.dc_stats[0]);
    out.append("d").append(std::to_string(category)).append(value(category)).append(" ");
    for (int32_t k = 1; k < 64;) {
      const int32_t symbol = decode(*state.ac_stats[0]);
      if (symbol < 0) {
        return out.append("?");
      }
      char hex[12];
      std::snprintf(hex, sizeof hex, "%02X", symbol);
      out.append(hex).append(value(symbol & 15)).append(" ");
      if (symbol == 0) {
        break;
      }
      k += (symbol >> 4) + 1;
    }
  }
  EXPECT_LT(bits.size() - pos, 8u);
  for (; pos < bits.size(); ++pos) {
    EXPECT_EQ(bits[pos], 1) << "fill bit";
  }
  return out.substr(0, out.size() - 1);
}

struct ScanCase {
  const char* name;
  std::vector<std::vector<std::pair<int, int16_t>>> blocks;  // {zig-zag index, value} each
  const char* tokens;
  std::vector<uint8_t> bytes;  // checked when not empty
};

TEST(EncodeScan, WritesT81Symbols) {
  const ScanCase cases[] = {
      {"all zero", {{}}, "d0 00", {0x3F}},
      {"last coefficient: no end of block", {{{63, 1}}}, "d0 F0 F0 F0 E1/1", {0x0B}},
      {"a last byte of 0xFF with fill bits",
       {{{63, 127}}},
       "d0 F0 F0 F0 E7/1111111",
       {0x0B, 0xFF, 0x00}},
      {"run of 15", {{{16, 1}}}, "d0 F1/1 00", {}},
      {"run of 16", {{{17, 1}}}, "d0 F0 01/1 00", {}},
      {"run of 31", {{{32, -1}}}, "d0 F0 F1/0 00", {}},
      {"run of 32", {{{33, 1}}}, "d0 F0 F0 01/1 00", {}},
      {"no 0xF0 before the end of block", {{{1, 1}}}, "d0 01/1 00", {}},
      {"value bits of negative and positive values",
       {{{1, -3}, {2, 2}, {3, -255}, {4, 1023}}},
       "d0 02/00 02/10 08/00000000 0A/1111111111 00",
       {}},
      {"DC differences -1 then 1", {{{0, -1}}, {{0, 0}}}, "d1/0 00 d1/1 00", {}},
      {"DC differences 5 then -10", {{{0, 5}}, {{0, -5}}}, "d3/101 00 d4/0101 00", {}},
      {"DC of 11 bits", {{{0, 2047}}, {{0, 0}}}, "d11/11111111111 00 d11/00000000000 00", {}},
  };
  for (const ScanCase& c : cases) {
    SCOPED_TRACE(c.name);
    const int32_t blocks = static_cast<int32_t>(c.blocks.size());
    std::vector<int16_t> coefficients(64 * c.blocks.size(), 0);
    for (int32_t b = 0; b < blocks; ++b) {
      for (const auto& [k, v] : c.blocks[b]) {
        coefficients[64 * b + zigzag[k]] = v;
      }
    }
    MergeState state;
    SetUpGrayScan(state, blocks);
    EncodeScan(state, coefficients.data());
    ASSERT_NE(state.entropy_data, nullptr);
    EXPECT_EQ(ReadTokens(state, blocks), c.tokens);
    if (!c.bytes.empty()) {
      EXPECT_EQ(std::vector<uint8_t>(state.entropy_data, state.entropy_data + state.entropy_length),
                c.bytes);
    }
  }
}

}  // namespace
}  // namespace corvi
