// The record of which bytes of a mapped file have been claimed by a parser.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace corvi {

// Offsets from the start of the covered data, start inclusive, end exclusive.
struct ByteRange {
  int32_t start;
  int32_t end;
};

// One claim as a map of the file shows it: offsets from the start of the covered data, start
// inclusive, end exclusive, and the structure that made it.
struct ClaimRecord {
  int32_t start;
  int32_t end;
  const void* owner;
};

// A failure that a lenient scan passed over: the exception's text and where the scan stood,
// from the start of the covered data.
struct ScanFault {
  std::wstring message;
  int64_t offset = 0;
};

// A growable array of ranges, used as the stack of limits: capacity 4 at first; n entries above
// the capacity make it 2 × n.
struct RangeList {
  ByteRange* items = nullptr;  // owned
  uint32_t count = 0;
  uint32_t capacity = 0;

  RangeList();
  RangeList(const RangeList&) = delete;
  RangeList& operator=(const RangeList&) = delete;
  ~RangeList();
  void Reserve(uint32_t needed);
};

// Each byte can be claimed once. Claims go through `Identify`, which refuses a claim outside the
// current limit or onto claimed bytes; `IsUnidentified` asks the same question without throwing.
// Claims, questions and LeftCount take O(log n) for n unclaimed ranges.
// The `...At` forms take offsets from `base` computed as integers, so that no pointer outside the
// data is ever formed; the pointer forms are for pointers known to lie inside or just behind it.
class ByteCoverage {
 public:
  ByteCoverage(const uint8_t* data, int32_t length);
  ByteCoverage(const ByteCoverage&) = delete;
  ByteCoverage& operator=(const ByteCoverage&) = delete;
  ~ByteCoverage() = default;  // limits, then unidentified: the reverse of declaration

  void Identify(const uint8_t* p, int32_t length) { IdentifyAt(OffsetOf(p), length); }
  bool IsUnidentified(const uint8_t* p, int32_t length) const {
    return IsUnidentifiedAt(OffsetOf(p), length);
  }
  void PushRange(const uint8_t* p, int32_t length) { PushRangeAt(OffsetOf(p), length); }

  void IdentifyAt(int64_t offset, int32_t length);
  bool IsUnidentifiedAt(int64_t offset, int32_t length) const;
  void PushRangeAt(int64_t offset, int32_t length);
  void PopRange();
  uint32_t LeftCount() const;

  // Whether offsets [offset, offset + length) lie inside the whole covered data, whatever is
  // claimed: lets a parser read a signature before claiming it.
  bool InData(int64_t offset, int64_t length) const {
    return offset >= 0 && length >= 0 && offset <= data_length && length <= data_length - offset;
  }
  int64_t OffsetOf(const uint8_t* p) const { return p - base; }

  // The unclaimed ranges, end (exclusive) → start, in order, disjoint and none empty: the range
  // holding an offset is the first whose end lies above it. A zero-length claim inside a range
  // cuts it in two ranges that touch, and no later claim may straddle that cut.
  std::map<int32_t, int32_t> unidentified;
  uint32_t left = 0;  // bytes in `unidentified`
  RangeList limits;   // a stack; the last entry is the current limit
  const uint8_t* base;
  int32_t data_length;

  // What the segment scans learnt of the data while looking for their end (jpeg/jpeg_reader.cpp),
  // kept here because every stream nested in one file shares its coverage: in offsets from
  // `base`, no FF D9 pair starts in [eoi_clear_low, eoi_clear_high]; empty while low > high.
  // Valid as long as the covered bytes do not change.
  int64_t eoi_clear_low = 0;
  int64_t eoi_clear_high = -1;

  // When set, every claim is appended with the owner in effect (the segment scans set the
  // segment whose payload is being parsed).
  std::vector<ClaimRecord>* claims = nullptr;
  const void* owner = nullptr;
  // Every attempt to claim, granted or refused, clipped to the data: where a failing scan
  // stopped.
  ByteRange last_attempt{0, 0};

  // When set, the scan is lenient about metadata: a failure in an application or comment
  // segment of the outermost stream is recorded here and the segment is kept unparsed, and Exif
  // thumbnails are scanned on coverages of their own, so that nothing but the picture's own
  // segments can stop the scan. The counts of a lenient scan are not the tool's.
  std::vector<ScanFault>* lenient = nullptr;

  // How deep the parsers of this file may nest (0: no limit), and how deep thumbnails nest now.
  uint32_t max_thumbnail_depth = 0;
  uint32_t max_directory_depth = 0;
  uint32_t thumbnail_depth = 0;
};

}  // namespace corvi
