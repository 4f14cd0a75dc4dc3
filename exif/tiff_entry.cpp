// TIFF entries and the directories that own them: dumps, search by tag, tag spaces, and the copy
// of chosen tags into a layer's properties.
#include "exif/tiff_entry.h"

#include <bit>

#include "base/property.h"
#include "base/raw_layer.h"
#include "exif/tag_names.h"
#include "jpeg/jpeg_reader.h"
#include "platform/format.h"

namespace corvi {
namespace {

bool IsCollected(uint32_t tag) {
  for (uint32_t collected : CollectedTags) {
    if (collected == tag) {
      return true;
    }
  }
  return false;
}

}  // namespace

void TIFFEntry::Dump(const uint8_t* base, int32_t indent, OutStream& stream, uint8_t byte_order) {
  // The value's byte numbers in the file, last byte inclusive: a count of 0 gives a last byte one
  // below the first.
  const int64_t first = value - base;
  const int64_t size = int64_t{kPropertyTypeSizes[type < 13 ? type : 0]} * count;
  PrintIndent(indent, stream);
  Print(stream, L"Tag 0x%x \"%s\" (value bytes %d - %d):\n", tag & 0xFFFF, TIFFTagName(tag),
        static_cast<int32_t>(first), static_cast<int32_t>(first + size - 1));
  PrintIndent(indent, stream);
  PrintTypedValues(stream, type, count, value, byte_order);
  stream.PutAscii("\n", 1);
}

const TIFFEntry* TIFFEntry::Find(uint32_t wanted_tag) const {
  return tag == wanted_tag ? this : nullptr;
}

void TIFFEntry::OrTag(uint32_t bits) {
  tag |= bits;
}

void TIFFEntry::Collect(DecodeState& /*state*/, uint8_t byte_order, RawLayer& layer,
                        bool /*header_only*/) {
  // The full tag is compared: entries of GPS directories and maker notes are never collected.
  if (!IsCollected(tag)) {
    return;
  }
  PropertyList& properties = layer.properties;
  if (type == 2) {
    properties.SetString(tag, value, count);  // as the bytes stand, zeros included
    return;
  }
  if (count != 1) {
    return;
  }
  switch (type) {
    case 3:
      properties.SetShort(tag, ReadOrdered16(value, byte_order));
      break;
    case 4:
      properties.SetLong(tag, ReadOrdered32(value, byte_order));
      break;
    case 5:
      properties.SetRational(tag, ReadOrdered32(value, byte_order),
                             ReadOrdered32(value + 4, byte_order));
      break;
    case 11:
      properties.SetFloat(tag, std::bit_cast<float>(ReadOrdered32(value, byte_order)));
      break;
    default:
      break;
  }
}

TIFFNestedDir::~TIFFNestedDir() {
  delete directory;
}

void TIFFNestedDir::Dump(const uint8_t* base, int32_t indent, OutStream& stream,
                         uint8_t /*byte_order*/) {
  PrintIndent(indent, stream);
  Print(stream, L"%s:\n", TIFFTagName(tag));
  directory->Dump(base, indent + 1, stream);
}

// A nested directory answers for its children only; its own tag is not compared.
const TIFFEntry* TIFFNestedDir::Find(uint32_t wanted_tag) const {
  return directory->Find(wanted_tag);
}

// The tag space goes to the children; the entry keeps its own tag.
void TIFFNestedDir::OrTag(uint32_t bits) {
  directory->OrTag(bits);
}

void TIFFNestedDir::Collect(DecodeState& state, uint8_t byte_order, RawLayer& layer,
                            bool header_only) {
  directory->Collect(state, byte_order, layer, header_only);
}

void SonyMakerNote::Dump(const uint8_t* base, int32_t indent, OutStream& stream,
                         uint8_t /*byte_order*/) {
  PrintIndent(indent, stream);
  stream.PutAscii("Sony MakerNote:\n", 16);
  directory->Dump(base, indent + 1, stream);
}

// Maker notes are not searched: only the note's own tag answers.
const TIFFEntry* SonyMakerNote::Find(uint32_t wanted_tag) const {
  return TIFFEntry::Find(wanted_tag);
}

void CanonMakerNote::Dump(const uint8_t* base, int32_t indent, OutStream& stream,
                          uint8_t /*byte_order*/) {
  PrintIndent(indent, stream);
  stream.PutAscii("Canon MakerNote:\n", 17);
  directory->Dump(base, indent + 1, stream);
}

const TIFFEntry* CanonMakerNote::Find(uint32_t wanted_tag) const {
  return TIFFEntry::Find(wanted_tag);
}

TIFFDirectory::TIFFDirectory(uint8_t order)
    : items(new TIFFEntry*[4]()), capacity(4), byte_order(order) {}

TIFFDirectory::~TIFFDirectory() {
  for (uint32_t i = 0; i < count; ++i) {
    delete items[i];
  }
  delete[] items;
}

void TIFFDirectory::Reserve(uint32_t needed) {
  if (needed <= capacity) {
    return;
  }
  uint32_t new_capacity = needed * 2;
  auto** grown = new TIFFEntry*[new_capacity]();
  for (uint32_t i = 0; i < count; ++i) {
    grown[i] = items[i];
  }
  delete[] items;
  items = grown;
  capacity = new_capacity;
}

void TIFFDirectory::Append(std::unique_ptr<TIFFEntry> entry) {
  Reserve(count + 1);                // may throw; nothing changed yet
  items[count++] = entry.release();  // cannot throw
}

const TIFFEntry* TIFFDirectory::Find(uint32_t tag) const {
  for (uint32_t i = 0; i < count; ++i) {
    if (const TIFFEntry* found = items[i]->Find(tag)) {
      return found;
    }
  }
  return nullptr;
}

void TIFFDirectory::OrTag(uint32_t bits) {
  for (uint32_t i = 0; i < count; ++i) {
    items[i]->OrTag(bits);
  }
}

void TIFFDirectory::Collect(DecodeState& state, uint8_t order, RawLayer& layer, bool header_only) {
  for (uint32_t i = 0; i < count; ++i) {
    items[i]->Collect(state, order, layer, header_only);
  }
}

void TIFFDirectory::Dump(const uint8_t* base, int32_t indent, OutStream& stream) const {
  PrintIndent(indent, stream);
  Print(stream, L"TIFF data in %s order\n", byte_order == 1 ? L"Motorola" : L"Intel");
  for (uint32_t i = 0; i < count; ++i) {
    items[i]->Dump(base, indent, stream, byte_order);
  }
}

ThumbnailEntries FindThumbnailEntries(const TIFFDirectory& directory) {
  const auto* offset = dynamic_cast<const ThumbnailOffset*>(directory.Find(0x201));
  const auto* length = dynamic_cast<const ThumbnailLength*>(directory.Find(0x202));
  if (offset == nullptr || length == nullptr) {
    return ThumbnailEntries{};
  }
  return ThumbnailEntries{offset, length};
}

bool FindThumbnail(const TIFFDirectory& directory, int64_t& offset, uint32_t& length) {
  const ThumbnailEntries entries = FindThumbnailEntries(directory);
  if (entries.offset == nullptr) {
    return false;
  }
  offset = entries.offset->thumbnail;
  length = entries.length->length;
  return true;
}

}  // namespace corvi
