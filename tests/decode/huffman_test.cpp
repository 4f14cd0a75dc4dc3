// Tests of the paged Huffman tables and the bit reader: code assignment, refusals, markers, the
// end of the data and bit counts beyond the accumulator.
#include "decode/huffman.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

using Bytes = std::vector<uint8_t>;

// A DHT definition without its head byte: 16 counts (given from length 1, the rest 0), symbols.
Bytes Definition(std::vector<uint8_t> counts, const Bytes& symbols) {
  counts.resize(16, 0);
  Bytes bytes(counts.begin(), counts.end());
  bytes.insert(bytes.end(), symbols.begin(), symbols.end());
  return bytes;
}

std::wstring BuildError(HuffmanTable& table, const Bytes& definition) {
  int32_t position = 0;
  try {
    BuildHuffmanTable(table, definition.data(), position);
  } catch (const RawLayerException& e) {
    return e.message;
  }
  EXPECT_EQ(position, static_cast<int32_t>(definition.size()));
  return L"";
}

Bytes Symbols(size_t count, uint8_t first = 0) {
  Bytes symbols(count);
  for (size_t i = 0; i < count; ++i) {
    symbols[i] = static_cast<uint8_t>(first + i);
  }
  return symbols;
}

BitReader ReaderOver(const Bytes& data) {
  BitReader reader;
  reader.cursor = data.data();
  reader.end = data.data() + data.size();
  return reader;
}

std::wstring DecodeError(BitReader& reader, const HuffmanTable& table) {
  try {
    DecodeSymbol(reader, table);
  } catch (const RawLayerException& e) {
    return e.message;
  }
  return L"";
}

// 255 codes of 8 bits and 2 of 9 bits, the last the all-ones code 511.
std::vector<uint8_t> Counts8And9(uint8_t nine_bit_codes) {
  std::vector<uint8_t> counts(16, 0);
  counts[7] = 255;
  counts[8] = nine_bit_codes;
  return counts;
}

struct BuildCase {
  const char* name;
  Bytes definition;
  const wchar_t* error;
  int32_t page_count;
};

TEST(HuffmanTable, BuildsOrRefusesByCodeSpace) {
  std::vector<uint8_t> sixteen(16, 0);
  sixteen[15] = 2;
  std::vector<uint8_t> nine_three(16, 0);
  nine_three[8] = 3;
  const BuildCase cases[] = {
      {"empty table", Definition({}, {}), L"", 1},
      {"one 1-bit code", Definition({1}, {7}), L"", 1},
      {"two 1-bit codes fill the space", Definition({2}, {7, 8}), L"", 1},
      {"1-bit, 1-bit, 2-bit is over-full", Definition({2, 1}, {1, 2, 3}),
       L"Invalid Huffman code table", 1},
      {"three 1-bit codes", Definition({3}, {1, 2, 3}), L"Invalid Huffman code table", 1},
      {"255 of 8 bits and 2 of 9 bits, all-ones included", Definition(Counts8And9(2), Symbols(257)),
       L"", 2},
      {"a third 9-bit code is code 512", Definition(Counts8And9(3), Symbols(258)),
       L"Invalid Huffman code table", 2},
      {"two 16-bit codes share one page", Definition(sixteen, {5, 6}), L"", 2},
      {"9-bit codes 0, 1, 2 need two pages", Definition(nine_three, {5, 6, 7}), L"", 3},
  };
  for (const BuildCase& c : cases) {
    SCOPED_TRACE(c.name);
    HuffmanTable table;
    EXPECT_EQ(BuildError(table, c.definition), c.error);
    EXPECT_EQ(table.page_count, c.page_count);
  }
}

// Codes longer than 8 bits go through a link entry to a second page.
TEST(HuffmanTable, DecodesCodesBehindALink) {
  Bytes symbols_8_9 = Symbols(255);
  symbols_8_9.push_back(0xA0);  // code 510
  symbols_8_9.push_back(0xA1);  // code 511, all ones
  std::vector<uint8_t> sixteen(16, 0);
  sixteen[15] = 2;
  const struct {
    const char* name;
    Bytes definition, data;
    std::vector<uint32_t> symbols;
  } cases[] = {
      {"8 bits, then the 9-bit all-ones code",
       Definition(Counts8And9(2), symbols_8_9),
       {0xFD, 0xFF, 0x00, 0xFF, 0x00, 0xFF, 0x00},
       {0xFD, 0xA1, 0xA1}},
      {"9-bit code 510", Definition(Counts8And9(2), symbols_8_9), {0xFF, 0x00, 0x00}, {0xA0}},
      {"two 16-bit codes",
       Definition(sixteen, {0x11, 0x22}),
       {0x00, 0x01, 0x00, 0x00},
       {0x22, 0x11}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    HuffmanTable table;
    ASSERT_EQ(BuildError(table, c.definition), L"");
    BitReader reader = ReaderOver(c.data);
    for (uint32_t symbol : c.symbols) {
      EXPECT_EQ(DecodeSymbol(reader, table), symbol);
    }
  }
}

TEST(HuffmanTable, RefusesCodesOnUsedEntries) {
  HuffmanTable table;
  ASSERT_EQ(BuildError(table, Definition({}, {})), L"");
  AddHuffmanCode(table, 0, 0, 1, 9);  // entries 0 to 127
  const struct {
    const char* name;
    uint32_t code, length;
  } cases[] = {
      {"same code", 0, 1}, {"longer code inside it", 1, 2}, {"prefix is a complete code", 0, 9}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      AddHuffmanCode(table, 0, c.code, c.length, 1);
      ADD_FAILURE() << "accepted";
    } catch (const RawLayerException& e) {
      EXPECT_STREQ(e.message, L"Invalid Huffman code table");
    }
  }
}

