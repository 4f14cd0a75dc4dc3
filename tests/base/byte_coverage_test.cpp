// Claims and limits on the byte coverage against a model of single bytes, and the exceptions.
#include "base/byte_coverage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "base/raw_layer_exception.h"

namespace corvi {
namespace {

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

// Random claims, pushes and pops against a model: n bytes need each of them free, inside the
// current limit (the pushed range clipped to the one before; refusing all once reversed) and no
// zero-length cut between them; a zero-length claim needs free bytes on both sides and no cut.
TEST(ByteCoverage, AgreesWithAByteModel) {
  constexpr int32_t kSize = 300;
  const int64_t far[] = {INT32_MIN, INT32_MAX, INT32_MAX - 1, int64_t{1} << 32, int64_t{1} << 40};
  std::vector<bool> claimed(kSize, false), cut(kSize + 1, false);
  std::vector<std::pair<int64_t, int64_t>> limits = {{0, kSize}};
  uint32_t left = kSize, seed = 12345;
  ByteCoverage coverage(nullptr, kSize);
  auto next = [&seed](uint32_t bound) {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 8) % bound;
  };
  for (int step = 0; step < 40000; ++step) {
    const uint32_t op = next(40);
    const int64_t offset = op % 13 == 1 ? far[next(5)] : int64_t{next(kSize + 4)} - 2;
    const int32_t length =
        next(12) == 0 ? INT32_MAX : static_cast<int32_t>(next(op < 3 ? 90 : 7)) - 1;
    SCOPED_TRACE(testing::Message()
                 << "step " << step << ": " << op << " " << offset << "+" << length);
    const auto [low, high] = limits.back();
    if (op < 3) {  // push
      EXPECT_EQ(Thrown([&] { coverage.PushRangeAt(offset, length); }),
                length < 0 ? L"Invalid header length" : L"");
      if (length >= 0) {
        limits.emplace_back(std::max(low, offset), std::min(high, offset + length));
      }
      continue;
    }
    if (op < 8 && limits.size() > 1) {
      coverage.PopRange();
      limits.pop_back();
      continue;
    }
    bool free = length >= 0 && offset >= low && offset + length <= high;
    if (free && length == 0) {
      free =
          offset > 0 && offset < kSize && !claimed[offset - 1] && !claimed[offset] && !cut[offset];
    }
    for (int64_t i = offset; free && i < offset + length; ++i) {
      free = !claimed[i] && (i == offset || !cut[i]);
    }
    ASSERT_EQ(coverage.IsUnidentifiedAt(offset, length), free);
    ASSERT_EQ(Thrown([&] { coverage.IdentifyAt(offset, length); }),
              length < 0 ? L"Invalid header length or corrupt data"
              : free     ? L""
                         : L"Invalid offset or corrupt data");
    EXPECT_EQ(coverage.InData(offset, length),
              offset >= 0 && length >= 0 && offset + length <= kSize);
    if (free) {
      cut[offset] = cut[offset] || length == 0;
      std::fill(claimed.begin() + offset, claimed.begin() + offset + length, true);
      left -= static_cast<uint32_t>(length);
    }
    ASSERT_EQ(coverage.LeftCount(), left);
  }
  EXPECT_LT(left, kSize / 2u);
  ByteCoverage empty(nullptr, 0);
  EXPECT_EQ(Thrown([&] { empty.IdentifyAt(0, 0); }), L"Invalid offset or corrupt data");
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

TEST(RawLayerException, CopiesOwnTheirTextAndNamesPlatformErrors) {
  RawLayerException a(L"Missing JPEG EOI"), b(a);
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
