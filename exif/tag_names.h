// The names of TIFF tags, and the tags whose values go into a layer's properties.
#pragma once

#include <cstdint>

namespace corvi {

struct TIFFTagRow {
  uint32_t key;
  const wchar_t* name;
};
extern const TIFFTagRow TIFFTagNames[144];
extern const uint32_t CollectedTags[14];

// The name of a full tag (tag space included), or "???".
const wchar_t* TIFFTagName(uint32_t tag);

}  // namespace corvi
