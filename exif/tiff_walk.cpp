// The TIFF directory walk: directory chains, the Exif, GPS and interoperability sub-directories,
// and the maker notes of Canon and Sony.
#include "exif/tiff_walk.h"

#include <cstring>
#include <memory>
#include <vector>

#include "base/byte_coverage.h"
#include "base/limits.h"
#include "base/property.h"
#include "base/raw_layer_exception.h"

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

// A directory that an entry opens, for the walk to descend into once the entry is read.
struct Descent {
  TIFFDirectory* sub = nullptr;  // null: nothing to walk
  int64_t offset = 0;            // from the TIFF header
  uint32_t tag = 0;
  bool note = false;  // a maker note: guarded, tagged with `tag_space` afterwards
  bool follow_next = true;
  uint32_t tag_space = 0;
};

Descent HandleMakerNote(TIFFDirectory& directory, ByteCoverage& coverage, const uint8_t* base,
                        const TIFFDirectory& root, const EntryFields& e) {
  Descent d;
  // The maker is looked up in what has been read so far: a Make behind the note is not seen.
  const TIFFEntry* make = root.Find(0x10F);
  if (make == nullptr || make->type != 2) {
    directory.Append(PlainEntry(e));
    return d;
  }
  // A Make of count 5 or more has been tested out of line, so its first bytes can be read.
  if (make->count >= 6 && std::memcmp(make->value, "Canon", 5) == 0) {
    auto note = std::make_unique<CanonMakerNote>(e.ifd, e.tag, e.type, e.count, e.value,
                                                 new TIFFDirectory(directory.byte_order));
    d = Descent{note->directory, e.value_offset, e.tag, true, true, kCanonTagSpace};
    directory.Append(std::move(note));
    return d;
  }
  if (make->count >= 5 && std::memcmp(make->value, "SONY", 5) == 0) {
    const int64_t head = coverage.OffsetOf(base) + e.value_offset;
    if (!coverage.IsUnidentifiedAt(head, 12) || (std::memcmp(e.value, kSonyCamHead, 12) != 0 &&
                                                 std::memcmp(e.value, kSonyDscHead, 12) != 0)) {
      directory.Append(PlainEntry(e));
      return d;
    }
    coverage.IdentifyAt(head, 12);
    auto note = std::make_unique<SonyMakerNote>(e.ifd, e.tag, e.type, e.count, e.value + 12,
                                                new TIFFDirectory(directory.byte_order));
    d = Descent{note->directory, e.value_offset + 12, e.tag, true, false, kSonyTagSpace};
    directory.Append(std::move(note));
    return d;
  }
  directory.Append(PlainEntry(e));
  return d;
}

// Reads the entry at `pos` (its 12 bytes claimed here) into `directory` and moves `pos` past it.
// A directory it opens is appended in its place and returned for the walk to descend into, so
// that the recursion of nested directories goes through Walk's small frame alone.
[[gnu::noinline]] Descent ReadEntry(TIFFDirectory& directory, ByteCoverage& coverage,
                                    const uint8_t* base, const TIFFDirectory& root, uint32_t ifd,
                                    int64_t& pos, int64_t& lowest) {
  const int64_t origin = coverage.OffsetOf(base);
  const uint8_t order = directory.byte_order;
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
      return Descent{};  // dropped without a message; the bytes stay open for other entries
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
      return Descent{};
    }
    case 0x202: {
      auto length = std::make_unique<ThumbnailLength>(ifd, tag, type, count, e.value);
      length->length = ReadOrdered32(e.value, order);
      directory.Append(std::move(length));
      return Descent{};
    }
    case 0x8769:
    case 0x8825:
    case 0xA005: {
      const int64_t sub_offset = static_cast<int32_t>(ReadOrdered32(e.value, order));
      if (!coverage.IsUnidentifiedAt(origin + sub_offset, 2)) {
        return Descent{};  // not even a plain entry stands for the tag
      }
      if (sub_offset < lowest) {
        lowest = sub_offset;
      }
      auto nested =
          std::make_unique<TIFFNestedDir>(ifd, tag, type, count, e.value, new TIFFDirectory(order));
      Descent d{nested->directory, sub_offset, tag, false, true, 0};
      directory.Append(std::move(nested));  // before the walk: it keeps its place on failure
      return d;
    }
    case 0x927C:
      return HandleMakerNote(directory, coverage, base, root, e);
    default:
      directory.Append(PlainEntry(e));
      return Descent{};
  }
}

}  // namespace

