// The decoder's state for one stream, the driver DecodeImage and the sampling plan.
#include "decode/decode_state.h"

#include "base/raw_layer_exception.h"
#include "decode/huffman.h"

namespace corvi {

DecodeState::~DecodeState() {
  for (ComponentInfo*& c : components) {
    delete c;
    c = nullptr;
  }
  for (QuantTable*& q : quant_tables) {
    delete q;
    q = nullptr;
  }
  for (int i = 0; i < 4; ++i) {
    delete dc_tables[i];
    dc_tables[i] = nullptr;
    delete ac_tables[i];
    ac_tables[i] = nullptr;
  }
}

void DecodeImage(const MarkerList&, DecodeState&, RawLayer&, bool) {
  throw RawLayerException(L"Decoding is not built yet");
}

}  // namespace corvi
