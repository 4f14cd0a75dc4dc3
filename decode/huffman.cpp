// Huffman decode tables and the bit reader of the entropy decoder.
#include "decode/huffman.h"

#include <cstring>
#include <memory>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

constexpr int32_t kPageEntries = 256;

[[noreturn]] void ThrowInvalidTable() {
  throw RawLayerException(L"Invalid Huffman code table");
}

// Appends one page of free entries (bytes 0xFF); the block may move. Returns the page number.
int32_t AddPage(HuffmanTable& table) {
  if (table.page_count == table.page_capacity) {
    int32_t capacity = table.page_capacity == 0 ? 1 : table.page_capacity * 2;
    auto block = std::make_unique<uint16_t[]>(static_cast<size_t>(capacity) * kPageEntries);
    if (table.page_count > 0) {
      std::memcpy(block.get(), table.pages,
                  static_cast<size_t>(table.page_count) * kPageEntries * sizeof(uint16_t));
    }
    delete[] table.pages;
    table.pages = block.release();
    table.page_capacity = capacity;
  }
  int32_t page = table.page_count;
  std::memset(table.pages + static_cast<size_t>(page) * kPageEntries, 0xFF,
              kPageEntries * sizeof(uint16_t));
  table.page_count = page + 1;
  return page;
}

}  // namespace

HuffmanTable::~HuffmanTable() {
  delete[] pages;
}

// T.81 Annex C: codes of each length are consecutive, and the next length starts at twice the
// code behind the last one. The all-ones code is accepted; the code space need not be full.
void BuildHuffmanTable(HuffmanTable& table, const uint8_t* payload, int32_t& position) {
  delete[] table.pages;
  table.pages = nullptr;
  table.page_count = 0;
  table.page_capacity = 0;
  AddPage(table);

  const uint8_t* counts = payload + position;
  position += 16;
  uint32_t code = 0;
  for (uint32_t length = 1; length <= 16; ++length) {
    for (uint32_t i = counts[length - 1]; i > 0; --i) {
      if (code >= (uint32_t{1} << length)) {
        ThrowInvalidTable();
      }
      uint8_t symbol = payload[position];
      ++position;
      AddHuffmanCode(table, 0, code, length, symbol);
      ++code;
    }
    code <<= 1;
  }
}

void AddHuffmanCode(HuffmanTable& table, int32_t page, uint32_t code, uint32_t length,
                    uint8_t symbol) {
  if (length == 0 || length > 16) {
    ThrowInvalidTable();
  }
  if (length <= 8) {
    // The code takes the 1 << (8 - length) entries whose top `length` bits equal it.
    uint32_t shift = 8 - length;
    if (code >= (uint32_t{1} << length)) {
      ThrowInvalidTable();
    }
    uint16_t* entries = table.pages + static_cast<size_t>(page) * kPageEntries;
    uint16_t value = static_cast<uint16_t>((length << 8) | symbol);
    for (uint32_t i = code << shift, last = (code + 1) << shift; i < last; ++i) {
      if ((entries[i] & 0xFF00) != 0xFF00) {
        ThrowInvalidTable();
      }
      entries[i] = value;
    }
    return;
  }
  uint32_t rest = length - 8;
  uint32_t top = code >> rest;
  uint32_t low = code & ((uint32_t{1} << rest) - 1);
  if (top > 0xFF) {
    ThrowInvalidTable();
  }
  uint32_t entry = table.pages[static_cast<size_t>(page) * kPageEntries + top];
  int32_t next;
  if ((entry & 0xFF00) == 0xFE00) {
    next = static_cast<int32_t>(entry & 0xFF);
  } else if ((entry & 0xFF00) == 0xFF00) {
    next = AddPage(table);  // the block may have moved: the entry is found again by number
    // A link holds 8 bits of page number; past page 255 the stored value wraps like the entry.
    table.pages[static_cast<size_t>(page) * kPageEntries + top] =
        static_cast<uint16_t>(static_cast<uint32_t>(next) | 0xFE00);
  } else {
    ThrowInvalidTable();  // the prefix is a complete code
  }
  AddHuffmanCode(table, next, low, rest, symbol);
}

uint32_t DecodeSymbolSlow(BitReader& reader, const HuffmanTable& table) {
  uint32_t bits = reader.bits;
  uint32_t bit_count = reader.bit_count;
  const uint16_t* page = table.pages;
  for (;;) {
    if (bit_count != 0) {
      uint32_t entry = page[bits >> 24];
      uint32_t kind = entry & 0xFF00;
      if (kind == 0xFE00) {
        if (bit_count >= 8) {
          page = table.pages + static_cast<size_t>(entry & 0xFF) * kPageEntries;
          bits <<= 8;
          bit_count -= 8;
          continue;
        }
      } else if (kind == 0xFF00) {
        throw RawLayerException(L"Corrupt image data");
      } else {
        uint32_t n = entry >> 8;
        if (bit_count >= n) {
          reader.bits = bits << n;
          reader.bit_count = bit_count - n;
          return entry & 0xFF;
        }
      }
    }
    // Short of bits: refill from the reader's cursor. At the end of the data or at a marker the
    // symbol reads as 0 and the reader's bits stay as they were at the call.
    const uint8_t* cursor = reader.cursor;
    RefillBits(cursor, reader.end, bits, bit_count);
    if (bit_count < 8) {
      return 0;
    }
    reader.cursor = cursor;
  }
}

uint32_t ReceiveBitsSlow(BitReader& reader, uint32_t n) {
  if (n == 0) {
    return 0;
  }
  uint32_t bits = reader.bits;
  uint32_t bit_count = reader.bit_count;
  if (bit_count < n) {
    // A damaged DC symbol can ask for up to 255 bits; more than are held reads 0, consuming none.
    const uint8_t* cursor = reader.cursor;
    RefillBits(cursor, reader.end, bits, bit_count);
    if (bit_count < n) {
      return 0;
    }
    reader.cursor = cursor;
  }
  // Here 1 <= n <= bit_count <= 32; a count of 32 takes the whole accumulator.
  uint32_t result = n == 32 ? bits : bits >> (32 - n);
  reader.bits = n == 32 ? 0 : bits << n;
  reader.bit_count = bit_count - n;
  return result;
}

}  // namespace corvi
