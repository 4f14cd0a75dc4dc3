// The mapped file, the JPEG segment scan, the segment list and the file-level dump.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/byte_order.h"
#include "base/limits.h"

namespace corvi {

class ByteCoverage;
class OutStream;
struct ClaimRecord;
struct DecodeState;
struct RawLayer;
struct PropertyList;
struct MergeState;
struct ByteBuffer;
struct Background;
struct MarkerList;

// A file mapped read-only. The constructor opens and maps, or throws "File %s: failed on %s: %s";
// or bytes the caller holds, borrowed as they are: nothing is opened, mapped or copied.
class MappedFile {
 public:
  explicit MappedFile(const wchar_t* name);
  // Opens `path` (as the system takes it); messages name the file `name`.
  MappedFile(const wchar_t* name, const std::string& path);
  MappedFile(const uint8_t* bytes, uint32_t size) : length(size), view(bytes) {}
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile();  // the view, then the mapping, then the file; borrowed bytes stay

  int file = -1;  // platform file handle; -1 when not open
  uint32_t length = 0;
  void* mapping = nullptr;  // platform mapping; null when not created or borrowed
  const uint8_t* view = nullptr;
};

class JPEGReader : public MappedFile {
 public:
  // Base class of every segment. Holds no copy of its bytes: `payload` points into the mapped
  // data, which outlives every marker.
  class Marker {
   public:
    Marker(uint8_t marker_code, int32_t marker_length, const uint8_t* marker_payload)
        : code(marker_code), length(marker_length), payload(marker_payload) {}
    Marker(const Marker&) = delete;
    Marker& operator=(const Marker&) = delete;
    virtual ~Marker() = default;

    // Claims the payload bytes that the class understands; the base class claims none.
    virtual void Parse(ByteCoverage& coverage);
    // Fills the decoder's state and the layer's properties; the base class does nothing.
    virtual void Apply(DecodeState& state, RawLayer& layer, bool header_only);
    // Appends the segment to the rewriter's output; the base class re-emits it unchanged.
    virtual void Write(MergeState& state, const RawLayer& layer, const PropertyList& overrides,
                       const Background& background, ByteBuffer& out);
    // Prints the head line "Marker %02x (bytes %d - %d)" and the payload in hex.
    virtual void Dump(const uint8_t* base, int32_t indent, OutStream& stream);

    // Offsets of the segment's first byte (its 0xFF) and of its last payload byte from `base`.
    int64_t FirstByte(const uint8_t* base) const { return (payload - base) - 4; }
    int64_t LastByte(const uint8_t* base) const { return (payload - base) + length - 1; }

    uint8_t code;
    int32_t length;  // stored length minus 2; negative for stored lengths 0 and 1
    const uint8_t* payload;
  };

  explicit JPEGReader(const wchar_t* name);
  JPEGReader(const wchar_t* name, const std::string& path) : MappedFile(name, path) {}
  // Reads bytes the caller holds, which must outlive the reader and every marker.
  JPEGReader(const uint8_t* bytes, uint32_t size) : MappedFile(bytes, size) {}
  ~JPEGReader();  // markers, then coverage, then the mapped file

  // Cuts the file into segments; throws on a file that is not a JPEG or is corrupt.
  void Scan();
  // Prints the file-level dump and flushes the stream.
  void Dump(const wchar_t* name, OutStream& stream) const;

  MarkerList* markers = nullptr;     // owned
  ByteCoverage* coverage = nullptr;  // owned
  // What a scan may cost; the nesting depths go to the coverage. The tool sets no limits.
  Limits limits;
  // When set before Scan, every claim is recorded here with its owner (see ByteCoverage).
  std::vector<ClaimRecord>* claims = nullptr;
};

// Owning growable array of segments in file order, with the compressed data behind the first SOS.
struct MarkerList {
  JPEGReader::Marker** items = nullptr;  // owned, and so is each entry
  uint32_t count = 0;
  uint32_t capacity = 0;
  const uint8_t* compressed_data = nullptr;  // into the mapped view; null if no SOS was met
  int32_t compressed_length = 0;

  MarkerList();
  MarkerList(const MarkerList&) = delete;
  MarkerList& operator=(const MarkerList&) = delete;
  ~MarkerList();  // markers in order, then the array

  void Reserve(uint32_t needed);
  void Append(std::unique_ptr<JPEGReader::Marker> marker) {
    Reserve(count + 1);                 // may throw; nothing changed yet
    items[count++] = marker.release();  // cannot throw
  }

  // Walks the stream at `data` whose length is `search_start` + 2, claiming in `coverage`.
  void Scan(ByteCoverage& coverage, const uint8_t* data, int32_t search_start);
  // Dumps each marker at `indent` and the compressed data line; no head line, no flush.
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) const;
};

// Where the stream at `data` ends, for MarkerList::Scan: the offset from `data` of the last FF D9
// pair that starts in [2, search_start] with both bytes inside the covered data; a `search_start`
// of 0 or 1 is looked at alone. -1 when there is none. What the search learns of the data is kept
// in `coverage` for the other streams of the same file.
int64_t FindEOI(ByteCoverage& coverage, const uint8_t* data, int32_t search_start);

// Prints two blanks `indent` times; nothing for 0 or less.
void PrintIndent(int32_t indent, OutStream& stream);
// Prints `length` bytes as " %02x", 16 to a line, each line behind the indent; nothing for a
// length below 1.
void PrintHexLines(const uint8_t* bytes, int32_t length, int32_t indent, OutStream& stream);
// Prints the head line of a named segment: `format` takes the offsets of the segment's 0xFF and
// of its last payload byte, from `base`, after the indent.
void PrintHead(const JPEGReader::Marker& marker, const wchar_t* format, const uint8_t* base,
               int32_t indent, OutStream& stream);

// Makes the segment object for a marker code.
std::unique_ptr<JPEGReader::Marker> MakeMarker(uint8_t code, int32_t length,
                                               const uint8_t* payload);

}  // namespace corvi
