// corvi's pipeline for one file as a library call: what it prints where, what it keeps of the
// run, and that every failure (opening, scanning, decoding) is caught, printed and kept.
#include "report/pipeline.h"

#include <gtest/gtest.h>

#include <string>

#include "base/byte_coverage.h"
#include "check/issue.h"
#include "platform/format.h"
#include "tests/support/jpeg_builder.h"
#include "tests/support/sample_jpeg.h"

namespace corvi {
namespace {

using test::Bytes;

struct Printed {
  std::string out;
  std::string decode;
};

// Runs the pipeline over `bytes` with the dump and decode as given; the decode's lines go to a
// stream of their own.
Printed Pipe(const Bytes& bytes, bool dump, bool decode, FileRun* kept = nullptr) {
  OutStream out;
  OutStream decode_out;
  PipelineOptions options;
  options.dump = dump;
  options.decode = decode;
  options.out = &out;
  options.decode_out = &decode_out;
  FileRun run = RunBytes(L"x.jpg", bytes.data(), static_cast<uint32_t>(bytes.size()), options);
  if (kept != nullptr) {
    *kept = std::move(run);
  }
  return Printed{out.Text(), decode_out.Text()};
}

TEST(Pipeline, PrintsWhatCorviPrintsWhereAsked) {
  const Bytes sample = test::MakeSampleJpeg();
  FileRun run;
  const Printed both = Pipe(sample, true, true, &run);
  ASSERT_TRUE(run.scanned);
  const uint32_t left = run.reader->coverage->LeftCount();
  const std::string line =
      Format("Finished parsing x.jpg (identified %zu bytes out of %zu, %u left).\n",
             sample.size() - left, sample.size(), left);
  // The dump as the file-level dump prints it, then the report line.
  EXPECT_EQ(both.out.rfind("File x.jpg", 0), 0u) << both.out.substr(0, 80);
  EXPECT_NE(both.out.find(test::DumpText(test::ScanBytes(sample), sample)), std::string::npos);
  EXPECT_EQ(both.out.substr(both.out.size() - line.size()), line);
  EXPECT_EQ(both.decode.rfind("Decoded 64 x 48 pixels\n", 0), 0u);
  EXPECT_TRUE(run.decoded);
  EXPECT_EQ(run.width, 64u);
  EXPECT_EQ(run.mcu_width, 16);
  EXPECT_EQ(run.mcu_height, 16);
  // Without the dump only the line; without the decode nothing of it.
  const Printed quiet = Pipe(sample, false, false);
  EXPECT_EQ(quiet.out, line);
  EXPECT_EQ(quiet.decode, "");
}

TEST(Pipeline, EveryFailureIsPrintedAndKept) {
  FileRun run;
  // The scan fails: the failure line, no dump, no decode.
  Bytes cut = {0xFF, 0xD8, 0xFF, 0xFE, 0, 4, 'a', 'b'};
  Printed printed = Pipe(cut, true, true, &run);
  EXPECT_EQ(printed.out, "Failed on x.jpg: Missing JPEG EOI\n");
  EXPECT_EQ(printed.decode, "");
  EXPECT_FALSE(run.scanned);
  EXPECT_FALSE(run.decode_ran);
  EXPECT_EQ(run.failure, L"Missing JPEG EOI");
  // The decode fails: the report line stands, the failure goes with the decode's lines.
  Bytes no_frame = {0xFF, 0xD8, 0xFF, 0xFE, 0, 4, 'a', 'b', 0xFF, 0xD9};
  printed = Pipe(no_frame, false, true, &run);
  EXPECT_EQ(printed.out.rfind("Finished parsing x.jpg", 0), 0u) << printed.out;
  EXPECT_EQ(printed.decode.rfind("Failed on x.jpg: ", 0), 0u) << printed.decode;
  EXPECT_TRUE(run.decode_ran);
  EXPECT_FALSE(run.decoded);
  EXPECT_FALSE(run.decode_failure.empty());
  // The file cannot be opened: the system's words, and no reader.
  OutStream out;
  PipelineOptions options;
  options.out = &out;
  run = RunFile(L"/nonexistent/x.jpg", options);
  EXPECT_EQ(run.reader, nullptr);
  EXPECT_EQ(out.Text(),
            "Failed on /nonexistent/x.jpg: File /nonexistent/x.jpg: failed on CreateFile: No such "
            "file or directory\n");
}

// Bytes held by the caller are borrowed, never unmapped or freed by the reader: they stay
// readable after the run is gone, and a second run over them gives the same.
TEST(Pipeline, BorrowedBytesOutliveTheRun) {
  const Bytes sample = test::MakeSampleJpeg();
  const std::string first = Pipe(sample, true, false).out;
  EXPECT_EQ(sample[0], 0xFF);
  EXPECT_EQ(Pipe(sample, true, false).out, first);
}

}  // namespace
}  // namespace corvi
