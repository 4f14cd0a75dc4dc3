// Huffman decode tables and the bit reader of the entropy decoder.
#include "decode/huffman.h"

namespace corvi {
HuffmanTable::~HuffmanTable() { delete[] pages; }
}  // namespace corvi
