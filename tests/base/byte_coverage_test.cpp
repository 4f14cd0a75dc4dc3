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

RangeVector Ranges(const RangeList& list) {
  RangeVector out;
  for (uint32_t i = 0; i < list.count; ++i) {
    out.emplace_back(list.items[i].start, list.items[i].end);
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
       {{0, 1, L""}, {1, 1, L""}, {2, 1, L""}, {3, 1, L""}, {4, 1, kBadOffset}}, {{4, 4}}, 0},
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
      {"empty data", 0, {{0, 0, kBadOffset}, {0, 1, kBadOffset}}, {{0, 0}}, 0},
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
    EXPECT_EQ(Ranges(coverage.unidentified), c.ranges);
    EXPECT_EQ(coverage.LeftCount(), c.left);
  }
}

TEST(ByteCoverage, ListGrowsPastFourAndStaysSorted) {
  ByteCoverage coverage(nullptr, 100);
  EXPECT_EQ(coverage.unidentified.capacity, 4u);
  for (int32_t at : {90, 70, 50, 30, 10, 20, 60}) {  // from the back, then in the middle
    coverage.IdentifyAt(at, 2);
  }
  EXPECT_EQ(Ranges(coverage.unidentified),
            (RangeVector{
                {0, 10}, {12, 20}, {22, 30}, {32, 50}, {52, 60}, {62, 70}, {72, 90}, {92, 100}}));
  EXPECT_EQ(coverage.unidentified.capacity, 10u);  // 2 × 5 when the fifth entry was needed
  EXPECT_EQ(coverage.LeftCount(), 86u);
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
