// Parse, Dump and Apply of the application and comment segments.
#include "base/byte_coverage.h"
#include "jpeg/markers.h"

namespace corvi {
void APP0Marker::Parse(ByteCoverage&) {}
void APP0Marker::Apply(DecodeState&, RawLayer&, bool) {}
void APP0Marker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void APP2Marker::Parse(ByteCoverage&) {}
void APP2Marker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void APP12Marker::Parse(ByteCoverage&) {}
void APP12Marker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void APP13Marker::Parse(ByteCoverage&) {}
void APP13Marker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void APP14Marker::Parse(ByteCoverage&) {}
void APP14Marker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void COMMarker::Parse(ByteCoverage&) {}
void COMMarker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
}  // namespace corvi
