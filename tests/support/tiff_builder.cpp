// Builds TIFF data in either byte order for the Exif tests.
#include "tests/support/tiff_builder.h"

namespace corvi::test {

TiffBuilder::TiffBuilder(bool motorola, uint32_t first_offset) : big_endian(motorola) {
  uint8_t mark = motorola ? 0x4D : 0x49;
  data = {mark, mark};
  Append(Short(42));
  Append(Long(first_offset));
}

Bytes TiffBuilder::Short(uint16_t v) const {
  auto high = static_cast<uint8_t>(v >> 8);
  auto low = static_cast<uint8_t>(v);
  return big_endian ? Bytes{high, low} : Bytes{low, high};
}

Bytes TiffBuilder::Long(uint32_t v) const {
  Bytes out(4);
  for (int i = 0; i < 4; ++i) {
    int shift = big_endian ? 24 - 8 * i : 8 * i;
    out[static_cast<size_t>(i)] = static_cast<uint8_t>(v >> shift);
  }
  return out;
}

Bytes TiffBuilder::Rational(uint32_t numerator, uint32_t denominator) const {
  Bytes out = Long(numerator);
  Bytes low = Long(denominator);
  out.insert(out.end(), low.begin(), low.end());
  return out;
}

Bytes TiffBuilder::Ascii(const std::string& text) {
  Bytes out(text.begin(), text.end());
  out.push_back(0);
  return out;
}

uint32_t TiffBuilder::Append(const Bytes& bytes) {
  uint32_t at = Here();
  data.insert(data.end(), bytes.begin(), bytes.end());
  return at;
}

TiffDirectoryPlace TiffBuilder::Directory(const std::vector<TiffEntryDef>& entries, uint32_t next) {
  TiffDirectoryPlace place;
  place.start = Append(Short(static_cast<uint16_t>(entries.size())));
  for (const TiffEntryDef& e : entries) {
    Append(Short(e.tag));
    Append(Short(e.type));
    Append(Long(e.count));
    uint32_t field = Append({0, 0, 0, 0});
    place.value_field.push_back(field);
    place.value.push_back(field);
    if (e.field) {
      Patch32(field, *e.field);
    } else if (e.value.size() <= 4) {
      for (size_t i = 0; i < e.value.size(); ++i) {
        data[field + i] = e.value[i];
      }
    }
  }
  place.next_field = Append(Long(next));
  for (size_t i = 0; i < entries.size(); ++i) {
    const TiffEntryDef& e = entries[i];
    if (!e.field && e.value.size() > 4) {
      uint32_t at = Append(e.value);
      Patch32(place.value_field[i], at);
      place.value[i] = at;
    }
  }
  return place;
}

void TiffBuilder::Patch32(uint32_t at, uint32_t v) {
  Bytes b = Long(v);
  for (uint32_t i = 0; i < 4; ++i) {
    data[at + i] = b[i];
  }
}

Bytes TiffBuilder::ExifPayload() const {
  Bytes out(data);
  out.insert(out.begin(), {'E', 'x', 'i', 'f', 0, 0});
  return out;
}

Bytes JpegWithApp1(const Bytes& payload) {
  return JpegWithApp1(payload, {});
}

Bytes JpegWithApp1(const Bytes& payload, const Bytes& tail) {
  JpegBuilder builder;
  builder.Soi().Segment(0xE1, payload).Raw(tail);
  Bytes out = builder.bytes();
  Bytes rest = TinyGrayJpeg();
  out.insert(out.end(), rest.begin() + 2, rest.end());
  return out;
}

Bytes ExifWithThumbnail(bool motorola, const Bytes& thumbnail, uint32_t offset, uint32_t length) {
  TiffBuilder b(motorola);
  auto dir = b.Directory({{0x10F, 2, 4, TiffBuilder::Ascii("Cam")},
                          {0x201, 4, 1, {}, offset},
                          {0x202, 4, 1, {}, length}});
  if (!thumbnail.empty()) {
    b.Patch32(dir.value_field[1], b.Append(thumbnail));
    b.Patch32(dir.value_field[2], static_cast<uint32_t>(thumbnail.size()));
  }
  return b.ExifPayload();
}

Bytes NestedThumbnails(int levels) {
  const Bytes tiny = TinyGrayJpeg();
  Bytes inner = tiny;
  for (int i = 1; i < levels; ++i) {
    TiffBuilder t(i % 2 == 0);
    t.Directory({{0x201, 4, 1, {}, 38}, {0x202, 4, 1, {}, static_cast<uint32_t>(inner.size())}});
    t.Append(inner);
    JpegBuilder b;
    b.Soi().Segment(0xE1, t.ExifPayload());
    if (i + 1 == levels) {
      b.Raw(Bytes(tiny.begin() + 2, tiny.end()));  // the file's own tables, so its pixels decode
    } else {
      b.Sof(0xC0, 8, 8, 8, {{1, 0x11, 0}}).Sos({{1, 0x00}}).Eoi();
    }
    inner = b.bytes();
  }
  return inner;
}

}  // namespace corvi::test
