// The encoder's Huffman codes and the two passes over the coefficients. The frequencies and
// blocks, with the code lengths and entropy-coded bytes made of them, are kept in
// tests/golden/merge_huffman.txt.
#include "merge/huffman_encode.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "decode/decode_state.h"
#include "merge/merge.h"
#include "tests/support/merge_support.h"

namespace corvi {
namespace {

// "code FREQUENCY...": every coded symbol has at most 16 bits and the codes are canonical: in
// (length, symbol) order each is the one before plus 1, shifted to its length, from 0; none is all
// ones. Exactly the symbols met are coded, and the pseudo-symbol 255 is not.
std::string Code(std::istringstream& frequencies) {
  HuffmanStats stats;
  for (int64_t s = 0, f = 0; frequencies >> f; ++s) {
    stats.entries[s].frequency = f;
  }
  stats.entries[7].length = 5, stats.entries[7].code = 3;  // stale values are cleared
  BuildHuffmanCode(stats);
  uint32_t next = 0;
  for (int32_t length = 1; length <= 16; ++length, next <<= 1) {
    for (const HuffmanStats::Entry& e : stats.entries) {
      EXPECT_TRUE(e.length != length || (e.code == next++ && e.code != (1u << length) - 1));
    }
  }
  std::string lengths;
  for (int32_t s = 0; s < 256; ++s) {
    const HuffmanStats::Entry& e = stats.entries[s];
    EXPECT_EQ(e.length > 0, e.frequency > 0 && s != 255) << s;
    EXPECT_LE(e.length, 16) << s;
    lengths += e.length > 0 ? std::to_string(e.length) + " " : "";
  }
  return lengths.substr(0, lengths.find_last_not_of(' ') + 1);
}

// "scan { { (K, V)... }... }": blocks of {zig-zag index, value} in a row of one grey component.
// End of block comes only before the last coefficient; ZRL runs, fill bits that make 0xFF
// (stuffed), categories up to 11 for DC differences and 10 for AC values.
std::string Scan(const std::string& blocks) {
  std::vector<int16_t> coefficients;
  for (size_t at = blocks.find('{', 1); at != std::string::npos; at = blocks.find('{', at + 1)) {
    coefficients.resize(coefficients.size() + 64);
    for (size_t p = blocks.find('(', at); p < blocks.find('}', at); p = blocks.find('(', p + 1)) {
      int k = 0, v = 0;
      std::sscanf(blocks.c_str() + p, "(%d, %d)", &k, &v);
      coefficients[coefficients.size() - 64 + zigzag[k]] = static_cast<int16_t>(v);
    }
  }
  MergeState state;
  state.components[1] = new ComponentInfo();
  state.dc_stats[0] = new HuffmanStats();
  state.ac_stats[0] = new HuffmanStats();
  state.width = static_cast<uint32_t>(coefficients.size() / 8), state.height = 8;
  state.sampling_mode = SamplingMode::kGray;
  state.blocks_per_mcu = state.mcus_down = 1;
  state.mcus_across = state.mcu_count = static_cast<int32_t>(coefficients.size() / 64);
  EncodeScan(state, coefficients.data());
  return state.entropy_data == nullptr ? "no data"
                                       : test::Hex(state.entropy_data, state.entropy_length);
}

TEST(HuffmanEncode, CodesAndScanBytesMatchGoldenText) {
  test::ExpectGoldenCases("merge_huffman.txt", [](const std::string& line) {
    SCOPED_TRACE(line);
    std::istringstream words(line.substr(4));
    return line.rfind("code", 0) == 0 ? Code(words) : Scan(line.substr(5));
  });
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
