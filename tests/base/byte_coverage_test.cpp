// Claims on the byte coverage: order, splits, overlaps, limits and the exception texts.
#include "base/byte_coverage.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

constexpr const wchar_t* kBadOffset = L"Invalid offset or corrupt data";
using RangeVector = std::vector<std::pair<int32_t, int32_t>>;

// The text of the exception that `claim` throws, empty when it succeeds.
template <typename F>
std::wstring Thrown(F claim) {
  try {
    claim();
  } catch (const RawLayerException& e) {
    return e.message != nullptr ? e.message : L"(null)";
  }
  return L"";
}

RangeVector Ranges(const ByteCoverage& coverage) {
  RangeVector out;
  for (const auto& [end, start] : coverage.unidentified) {
    out.emplace_back(start, end);
  }
  return out;
}

struct Claim {
  int64_t offset;
  int32_t length;
  const wchar_t* error;  // empty when the claim succeeds
};

struct ClaimCase {
  const char* name;
  int32_t size;
  std::vector<Claim> claims;
  RangeVector ranges;
  uint32_t left;
};

TEST(ByteCoverage, ClaimSequences) {
  // clang-format off
  const ClaimCase cases[] = {
      {"one by one from the head leaves an empty range", 4,
       {{0, 1, L""}, {1, 1, L""}, {2, 1, L""}, {3, 1, L""}, {4, 1, kBadOffset}}, {}, 0},
      {"split, straddle, overlap, head and tail", 100,
       {{10, 10, L""}, {5, 20, kBadOffset}, {10, 10, kBadOffset}, {20, 5, L""}, {95, 5, L""}},
       {{0, 10}, {25, 95}}, 80},
      {"zero length splits only strictly inside", 10,
       {{0, 0, kBadOffset}, {10, 0, kBadOffset}, {5, 0, L""}, {5, 0, kBadOffset}},
       {{0, 5}, {5, 10}}, 10},
      {"bad numbers", 10,
       {{0, -1, L"Invalid header length or corrupt data"}, {-1, 2, kBadOffset},
        {8, 3, kBadOffset}, {INT32_MAX, 1, kBadOffset}, {INT32_MAX - 1, INT32_MAX, kBadOffset},
        {INT32_MIN, INT32_MAX, kBadOffset}, {(int64_t{1} << 32) + 2, 1, kBadOffset}},
       {{0, 10}}, 10},
      {"empty data", 0, {{0, 0, kBadOffset}, {0, 1, kBadOffset}}, {}, 0},
      {"tail, then the rest of the range", 10, {{6, 4, L""}, {0, 6, L""}, {0, 0, kBadOffset}}, {}, 0},
      {"a zero-length cut refuses a claim across it", 10,
       {{4, 0, L""}, {2, 4, kBadOffset}, {2, 2, L""}, {4, 6, L""}, {0, 2, L""}}, {}, 0},
  };
  // clang-format on
  for (const ClaimCase& c : cases) {
    SCOPED_TRACE(c.name);
    ByteCoverage coverage(nullptr, c.size);
    for (const Claim& claim : c.claims) {
      SCOPED_TRACE(testing::Message() << claim.offset << "+" << claim.length);
      bool free = coverage.IsUnidentifiedAt(claim.offset, claim.length);
      EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(claim.offset, claim.length); }), claim.error);
      EXPECT_EQ(free, claim.error[0] == 0);  // the question agrees with the claim
    }
    EXPECT_EQ(Ranges(coverage), c.ranges);
    EXPECT_EQ(coverage.LeftCount(), c.left);
  }
}