TEST(HuffmanTable, EmptyTableThrowsOnAnyBitAndReadsZeroAtTheEnd) {
  HuffmanTable table;
  ASSERT_EQ(BuildError(table, Definition({}, {})), L"");
  Bytes data{0x00};
  BitReader reader = ReaderOver(data);
  EXPECT_EQ(DecodeError(reader, table), L"Corrupt image data");
  Bytes none;
  BitReader at_end = ReaderOver(none);
  EXPECT_EQ(DecodeSymbol(at_end, table), 0u);
}

TEST(BitReader, StopsBeforeAMarkerAndReadsZeros) {
  HuffmanTable table;  // 1-bit codes: 0 -> 0x30, 1 -> 0x31
  ASSERT_EQ(BuildError(table, Definition({2}, {0x30, 0x31})), L"");
  Bytes data{0xA0, 0xFF, 0xD0, 0xFF};
  BitReader reader = ReaderOver(data);
  const uint32_t expected[] = {0x31, 0x30, 0x31, 0x30, 0x30, 0x30, 0x30, 0x30, 0, 0};
  for (uint32_t symbol : expected) {
    EXPECT_EQ(DecodeSymbol(reader, table), symbol);
  }
  EXPECT_EQ(reader.cursor, data.data() + 1);  // the marker is never consumed
  EXPECT_EQ(reader.bit_count, 0u);
}

// Reads of (count, value); a read that the data cannot satisfy gives 0 and consumes nothing.
TEST(BitReader, ReadsStuffedBytesAndZerosAtTheEnd) {
  using Reads = std::vector<std::pair<uint32_t, uint32_t>>;
  const struct {
    const char* name;
    Bytes data;
    Reads reads;
    size_t consumed;
  } cases[] = {
      {"end of data", {0xAB}, {{4, 0xA}, {5, 0}, {4, 0xB}, {1, 0}}, 1},
      {"lone 0xFF at the end", {0xAB, 0xFF}, {{4, 0xA}, {5, 0}, {4, 0xB}, {1, 0}}, 1},
      {"stuffed zero gives one 0xFF", {0xFF, 0x00, 0x12}, {{8, 0xFF}, {8, 0x12}, {1, 0}}, 3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    BitReader reader = ReaderOver(c.data);
    for (const auto& [count, value] : c.reads) {
      EXPECT_EQ(ReceiveBits(reader, count), value) << count;
    }
    EXPECT_EQ(reader.cursor, c.data.data() + c.consumed);
  }
}

// Three bits 101 held, a marker next.
BitReader ThreeBitsBeforeMarker(const Bytes& marker) {
  BitReader reader = ReaderOver(marker);
  reader.bits = 0xA0000000;
  reader.bit_count = 3;
  return reader;
}

TEST(BitReader, ThreeBitsLeftBeforeAMarker) {
  const Bytes marker{0xFF, 0xD0};
  HuffmanTable three;
  ASSERT_EQ(BuildError(three, Definition({}, {})), L"");
  AddHuffmanCode(three, 0, 0x5, 3, 0x77);  // 101
  BitReader reader = ThreeBitsBeforeMarker(marker);
  EXPECT_EQ(DecodeSymbol(reader, three), 0x77u);
  EXPECT_EQ(reader.bit_count, 0u);

  HuffmanTable four;
  ASSERT_EQ(BuildError(four, Definition({}, {})), L"");
  AddHuffmanCode(four, 0, 0xA, 4, 0x66);  // 1010
  reader = ThreeBitsBeforeMarker(marker);
  EXPECT_EQ(DecodeSymbol(reader, four), 0u);
  EXPECT_EQ(reader.bit_count, 3u);
  EXPECT_EQ(reader.bits, 0xA0000000u);

  reader = ThreeBitsBeforeMarker(marker);
  EXPECT_EQ(ReceiveBits(reader, 16), 0u);  // nothing consumed
  EXPECT_EQ(reader.bit_count, 3u);
  EXPECT_EQ(ReceiveBits(reader, 3), 5u);
}

TEST(BitReader, FailedRefillBehindALinkKeepsTheBitsButNotTheCursor) {
  std::vector<uint8_t> counts(16, 0);
  counts[15] = 1;  // code 0x0000
  HuffmanTable table;
  ASSERT_EQ(BuildError(table, Definition(counts, {0x55})), L"");
  Bytes data{0x00, 0xFF, 0xD3};
  BitReader reader = ReaderOver(data);
  EXPECT_EQ(DecodeSymbol(reader, table), 0u);
  EXPECT_EQ(reader.bit_count, 0u);
  EXPECT_EQ(reader.cursor, data.data() + 1);
}

struct WideCountCase {
  const char* name;
  uint32_t n;
  uint32_t expected;
  uint32_t bit_count_after;
};

TEST(BitReader, CountsOf32AndMoreNeverShiftByTheWidth) {
  const Bytes data{0x81, 0x02, 0x03, 0x04, 0x05};
  const WideCountCase cases[] = {
      {"all 32 bits", 32, 0x81020304, 0},
      {"33 bits cannot be had", 33, 0, 0},
      {"a DC symbol of 255", 255, 0, 0},
      {"31 bits", 31, 0x81020304u >> 1, 1},
  };
  for (const WideCountCase& c : cases) {
    SCOPED_TRACE(c.name);
    BitReader reader = ReaderOver(data);
    EXPECT_EQ(ReceiveBits(reader, c.n), c.expected);
    EXPECT_EQ(reader.bit_count, c.bit_count_after);  // a refused count consumes nothing
    EXPECT_EQ(reader.cursor, data.data() + (c.n > 32 ? 0 : 4));
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
