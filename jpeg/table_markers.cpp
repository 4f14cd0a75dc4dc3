// Parse and Dump of the table and frame segments: DQT, DHT, SOF, SOS and DRI.
#include "base/byte_coverage.h"
#include "jpeg/markers.h"

namespace corvi {
void SOFMarker::Parse(ByteCoverage&) {}
void SOFMarker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void DHTMarker::Parse(ByteCoverage&) {}
void DHTMarker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void SOSMarker::Parse(ByteCoverage&) {}
void SOSMarker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void DQTMarker::Parse(ByteCoverage&) {}
void DQTMarker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
void DRIMarker::Parse(ByteCoverage&) {}
void DRIMarker::Dump(const uint8_t* b, int32_t i, OutStream& s) { Marker::Dump(b, i, s); }
}  // namespace corvi
