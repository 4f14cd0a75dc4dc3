// Builds TIFF data in either byte order: header, directories with inline and out-of-line values,
// and offsets patched in afterwards.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/jpeg_builder.h"

namespace corvi::test {

// One entry to write. `value` holds the value bytes in the builder's byte order: 4 bytes or fewer
// go inline (padded with zeros), more go behind the directory with their offset in the field.
// `field`, when given, is written into the value field instead.
struct TiffEntryDef {
  uint16_t tag;
  uint16_t type;
  uint32_t count;
  Bytes value = {};
  std::optional<uint32_t> field = std::nullopt;
};

// Where a written directory and its fields stand, as offsets from the TIFF header.
struct TiffDirectoryPlace {
  uint32_t start;                     // the count field
  uint32_t next_field;                // the next-directory field behind the entries
  std::vector<uint32_t> value_field;  // each entry's value field
};

class TiffBuilder {
 public:
  // Writes the 8-byte header: "II" or "MM", 42, and a first offset of 8.
  explicit TiffBuilder(bool motorola);

  uint32_t Here() const { return static_cast<uint32_t>(data.size()); }
  // Numbers in the builder's byte order; text with its terminating zero.
  Bytes Short(uint16_t v) const { return Number(v, 2); }
  Bytes Long(uint32_t v) const { return Number(v, 4); }
  Bytes Rational(uint32_t numerator, uint32_t denominator) const;
  static Bytes Ascii(const std::string& text);

  // Appends raw bytes and returns their offset.
  uint32_t Append(const Bytes& bytes);
  // Writes a directory at the end: count, entries, next link, then the out-of-line values.
  TiffDirectoryPlace Directory(const std::vector<TiffEntryDef>& entries, uint32_t next = 0);
  void Patch32(uint32_t at, uint32_t v);
  // "Exif", 0, 0 and the TIFF data: an APP1 payload.
  Bytes ExifPayload() const;

 private:
  Bytes Number(uint32_t v, int size) const;

  bool big_endian;
  Bytes data;
};

// SOI, one APP1 with `payload`, `tail`, then the segments of TinyGrayJpeg after its SOI. The APP1
// payload starts at file offset 6, so TIFF offset x is file offset x + 12.
Bytes JpegWithApp1(const Bytes& payload, const Bytes& tail = {});

}  // namespace corvi::test
