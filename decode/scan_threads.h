// Progressive scans decoded on two threads, in groups that share no coefficient.
#pragma once

#include <cstdint>

namespace corvi {

struct BitReader;
struct CoefficientStore;
struct DecodeState;
struct RawLayer;
class RowFinisher;

// With more than one processor: decodes the scan at the reader's cursor and the scans behind it
// as DecodeScans does, on two threads. The scans are planned first from the markers that
// follow each scan's data; scans that share a component and a coefficient stay in order on one
// thread, and independent groups of them go to the other. The plan is then checked against
// where each scan really stopped reading. Returns false when it declines or a check fails (also
// when a scan throws): then the store is all zero again and `state` and `reader` are as they
// were, for DecodeScans to decode one scan after another.
// With `follow`: the second thread, done with its own scans, transforms and converts the rows that
// the first thread's last scan has passed, and `store.finished_rows` says how many; the rows may
// be done again if the plan fails. Only where no DC value is left pending.
bool DecodeScansOnTwoThreads(DecodeState& state, RawLayer& layer, CoefficientStore& store,
                             BitReader& reader, RowFinisher* follow);

// How many frames of this process DecodeScansOnTwoThreads has decoded (returned true for).
uint64_t TwoThreadScanCount();

}  // namespace corvi
