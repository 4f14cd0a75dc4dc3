// The shortcuts change nothing: the decoders pass over work that exhausted data makes a no-op,
// the tool's decode keeps no pixels, and entropy decoding and transform run on two threads, with
// progressive scans planned from the markers behind each scan and checked against where each
// scan really stopped. On cut, damaged and restarted streams the outcome, pixels or error, is the
// one of the full walk, one scan after another, and of the literal reference.
#include "decode/scan_threads.h"

#include <gtest/gtest.h>

#include <iterator>
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

// Small frames of each layout cut and damaged at many points; large progressive frames, which
// pay for a second thread, and a small one that stays on one, at fewer.
TEST(ScanThreads, AndIdleSkipsGiveTheFullWalksOutcomeOnDamagedStreams) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  const test::EncodeRequest files[] = {
      {64, 48, false, 2, 2, false, 0},   {40, 24, true, 1, 1, false, 1},
      {72, 40, false, 2, 1, false, 3},   {96, 320, false, 2, 2, false, 5},
      {64, 48, false, 2, 2, true, 0},    {40, 24, true, 1, 1, true, 2},
      {48, 64, false, 1, 2, true, 5},    {256, 200, true, 1, 1, true, 7},
      {1024, 768, false, 2, 2, true, 0}, {704, 512, false, 1, 1, true, 9},
      {1280, 1024, true, 1, 1, true, 0},  // DC scans beside AC scans that share a refinement
      {128, 96, false, 2, 2, true, 0},
  };
  for (size_t i = 0; i < std::size(files); ++i) {
    const test::EncodeRequest& f = files[i];
    const Bytes file = test::EncodeWithLibjpeg(f);
    ASSERT_FALSE(file.empty());
    const bool large = i >= 8 && f.width >= 256, small = i < 8;
    const size_t cuts = small ? 4 : large ? 1 : 0, points = small ? 24 : large ? 3 : 0;
    for (const test::Variant& v : test::DamagedVariants(file, cuts, points)) {
      SCOPED_TRACE(testing::Message() << f.width << "x" << f.height << " progressive "
                                      << f.progressive << ", " << v.name);
      const DecodeOutcome full = DecodeWithLibrary(v.bytes, !small, true);
      DecodeOutcome sized = full;  // without pixels kept: the same error and size
      sized.pixel_hash = 0;
      const uint64_t before = TwoThreadScanCount();
      EXPECT_EQ(DecodeWithLibrary(v.bytes, true, true, true), full) << Narrow(full.error);
      if (v.planned && !small) {
        EXPECT_EQ(TwoThreadScanCount(), before + (large ? 1 : 0));
        EXPECT_NE(full.pixel_hash, 0u);
      }
      EXPECT_EQ(DecodeWithLibrary(v.bytes, true, false, true), sized);
      if (small) {
        EXPECT_EQ(DecodeWithLibrary(v.bytes, true, true), full);
        EXPECT_EQ(DecodeWithLibrary(v.bytes, true, false), sized);
        EXPECT_EQ(DecodeWithLibrary(v.bytes, false, false), sized);
        EXPECT_EQ(test::DecodeLiterally(v.bytes), full);
      }
    }
  }
}

}  // namespace
}  // namespace corvi
