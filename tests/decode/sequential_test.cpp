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
    BitReader reader{c.data.data(), c.data.data() + c.data.size(), 0x80000000, 1};
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
  // A few short codes and a few long ones within the code space, the symbols in the order of the
  // lengths drawn, which the builder does not check.
  auto table = [&next](bool dc) {
    std::pair<std::vector<uint8_t>, Bytes> t{std::vector<uint8_t>(16, 0), {}};
    uint64_t space = 0;  // used code space in units of 2^-16
    for (uint32_t length : {1 + next(3), 2 + next(4), 9 + next(8), 9 + next(8)}) {
      if (space + (uint64_t{1} << (16 - length)) <= 0xFFFF) {
        space += uint64_t{1} << (16 - length);
        ++t.first[length - 1];
        t.second.push_back(static_cast<uint8_t>(!dc || next(8) == 0 ? next(256) : next(12)));
      }
    }
    return t;
  };
  for (int iteration = 0; iteration < 20000; ++iteration) {
    const auto dc = table(true), ac = table(false);
    Bytes entropy;
    for (uint32_t i = 0, length = next(10); i < length; ++i) {
      const uint32_t kind = next(8);
      entropy.insert(entropy.end(), {kind < 2 ? uint8_t{0xFF} : static_cast<uint8_t>(next(256))});
      if (kind == 0) {
        entropy.push_back(0x00);
      }
    }
    if (next(2) == 0) {
      entropy.insert(entropy.end(),
                     {0xFF, static_cast<uint8_t>(0xD0 + next(8)), static_cast<uint8_t>(next(256))});
    }
    test::JpegBuilder b;
    Bytes wide(129, 0xFF);
    wide[0] = 0x10;
    b.Soi();
    next(4) == 0 ? b.Segment(0xDB, wide) : b.Dqt(0);  // 16-bit quantisers of 0xFFFF, or of 1
    b.Sof(0xC0, 8, 16, 16, {{1, 0x11, 0}});
    b.Dht(0, 0, dc.first, dc.second).Dht(1, 0, ac.first, ac.second);
    if (next(3) == 0) {
      b.Dri(static_cast<uint16_t>(1 + next(2)));
    }
    const Bytes bytes = b.Sos({{1, 0x00}}).Entropy(entropy).Eoi().bytes();
    const test::DecodeOutcome literal = test::DecodeLiterally(bytes);
    const test::DecodeOutcome library = test::DecodeWithLibrary(bytes);
    ASSERT_TRUE(literal == library)
        << "iteration " << iteration << ": literal error '"
        << std::string(literal.error.begin(), literal.error.end()) << "', library error '"
        << std::string(library.error.begin(), library.error.end()) << "'";
  }
}

}  // namespace
}  // namespace corvi
