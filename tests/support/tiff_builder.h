// Builds TIFF data in either byte order for the Exif tests: header, directories with inline and
// out-of-line values, and offsets patched in afterwards.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// One entry to write. `value` holds the value bytes in the builder's byte order: 4 bytes or fewer
// go inline (padded with zeros), more go behind the directory with their offset in the field.
// `field` overrides all that with a number written into the value field as it stands.
struct TiffEntryDef {
  TiffEntryDef(uint16_t entry_tag, uint16_t entry_type, uint32_t entry_count, Bytes bytes = {})
      : tag(entry_tag), type(entry_type), count(entry_count), value(std::move(bytes)) {}
  TiffEntryDef(uint16_t entry_tag, uint16_t entry_type, uint32_t entry_count, Bytes bytes,
               uint32_t entry_field)
      : tag(entry_tag),
        type(entry_type),
        count(entry_count),
        value(std::move(bytes)),
        field(entry_field) {}

  uint16_t tag;
  uint16_t type;
  uint32_t count;
  Bytes value;
  std::optional<uint32_t> field;
};

// Where a written directory and its parts stand, as offsets from the TIFF header.
struct TiffDirectoryPlace {
  uint32_t start;                     // the count field
  uint32_t next_field;                // the next-directory field behind the entries
  std::vector<uint32_t> value_field;  // each entry's value field
  std::vector<uint32_t> value;        // each entry's value: the field, or its out-of-line bytes
};

class TiffBuilder {
 public:
  // Writes the 8-byte header, "II" or "MM", 42, and the first offset (patchable at 4).
  explicit TiffBuilder(bool motorola, uint32_t first_offset = 8);

  uint32_t Here() const { return static_cast<uint32_t>(data.size()); }

  // Numbers in the builder's byte order.
  Bytes Short(uint16_t v) const;
  Bytes Long(uint32_t v) const;
  Bytes Rational(uint32_t numerator, uint32_t denominator) const;
  static Bytes Ascii(const std::string& text);  // with its terminating zero

  // Appends raw bytes and returns their offset.
  uint32_t Append(const Bytes& bytes);
  // Writes a directory at the end: count, entries, next link, then the out-of-line values.
  TiffDirectoryPlace Directory(const std::vector<TiffEntryDef>& entries, uint32_t next = 0);
  void Patch32(uint32_t at, uint32_t v);

  const Bytes& Tiff() const { return data; }
  // "Exif", 0, 0 and the TIFF data: an APP1 payload.
  Bytes ExifPayload() const;

 private:
  bool big_endian;
  Bytes data;
};

// A file: SOI, one APP1 with `payload`, then the segments of TinyGrayJpeg after its SOI. The
// APP1 payload starts at file offset 6, so TIFF offset x is file offset x + 12.
Bytes JpegWithApp1(const Bytes& payload);
// As above with `tail` behind the APP1 segment and before the rest of the stream.
Bytes JpegWithApp1(const Bytes& payload, const Bytes& tail);

// An Exif payload whose first directory holds Make "Cam" and the two thumbnail tags. The
// thumbnail, when given, is stored behind the directory and named by them.
Bytes ExifWithThumbnail(bool motorola, const Bytes& thumbnail, uint32_t offset = 0,
                        uint32_t length = 0);
// A file whose APP1 holds a thumbnail that holds an APP1 with a thumbnail, `levels` files in
// all, alternating byte orders. Every level has a frame and a scan header, so that the headers
// decode at every level; the innermost is TinyGrayJpeg, and the outermost has its tables.
Bytes NestedThumbnails(int levels);

}  // namespace corvi::test
