// Claims on the byte coverage: order, splits, overlaps, limits and the exception type.
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
constexpr const wchar_t* kBadLength = L"Invalid header length or corrupt data";

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

std::vector<std::pair<int32_t, int32_t>> Ranges(const RangeList& list) {
  std::vector<std::pair<int32_t, int32_t>> out;
  for (uint32_t i = 0; i < list.count; ++i) {
    out.emplace_back(list.items[i].start, list.items[i].end);
  }
  return out;
}

using RangeVector = std::vector<std::pair<int32_t, int32_t>>;

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
  const ClaimCase cases[] = {
      {"one by one", 4, {{0, 1, L""}, {1, 1, L""}, {2, 1, L""}, {3, 1, L""}, {4, 1, kBadOffset}},
       {{4, 4}}, 0},
      {"split then straddle", 100, {{10, 10, L""}, {5, 20, kBadOffset}}, {{0, 10}, {20, 100}}, 90},
      {"whole range leaves an empty one", 100, {{0, 10, L""}, {10, 90, L""}}, {{100, 100}}, 0},
      {"twice", 10, {{2, 4, L""}, {2, 4, kBadOffset}}, {{0, 2}, {6, 10}}, 6},
      {"tail", 10, {{6, 4, L""}}, {{0, 6}}, 6},
      {"head of second range", 10, {{2, 2, L""}, {4, 2, L""}}, {{0, 2}, {6, 10}}, 6},
      {"zero length inside splits", 10, {{5, 0, L""}}, {{0, 5}, {5, 10}}, 10},
      {"zero length at a start", 10, {{0, 0, kBadOffset}}, {{0, 10}}, 10},
      {"zero length at the end", 10, {{10, 0, kBadOffset}}, {{0, 10}}, 10},
      {"zero length at a split", 10, {{5, 0, L""}, {5, 0, kBadOffset}}, {{0, 5}, {5, 10}}, 10},
      {"negative length", 10, {{0, -1, kBadLength}}, {{0, 10}}, 10},
      {"negative offset", 10, {{-1, 2, kBadOffset}}, {{0, 10}}, 10},
      {"past the end", 10, {{8, 3, kBadOffset}}, {{0, 10}}, 10},
      {"offset near 2^31", 10, {{INT32_MAX, 1, kBadOffset}, {INT32_MAX - 1, INT32_MAX, kBadOffset}},
       {{0, 10}}, 10},
      {"offset near -2^31", 10, {{INT32_MIN, 1, kBadOffset}, {INT32_MIN, INT32_MAX, kBadOffset}},
       {{0, 10}}, 10},
      {"offset beyond 32 bits", 10, {{(int64_t{1} << 32) + 2, 1, kBadOffset}}, {{0, 10}}, 10},
      {"empty data", 0, {{0, 0, kBadOffset}, {0, 1, kBadOffset}}, {{0, 0}}, 0},
  };
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

TEST(ByteCoverage, PointerFormsTakeOffsetsFromBase) {
  uint8_t data[8] = {};
  ByteCoverage coverage(data, 8);
  coverage.Identify(data + 2, 2);
  EXPECT_FALSE(coverage.IsUnidentified(data + 3, 1));
  EXPECT_TRUE(coverage.IsUnidentified(data + 4, 4));
  EXPECT_EQ(coverage.OffsetOf(data + 8), 8);
  EXPECT_EQ(coverage.LeftCount(), 6u);
}

TEST(ByteCoverage, GrowthKeepsOrder) {
  ByteCoverage coverage(nullptr, 100);
  EXPECT_EQ(coverage.unidentified.capacity, 4u);
  // Claims from the back split off a new range each time: 1, 2, ... entries.
  const int32_t cuts[] = {90, 70, 50, 30, 10};
  for (int32_t at : cuts) {
    coverage.IdentifyAt(at, 5);
  }
  EXPECT_EQ(Ranges(coverage.unidentified),
            (RangeVector{{0, 10}, {15, 30}, {35, 50}, {55, 70}, {75, 90}, {95, 100}}));
  EXPECT_EQ(coverage.unidentified.capacity, 10u);  // 2 × 5 when the fifth entry was needed
  EXPECT_EQ(coverage.LeftCount(), 75u);
}

TEST(ByteCoverage, ClaimsInTheMiddleOfAListSplitInPlace) {
  ByteCoverage coverage(nullptr, 100);
  const int32_t cuts[] = {10, 30, 50, 70, 90, 20, 60};
  for (int32_t at : cuts) {
    coverage.IdentifyAt(at, 2);
  }
  EXPECT_EQ(Ranges(coverage.unidentified), (RangeVector{{0, 10},
                                                        {12, 20},
                                                        {22, 30},
                                                        {32, 50},
                                                        {52, 60},
                                                        {62, 70},
                                                        {72, 90},
                                                        {92, 100}}));
  EXPECT_EQ(coverage.LeftCount(), 86u);
}

