// The TIFF directory walk: directory chains, the Exif, GPS and interoperability sub-directories,
// and the maker notes of Canon and Sony.
#include <cstring>
#include <memory>

#include "base/byte_coverage.h"
#include "base/property.h"
#include "base/raw_layer_exception.h"
#include "exif/tiff_directory.h"

namespace corvi {
namespace {

constexpr uint32_t kMaxEntryCount = 100000;

// The 12-byte heads of a Sony maker note; its directory starts behind them.
constexpr uint8_t kSonyCamHead[12] = {'S', 'O', 'N', 'Y', ' ', 'C', 'A', 'M', 0x20, 0, 0, 0};
constexpr uint8_t kSonyDscHead[12] = {'S', 'O', 'N', 'Y', ' ', 'D', 'S', 'C', 0x20, 0, 0, 0};

// What the walk knows of one entry once its value has passed the tests of the walk.
struct EntryFields {
  uint32_t ifd;
  uint32_t tag;
  uint32_t type;
  uint32_t count;
  int64_t value_offset;  // from the TIFF header
  const uint8_t* value;  // inside the entry's identified 12 bytes or a tested out-of-line range
};

std::unique_ptr<TIFFEntry> PlainEntry(const EntryFields& e) {
  return std::make_unique<TIFFEntry>(e.ifd, e.tag, e.type, e.count, e.value);
}

// A maker note's walk is guarded: a failure ends the note only, and what was read stays.
void WalkNote(TIFFDirectory& note, ByteCoverage& coverage, const uint8_t* base, int64_t offset,
              const TIFFDirectory& root, bool follow_next, uint32_t tag_space) {
  try {
    Walk(note, coverage, base, static_cast<int32_t>(offset), root, follow_next);
  } catch (const RawLayerException&) {
    // Not reported: the rest of the parent directory goes on.
  }
  note.OrTag(tag_space);
}

void HandleMakerNote(TIFFDirectory& directory, ByteCoverage& coverage, const uint8_t* base,
                     const TIFFDirectory& root, const EntryFields& e) {
  // The maker is looked up in what has been read so far: a Make behind the note is not seen.
  const TIFFEntry* make = root.Find(0x10F);
  if (make == nullptr || make->type != 2) {
    directory.Append(PlainEntry(e));
    return;
  }
  // A Make of count 5 or more has been tested out of line, so its first bytes can be read.
  if (make->count >= 6 && std::memcmp(make->value, "Canon", 5) == 0) {
    auto note = std::make_unique<CanonMakerNote>(e.ifd, e.tag, e.type, e.count, e.value,
                                                 new TIFFDirectory(directory.byte_order));
    TIFFDirectory& sub = *note->directory;
    directory.Append(std::move(note));
    WalkNote(sub, coverage, base, e.value_offset, root, true, kCanonTagSpace);
    return;
  }
  if (make->count >= 5 && std::memcmp(make->value, "SONY", 5) == 0) {
    const int64_t head = coverage.OffsetOf(base) + e.value_offset;
    if (!coverage.IsUnidentifiedAt(head, 12) ||
        (std::memcmp(e.value, kSonyCamHead, 12) != 0 &&
         std::memcmp(e.value, kSonyDscHead, 12) != 0)) {
      directory.Append(PlainEntry(e));
      return;
    }
    coverage.IdentifyAt(head, 12);
    auto note = std::make_unique<SonyMakerNote>(e.ifd, e.tag, e.type, e.count, e.value + 12,
                                                new TIFFDirectory(directory.byte_order));
    TIFFDirectory& sub = *note->directory;
    directory.Append(std::move(note));
    WalkNote(sub, coverage, base, e.value_offset + 12, root, false, kSonyTagSpace);
    return;
  }
  directory.Append(PlainEntry(e));
}

}  // namespace

// Offsets are signed 32-bit numbers from the TIFF header at `base`. They are turned into offsets
// from the start of the covered data as 64-bit integers and tested or claimed before any pointer
// is formed from them. Cycles end at the coverage: a directory's count field, once claimed,
// fails the test of every later visit.
void Walk(TIFFDirectory& directory, ByteCoverage& coverage, const uint8_t* base, int32_t offset,
          const TIFFDirectory& root, bool follow_next) {
  const int64_t origin = coverage.OffsetOf(base);
  const uint8_t order = directory.byte_order;
  uint32_t ifd = 0;
  int64_t pos = offset;
  for (;;) {
    // The lowest offset that this directory points at; the next-directory field is read only
    // when it lies before all of them.
    int64_t lowest = 0x7FFFFFFF;
    if (!coverage.IsUnidentifiedAt(origin + pos, 2)) {
      return;
    }
    coverage.IdentifyAt(origin + pos, 2);
    const uint16_t entry_count = ReadOrdered16(base + pos, order);
    pos += 2;
    for (uint32_t i = 0; i < entry_count; ++i) {
      // TIFF 6.0, IFD entry: tag, type, count, value or offset.
      coverage.IdentifyAt(origin + pos, 12);
      const uint8_t* entry = base + pos;
      const uint16_t tag = ReadOrdered16(entry, order);
      const uint16_t type = ReadOrdered16(entry + 2, order);
      if (type >= 13 || kPropertyTypeSizes[type] < 0) {
        throw RawLayerException(L"Unknown TIFF data type");
      }
      const uint32_t count = ReadOrdered32(entry + 4, order);
      if (count > kMaxEntryCount) {  // also every count that is negative as a signed number
        throw RawLayerException(L"Invalid TIFF data count");
      }
      const uint32_t size = count * static_cast<uint32_t>(kPropertyTypeSizes[type]);
      const int64_t field = pos + 8;
      pos += 12;

      EntryFields e{ifd, tag, type, count, field, entry + 8};
      if (size > 4) {
        const int64_t value_offset = static_cast<int32_t>(ReadOrdered32(entry + 8, order));
        if (value_offset < lowest) {
          lowest = value_offset;
        }
        if (!coverage.IsUnidentifiedAt(origin + value_offset, static_cast<int32_t>(size))) {
          continue;  // dropped without a message; the bytes stay open for other entries
        }
        e.value_offset = value_offset;
        e.value = coverage.base + (origin + value_offset);
      }

      // The special tags read a 32-bit number at the value whatever its type and count: an
      // out-of-line value has more than 4 tested bytes, an inline one its 4-byte field.
      switch (tag) {
        case 0x201: {
          const int64_t number = static_cast<int32_t>(ReadOrdered32(e.value, order));
          if (number < lowest) {
            lowest = number;
          }
          auto thumbnail = std::make_unique<ThumbnailOffset>(ifd, tag, type, count, e.value);
          thumbnail->thumbnail = origin + number;  // tested before use by the APP1 segment
          directory.Append(std::move(thumbnail));
          break;
        }
        case 0x202: {
          auto length = std::make_unique<ThumbnailLength>(ifd, tag, type, count, e.value);
          length->length = ReadOrdered32(e.value, order);
          directory.Append(std::move(length));
          break;
        }
        case 0x8769:
        case 0x8825:
        case 0xA005: {
          const int64_t sub_offset = static_cast<int32_t>(ReadOrdered32(e.value, order));
          if (!coverage.IsUnidentifiedAt(origin + sub_offset, 2)) {
            break;  // not even a plain entry stands for the tag
          }
          if (sub_offset < lowest) {
            lowest = sub_offset;
          }
          auto nested = std::make_unique<TIFFNestedDir>(ifd, tag, type, count, e.value,
                                                        new TIFFDirectory(order));
          TIFFDirectory& sub = *nested->directory;
          directory.Append(std::move(nested));  // before the walk: it keeps its place on failure
          Walk(sub, coverage, base, static_cast<int32_t>(sub_offset), root, true);
          if (tag == 0x8825) {
            sub.OrTag(kGPSTagSpace);
          }
          break;
        }
        case 0x927C:
          HandleMakerNote(directory, coverage, base, root, e);
          break;
        default:
          directory.Append(PlainEntry(e));
          break;
      }
    }

    if (!follow_next || pos >= lowest) {
      return;
    }
    if (!coverage.IsUnidentifiedAt(origin + pos, 4)) {
      return;
    }
    coverage.IdentifyAt(origin + pos, 4);
    const int64_t next = static_cast<int32_t>(ReadOrdered32(base + pos, order));
    if (next == 0) {
      return;
    }
    ++ifd;
    pos = next;
  }
}

}  // namespace corvi
