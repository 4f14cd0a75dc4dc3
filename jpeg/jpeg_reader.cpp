// The mapped file, the JPEG segment scan, the segment list and the file-level dump.
#include "jpeg/jpeg_reader.h"

#include <cstddef>
#include <cstring>
#include <string>

#include "base/byte_coverage.h"
#include "base/limits.h"
#include "base/raw_layer_exception.h"
#include "jpeg/markers.h"
#include "jpeg/segment_fields.h"
#include "platform/error_text.h"
#include "platform/file_map.h"
#include "platform/format.h"

namespace corvi {
namespace {

bool IsEOIPair(const uint8_t* p) {
  return p[0] == 0xFF && p[1] == 0xD9;
}

// The last 0xFF in [p, p + count); null if there is none.
const uint8_t* FindLastFF(const uint8_t* p, size_t count) {
#if defined(__GLIBC__)
  return static_cast<const uint8_t*>(memrchr(p, 0xFF, count));
#else
  for (size_t i = count; i > 0; --i) {
    if (p[i - 1] == 0xFF) {
      return p + i - 1;
    }
  }
  return nullptr;
#endif
}

// The last FF D9 pair starting in [low, high] of the covered data, or `low` - 1 if there is none;
// offsets from its base, with 0 <= low and high + 2 <= data_length.
int64_t ScanBackForEOI(const uint8_t* base, int64_t low, int64_t high) {
  while (high >= low) {
    const uint8_t* ff = FindLastFF(base + low, static_cast<size_t>(high - low + 1));
    if (ff == nullptr) {
      break;
    }
    if (ff[1] == 0xD9) {
      return ff - base;
    }
    high = (ff - base) - 1;
  }
  return low - 1;
}

// ScanBackForEOI, through what the coverage remembers: every stream nested in a file searches
// back from near the file's end, and the stretch that one search found clear is skipped by the
// next. Only the last stretch is kept, joined to the new one when the two meet.
int64_t FindLastEOIPair(ByteCoverage& coverage, int64_t low, int64_t high) {
  const int64_t clear_low = coverage.eoi_clear_low;
  const int64_t clear_high = coverage.eoi_clear_high;
  const bool known = clear_low <= clear_high;
  int64_t found = low - 1;
  int64_t at = high;  // the next index to look at, going down
  while (at >= low) {
    if (known && at >= clear_low && at <= clear_high) {
      at = clear_low - 1;  // no pair starts in the known stretch
      continue;
    }
    // Above the known stretch the scan stops at its top, to jump over it.
    const int64_t stop = known && at > clear_high && clear_high >= low ? clear_high + 1 : low;
    const int64_t hit = ScanBackForEOI(coverage.base, stop, at);
    if (hit >= stop) {
      found = hit;
      break;
    }
    at = stop - 1;
  }
  // No pair starts in [found + 1, high], nor in the known stretch: when the two overlap or touch,
  // their union is remembered, otherwise the new one.
  int64_t new_low = found + 1;
  int64_t new_high = high;
  if (known && clear_high + 1 >= new_low && clear_low <= new_high + 1) {
    new_low = new_low < clear_low ? new_low : clear_low;
    new_high = new_high > clear_high ? new_high : clear_high;
  }
  if (new_low <= new_high) {
    coverage.eoi_clear_low = new_low;
    coverage.eoi_clear_high = new_high;
  }
  return found;
}

}  // namespace

MappedFile::MappedFile(const wchar_t* name) : MappedFile(name, ExistingPath(name)) {}

MappedFile::MappedFile(const wchar_t* name, const std::string& path) {
  file = PlatformOpenPath(path);
  if (file < 0) {
    ThrowPlatformError(name, L"CreateFile", LastPlatformError());
  }
  const uint64_t size = PlatformFileSize64(file);
  if (size == UINT64_MAX) {
    uint32_t code = LastPlatformError();
    PlatformCloseFile(file);
    file = -1;
    ThrowPlatformError(name, L"GetFileSize", code);
  }
  // Offsets into the data are signed 32-bit: a file of 2 GiB or more cannot be addressed, and
  // its length would wrap. It is refused before anything is mapped.
  if (size > 0x7FFFFFFF) {
    PlatformCloseFile(file);
    file = -1;
    wchar_t message[100];
    const std::wstring digits = std::to_wstring(size);  // %lu holds 32 bits only
    FormatBuffer(message, 100, L"File too large (%s bytes)", digits.c_str());
    throw RawLayerException(message);
  }
  length = static_cast<uint32_t>(size);
  mapping = PlatformCreateMapping(file, length);
  if (mapping == nullptr) {
    uint32_t code = LastPlatformError();
    PlatformCloseFile(file);
    file = -1;
    ThrowPlatformError(name, L"CreateFileMapping", code);
  }
  view = PlatformMapView(mapping, length);
  if (view == nullptr) {
    uint32_t code = LastPlatformError();
    PlatformCloseMapping(mapping, length);
    mapping = nullptr;
    PlatformCloseFile(file);
    file = -1;
    ThrowPlatformError(name, L"MapViewOfFile", code);
  }
}

MappedFile::~MappedFile() {
  if (view != nullptr && mapping != nullptr) {  // a view without a mapping is borrowed
    PlatformUnmapView(view);
    view = nullptr;
  }
  if (mapping != nullptr) {
    PlatformCloseMapping(mapping, length);
    mapping = nullptr;
  }
  if (file >= 0) {
    PlatformCloseFile(file);
    file = -1;
  }
}

JPEGReader::JPEGReader(const wchar_t* name) : MappedFile(name) {}

JPEGReader::~JPEGReader() {
  delete markers;
  markers = nullptr;
  delete coverage;
  coverage = nullptr;
}

void JPEGReader::Scan() {
  delete markers;
  markers = nullptr;
  markers = new MarkerList();
  delete coverage;
  coverage = nullptr;
  // File lengths are 32-bit; one of 2 GiB or more wraps here like every other offset.
  coverage = new ByteCoverage(view, static_cast<int32_t>(length));
  coverage->max_thumbnail_depth = limits.max_thumbnail_depth;
  coverage->max_directory_depth = limits.max_directory_depth;
  coverage->claims = claims;
  markers->Scan(*coverage, view, static_cast<int32_t>(length - 2));
}

void JPEGReader::Dump(const wchar_t* name, OutStream& stream) const {
  Print(stream, L"File %s (length=%d):\n", name, static_cast<int32_t>(length));
  markers->Dump(view, 1, stream);
  stream.Flush();
}

MarkerList::MarkerList() : items(new JPEGReader::Marker*[4]()), capacity(4) {}

MarkerList::~MarkerList() {
  for (uint32_t i = 0; i < count; ++i) {
    delete items[i];
  }
  delete[] items;
}

void MarkerList::Reserve(uint32_t needed) {
  if (needed <= capacity) {
    return;
  }
  uint32_t new_capacity = needed * 2;
  auto** grown = new JPEGReader::Marker*[new_capacity]();
  for (uint32_t i = 0; i < count; ++i) {
    grown[i] = items[i];
  }
  delete[] items;
  items = grown;
  capacity = new_capacity;
}

namespace {

// Makes `owner` the owner of the claims for a scope, also when the scope ends by an exception
// that a caller swallows (a failing thumbnail).
class OwnerScope {
 public:
  OwnerScope(ByteCoverage& claims, const void* owner) : coverage(claims), saved(claims.owner) {
    coverage.owner = owner;
  }
  OwnerScope(const OwnerScope&) = delete;
  OwnerScope& operator=(const OwnerScope&) = delete;
  ~OwnerScope() { coverage.owner = saved; }

