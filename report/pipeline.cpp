// The pipeline of one file as corvi runs it: map, scan, dump, report line and decode stage.
#include "report/pipeline.h"

#include "base/byte_coverage.h"
#include "base/limits.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "platform/format.h"

namespace corvi {
namespace {

// An exception's message as corvi prints it: "(null)" for none.
std::wstring MessageOf(const RawLayerException& e) {
  return e.message != nullptr ? std::wstring(e.message) : std::wstring(L"(null)");
}

void PrintFailure(const wchar_t* name, const std::wstring& message, OutStream* out) {
  if (out != nullptr) {
    Print(*out, L"Failed on %s: %s\n", name, message.c_str());
  }
}

// The decode stage of a scanned run; a failure is printed and kept.
void DecodeRun(const wchar_t* name, FileRun& run, const PipelineOptions& options) {
  run.decode_ran = true;
  OutStream* out = options.decode_out != nullptr ? options.decode_out : options.out;
  try {
    const DecodeOutcome outcome = DecodeStage(*run.reader->markers, options.threads, out);
    run.decoded = true;
    run.width = outcome.width;
    run.height = outcome.height;
    run.mcu_width = outcome.mcu_width;
    run.mcu_height = outcome.mcu_height;
  } catch (const RawLayerException& e) {
    run.decode_failure = MessageOf(e);
    PrintFailure(name, run.decode_failure, out);
  }
}

// Scans the opened file, then dumps, reports and decodes it as asked.
void Continue(const wchar_t* name, FileRun& run, const PipelineOptions& options) {
  JPEGReader& reader = *run.reader;
  reader.limits = Limits::None();  // every file is reported as it is
  reader.claims = options.claims;
  OutStream* out = options.out;
  try {
    reader.Scan();
    if (options.dump && out != nullptr) {
      reader.Dump(name, *out);
    }
  } catch (const RawLayerException& e) {
    run.failure = MessageOf(e);
    PrintFailure(name, run.failure, out);
    return;
  }
  run.scanned = true;
  if (out != nullptr) {
    const uint32_t left = reader.coverage->LeftCount();
    Print(*out, L"Finished parsing %s (identified %d bytes out of %d, %d left).\n", name,
          reader.length - left, reader.length, left);
  }
  if (options.decode) {
    if (out != nullptr) {
      out->Flush();  // the report line stands while a long decode runs
    }
    DecodeRun(name, run, options);
  }
}

// Opens the file with `open` and runs the rest of the pipeline on it.
template <typename Open>
FileRun OpenAndRun(const wchar_t* name, const PipelineOptions& options, Open open) {
  FileRun run;
  try {
    run.reader = open();
  } catch (const RawLayerException& e) {
    run.failure = MessageOf(e);
    PrintFailure(name, run.failure, options.out);
    return run;
  }
  Continue(name, run, options);
  return run;
}

}  // namespace

DecodeOutcome DecodeStage(const MarkerList& markers, bool threads, OutStream* out) {
  DecodeOutcome outcome;
  auto layer = std::make_unique<RawLayer>();
  {
    auto state = std::make_unique<DecodeState>();
    SetToolDecoding(*state);
    state->threads = threads;
    DecodeImage(markers, *state, *layer, false);
    outcome.mcu_width = state->mcu_width;
    outcome.mcu_height = state->mcu_height;
  }
  outcome.width = layer->width;
  outcome.height = layer->height;
  if (out != nullptr) {
    Print(*out, L"Decoded %d x %d pixels\n", layer->width, layer->height);
    layer->properties.PrintProperties(*out);
  }
  return outcome;
}

FileRun RunFile(const wchar_t* name, const PipelineOptions& options) {
  return OpenAndRun(name, options, [&] { return std::make_unique<JPEGReader>(name); });
}

FileRun RunFile(const wchar_t* name, const std::string& path, const PipelineOptions& options) {
  return OpenAndRun(name, options, [&] { return std::make_unique<JPEGReader>(name, path); });
}

FileRun RunBytes(const wchar_t* name, const uint8_t* data, uint32_t length,
                 const PipelineOptions& options) {
  FileRun run;
  run.reader = std::make_unique<JPEGReader>(data, length);
  Continue(name, run, options);
  return run;
}

}  // namespace corvi
