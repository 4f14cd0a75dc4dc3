// Damaged variants of a JPEG file, made the way files get damaged: cut short, overwritten with a
// run of 0xFF, an end of image written into the data, a restart marker renumbered, bytes added
// behind the end, single bytes flipped.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

struct Variant {
  std::string name;  // what was done, with the offsets: "cut 40000", "ff-run 30000+100"
  Bytes bytes;
  int64_t damage_at = -1;  // where the damage begins, -1 where nothing of the picture is hurt
};

// The variants of `file` for the checker's tests: cuts at several places of the entropy-coded
// data and at its very end, a run of 0xFF, FF D9 inside the data, the first restart marker
// renumbered (where there is one), 10 bytes behind the end, and `flips` single-byte flips in the
// data at offsets drawn from `seed`.
std::vector<Variant> MakeVariants(const Bytes& file, uint32_t seed, int flips);

// [first, last) of the first scan's entropy-coded data.
std::pair<size_t, size_t> FirstScanData(const Bytes& file);

}  // namespace corvi::test