 private:
  ByteCoverage& coverage;
  const void* saved;
};

// Application and comment segments: what a picture can do without.
bool IsMetadata(uint8_t code) {
  return (code >= 0xE0 && code <= 0xEF) || code == 0xFE;
}

// Parses a metadata segment for a lenient scan: a failure is recorded with the place the scan
// stood (not before the payload), and the segment stays in the list unparsed.
void ParseLeniently(ByteCoverage& coverage, JPEGReader::Marker*& marker) {
  try {
    marker->Parse(coverage);
  } catch (const LimitExceeded&) {
    throw;
  } catch (const RawLayerException& e) {
    const int64_t payload = coverage.OffsetOf(marker->payload);
    const int64_t at =
        coverage.last_attempt.start > payload ? coverage.last_attempt.start : payload;
    coverage.lenient->push_back(ScanFault{e.message != nullptr ? e.message : L"", at});
    auto plain =
        std::make_unique<JPEGReader::Marker>(marker->code, marker->length, marker->payload);
    delete marker;
    marker = plain.release();
  }
}

}  // namespace

void MarkerList::Scan(ByteCoverage& coverage, const uint8_t* data, int32_t search_start) {
  // The stream's offset in the covered data; every position is claimed before it is read, so a
  // byte is read only once it is known to lie inside the data.
  const int64_t origin = coverage.OffsetOf(data);

  // Find the end from the back: the last FF D9 decides.
  const int64_t eoi = FindEOI(coverage, data, search_start);
  if (eoi < 0) {
    throw RawLayerException(L"Missing JPEG EOI");
  }

  int64_t position = 0;
  for (;;) {
    coverage.IdentifyAt(origin + position, 1);
    uint8_t prefix = data[position];
    ++position;
    if (prefix == 0x00) {
      continue;  // zero bytes are allowed between segments, and claimed
    }
    if (prefix != 0xFF) {
      throw RawLayerException(L"Missing marker prefix");
    }
    coverage.IdentifyAt(origin + position, 1);
    uint8_t code = data[position];
    ++position;
    if (code == 0x00) {
      continue;  // FF 00 is skipped like a zero byte
    }
    int64_t start = position - 2;
    if (start == 0) {
      if (code == 0xD8) {
        continue;
      }
      throw RawLayerException(L"Missing JPEG SOI");
    }
    if (start == eoi) {
      return;
    }
    coverage.IdentifyAt(origin + position, 2);
    int32_t length = static_cast<int32_t>(ReadBig16(data + position)) - 2;
    position += 2;
    // `position` was just claimed up to here, so the payload pointer is inside or just behind
    // the data.
    Append(MakeMarker(code, length, data + position));
    {
      // The payload's claims belong to the segment; the stream's own bytes to the stream's owner.
      OwnerScope scope(coverage, items[count - 1]);
      if (coverage.lenient != nullptr && coverage.thumbnail_depth == 0 && IsMetadata(code)) {
        ParseLeniently(coverage, items[count - 1]);
      } else {
        items[count - 1]->Parse(coverage);
      }
    }
    position += length;
    if (code == 0xDA) {
      int64_t compressed = eoi - position;
      if (compressed != 0) {
        // A negative length is refused here, before any pointer is formed from it.
        coverage.IdentifyAt(origin + position, static_cast<int32_t>(compressed));
      }
      compressed_data = data + position;
      compressed_length = static_cast<int32_t>(compressed);
      position = eoi;
    }
  }
}

int64_t FindEOI(ByteCoverage& coverage, const uint8_t* data, int32_t search_start) {
  const int64_t origin = coverage.OffsetOf(data);
  // Indices whose pair of bytes lies outside the mapped data hold no FF D9: the search starts at
  // the last index inside it.
  const int64_t last_pair = int64_t{coverage.data_length} - origin - 2;
  const int64_t top = search_start < last_pair ? search_start : last_pair;
  if (top < 2) {
    // Only `search_start` itself may lie below 2.
    const bool found = top == search_start && top >= 0 && IsEOIPair(data + top);
    return found ? top : -1;
  }
  const int64_t found = FindLastEOIPair(coverage, origin + 2, origin + top);
  return found >= origin + 2 ? found - origin : -1;
}

void MarkerList::Dump(const uint8_t* base, int32_t indent, OutStream& stream) const {
  for (uint32_t i = 0; i < count; ++i) {
    items[i]->Dump(base, indent, stream);
  }
  if (compressed_length != 0) {
    PrintIndent(indent, stream);
    Print(stream, L"Compressed data length %d\n", compressed_length);
  }
}

void PrintIndent(int32_t indent, OutStream& stream) {
  for (int32_t i = 0; i < indent; ++i) {
    stream.PutAscii("  ", 2);
  }
}

void PrintHead(const JPEGReader::Marker& marker, const wchar_t* format, const uint8_t* base,
               int32_t indent, OutStream& stream) {
  PrintIndent(indent, stream);
  Print(stream, format, static_cast<int32_t>(marker.FirstByte(base)),
        static_cast<int32_t>(marker.LastByte(base)));
}

void JPEGReader::Marker::Parse(ByteCoverage& /*coverage*/) {}

void JPEGReader::Marker::Apply(DecodeState& /*state*/, RawLayer& /*layer*/, bool /*header_only*/) {}

void JPEGReader::Marker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintIndent(indent, stream);
  Print(stream, L"Marker %02x (bytes %d - %d)\n", code, static_cast<int32_t>(FirstByte(base)),
        static_cast<int32_t>(LastByte(base)));
  PrintHexLines(payload, length, indent, stream);
}

