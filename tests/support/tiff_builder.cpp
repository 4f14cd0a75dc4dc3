// Builds TIFF data in either byte order.
#include "tests/support/tiff_builder.h"

#include <algorithm>

namespace corvi::test {

TiffBuilder::TiffBuilder(bool motorola) : big_endian(motorola), data(2, motorola ? 0x4D : 0x49) {
  Append(Short(42));
  Append(Long(8));
}

Bytes TiffBuilder::Number(uint32_t v, int size) const {
  Bytes out;
  for (int i = 0; i < size; ++i) {
    out.push_back(static_cast<uint8_t>(v >> (big_endian ? 8 * (size - 1 - i) : 8 * i)));
  }
  return out;
}

Bytes TiffBuilder::Rational(uint32_t numerator, uint32_t denominator) const {
  Bytes out = Long(numerator);
  const Bytes low = Long(denominator);
  out.insert(out.end(), low.begin(), low.end());
  return out;
}

Bytes TiffBuilder::Ascii(const std::string& text) {
  return Bytes(text.c_str(), text.c_str() + text.size() + 1);
}

uint32_t TiffBuilder::Append(const Bytes& bytes) {
  const uint32_t at = Here();
  data.insert(data.end(), bytes.begin(), bytes.end());
  return at;
}

TiffDirectoryPlace TiffBuilder::Directory(const std::vector<TiffEntryDef>& entries, uint32_t next) {
  TiffDirectoryPlace place{Append(Short(static_cast<uint16_t>(entries.size()))), 0, {}};
  for (const TiffEntryDef& e : entries) {
    Append(Short(e.tag));
    Append(Short(e.type));
    Append(Long(e.count));
    Bytes inline_value = e.value.size() <= 4 ? e.value : Bytes();
    inline_value.resize(4, 0);
    place.value_field.push_back(Append(e.field ? Long(*e.field) : inline_value));
  }
  place.next_field = Append(Long(next));
  for (size_t i = 0; i < entries.size(); ++i) {
    if (!entries[i].field && entries[i].value.size() > 4) {
      Patch32(place.value_field[i], Append(entries[i].value));
    }
  }
  return place;
}

void TiffBuilder::Patch32(uint32_t at, uint32_t v) {
  const Bytes b = Long(v);
  std::copy(b.begin(), b.end(), data.begin() + at);
}

Bytes TiffBuilder::ExifPayload() const {
  Bytes out = {'E', 'x', 'i', 'f', 0, 0};
  out.insert(out.end(), data.begin(), data.end());
  return out;
}

Bytes JpegWithApp1(const Bytes& payload, const Bytes& tail) {
  const Bytes rest = TinyGrayJpeg();
  JpegBuilder b;
  return b.Soi().Segment(0xE1, payload).Raw(tail).Raw({rest.begin() + 2, rest.end()}).bytes();
}

}  // namespace corvi::test
