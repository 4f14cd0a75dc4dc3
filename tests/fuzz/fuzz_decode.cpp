// libFuzzer target: scan one input and decode it once as the tool does, with no limits and no
// pixels kept, whatever size the frame declares: exhausted data and untouched rows cost nothing,
// so big frames are cheap. Prints the size and the properties to a discarding stream.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/byte_coverage.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "jpeg/jpeg_reader.h"
#include "platform/format.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0 || size > (1u << 24)) {
    return 0;
  }
  corvi::OutStream sink(corvi::OutStream::kDiscard);
  auto length = static_cast<int32_t>(size);
  try {
    auto coverage = std::make_unique<corvi::ByteCoverage>(data, length);
    auto markers = std::make_unique<corvi::MarkerList>();
    markers->Scan(*coverage, data, length - 2);
    auto layer = std::make_unique<corvi::RawLayer>();
    {
      auto state = std::make_unique<corvi::DecodeState>();
      state->limits = corvi::Limits::None();
      state->keep_pixels = false;
      corvi::DecodeImage(*markers, *state, *layer, false);
    }
    corvi::Print(sink, L"Decoded %d x %d pixels\n", layer->width, layer->height);
    layer->properties.PrintProperties(sink);
  } catch (const corvi::RawLayerException& e) {
    corvi::Print(sink, L"Failed: %s\n", static_cast<const wchar_t*>(e.message));
  }
  return 0;
}