TEST(ByteCoverage, LimitsClipAndRefuse) {
  ByteCoverage coverage(nullptr, 100);
  coverage.PushRangeAt(10, 10);
  coverage.PushRangeAt(5, 45);  // 5 to 50 inside 10 to 20
  EXPECT_EQ(coverage.limits.items[coverage.limits.count - 1].start, 10);
  EXPECT_EQ(coverage.limits.items[coverage.limits.count - 1].end, 20);
  coverage.PopRange();
  coverage.PopRange();
  EXPECT_EQ(coverage.limits.count, 1u);

  coverage.PushRangeAt(0, 10);
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(8, 4); }), kBadOffset);
  EXPECT_FALSE(coverage.IsUnidentifiedAt(8, 4));
  EXPECT_TRUE(coverage.IsUnidentifiedAt(8, 2));
  coverage.PopRange();
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(8, 4); }), L"");
  EXPECT_EQ(coverage.LeftCount(), 96u);

  EXPECT_EQ(Thrown([&] { coverage.PushRangeAt(0, -1); }), L"Invalid header length");
  EXPECT_EQ(coverage.limits.count, 1u);
}

TEST(ByteCoverage, EmptyAndReversedLimitsRefuseEverything) {
  struct Case {
    const char* name;
    std::vector<std::pair<int64_t, int32_t>> pushes;
  };
  const Case cases[] = {
      {"behind the limit", {{200, 10}}},
      {"before the limit", {{10, 10}, {0, 5}}},
      {"empty inside empty", {{50, 0}, {60, 0}}},
      {"empty then zero length", {{50, 0}, {50, 0}}},
      {"far beyond 32 bits", {{int64_t{1} << 40, 5}}},
      {"far below", {{-(int64_t{1} << 40), 5}}},
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
    EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(limit.start, 1); }), kBadOffset);
    for (size_t i = 0; i < c.pushes.size(); ++i) {
      coverage.PopRange();
    }
    EXPECT_EQ(coverage.LeftCount(), 80u);
  }
}

TEST(ByteCoverage, ZeroLengthInsideAnEmptyLimitFails) {
  ByteCoverage coverage(nullptr, 100);
  coverage.PushRangeAt(50, 0);   // the empty limit 50 to 50
  coverage.PushRangeAt(70, 10);  // clipped to nothing inside it
  EXPECT_FALSE(coverage.IsUnidentifiedAt(50, 0));
  EXPECT_FALSE(coverage.IsUnidentifiedAt(70, 0));
  EXPECT_EQ(Thrown([&] { coverage.IdentifyAt(50, 0); }), kBadOffset);
  coverage.PopRange();
  EXPECT_TRUE(coverage.IsUnidentifiedAt(50, 0));  // strictly inside 0 to 100
}

TEST(ByteCoverage, InData) {
  ByteCoverage coverage(nullptr, 10);
  EXPECT_TRUE(coverage.InData(0, 10));
  EXPECT_TRUE(coverage.InData(10, 0));
  EXPECT_FALSE(coverage.InData(9, 2));
  EXPECT_FALSE(coverage.InData(-1, 1));
  EXPECT_FALSE(coverage.InData(2, -1));
  EXPECT_FALSE(coverage.InData(INT64_MAX, 1));
  EXPECT_FALSE(coverage.InData(1, INT64_MAX));
}

TEST(RawLayerException, CopiesOwnTheirText) {
  RawLayerException a(L"Missing JPEG EOI");
  RawLayerException b(a);
  ASSERT_NE(a.message, b.message);
  EXPECT_STREQ(b.message, L"Missing JPEG EOI");
  RawLayerException empty(L"");
  RawLayerException c(empty);
  ASSERT_NE(c.message, nullptr);
  EXPECT_STREQ(c.message, L"");
  c = a;
  EXPECT_STREQ(c.message, L"Missing JPEG EOI");
  c = c;
  EXPECT_STREQ(c.message, L"Missing JPEG EOI");

  RawLayerException null_text(static_cast<const wchar_t*>(nullptr));
  EXPECT_EQ(null_text.message, nullptr);
  RawLayerException null_copy(null_text);
  EXPECT_EQ(null_copy.message, nullptr);
  c = null_text;
  EXPECT_EQ(c.message, nullptr);
}

TEST(ThrowPlatformError, NamesFileOperationAndText) {
  struct Case {
    uint32_t code;
    const wchar_t* expected;
  };
  const Case cases[] = {
      {ENOENT, L"File a\\b.jpg: failed on CreateFile: No such file or directory"},
      {EINVAL, L"File a\\b.jpg: failed on CreateFile: Invalid argument"},
      {123456, L"File a\\b.jpg: failed on CreateFile: Windows error 123456"},
      {0xFFFFFFFF, L"File a\\b.jpg: failed on CreateFile: Windows error 4294967295"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Thrown([&] { ThrowPlatformError(L"a\\b.jpg", L"CreateFile", c.code); }),
              c.expected);
  }
}

TEST(ThrowPlatformError, CutsALongTextAt999Characters) {
  std::wstring name(2000, L'n');
  std::wstring text = Thrown([&] { ThrowPlatformError(name.c_str(), L"GetFileSize", ENOENT); });
  EXPECT_EQ(text.size(), 999u);
  EXPECT_EQ(text.substr(0, 7), L"File nn");
}

}  // namespace
}  // namespace corvi
