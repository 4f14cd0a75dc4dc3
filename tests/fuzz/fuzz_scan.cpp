// libFuzzer target: scan and dump one input the way the tool does, with the count of bytes left,
// catching the exception where the tool catches it.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "base/byte_coverage.h"
#include "base/raw_layer_exception.h"
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
    markers->Dump(data, 1, sink);
    corvi::Print(sink, L"%u left\n", coverage->LeftCount());
  } catch (const corvi::RawLayerException& e) {
    corvi::Print(sink, L"Failed: %s\n", static_cast<const wchar_t*>(e.message));
  }
  return 0;
}
