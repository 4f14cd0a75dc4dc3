// The record of which bytes of a mapped file have been claimed by a parser.
#include "base/byte_coverage.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

// The unclaimed range that holds all of [offset, end), or the map's end if none does. A range
// holds a zero-length claim only strictly inside it. `offset` lies inside the current limit, so
// it fits 32 bits. `Ranges` is the map, const or not.
template <typename Ranges>
auto FindHolder(Ranges& ranges, int64_t offset, int64_t end) {
  auto r = ranges.upper_bound(static_cast<int32_t>(offset));  // first end above offset
  if (r == ranges.end() || r->second > offset || r->second >= end || r->first < end) {
    return ranges.end();
  }
  return r;
}

}  // namespace

RangeList::RangeList() : items(new ByteRange[4]), capacity(4) {}

RangeList::~RangeList() {
  delete[] items;
}

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
  if (length > 0) {
    unidentified.emplace(length, 0);
  }
  // LeftCount gives a negative length as its unsigned 32-bit value; the reversed limit refuses
  // every claim.
  left = static_cast<uint32_t>(length);
  limits.items[0] = {0, length};
  limits.count = 1;
}

void ByteCoverage::IdentifyAt(int64_t offset, int32_t length) {
  {
    const int64_t clamped = offset < 0 ? 0 : (offset > data_length ? data_length : offset);
    const int64_t end =
        length <= 0 ? clamped : clamped + std::min<int64_t>(length, data_length - clamped);
    last_attempt = ByteRange{static_cast<int32_t>(clamped), static_cast<int32_t>(end)};
  }
  if (length < 0) {
    throw RawLayerException(L"Invalid header length or corrupt data");
  }
  int64_t end = offset + length;
  const ByteRange& limit = limits.items[limits.count - 1];
  if (offset < limit.start || end > limit.end) {
    throw RawLayerException(L"Invalid offset or corrupt data");
  }
  auto r = FindHolder(unidentified, offset, end);
  if (r == unidentified.end()) {
    throw RawLayerException(L"Invalid offset or corrupt data");
  }
  // Inside the limit, so both fit 32 bits.
  auto start32 = static_cast<int32_t>(offset);
  auto end32 = static_cast<int32_t>(end);
  const int32_t range_start = r->second;
  const int32_t range_end = r->first;
  if (range_start == start32 && range_end == end32) {
    unidentified.erase(r);
  } else if (range_start == start32) {
    r->second = end32;
  } else if (range_end == end32) {
    // The key changes: the node moves to its new key without a new allocation. It stays between
    // the same neighbours, so the next range is an exact hint.
    auto next = std::next(r);
    auto node = unidentified.extract(r);
    node.key() = start32;
    unidentified.insert(next, std::move(node));
  } else {
    // The head becomes a new range in front; may throw, and nothing has changed yet.
    unidentified.emplace_hint(r, start32, range_start);
    r->second = end32;
  }
  left -= static_cast<uint32_t>(length);
  if (claims != nullptr && length > 0) {
    claims->push_back(ClaimRecord{start32, end32, owner});
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
  return FindHolder(unidentified, offset, end) != unidentified.end();
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

void ByteCoverage::PopRange() {
  --limits.count;
}

uint32_t ByteCoverage::LeftCount() const {
  return left;
}

}  // namespace corvi