void PrintHexLines(const uint8_t* bytes, int32_t length, int32_t indent, OutStream& stream) {
  for (int32_t i = 0; i < length; ++i) {
    if (i % 16 == 0) {
      PrintIndent(indent, stream);
    }
    Print(stream, L" %02x", bytes[i]);
    if (i % 16 == 15 || i == length - 1) {
      stream.PutAscii("\n", 1);
    }
  }
}

std::unique_ptr<JPEGReader::Marker> MakeMarker(uint8_t code, int32_t length,
                                               const uint8_t* payload) {
  if (IsFrameMarker(code)) {
    return std::make_unique<SOFMarker>(code, length, payload);
  }
  switch (code) {
    case 0xC4:
      return std::make_unique<DHTMarker>(code, length, payload);
    case 0xDA:
      return std::make_unique<SOSMarker>(code, length, payload);
    case 0xDB:
      return std::make_unique<DQTMarker>(code, length, payload);
    case 0xDD:
      return std::make_unique<DRIMarker>(code, length, payload);
    case 0xE0:
      return std::make_unique<APP0Marker>(code, length, payload);
    case 0xE1:
      return std::make_unique<APP1Marker>(code, length, payload);
    case 0xE2:
      return std::make_unique<APP2Marker>(code, length, payload);
    case 0xEC:
      return std::make_unique<APP12Marker>(code, length, payload);
    case 0xED:
      return std::make_unique<APP13Marker>(code, length, payload);
    case 0xEE:
      return std::make_unique<APP14Marker>(code, length, payload);
    case 0xFE:
      return std::make_unique<COMMarker>(code, length, payload);
    default:
      return std::make_unique<JPEGReader::Marker>(code, length, payload);
  }
}

}  // namespace corvi