TEST(ByteCoverage, RangesStayInOrderWhateverTheClaimOrder) {
  ByteCoverage coverage(nullptr, 100);
  for (int32_t at : {90, 70, 50, 30, 10, 20, 60}) {  // from the back, then in the middle
    coverage.IdentifyAt(at, 2);
  }
  EXPECT_EQ(Ranges(coverage),
            (RangeVector{
                {0, 10}, {12, 20}, {22, 30}, {32, 50}, {52, 60}, {62, 70}, {72, 90}, {92, 100}}));
  EXPECT_EQ(coverage.LeftCount(), 86u);
  for (int32_t at : {32, 72, 88}) {  // two heads, then a tail: that range's key moves
    coverage.IdentifyAt(at, 2);
  }
  EXPECT_EQ(Ranges(coverage),
            (RangeVector{
                {0, 10}, {12, 20}, {22, 30}, {34, 50}, {52, 60}, {62, 70}, {74, 88}, {92, 100}}));
  EXPECT_FALSE(coverage.IsUnidentifiedAt(87, 2));
  EXPECT_TRUE(coverage.IsUnidentifiedAt(74, 14));
  EXPECT_EQ(coverage.LeftCount(), 80u);
}

// Random claims against a model of single bytes: a claim of n bytes needs each of them free and
// no zero-length cut between them; a zero-length claim needs free bytes on both sides of it and
// no cut there already.
TEST(ByteCoverage, AgreesWithAByteModel) {
  constexpr int32_t kSize = 300;
  std::vector<bool> claimed(kSize, false);
  std::vector<bool> cut(kSize + 1, false);  // cut[i]: a zero-length claim at i
  uint32_t left = kSize;
  ByteCoverage coverage(nullptr, kSize);
  uint32_t seed = 12345;
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
    const std::wstring error = Thrown([&] { coverage.IdentifyAt(offset, length); });
    ASSERT_EQ(error.empty(), free) << std::string(error.begin(), error.end());
    if (free) {
      if (length == 0) {
        cut[offset] = true;
      }
      for (int64_t i = offset; i < offset + length; ++i) {
        claimed[i] = true;
      }
      left -= static_cast<uint32_t>(length);
    }
    ASSERT_EQ(coverage.LeftCount(), left);
  }
  int32_t previous_end = 0;
  for (const auto& [end, start] : coverage.unidentified) {
    EXPECT_LT(start, end);  // none empty
    EXPECT_LE(previous_end, start);
    previous_end = end;
  }
}

// 200000 claims that each cut a range near the front in two: quadratic work would take
// seconds here.
TEST(ByteCoverage, ManySplitsStayCheap) {
  constexpr int32_t kClaims = 200000;
  ByteCoverage coverage(nullptr, 2 * kClaims + 1);
  for (int32_t i = kClaims - 1; i >= 0; --i) {
    coverage.IdentifyAt(2 * int64_t{i} + 1, 1);
  }
  EXPECT_EQ(coverage.LeftCount(), static_cast<uint32_t>(kClaims + 1));
  EXPECT_EQ(coverage.unidentified.size(), static_cast<size_t>(kClaims + 1));
  EXPECT_TRUE(coverage.IsUnidentifiedAt(kClaims, 1));
  EXPECT_FALSE(coverage.IsUnidentifiedAt(kClaims, 2));
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(kClaims + 1, 1); }), kBadOffset);
  for (int32_t i = 0; i <= kClaims; ++i) {
    coverage.IdentifyAt(2 * int64_t{i}, 1);
  }
  EXPECT_EQ(coverage.LeftCount(), 0u);
  EXPECT_TRUE(coverage.unidentified.empty());
}

TEST(ByteCoverage, LimitsClipAndRefuse) {
  ByteCoverage coverage(nullptr, 100);
  coverage.PushRangeAt(10, 10);
  coverage.PushRangeAt(5, 45);  // 5 to 50 is clipped to 10 to 20
  EXPECT_EQ(coverage.limits.items[coverage.limits.count - 1].start, 10);
  EXPECT_EQ(coverage.limits.items[coverage.limits.count - 1].end, 20);
  coverage.PopRange();
  coverage.PopRange();
  coverage.PushRangeAt(0, 10);
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(8, 4); }), kBadOffset);
  EXPECT_FALSE(coverage.IsUnidentifiedAt(8, 4));
  EXPECT_TRUE(coverage.IsUnidentifiedAt(8, 2));
  coverage.PopRange();
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(8, 4); }), L"");
  EXPECT_EQ(Thrown([&] { coverage.PushRangeAt(0, -1); }), L"Invalid header length");
  EXPECT_EQ(coverage.limits.count, 1u);
}

