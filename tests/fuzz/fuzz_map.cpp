// libFuzzer target: the map page of one input: corvi's pipeline with its claims, dumps and (for
// one input in four) the decode stage, the report read from that run, and the page drawn from both.
#include <cstddef>
#include <cstdint>
#include <string>

#include "map/map_page.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > (1u << 24)) {
    return 0;
  }
  const bool decode = size > 0 && (data[0] & 3) == 0;
  const corvi::FileMap map = corvi::MapBytes("fuzz.jpg", data, size, decode);
  return corvi::MapPage(map, data).empty() ? 1 : 0;
}
