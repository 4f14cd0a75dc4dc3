// The pipeline of one file as corvi runs it: map, scan, dump, report line and decode stage, for
// every tool that reads files the way corvi does.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "jpeg/jpeg_reader.h"

namespace corvi {

class OutStream;
struct ClaimRecord;
struct MarkerList;

struct PipelineOptions {
  bool dump = false;    // print the segment dump ahead of the report line
  bool decode = false;  // decode the pixels as `corvi -d` does, keeping none
  bool threads = true;  // the decoder may take its second thread
  // Where corvi's lines go: the dump, the report line and a failure; null prints nothing.
  OutStream* out = nullptr;
  // Where the decode stage's lines go; null sends them to `out`.
  OutStream* decode_out = nullptr;
  // When set, every claim of the scan is recorded here with its owner, up to a failure.
  std::vector<ClaimRecord>* claims = nullptr;
};

// What the pipeline did with one file.
struct FileRun {
  // The reader: its segments and its coverage, as far as the scan got. Null when the file could
  // not be opened.
  std::unique_ptr<JPEGReader> reader;
  bool scanned = false;
  std::wstring failure;  // why the file could not be opened or scanned; empty when it was

  bool decode_ran = false;
  bool decoded = false;
  std::wstring decode_failure;
  uint32_t width = 0;  // of the decoded frame
  uint32_t height = 0;
  int32_t mcu_width = 0;  // in pixels
  int32_t mcu_height = 0;
};

// What the decode stage gives besides its lines.
struct DecodeOutcome {
  uint32_t width = 0;
  uint32_t height = 0;
  int32_t mcu_width = 0;  // in pixels
  int32_t mcu_height = 0;
};

// Decodes the scanned file as `corvi -d` does, keeping no pixels, and prints its size and
// properties to `out` unless it is null. Throws RawLayerException.
DecodeOutcome DecodeStage(const MarkerList& markers, bool threads, OutStream* out);

// Runs the pipeline on the file called `name`: every failure is caught, printed as corvi's
// "Failed on" line and kept in the run.
FileRun RunFile(const wchar_t* name, const PipelineOptions& options);
// The same for a file found at `path` (as the system takes it), called `name` in every line.
FileRun RunFile(const wchar_t* name, const std::string& path, const PipelineOptions& options);
// Runs it on `length` bytes held by the caller, which must outlive the run; `name` is the name
// the lines give.
FileRun RunBytes(const wchar_t* name, const uint8_t* data, uint32_t length,
                 const PipelineOptions& options);

}  // namespace corvi