// Offsets are signed 32-bit numbers from the TIFF header at `base`. They are turned into offsets
// from the start of the covered data as 64-bit integers and tested or claimed before any pointer
// is formed from them. Cycles end at the coverage: a directory's count field, once claimed,
// fails the test of every later visit.
void Walk(TIFFDirectory& directory, ByteCoverage& coverage, const uint8_t* base, int32_t offset,
          const TIFFDirectory& root, bool follow_next) {
  // Directories nest as deep as the data lets them (thousands of levels in one segment), so the
  // walk keeps its own stack rather than the machine's: the innermost directory is on top.
  enum class Kind : uint8_t { kRoot, kNested, kNote };
  struct Frame {
    TIFFDirectory* directory;
    int64_t pos;
    int64_t lowest;  // the lowest offset this directory points at
    uint32_t ifd;
    uint32_t remaining;  // entries of the current directory still to read
    bool follow_next;
    bool in_entries;  // the count has been read
    Kind kind;
    uint32_t tag;        // of the entry that opened the directory
    uint32_t tag_space;  // a note's tag space, ORed into its entries when its walk ends
  };
  const int64_t origin = coverage.OffsetOf(base);
  std::vector<Frame> stack;
  stack.push_back(
      Frame{&directory, offset, 0x7FFFFFFF, 0, 0, follow_next, false, Kind::kRoot, 0, 0});
  // Ends the directory on top: a GPS directory and a note get their tag spaces.
  auto finish = [&stack]() {
    const Frame done = stack.back();
    stack.pop_back();
    if (done.kind == Kind::kNested && done.tag == 0x8825) {
      done.directory->OrTag(kGPSTagSpace);
    } else if (done.kind == Kind::kNote) {
      done.directory->OrTag(done.tag_space);
    }
  };
  while (!stack.empty()) {
    try {
      Frame& f = stack.back();
      const uint8_t order = f.directory->byte_order;
      if (!f.in_entries) {
        f.lowest = 0x7FFFFFFF;
        if (!coverage.IsUnidentifiedAt(origin + f.pos, 2)) {
          finish();
          continue;
        }
        coverage.IdentifyAt(origin + f.pos, 2);
        f.remaining = ReadOrdered16(base + f.pos, order);
        f.pos += 2;
        f.in_entries = true;
      }
      if (f.remaining > 0) {
        --f.remaining;
        const Descent d = ReadEntry(*f.directory, coverage, base, root, f.ifd, f.pos, f.lowest);
        if (d.sub != nullptr) {
          CheckLimit(L"Directories nested too deep", stack.size(), coverage.max_directory_depth);
          // `f` may move with the stack's storage; it is not used again in this pass.
          stack.push_back(Frame{d.sub, d.offset, 0x7FFFFFFF, 0, 0, d.note ? d.follow_next : true,
                                false, d.note ? Kind::kNote : Kind::kNested, d.tag, d.tag_space});
        }
        continue;
      }
      // The next-directory field is read only when it lies before all that the directory
      // points at.
      if (!f.follow_next || f.pos >= f.lowest || !coverage.IsUnidentifiedAt(origin + f.pos, 4)) {
        finish();
        continue;
      }
      coverage.IdentifyAt(origin + f.pos, 4);
      const int64_t next = static_cast<int32_t>(ReadOrdered32(base + f.pos, order));
      if (next == 0) {
        finish();
        continue;
      }
      ++f.ifd;
      f.pos = next;
      f.in_entries = false;
    } catch (const LimitExceeded&) {
      throw;
    } catch (const RawLayerException&) {
      // A failure ends the innermost maker note only, unreported, and what was read stays;
      // the directories inside it end without their tag spaces. Outside any note it ends the
      // walk.
      while (!stack.empty() && stack.back().kind != Kind::kNote) {
        stack.pop_back();
      }
      if (stack.empty()) {
        throw;
      }
      finish();
    }
  }
}

}  // namespace corvi