TEST(ByteCoverage, EmptyAndReversedLimitsRefuseEverything) {
  struct Case {
    const char* name;
    std::vector<std::pair<int64_t, int32_t>> pushes;
  };
  const Case cases[] = {
      {"behind the limit", {{200, 10}}},          {"before the limit", {{10, 10}, {0, 5}}},
      {"empty inside empty", {{50, 0}, {70, 0}}}, {"far beyond 32 bits", {{int64_t{1} << 40, 5}}},
      {"near 2^31", {{INT32_MAX, INT32_MAX}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ByteCoverage coverage(nullptr, 100);
    coverage.IdentifyAt(40, 20);
    for (const auto& [offset, length] : c.pushes) {
      coverage.PushRangeAt(offset, length);
    }
    const ByteRange limit = coverage.limits.items[coverage.limits.count - 1];
    for (int64_t at = -1; at <= 101; ++at) {
      EXPECT_FALSE(coverage.IsUnidentifiedAt(at, 0)) << at;
      EXPECT_FALSE(coverage.IsUnidentifiedAt(at, 1)) << at;
    }
    EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(limit.start, 0); }), kBadOffset);
    EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(limit.start, 1); }), kBadOffset);
    for (size_t i = 0; i < c.pushes.size(); ++i) {
      coverage.PopRange();
    }
    EXPECT_TRUE(coverage.IsUnidentifiedAt(70, 0));
    EXPECT_EQ(coverage.LeftCount(), 80u);
  }
}

TEST(ByteCoverage, InData) {
  ByteCoverage coverage(nullptr, 10);
  EXPECT_TRUE(coverage.InData(0, 10));
  EXPECT_TRUE(coverage.InData(10, 0));
  const std::pair<int64_t, int64_t> outside[] = {
      {9, 2}, {-1, 1}, {2, -1}, {INT64_MAX, 1}, {1, INT64_MAX}};
  for (const auto& [offset, length] : outside) {
    EXPECT_FALSE(coverage.InData(offset, length)) << offset << "+" << length;
  }
}

TEST(RawLayerException, CopiesOwnTheirText) {
  RawLayerException a(L"Missing JPEG EOI");
  RawLayerException b(a);
  ASSERT_NE(a.message, b.message);
  EXPECT_STREQ(b.message, L"Missing JPEG EOI");
  RawLayerException empty(L"");
  RawLayerException c(empty);
  EXPECT_STREQ(c.message, L"");
  c = c;
  EXPECT_STREQ(c.message, L"");
  RawLayerException null_text(static_cast<const wchar_t*>(nullptr));
  EXPECT_EQ(RawLayerException(null_text).message, nullptr);
  c = null_text;
  EXPECT_EQ(c.message, nullptr);
}

TEST(ThrowPlatformError, NamesFileOperationAndText) {
  EXPECT_EQ(Thrown([] { ThrowPlatformError(L"a\\b.jpg", L"CreateFile", ENOENT); }),
            L"File a\\b.jpg: failed on CreateFile: No such file or directory");
  EXPECT_EQ(Thrown([] { ThrowPlatformError(L"a.jpg", L"CreateFile", 0xFFFFFFFF); }),
            L"File a.jpg: failed on CreateFile: Windows error 4294967295");
  std::wstring name(2000, L'n');  // the text is cut at 999 characters
  std::wstring text = Thrown([&] { ThrowPlatformError(name.c_str(), L"GetFileSize", ENOENT); });
  EXPECT_EQ(text.size(), 999u);
  EXPECT_EQ(text.substr(0, 7), L"File nn");
}

}  // namespace
}  // namespace corvi
