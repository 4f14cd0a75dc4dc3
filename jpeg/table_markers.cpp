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

// Bytes of the data from `payload` on: the readers read only what the claims have proved to be
// there, and never more than this.
int64_t InDataFrom(const ByteCoverage& coverage, const uint8_t* payload) {
  return int64_t{coverage.data_length} - coverage.OffsetOf(payload);
}

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
  ReadFrameFields(code, payload, InDataFrom(coverage, payload), frame);
}

void SOFMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  const int32_t number = code - 0xC0;
  const wchar_t* name = number >= 0 && number < 16 ? kFrameNames[number] : nullptr;
  PrintIndent(indent, stream);
  Print(stream, L"Marker SOF%d \"%s\" (bytes %d - %d)\n", number,
        name != nullptr ? name : L"Unknown", static_cast<int32_t>(FirstByte(base)),
        static_cast<int32_t>(LastByte(base)));
  PrintIndent(indent + 1, stream);
  Print(stream, L"Precision %u, width %u, height %u\n", frame.precision, frame.width, frame.height);
  for (const FrameComponent& c : frame.components) {
    PrintIndent(indent + 1, stream);
    Print(stream, L" Component %u: horiz sampling %u, vert sampling %u, quant table %u\n", c.id,
          c.h, c.v, c.quant_table);
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
  ReadHuffmanFields(payload, length, InDataFrom(coverage, payload), tables);
}

void DHTMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker DHT (bytes %d - %d)\n", base, indent, stream);
  for (const TableEntry& table : tables.tables) {
    PrintIndent(indent + 1, stream);
    // Bit 0x10 of the head byte names the class: the low bit of Tc.
    Print(stream, L"Table %u (%s)\n", static_cast<uint32_t>(table.id),
          (table.table_class & 1) != 0 ? L"AC table" : L"DC table");
  }
}

// T.81 B.2.3 scan header: Ns, then Csj, Tdj|Taj per component, then Ss, Se, Ah|Al. `length` is not
// consulted; the compressed data starts behind the payload as `length` gives it.
void SOSMarker::Parse(ByteCoverage& coverage) {
  const int64_t origin = coverage.OffsetOf(payload);
  coverage.IdentifyAt(origin, 1);
  const uint8_t component_count = payload[0];  // Ns
  coverage.IdentifyAt(origin + 1, 2 * int32_t{component_count} + 3);
  ReadScanFields(payload, InDataFrom(coverage, payload), scan);
}

void SOSMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker SOS (bytes %d - %d)\n", base, indent, stream);
  for (const ScanComponent& c : scan.components) {
    PrintIndent(indent + 1, stream);
    Print(stream, L"Component %u: DC Table %u, AC table %u\n", c.id, c.dc_table, c.ac_table);
  }
  PrintIndent(indent + 1, stream);
  Print(stream, L"Spectral selection %u to %u, bit position high %u/low %u\n", scan.spectral_start,
        scan.spectral_end, scan.approx_high, scan.approx_low);
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
  ReadQuantFields(payload, length, InDataFrom(coverage, payload), tables);
}

void DQTMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker DQT (bytes %d - %d)\n", base, indent, stream);
  for (const TableEntry& table : tables.tables) {
    PrintIndent(indent + 1, stream);
    Print(stream, L"Table %u precision %u\n", static_cast<uint32_t>(table.id),
          static_cast<uint32_t>(table.precision));
  }
}

// T.81 B.2.4.4: Ri, exactly 2 bytes.
void DRIMarker::Parse(ByteCoverage& coverage) {
  if (length != 2) {
    throw RawLayerException(L"DRI header is wrong size");
  }
  coverage.IdentifyAt(coverage.OffsetOf(payload), 2);
  interval = ReadBig16(payload);
}

void DRIMarker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintHead(*this, L"Marker DRI (bytes %d - %d)\n", base, indent, stream);
  PrintIndent(indent + 1, stream);
  Print(stream, L"Restart interval: %u\n", static_cast<uint32_t>(interval));
}

}  // namespace corvi
