// The decoders pass over work that exhausted data makes a no-op, and the tool's decode keeps no
// pixels and runs on two threads. None of it may change anything: on cut, damaged and restarted
// streams, the outcome with the shortcuts equals the outcome of the full walk, and the baseline
// decoder equals the literal reference.
#include <gtest/gtest.h>

#include <string>
#include <utility>
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

// Where the first SOS's payload ends: the entropy-coded data starts behind it.
size_t EntropyStart(const Bytes& file) {
  size_t position = 2;
  while (position + 4 <= file.size() && file[position] == 0xFF) {
    const uint8_t code = file[position + 1];
    const size_t length = size_t{file[position + 2]} << 8 | file[position + 3];
    position += 2 + length;
    if (code == 0xDA) {
      return position;
    }
  }
  return file.size();
}

// Variants of a file: each scan's data cut short with the segments behind it kept (the scan
// runs dry at the next marker, the later scans decode as usual), the file cut at many points (an
// EOI put behind the cut), a byte turned into a restart marker, a run of bytes zeroed.
std::vector<Bytes> Variants(const Bytes& file) {
  std::vector<Bytes> variants;
  for (const auto& [scan_start, scan_end] : test::ScanDataRanges(file)) {
    for (size_t part = 0; part < 4; ++part) {
      const size_t keep = scan_start + (scan_end - scan_start) * part / 4;
      Bytes cut(file.begin(), file.begin() + static_cast<ptrdiff_t>(keep));
      cut.insert(cut.end(), file.begin() + static_cast<ptrdiff_t>(scan_end), file.end());
      variants.push_back(cut);
    }
  }
  const size_t start = EntropyStart(file);
  if (start + 2 >= file.size()) {
    return variants;
  }
  const size_t data = file.size() - 2 - start;
  for (size_t i = 0; i <= 24; ++i) {
    const size_t cut = start + data * i / 24;
    Bytes cut_file(file.begin(), file.begin() + static_cast<ptrdiff_t>(cut));
    cut_file.push_back(0xFF);
    cut_file.push_back(0xD9);
    variants.push_back(cut_file);

    Bytes marked = file;
    if (cut + 1 < file.size() - 2) {
      marked[cut] = 0xFF;
      marked[cut + 1] = static_cast<uint8_t>(0xD0 + i % 8);
      variants.push_back(marked);
    }
    Bytes zeroed = file;
    for (size_t k = cut; k < cut + 16 && k < file.size() - 2; ++k) {
      zeroed[k] = 0;
    }
    variants.push_back(zeroed);
  }
  return variants;
}

TEST(IdleSkips, ChangeNothingOnCutAndDamagedStreams) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg");
  const struct {
    const char* name;
    test::EncodeRequest request;
  } files[] = {
      {"baseline 4:2:0", {64, 48, false, 2, 2, false, 0}},
      {"baseline grey, restarts", {40, 24, true, 1, 1, false, 1}},
      {"baseline 4:2:2, restarts", {72, 40, false, 2, 1, false, 3}},
      {"baseline 4:2:0, 20 MCU rows, restarts", {96, 320, false, 2, 2, false, 5}},
      {"progressive 4:2:0", {64, 48, false, 2, 2, true, 0}},
      {"progressive grey, restarts", {40, 24, true, 1, 1, true, 2}},
      {"progressive 4:4:0, restarts", {48, 64, false, 1, 2, true, 5}},
      {"progressive grey, larger, restarts", {256, 200, true, 1, 1, true, 7}},
  };
  for (const auto& f : files) {
    const Bytes file = test::EncodeWithLibjpeg(f.request);
    ASSERT_FALSE(file.empty()) << f.name;
    const std::vector<Bytes> variants = Variants(file);
    ASSERT_GT(variants.size(), 60u) << f.name;
    for (size_t v = 0; v < variants.size(); ++v) {
      SCOPED_TRACE(std::string(f.name) + " variant " + std::to_string(v));
      const Bytes& bytes = variants[v];
      const DecodeOutcome full = test::DecodeWithLibrary(bytes, false, true);
      const DecodeOutcome skipping = test::DecodeWithLibrary(bytes, true, true);
      EXPECT_EQ(skipping, full) << Narrow(skipping.error) << " / " << Narrow(full.error);
      // Without pixels kept: the same error and size, with and without the skips.
      DecodeOutcome sized = full;
      sized.pixel_hash = 0;
      EXPECT_EQ(test::DecodeWithLibrary(bytes, true, false), sized);
      EXPECT_EQ(test::DecodeWithLibrary(bytes, false, false), sized);
      // Entropy decoding and transform on two threads: the same pixels and the same error.
      EXPECT_EQ(test::DecodeWithLibrary(bytes, true, true, true), full);
      EXPECT_EQ(test::DecodeWithLibrary(bytes, true, false, true), sized);
      const DecodeOutcome literal = test::DecodeLiterally(bytes);
      EXPECT_EQ(literal, full) << Narrow(literal.error) << " / " << Narrow(full.error);
    }
  }
}

}  // namespace
}  // namespace corvi
