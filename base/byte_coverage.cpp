// The record of which bytes of a mapped file have been claimed by a parser.
#include "base/byte_coverage.h"

#include <cstdint>
#include <cstring>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

// Binary search for the unclaimed range that overlaps [offset, end); null if none does.
ByteRange* FindOverlap(const RangeList& list, int64_t offset, int64_t end, uint32_t* index) {
  uint32_t low = 0;
  uint32_t high = list.count;
  while (low < high) {
    uint32_t middle = (low + high) / 2;
    ByteRange* r = &list.items[middle];
    if (r->start >= end) {
      high = middle;
    } else if (r->end > offset) {
      *index = middle;
      return r;
    } else {
      low = middle + 1;
    }
  }
  return nullptr;
}

}  // namespace

RangeList::RangeList() : items(new ByteRange[4]), capacity(4) {}

RangeList::~RangeList() { delete[] items; }

void RangeList::Reserve(uint32_t needed) {
  if (needed <= capacity) {
    return;
  }
  uint32_t new_capacity = needed * 2;
  auto* grown = new ByteRange[new_capacity];
  if (count > 0) {
    std::memcpy(grown, items, count * sizeof(ByteRange));
  }
  delete[] items;
  items = grown;
  capacity = new_capacity;
}

ByteCoverage::ByteCoverage(const uint8_t* data, int32_t length)
    : base(data), data_length(length < 0 ? 0 : length) {
  unidentified.items[0] = {0, length};
  unidentified.count = 1;
  limits.items[0] = {0, length};
  limits.count = 1;
}

void ByteCoverage::IdentifyAt(int64_t offset, int32_t length) {
  if (length < 0) {
    throw RawLayerException(L"Invalid header length or corrupt data");
  }
  int64_t end = offset + length;
  const ByteRange& limit = limits.items[limits.count - 1];
  if (offset < limit.start || end > limit.end) {
    throw RawLayerException(L"Invalid offset or corrupt data");
  }
  uint32_t index = 0;
  ByteRange* r = FindOverlap(unidentified, offset, end, &index);
  if (r == nullptr || r->start > offset || r->end < end) {
    throw RawLayerException(L"Invalid offset or corrupt data");
  }
  // Inside the limit, so both fit 32 bits.
  auto start32 = static_cast<int32_t>(offset);
  auto end32 = static_cast<int32_t>(end);
  if (r->start == start32) {
    r->start = end32;
  } else if (r->end == end32) {
    r->end = start32;
  } else {
    unidentified.Reserve(unidentified.count + 1);
    ByteRange* items = unidentified.items;
    int32_t old_end = items[index].end;
    std::memmove(&items[index + 2], &items[index + 1],
                 (unidentified.count - index - 1) * sizeof(ByteRange));
    items[index].end = start32;
    items[index + 1] = {end32, old_end};
    ++unidentified.count;
  }
}

bool ByteCoverage::IsUnidentifiedAt(int64_t offset, int32_t length) const {
  if (length < 0) {
    return false;
  }
  int64_t end = offset + length;
  const ByteRange& limit = limits.items[limits.count - 1];
  if (offset < limit.start || end > limit.end) {
    return false;
  }
  uint32_t index = 0;
  const ByteRange* r = FindOverlap(unidentified, offset, end, &index);
  return r != nullptr && r->start <= offset && r->end >= end;
}

void ByteCoverage::PushRangeAt(int64_t offset, int32_t length) {
  if (length < 0) {
    throw RawLayerException(L"Invalid header length");
  }
  int64_t end = offset + length;
  const ByteRange limit = limits.items[limits.count - 1];
  int64_t start = offset > limit.start ? offset : limit.start;
  int64_t stop = end < limit.end ? end : limit.end;
  // A clipped limit may come out empty or reversed. A reversed one refuses every claim, also
  // one of length 0, and so does any limit pushed inside it; `start` lies at or above the
  // parent's start, so keeping it below INT32_MAX and `stop` one below it keeps both in 32 bits.
  if (start > stop) {
    start = start < INT32_MAX ? start : INT32_MAX;
    stop = start - 1;
  }
  limits.Reserve(limits.count + 1);
  limits.items[limits.count++] = {static_cast<int32_t>(start), static_cast<int32_t>(stop)};
}

void ByteCoverage::PopRange() { --limits.count; }

uint32_t ByteCoverage::LeftCount() const {
  uint32_t left = 0;
  for (uint32_t i = 0; i < unidentified.count; ++i) {
    left += static_cast<uint32_t>(unidentified.items[i].end - unidentified.items[i].start);
  }
  return left;
}

}  // namespace corvi
