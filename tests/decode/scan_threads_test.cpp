// Progressive scans on two threads: the plan is made from the markers behind each scan and
// checked against where each scan really stopped. On intact files the two threads are used; on
// files that break the plan (cut, damaged, stray bytes and segments between scans) the outcome,
// pixels or error, is the one of one scan after another.
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

std::string Narrow(const std::wstring& text) {
  return std::string(text.begin(), text.end());
}

Bytes Insert(const Bytes& file, size_t at, std::initializer_list<uint8_t> bytes) {
  Bytes out(file.begin(), file.begin() + static_cast<ptrdiff_t>(at));
  out.insert(out.end(), bytes);
  out.insert(out.end(), file.begin() + static_cast<ptrdiff_t>(at), file.end());
  return out;
}

struct Variant {
  std::string name;
  Bytes bytes;
  bool planned;  // the plan holds: the two threads are used
};

std::vector<Variant> Variants(const Bytes& file) {
  std::vector<Variant> variants{{"intact", file, true}};
  const auto ranges = test::ScanDataRanges(file);
  for (size_t s = 0; s < ranges.size(); ++s) {
    const auto [start, end] = ranges[s];
    const std::string scan = "scan " + std::to_string(s) + ": ";
    // The scan runs dry at the next marker, where the plan says; a later refinement may then go
    // wrong anywhere.
    Bytes cut(file.begin(), file.begin() + static_cast<ptrdiff_t>(start + (end - start) / 2));
    cut.insert(cut.end(), file.begin() + static_cast<ptrdiff_t>(end), file.end());
    variants.push_back({scan + "data cut in half", cut, false});
    if (s + 1 == ranges.size()) {
      break;  // behind the last scan only the end-of-image marker follows
    }
    // Filler before the marker behind the scan is passed over; anything else is refused there.
    // One kind of each a scan, in turn.
    const struct {
      const char* name;
      std::initializer_list<uint8_t> bytes;
      bool planned;
    } behind[] = {
        {"zero bytes", {0, 0, 0}, true},
        {"stuffed pair", {0xFF, 0x00}, true},
        {"stray byte", {0x12}, false},
        {"fill byte", {0xFF}, false},
        {"restart marker", {0xFF, 0xD3}, false},
        {"segment", {0xFF, 0xE1, 0x00, 0x04, 'a', 'b'}, false},
        {"empty DHT", {0xFF, 0xC4, 0x00, 0x02}, false},
    };
    const auto& b = behind[s % std::size(behind)];
    variants.push_back({scan + b.name + " behind", Insert(file, end, b.bytes), b.planned});
  }
  // Damage inside the data: a restart marker where none is expected, a run of zeros, a cut.
  const size_t first = ranges.empty() ? 2 : ranges.front().first;
  for (size_t i = 1; i < 4; ++i) {
    const size_t at = first + (file.size() - 2 - first) * i / 4;
    Bytes marked = file;
    marked[at] = 0xFF;
    marked[at + 1] = static_cast<uint8_t>(0xD0 + i);
    variants.push_back({"restart marker at " + std::to_string(at), marked, false});
    Bytes zeroed = file;
    for (size_t k = at; k < at + 24 && k + 2 < file.size(); ++k) {
      zeroed[k] = 0;
    }
    variants.push_back({"zeros at " + std::to_string(at), zeroed, false});
    Bytes cut(file.begin(), file.begin() + static_cast<ptrdiff_t>(at));
    cut.push_back(0xFF);
    cut.push_back(0xD9);
    variants.push_back({"cut at " + std::to_string(at), cut, false});
  }
  return variants;
}

TEST(ScanThreads, GiveTheOutcomeOfOneScanAfterAnother) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  const struct {
    const char* name;
    test::EncodeRequest request;
  } files[] = {
      {"progressive 4:2:0", {1024, 768, false, 2, 2, true, 0}},
      {"progressive 4:4:4, restarts", {704, 512, false, 1, 1, true, 9}},
      // The DC scans run beside the AC scans, which all share coefficients with a refinement.
      {"progressive grey", {1280, 1024, true, 1, 1, true, 0}},
  };
  for (const auto& f : files) {
    const Bytes file = test::EncodeWithLibjpeg(f.request);
    ASSERT_FALSE(file.empty()) << f.name;
    for (const Variant& v : Variants(file)) {
      SCOPED_TRACE(std::string(f.name) + ", " + v.name);
      const DecodeOutcome one = test::DecodeWithLibrary(v.bytes, true, true, false);
      const uint64_t before = TwoThreadScanCount();
      const DecodeOutcome two = test::DecodeWithLibrary(v.bytes, true, true, true);
      EXPECT_EQ(two, one) << Narrow(two.error) << " / " << Narrow(one.error);
      if (v.planned) {
        EXPECT_EQ(TwoThreadScanCount(), before + 1);
        EXPECT_NE(one.pixel_hash, 0u);
      }
      // The tool's way, no pixels kept: the same error and size.
      DecodeOutcome sized = one;
      sized.pixel_hash = 0;
      EXPECT_EQ(test::DecodeWithLibrary(v.bytes, true, false, true), sized);
    }
  }
}

TEST(ScanThreads, SmallFramesStayOnOneThread) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  const Bytes file = test::EncodeWithLibjpeg({128, 96, false, 2, 2, true, 0});
  ASSERT_FALSE(file.empty());
  const uint64_t before = TwoThreadScanCount();
  const DecodeOutcome two = test::DecodeWithLibrary(file, true, true, true);
  EXPECT_EQ(TwoThreadScanCount(), before);
  EXPECT_EQ(two, test::DecodeWithLibrary(file, true, true, false));
}

}  // namespace
}  // namespace corvi
