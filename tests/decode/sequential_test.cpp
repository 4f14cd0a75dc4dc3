// Baseline scan decoding: the search for restart markers, and damaged streams against the literal
// reference decoder. Whole restarted scans are cases of decode_scan_cases.txt.
#include "decode/sequential.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "decode/huffman.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/literal_decode.h"

namespace corvi {
namespace {

using test::Bytes;

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

// Random tables with codes of 1 to 16 bits and random short streams that end in the middle of
// codes, at markers and at lone 0xFF bytes: the production decoder, with its lookups, gives what
// the literal reference gives. Damaged symbols (DC sizes up to 255, AC runs past the block, free
// entries) with 16-bit quantisers run here under the sanitizers too.
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
      if (space + (uint64_t{1} << (16 - length)) <= 0xFFFF) {
        space += uint64_t{1} << (16 - length);
        ++counts[length - 1];
        symbols.push_back(static_cast<uint8_t>(!dc || next(8) == 0 ? next(256) : next(12)));
      }
    }
    // The symbols are in the order of the lengths drawn, which the builder does not check.
  };
  int differing = 0;
  for (int iteration = 0; iteration < 20000; ++iteration) {
    std::vector<uint8_t> dc_counts, ac_counts;
    Bytes dc_symbols, ac_symbols, entropy;
    table(dc_counts, dc_symbols, true);
    table(ac_counts, ac_symbols, false);
    for (uint32_t i = 0, length = next(10); i < length; ++i) {
      const uint32_t kind = next(8);
      if (kind == 0) {
        entropy.insert(entropy.end(), {0xFF, 0x00});
      } else {
        entropy.push_back(static_cast<uint8_t>(kind == 1 ? 0xFF : next(256)));
      }
    }
    if (next(2) == 0) {
      entropy.insert(entropy.end(),
                     {0xFF, static_cast<uint8_t>(0xD0 + next(8)), static_cast<uint8_t>(next(256))});
    }
    test::JpegBuilder b;
    b.Soi();
    if (next(4) == 0) {
      Bytes wide(129, 0xFF);
      wide[0] = 0x10;
      b.Segment(0xDB, wide);
    } else {
      b.Dqt(0);
    }
    b.Sof(0xC0, 8, 16, 16, {{1, 0x11, 0}});
    b.Dht(0, 0, dc_counts, dc_symbols).Dht(1, 0, ac_counts, ac_symbols);
    if (next(3) == 0) {
      b.Dri(static_cast<uint16_t>(1 + next(2)));
    }
    const Bytes bytes = b.Sos({{1, 0x00}}).Entropy(entropy).Eoi().bytes();
    const test::DecodeOutcome literal = test::DecodeLiterally(bytes);
    const test::DecodeOutcome library = test::DecodeWithLibrary(bytes);
    if (!(literal == library) && ++differing <= 3) {
      ADD_FAILURE() << "iteration " << iteration << ": literal error '"
                    << std::string(literal.error.begin(), literal.error.end())
                    << "', library error '"
                    << std::string(library.error.begin(), library.error.end()) << "'";
    }
  }
  EXPECT_EQ(differing, 0);
}

}  // namespace
}  // namespace corvi
