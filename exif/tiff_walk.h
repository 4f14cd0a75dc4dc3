// The TIFF directory walk: the header, and the directories that its offsets lead to.
#pragma once

#include <cstdint>

#include "exif/tiff_entry.h"

namespace corvi {

class ByteCoverage;

// Claims the 8-byte TIFF header at `header`, takes its byte order into `directory` and walks the
// directories from the first offset it names. Throws on a bad header.
void ParseTIFFHeader(TIFFDirectory& directory, ByteCoverage& coverage, const uint8_t* header);

// Reads the directories at `offset` from `base` (the TIFF header) into `directory`. Offsets are
// signed 32-bit; nothing outside the mapped data is read or pointed at.
void Walk(TIFFDirectory& directory, ByteCoverage& coverage, const uint8_t* base, int32_t offset,
          const TIFFDirectory& root, bool follow_next);

}  // namespace corvi
