// The shortcuts change nothing: the decoders pass over work that exhausted data makes a no-op,
// the tool's decode keeps no pixels, and entropy decoding and transform run on two threads, with
// progressive scans planned from the markers behind each scan and checked against where each
// scan really stopped. On cut, damaged and restarted streams the outcome, pixels or error, is the
// one of the full walk, one scan after another, and of the literal reference.
#include "decode/scan_threads.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/jpeg_builder.h"
#include "tests/support/libjpeg_reference.h"
#include "tests/support/literal_decode.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using test::Bytes;
using test::DecodeOutcome;
using test::DecodeWithLibrary;

std::string Narrow(const std::wstring& text) {
  return std::string(text.begin(), text.end());
}

TEST(IdleSkips, ChangeNothingOnCutAndDamagedStreams) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  const test::EncodeRequest files[] = {
      {64, 48, false, 2, 2, false, 0}, {40, 24, true, 1, 1, false, 1},
      {72, 40, false, 2, 1, false, 3}, {96, 320, false, 2, 2, false, 5},
      {64, 48, false, 2, 2, true, 0},  {40, 24, true, 1, 1, true, 2},
      {48, 64, false, 1, 2, true, 5},  {256, 200, true, 1, 1, true, 7},
  };
  for (const auto& f : files) {
    const Bytes file = test::EncodeWithLibjpeg(f);
    ASSERT_FALSE(file.empty());
    for (const test::Variant& v : test::DamagedVariants(file, 4, 24)) {
      SCOPED_TRACE(testing::Message() << f.width << "x" << f.height << " progressive "
                                      << f.progressive << ", " << v.name);
      const DecodeOutcome full = DecodeWithLibrary(v.bytes, false, true);
      DecodeOutcome sized = full;  // without pixels kept: the same error and size
      sized.pixel_hash = 0;
      EXPECT_EQ(DecodeWithLibrary(v.bytes, true, true), full) << Narrow(full.error);
      EXPECT_EQ(DecodeWithLibrary(v.bytes, true, false), sized);
      EXPECT_EQ(DecodeWithLibrary(v.bytes, false, false), sized);
      EXPECT_EQ(DecodeWithLibrary(v.bytes, true, true, true), full);
      EXPECT_EQ(DecodeWithLibrary(v.bytes, true, false, true), sized);
      EXPECT_EQ(test::DecodeLiterally(v.bytes), full);
    }
  }
}

// Frames of at least the blocks that pay for a second thread; a smaller one stays on one.
TEST(ScanThreads, GiveTheOutcomeOfOneScanAfterAnother) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  const test::EncodeRequest files[] = {
      {1024, 768, false, 2, 2, true, 0},
      {704, 512, false, 1, 1, true, 9},
      // The DC scans run beside the AC scans, which all share coefficients with a refinement.
      {1280, 1024, true, 1, 1, true, 0},
      {128, 96, false, 2, 2, true, 0},
  };
  for (const auto& f : files) {
    const Bytes file = test::EncodeWithLibjpeg(f);
    ASSERT_FALSE(file.empty());
    const bool small = f.width < 256;
    for (const test::Variant& v : test::DamagedVariants(file, small ? 0 : 1, small ? 0 : 3)) {
      SCOPED_TRACE(testing::Message() << f.width << "x" << f.height << ", " << v.name);
      const DecodeOutcome one = DecodeWithLibrary(v.bytes, true, true, false);
      const uint64_t before = TwoThreadScanCount();
      const DecodeOutcome two = DecodeWithLibrary(v.bytes, true, true, true);
      EXPECT_EQ(two, one) << Narrow(two.error) << " / " << Narrow(one.error);
      if (v.planned) {
        EXPECT_EQ(TwoThreadScanCount(), before + (small ? 0 : 1));
        EXPECT_NE(one.pixel_hash, 0u);
      }
      DecodeOutcome sized = one;  // the tool's way, no pixels kept: the same error and size
      sized.pixel_hash = 0;
      EXPECT_EQ(DecodeWithLibrary(v.bytes, true, false, true), sized);
    }
  }
}

}  // namespace
}  // namespace corvi
