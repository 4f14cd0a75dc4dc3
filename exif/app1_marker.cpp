// The APP1 segment: Exif with its TIFF header and thumbnail, XMP packets, and other content.
#include "jpeg/markers.h"

namespace corvi {
APP1Marker::~APP1Marker() {}
void APP1Marker::Parse(ByteCoverage&) {}
void APP1Marker::Apply(DecodeState&, RawLayer&, bool) {}
void APP1Marker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
}  // namespace corvi
