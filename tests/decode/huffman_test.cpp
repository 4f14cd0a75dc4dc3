// The paged Huffman tables and the bit reader: code assignment, refusals, markers, the end of the
// data and bit counts beyond the accumulator.
#include "decode/huffman.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

using Bytes = std::vector<uint8_t>;

// A DHT definition without its head byte: counts at lengths `length`..`length + n - 1`, and the
// symbols given, else symbols that end in 0xA0, 0xA1.
Bytes Definition(std::vector<uint8_t> counts, Bytes symbols = {}, size_t length = 1) {
  counts.insert(counts.begin(), length - 1, 0);
  counts.resize(16, 0);
  size_t total = 0;
  for (uint8_t c : counts) {
    total += c;
  }
  for (size_t i = symbols.size(); i < total; ++i) {
    symbols.push_back(static_cast<uint8_t>(0xA2 - total + i));
  }
  counts.insert(counts.end(), symbols.begin(), symbols.end());
  return counts;
}

std::wstring Build(HuffmanTable& table, const Bytes& definition) {
  int32_t position = 0;
  try {
    BuildHuffmanTable(table, definition.data(), position);
  } catch (const RawLayerException& e) {
    return e.message;
  }
  EXPECT_EQ(position, static_cast<int32_t>(definition.size()));
  return L"";
}

// Reads from `data` with `held` bits of 101... already taken. A step of 0 bits decodes a symbol,
// else it receives that many bits.
struct Step {
  uint32_t bits, value;
};
struct ReadCase {
  const char* name;
  Bytes definition, data;
  uint32_t held;
  std::vector<Step> steps;
  size_t cursor;
  uint32_t held_after;
};

TEST(HuffmanTable, DecodesCodesAndBitsUpToMarkersAndTheEnd) {
  const Bytes nines = Definition({255, 2}, {}, 8);  // the last, 511, is all ones
  const Bytes none = Definition({});
  const Bytes wide = {0x81, 2, 3, 4, 5};
  // clang-format off
  const ReadCase cases[] = {
      {"empty table at the end", none, {}, 0, {{0, 0}}, 0, 0},
      {"two 1-bit codes", Definition({2}), {0x80}, 0, {{0, 0xA1}, {0, 0xA0}}, 1, 6},
      {"8 bits, then the 9-bit all-ones code", nines, {0xFD, 0xFF, 0, 0xFF, 0, 0xFF, 0}, 0,
       {{0, 0x9E}, {0, 0xA1}, {0, 0xA1}}, 7, 6},
      {"9-bit code 510", nines, {0xFF, 0x00, 0x00}, 0, {{0, 0xA0}}, 3, 7},
      {"two 16-bit codes", Definition({2}, {0x11, 0x22}, 16), {0, 1, 0, 0}, 0,
       {{0, 0x22}, {0, 0x11}}, 4, 0},
      // Past the last bit before a marker, symbols and bits read 0 and consume nothing.
      {"stops before a marker", Definition({2}), {0xA0, 0xFF, 0xD0, 0xFF}, 0,
       {{0, 0xA1}, {0, 0xA0}, {0, 0xA1}, {5, 0}, {0, 0}, {1, 0}}, 1, 0},
      {"end of data", none, {0xAB}, 0, {{4, 0xA}, {5, 0}, {4, 0xB}, {1, 0}}, 1, 0},
      {"lone 0xFF at the end", none, {0xAB, 0xFF}, 0, {{4, 0xA}, {5, 0}, {4, 0xB}}, 1, 0},
      {"stuffed zero gives one 0xFF", none, {0xFF, 0, 0x12}, 0, {{8, 0xFF}, {8, 0x12}, {1, 0}}, 3, 0},
      {"3 bits held take code 101", Definition({6}, {}, 3), {0xFF, 0xD0}, 3, {{0, 0xA1}}, 0, 0},
      {"3 bits held miss code 1010", Definition({11}, {}, 4), {0xFF, 0xD0}, 3,
       {{0, 0}, {16, 0}, {3, 5}}, 0, 0},
      // Behind a link the byte taken is dropped; the bits held stay as they were at the call.
      {"failed refill behind a link", Definition({1}, {0x55}, 16), {0, 0xFF, 0xD3}, 0, {{0, 0}}, 1, 0},
      {"all 32 bits", none, wide, 0, {{32, 0x81020304}}, 4, 0},
      {"33 bits cannot be had", none, wide, 0, {{33, 0}}, 0, 0},
      {"a DC symbol of 255", none, wide, 0, {{255, 0}}, 0, 0},
      {"31 bits", none, wide, 0, {{31, 0x81020304u >> 1}}, 4, 1},
  };
  // clang-format on
  for (const ReadCase& c : cases) {
    SCOPED_TRACE(c.name);
    HuffmanTable table;
    ASSERT_EQ(Build(table, c.definition), L"");
    BitReader reader{c.data.data(), c.data.data() + c.data.size(), c.held != 0 ? 0xA0000000 : 0,
                     c.held};
    for (const Step& s : c.steps) {
      EXPECT_EQ(s.bits == 0 ? DecodeSymbol(reader, table) : ReceiveBits(reader, s.bits), s.value);
    }
    EXPECT_EQ(reader.cursor - c.data.data(), static_cast<ptrdiff_t>(c.cursor));
    EXPECT_EQ(reader.bit_count, c.held_after);
  }
}

TEST(HuffmanTable, RefusesOverFullTablesFreeEntriesAndUsedEntries) {
  for (const Bytes& definition : {Definition({2, 1}), Definition({255, 3}, {}, 8)}) {
    HuffmanTable table;
    EXPECT_EQ(Build(table, definition), L"Invalid Huffman code table");
  }
  HuffmanTable table;
  ASSERT_EQ(Build(table, Definition({})), L"");
  const Bytes zero = {0};
  BitReader reader{.cursor = zero.data(), .end = zero.data() + 1};
  EXPECT_THROW(DecodeSymbol(reader, table), RawLayerException);
  AddHuffmanCode(table, 0, 0, 1, 9);  // entries 0 to 127
  // The same code, a longer code inside it, a code whose prefix is a complete code.
  for (const Step& c : {Step{1, 0}, Step{2, 1}, Step{9, 0}}) {
    EXPECT_THROW(AddHuffmanCode(table, 0, c.value, c.bits, 1), RawLayerException) << c.bits;
  }
}

TEST(HuffmanTable, CountsThePagesOfLongCodes) {
  for (const auto& [definition, pages] :
       {std::pair{Definition({2}), 1}, {Definition({2}, {}, 16), 2}, {Definition({3}, {}, 9), 3}}) {
    HuffmanTable table;
    ASSERT_EQ(Build(table, definition), L"");
    EXPECT_EQ(table.page_count, pages);
  }
}

TEST(Extend, MapsMagnitudeCodesToSignedValues) {
  const struct {
    uint32_t value, size;
    int32_t expected;
  } cases[] = {{0, 0, 0},      {0, 1, -1},       {1, 1, 1},
               {0, 11, -2047}, {2047, 11, 2047}, {0x7FFF, 16, -32768},
               {0, 200, 1},    {5, 32, 6},       {0x80000000u, 32, INT32_MIN}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.value << "/" << c.size);
    EXPECT_EQ(Extend(c.value, c.size), c.expected);
  }
}

}  // namespace
}  // namespace corvi
