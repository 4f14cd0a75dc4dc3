// Parse and Dump of the table and frame segments: DQT, DHT, SOF, SOS and DRI.
//
// Parse claims the fields it knows and checks nothing else: table indices and sampling factors
// are judged by Apply at decode time. A table or component list that runs past the segment claims
// the bytes behind it, and the scan then fails when it reaches them. Every field is claimed before
// it is read, so nothing behind the mapped data is ever looked at. Claims are computed as int64
// offsets from the coverage's base, so no pointer outside the data is formed.
#include "base/byte_coverage.h"
#include "base/raw_layer_exception.h"
#include "jpeg/markers.h"
#include "platform/format.h"

namespace corvi {
namespace {

// Names of the frame kinds by code - 0xC0; 4 (DHT), 8 (JPG) and 12 (DAC) are no frame headers.
const wchar_t* const kFrameNames[16] = {
    L"Baseline DCT Huffman",
    L"Extended sequential DCT Huffman",
    L"Progressive DCT Huffman",
    L"Lossless (sequential) Huffman",
    nullptr,
    L"Differential sequential DCT Huffman",
    L"Differential progressive DCT Huffman",
    L"Differential lossless (sequential) Huffman",
    nullptr,
    L"Extended sequential DCT arithmetic",
    L"Progressive DCT arithmetic",
    L"Lossless (sequential) arithmetic",
    nullptr,
    L"Differential sequential DCT arithmetic",
    L"Differential progressive DCT arithmetic",
    L"Differential lossless (sequential) arithmetic",
};

}  // namespace

// T.81 B.2.2 frame header: P, Y, X, Nf, then Ci, Hi|Vi, Tqi per component. `length` is not
// consulted; bytes behind the last component stay unclaimed.
void SOFMarker::Parse(ByteCoverage& coverage) {
  const int64_t origin = coverage.OffsetOf(payload);
  coverage.IdentifyAt(origin, 6);
  const uint8_t component_count = payload[5];  // Nf
  if (component_count != 0) {
    coverage.IdentifyAt(origin + 6, 3 * int32_t{component_count});
  }
}

void SOFMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  const int32_t number = code - 0xC0;
  const wchar_t* name = number >= 0 && number < 16 ? kFrameNames[number] : nullptr;
  PrintIndent(indent, stream);
  Print(stream, L"Marker SOF%d \"%s\" (bytes %d - %d)\n", number,
        name != nullptr ? name : L"Unknown", static_cast<int32_t>(FirstByte(base)),
        static_cast<int32_t>(LastByte(base)));
  // After a successful scan every claimed field lies inside the payload; reading only inside
  // `length` keeps a hand-built marker from reading beyond its bytes.
  if (length < 6) {
    return;
  }
  PrintIndent(indent + 1, stream);
  Print(stream, L"Precision %u, width %u, height %u\n", payload[0], ReadBig16(payload + 3),
        ReadBig16(payload + 1));
  const uint32_t component_count = payload[5];
  for (uint32_t i = 0; i < component_count && 6 + 3 * (i + 1) <= static_cast<uint32_t>(length);
       ++i) {
    const uint8_t* c = payload + 6 + 3 * i;
    PrintIndent(indent + 1, stream);
    Print(stream, L" Component %u: horiz sampling %u, vert sampling %u, quant table %u\n", c[0],
          static_cast<uint32_t>(c[1] >> 4), static_cast<uint32_t>(c[1] & 0x0F), c[2]);
  }
}

// T.81 B.2.4.2: Tc|Th, the 16 counts Li, then the symbols. The last table is claimed in full even
// when it runs past `length`.
void DHTMarker::Parse(ByteCoverage& coverage) {
  if (length < 1) {
    return;
  }
  const int64_t origin = coverage.OffsetOf(payload);
  int64_t index = 0;
  while (index < length) {
    coverage.IdentifyAt(origin + index, 17);  // the head byte and the counts, claimed before read
    const int64_t counts = index + 1;
    index += 17;
    for (int32_t i = 0; i < 16; ++i) {
      const uint8_t count = payload[counts + i];
      if (count != 0) {
        coverage.IdentifyAt(origin + index, count);
        index += count;
      }
    }
  }
}

void DHTMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker DHT (bytes %d - %d)\n", base, indent, stream);
  int64_t index = 0;
  while (index < length) {
    const uint8_t head = payload[index];  // Tc|Th
    PrintIndent(indent + 1, stream);
    Print(stream, L"Table %u (%s)\n", static_cast<uint32_t>(head & 0x0F),
          (head & 0x10) != 0 ? L"AC table" : L"DC table");
    // A table whose counts do not all lie inside the payload takes the walk past its end
    // whatever they say, since it advances by at least 17.
    if (index + 17 > length) {
      break;
    }
    int64_t advance = 17;
    for (int64_t i = 1; i <= 16; ++i) {
      advance += payload[index + i];
    }
    index += advance;
  }
}

// T.81 B.2.3 scan header: Ns, then Csj, Tdj|Taj per component, then Ss, Se, Ah|Al. `length` is not
// consulted; the compressed data starts behind the payload as `length` gives it.
void SOSMarker::Parse(ByteCoverage& coverage) {
  const int64_t origin = coverage.OffsetOf(payload);
  coverage.IdentifyAt(origin, 1);
  const uint8_t component_count = payload[0];  // Ns
  coverage.IdentifyAt(origin + 1, 2 * int32_t{component_count} + 3);
}

void SOSMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker SOS (bytes %d - %d)\n", base, indent, stream);
  if (length < 1) {
    return;
  }
  const uint32_t component_count = payload[0];
  const uint32_t tail = 1 + 2 * component_count;  // offset of Ss
  if (tail + 3 > static_cast<uint32_t>(length)) {
    return;  // fields past the payload: only a hand-built marker gets here
  }
  for (uint32_t i = 0; i < component_count; ++i) {
    const uint8_t* c = payload + 1 + 2 * i;
    PrintIndent(indent + 1, stream);
    Print(stream, L"Component %u: DC Table %u, AC table %u\n", c[0],
          static_cast<uint32_t>(c[1] >> 4), static_cast<uint32_t>(c[1] & 0x0F));
  }
  const uint8_t* s = payload + tail;
  PrintIndent(indent + 1, stream);
  Print(stream, L"Spectral selection %u to %u, bit position high %u/low %u\n", s[0], s[1],
        static_cast<uint32_t>(s[2] >> 4), static_cast<uint32_t>(s[2] & 0x0F));
}

// T.81 B.2.4.1: Pq|Tq, then 64 entries of 1 byte (Pq 0) or 2 bytes (Pq 1). Only bit 0x10 decides
// the precision. The last table is claimed in full even when it runs past `length`.
void DQTMarker::Parse(ByteCoverage& coverage) {
  if (length < 1) {
    return;
  }
  const int64_t origin = coverage.OffsetOf(payload);
  int64_t index = 0;
  while (index < length) {
    coverage.IdentifyAt(origin + index, 1);
    const uint8_t head = payload[index];
    ++index;
    const int32_t table_bytes = (head & 0x10) != 0 ? 128 : 64;
    coverage.IdentifyAt(origin + index, table_bytes);
    index += table_bytes;
  }
}

void DQTMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker DQT (bytes %d - %d)\n", base, indent, stream);
  int64_t index = 0;
  while (index < length) {
    const uint8_t head = payload[index];
    const bool sixteen_bit = (head & 0x10) != 0;
    PrintIndent(indent + 1, stream);
    Print(stream, L"Table %u precision %u\n", static_cast<uint32_t>(head & 0x0F),
          sixteen_bit ? 16u : 8u);
    index += sixteen_bit ? 129 : 65;
  }
}

// T.81 B.2.4.4: Ri, exactly 2 bytes.
void DRIMarker::Parse(ByteCoverage& coverage) {
  if (length != 2) {
    throw RawLayerException(L"DRI header is wrong size");
  }
  coverage.IdentifyAt(coverage.OffsetOf(payload), 2);
}

void DRIMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker DRI (bytes %d - %d)\n", base, indent, stream);
  if (length < 2) {
    return;
  }
  PrintIndent(indent + 1, stream);
  Print(stream, L"Restart interval: %u\n", ReadBig16(payload));
}

}  // namespace corvi
