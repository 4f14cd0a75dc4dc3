// The check on real photos and on the ways they get damaged: the verdict, the kind and the
// place of the first damage; the same verdicts as libjpeg-turbo's warnings and errors; the
// several-symbols lookup against one symbol at a time; what a progressive frame keeps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "check/stream_check.h"
#include "report/file_report.h"
#include "tests/support/damage.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/libjpeg_reference.h"
#include "tests/support/require.h"

namespace corvi {
namespace {

using test::Bytes;

FileReport Check(const Bytes& bytes) {
  InspectOptions options;
  options.full = true;
  return InspectBytes("photo.jpg", bytes.data(), bytes.size(), options);
}

const Issue* FirstDamage(const FileReport& report) {
  for (const Issue& issue : report.issues.items()) {
    if (issue.severity >= Severity::kDamaged) {
      return &issue;
    }
  }
  return nullptr;
}

// Baseline and progressive, 4:2:0, 4:2:2, 4:4:0 and grey, with and without restart markers.
constexpr const char* kPhotos[] = {
    "derived-hx5v-420.jpg",
    "derived-hx5v-422-progressive.jpg",
    "derived-hx5v-420-restart-every-mcu.jpg",
    "derived-hx5v-440-progressive-restart-2mcu.jpg",
    "derived-hx5v-gray-restart-7mcu.jpg",
    "sampling-410-pixel2.jpg",
};

TEST(CheckCorpus, DamagedVariantsNameKindAndPlace) {
  CORVI_NEED(test::CorpusAvailable(), "the shared corpus");
  for (const char* photo : kPhotos) {
    const Bytes file = test::ReadFile(test::CorpusPath(photo));
    EXPECT_EQ(Check(file).verdict, Verdict::kClean) << photo;
    for (const test::Variant& v : test::MakeVariants(file, 1, 0)) {
      SCOPED_TRACE(std::string(photo) + ": " + v.name);
      const FileReport report = Check(v.bytes);
      const Issue* first = FirstDamage(report);
      if (v.name.starts_with("trailing")) {
        EXPECT_EQ(report.verdict, Verdict::kBenign);
        ASSERT_EQ(report.issues.items().size(), 1u);
        EXPECT_STREQ(report.issues.items()[0].kind, "trailing_bytes");
        EXPECT_EQ(report.issues.items()[0].offset, static_cast<int64_t>(file.size()));
        continue;
      }
      EXPECT_EQ(report.verdict, Verdict::kDamaged);
      ASSERT_NE(first, nullptr);
      // Where the bytes stop for a cut; the marker's first byte otherwise.
      const char* kind = "marker_in_data";
      int64_t at = v.damage_at;
      int64_t slack = 0;
      if (v.name.starts_with("cut before eoi")) {
        kind = "missing_eoi";
        at = static_cast<int64_t>(v.bytes.size());
      } else if (v.name.starts_with("cut")) {
        kind = "truncated";
        at = static_cast<int64_t>(v.bytes.size());
      } else if (v.name.starts_with("ff-run")) {
        slack = 80;
      } else if (v.name.starts_with("rst")) {
        kind = "restart_marker";
      }
      EXPECT_STREQ(first->kind, kind);
      EXPECT_GE(first->offset, at);
      EXPECT_LE(first->offset, at + slack);
    }
  }
}

TEST(CheckCorpus, AThumbnailsDamageIsNamedAndBenign) {
  CORVI_NEED(test::CorpusAvailable(), "the shared corpus");
  Bytes file = test::ReadFile(test::CorpusPath("canon-powershot-s40.jpg"));
  const FileReport whole = Check(file);
  ASSERT_EQ(whole.verdict, Verdict::kClean);
  ASSERT_EQ(whole.stream.thumbnails.size(), 1u);
  const StreamReport& thumbnail = whole.stream.thumbnails[0];
  // Cut the thumbnail's scan short with an end of image half way through its data.
  const auto sos = std::find_if(thumbnail.segments.begin(), thumbnail.segments.end(),
                                [](const SegmentRecord& s) { return s.code == 0xDA; });
  ASSERT_NE(sos, thumbnail.segments.end());
  const auto middle = static_cast<size_t>((sos->last + 1 + thumbnail.last) / 2);
  file[middle] = 0xFF;
  file[middle + 1] = 0xD9;
  const FileReport damaged = Check(file);
  EXPECT_EQ(damaged.verdict, Verdict::kBenign);
  ASSERT_EQ(damaged.issues.items().size(), 1u);
  const Issue& issue = damaged.issues.items()[0];
  EXPECT_STREQ(issue.kind, "marker_in_data");
  EXPECT_EQ(issue.severity, Severity::kBenign);
  EXPECT_EQ(issue.thumbnail, 1);
  EXPECT_EQ(issue.offset, static_cast<int64_t>(middle));
  EXPECT_TRUE(issue.message.starts_with("thumbnail at " + std::to_string(thumbnail.first)));
}

// The kinds of T.81 faults that libjpeg-turbo reads without a warning.
bool PassedByLibjpeg(const char* kind) {
  return std::strcmp(kind, "coefficient_overrun") == 0 ||
         std::strcmp(kind, "bad_huffman_code") == 0 || std::strcmp(kind, "extraneous_bytes") == 0;
}

TEST(CheckCorpus, AgreesWithLibjpegOnEveryPhotoAndVariant) {
  CORVI_NEED(test::CorpusAvailable(), "the shared corpus");
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg-turbo");
  int compared = 0;
  for (const std::string& path : test::CorpusFiles()) {
    const Bytes file = test::ReadFile(path);
    std::vector<test::Variant> variants = test::MakeVariants(file, 5, 6);
    variants.insert(variants.begin(), test::Variant{"whole", file, -1});
    for (const test::Variant& v : variants) {
      const FileReport report = Check(v.bytes);
      if (report.verdict == Verdict::kUnsupported) {
        continue;  // its data is not checked
      }
      test::LibjpegCheck peer;
      test::CheckWithLibjpeg(v.bytes, peer);
      SCOPED_TRACE(path + ": " + v.name + (peer.failed ? ", libjpeg: " + peer.error : ""));
      const bool ours = report.verdict >= Verdict::kDamaged;
      if (peer.DamageWarned() || peer.DataFailure()) {
        EXPECT_TRUE(ours) << "libjpeg-turbo warns: "
                          << (peer.warnings.empty() ? "" : peer.warnings[0]);
      } else if (!peer.failed && ours) {
        for (const Issue& issue : report.issues.items()) {
          if (issue.severity >= Severity::kDamaged) {
            EXPECT_TRUE(PassedByLibjpeg(issue.kind)) << issue.kind << ": " << issue.message;
          }
        }
      }
      ++compared;
    }
  }
  EXPECT_GT(compared, 500);
}

std::string Issues(const StreamCheck& check) {
  std::string text;
  for (const Issue& issue : check.issues.items()) {
    text +=
        std::string(issue.kind) + " " + std::to_string(issue.offset) + " " + issue.message + "\n";
  }
  return text;
}

// The lookup of several symbols at once is a faster form of reading one at a time: on every
// photo and every damaged variant, both find the same.
TEST(CheckCorpus, RunTablesFindWhatOneSymbolAtATimeFinds) {
  CORVI_NEED(test::CorpusAvailable(), "the shared corpus");
  for (const std::string& path : test::CorpusFiles()) {
    const Bytes file = test::ReadFile(path);
    std::vector<test::Variant> variants = test::MakeVariants(file, 9, 12);
    variants.insert(variants.begin(), test::Variant{"whole", file, -1});
    for (const test::Variant& v : variants) {
      SCOPED_TRACE(path + ": " + v.name);
      StreamCheckOptions options;
      const int64_t size = static_cast<int64_t>(v.bytes.size());
      const std::string fast = Issues(CheckStream(v.bytes.data(), 0, size, options));
      options.run_tables = false;
      EXPECT_EQ(fast, Issues(CheckStream(v.bytes.data(), 0, size, options)));
    }
  }
}

// Every layout libjpeg-turbo writes is clean, and a progressive frame keeps one bit a
// coefficient: 8 bytes a block, and 4 bytes a block row.
TEST(CheckCorpus, LibjpegLayoutsAreCleanAndKeepOneBitACoefficient) {
  CORVI_NEED(test::HaveLibjpeg(), "libjpeg-turbo");
  for (const bool progressive : {false, true}) {
    for (const auto& [gray, h, v] :
         {std::tuple{true, 1, 1}, {false, 1, 1}, {false, 2, 1}, {false, 1, 2}, {false, 2, 2}}) {
      test::EncodeRequest request;
      request.width = 67;
      request.height = 45;
      request.gray = gray;
      request.h = h;
      request.v = v;
      request.progressive = progressive;
      request.restart_interval = 3;
      const Bytes file = test::EncodeWithLibjpeg(request);
      SCOPED_TRACE(std::to_string(h) + "x" + std::to_string(v) + (gray ? " grey" : "") +
                   (progressive ? " progressive" : ""));
      const StreamCheck check =
          CheckStream(file.data(), 0, static_cast<int64_t>(file.size()), StreamCheckOptions{});
      EXPECT_EQ(VerdictOf(check.issues, check.process_checked), Verdict::kClean) << Issues(check);
      // Blocks of the interleaved layout: whole MCUs of 8h x 8v pixels.
      const uint64_t mcus =
          uint64_t{(67 + 8 * uint64_t(h) - 1) / (8 * h)} * ((45 + 8 * v - 1) / (8 * v));
      const uint64_t rows = (45 + 8 * v - 1) / (8 * v);
      const uint64_t luma = mcus * h * v * 8 + rows * v * 4;
      const uint64_t chroma = mcus * 8 + rows * 4;
      EXPECT_EQ(check.mask_bytes, progressive ? luma + (gray ? 0 : 2 * chroma) : 0);
    }
  }
}

}  // namespace
}  // namespace corvi
