// Claims on the byte coverage against a model of single bytes, its limits, and the exceptions.
#include "base/byte_coverage.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

constexpr const wchar_t* kBadOffset = L"Invalid offset or corrupt data";

// The text of the exception that `f` throws, empty when it returns.
template <typename F>
std::wstring Thrown(F f) {
  try {
    f();
  } catch (const RawLayerException& e) {
    return e.message != nullptr ? e.message : L"(null)";
  }
  return L"";
}

// Random claims against a model of single bytes: n bytes need each of them free and no
// zero-length cut between them; a zero-length claim needs free bytes on both sides of it and no
// cut there already.
TEST(ByteCoverage, AgreesWithAByteModel) {
  constexpr int32_t kSize = 300;
  std::vector<bool> claimed(kSize, false), cut(kSize + 1, false);
  uint32_t left = kSize, seed = 12345;
  ByteCoverage coverage(nullptr, kSize);
  auto next = [&seed](uint32_t bound) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 8) % bound;
  };
  for (int step = 0; step < 20000; ++step) {
    const int64_t offset = static_cast<int64_t>(next(kSize + 4)) - 2;
    const auto length = static_cast<int32_t>(next(7)) - 1;
    SCOPED_TRACE(testing::Message() << "step " << step << ": " << offset << "+" << length);
    bool free = length >= 0 && offset >= 0 && offset + length <= kSize;
    if (free && length == 0) {
      free =
          offset > 0 && offset < kSize && !claimed[offset - 1] && !claimed[offset] && !cut[offset];
    }
    for (int64_t i = offset; free && i < offset + length; ++i) {
      free = !claimed[i] && (i == offset || !cut[i]);
    }
    ASSERT_EQ(coverage.IsUnidentifiedAt(offset, length), free);
    ASSERT_EQ(Thrown([&] { coverage.IdentifyAt(offset, length); }).empty(), free);
    if (free) {
      cut[offset] = cut[offset] || length == 0;
      std::fill(claimed.begin() + offset, claimed.begin() + offset + length, true);
      left -= static_cast<uint32_t>(length);
    }
    ASSERT_EQ(coverage.LeftCount(), left);
  }
  int32_t previous_end = 0;  // the ranges stay in order, none empty
  for (const auto& [end, start] : coverage.unidentified) {
    EXPECT_LT(start, end);
    EXPECT_LE(previous_end, start);
    previous_end = end;
  }
}

TEST(ByteCoverage, RefusesNumbersOutsideTheData) {
  ByteCoverage coverage(nullptr, 10);
  const std::pair<int64_t, int32_t> claims[] = {{-1, 2},
                                                {8, 3},
                                                {INT32_MAX, 1},
                                                {INT32_MAX - 1, INT32_MAX},
                                                {INT32_MIN, INT32_MAX},
                                                {(int64_t{1} << 32) + 2, 1}};
  for (const auto& [offset, length] : claims) {
    EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(offset, length); }), kBadOffset) << offset;
    EXPECT_FALSE(coverage.InData(offset, length)) << offset;
  }
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(0, -1); }), L"Invalid header length or corrupt data");
  EXPECT_FALSE(coverage.InData(1, INT64_MAX));
  EXPECT_TRUE(coverage.InData(10, 0));
  EXPECT_EQ(coverage.LeftCount(), 10u);
  ByteCoverage empty(nullptr, 0);
  EXPECT_EQ(Thrown([&] { empty.IdentifyAt(0, 0); }), kBadOffset);
}

// Each claim cuts a range near the front in two: quadratic work would take seconds here.
TEST(ByteCoverage, ManySplitsStayCheap) {
  constexpr int32_t kClaims = 200000;
  ByteCoverage coverage(nullptr, 2 * kClaims + 1);
  for (int32_t i = kClaims - 1; i >= 0; --i) {
    coverage.IdentifyAt(2 * int64_t{i} + 1, 1);
  }
  EXPECT_EQ(coverage.unidentified.size(), static_cast<size_t>(kClaims + 1));
  for (int32_t i = 0; i <= kClaims; ++i) {
    coverage.IdentifyAt(2 * int64_t{i}, 1);
  }
  EXPECT_EQ(coverage.LeftCount(), 0u);
}

TEST(ByteCoverage, LimitsClipAndRefuse) {
  ByteCoverage coverage(nullptr, 100);
  coverage.PushRangeAt(10, 10);
  coverage.PushRangeAt(5, 45);  // clipped to the enclosing 10 to 20
  EXPECT_FALSE(coverage.IsUnidentifiedAt(19, 2));
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(8, 4); }), kBadOffset);
  EXPECT_EQ(Thrown([&] { coverage.PushRangeAt(0, -1); }), L"Invalid header length");
  coverage.PopRange();
  coverage.PopRange();
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(8, 4); }), L"");
  EXPECT_EQ(coverage.limits.count, 1u);
  // Empty and reversed limits refuse everything, until they are popped.
  const std::vector<std::pair<int64_t, int32_t>> refusing[] = {{{200, 10}},
                                                               {{30, 10}, {0, 5}},
                                                               {{50, 0}, {70, 0}},
                                                               {{int64_t{1} << 40, 5}},
                                                               {{INT32_MAX, INT32_MAX}}};
  for (const auto& pushes : refusing) {
    for (const auto& [offset, length] : pushes) {
      coverage.PushRangeAt(offset, length);
    }
    for (int64_t at = -1; at <= 101; ++at) {
      EXPECT_FALSE(coverage.IsUnidentifiedAt(at, 0) || coverage.IsUnidentifiedAt(at, 1)) << at;
    }
    const int32_t start = coverage.limits.items[coverage.limits.count - 1].start;
    EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(start, 1); }), kBadOffset);
    for (size_t i = 0; i < pushes.size(); ++i) {
      coverage.PopRange();
    }
    EXPECT_TRUE(coverage.IsUnidentifiedAt(70, 1));
  }
}

TEST(RawLayerException, CopiesOwnTheirTextAndNamesPlatformErrors) {
  RawLayerException a(L"Missing JPEG EOI");
  RawLayerException b(a);
  ASSERT_NE(a.message, b.message);
  EXPECT_STREQ(b.message, L"Missing JPEG EOI");
  b = RawLayerException(static_cast<const wchar_t*>(nullptr));
  EXPECT_EQ(b.message, nullptr);
  EXPECT_EQ(Thrown([] { ThrowPlatformError(L"a.jpg", L"CreateFile", 0xFFFFFFFF); }),
            L"File a.jpg: failed on CreateFile: Windows error 4294967295");
  std::wstring name(2000, L'n');  // the text is cut at 999 characters
  EXPECT_EQ(Thrown([&] { ThrowPlatformError(name.c_str(), L"X", ENOENT); }).size(), 999u);
}

}  // namespace
}  // namespace corvi
