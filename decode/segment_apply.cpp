// Apply of the table, frame, scan and restart segments: they fill the DecodeState.
#include "jpeg/markers.h"

namespace corvi {
void SOFMarker::Apply(DecodeState&, RawLayer&, bool) {}
void DHTMarker::Apply(DecodeState&, RawLayer&, bool) {}
void SOSMarker::Apply(DecodeState&, RawLayer&, bool) {}
void DQTMarker::Apply(DecodeState&, RawLayer&, bool) {}
void DRIMarker::Apply(DecodeState&, RawLayer&, bool) {}
void DRIMarker::Write(MergeState&, const RawLayer&, const PropertyList&, uint32_t, ByteBuffer&) {}
}  // namespace corvi
