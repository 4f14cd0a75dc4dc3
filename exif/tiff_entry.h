// TIFF entries, the directories that hold them, and the tag spaces of maker notes and GPS.
#pragma once

#include <cstdint>
#include <memory>

namespace corvi {

class ByteCoverage;
class OutStream;
class TIFFDirectory;
struct DecodeState;
struct RawLayer;

// Tag spaces, in the bits above the file's 16-bit tag.
constexpr uint32_t kSonyTagSpace = 0x10000;
constexpr uint32_t kCanonTagSpace = 0x20000;
constexpr uint32_t kGPSTagSpace = 0x30000;

// One parsed IFD entry. `value` points at its first value byte in the mapped file, in the file's
// byte order; for an inline value it points into the entry's own 12 bytes.
class TIFFEntry {
 public:
  TIFFEntry(uint32_t entry_ifd, uint32_t entry_tag, uint32_t entry_type, uint32_t entry_count,
            const uint8_t* entry_value)
      : ifd(entry_ifd), tag(entry_tag), type(entry_type), count(entry_count), value(entry_value) {}
  TIFFEntry(const TIFFEntry&) = delete;
  TIFFEntry& operator=(const TIFFEntry&) = delete;
  virtual ~TIFFEntry() = default;

  virtual void Dump(const uint8_t* base, int32_t indent, OutStream& stream, uint8_t byte_order);
  virtual const TIFFEntry* Find(uint32_t wanted_tag) const;
  virtual void OrTag(uint32_t bits);
  virtual void Collect(DecodeState& state, uint8_t byte_order, RawLayer& layer, bool header_only);

  uint32_t ifd;
  uint32_t tag;  // the file's 16-bit tag, with the tag space in the bits above
  uint32_t type;
  uint32_t count;
  const uint8_t* value;
};

class ThumbnailOffset : public TIFFEntry {
 public:
  using TIFFEntry::TIFFEntry;
  // Offset of the thumbnail from the start of the mapped data (the TIFF header's offset plus
  // the stored number), kept as a number: it may point anywhere until it has been tested.
  int64_t thumbnail = 0;
};

class ThumbnailLength : public TIFFEntry {
 public:
  using TIFFEntry::TIFFEntry;
  uint32_t length = 0;
};

class TIFFNestedDir : public TIFFEntry {
 public:
  TIFFNestedDir(uint32_t entry_ifd, uint32_t entry_tag, uint32_t entry_type, uint32_t entry_count,
                const uint8_t* entry_value, TIFFDirectory* sub_directory)
      : TIFFEntry(entry_ifd, entry_tag, entry_type, entry_count, entry_value),
        directory(sub_directory) {}
  ~TIFFNestedDir() override;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream, uint8_t byte_order) override;
  const TIFFEntry* Find(uint32_t wanted_tag) const override;
  void OrTag(uint32_t bits) override;
  void Collect(DecodeState& state, uint8_t byte_order, RawLayer& layer, bool header_only) override;

  TIFFDirectory* directory;  // owned
};

class SonyMakerNote : public TIFFNestedDir {
 public:
  using TIFFNestedDir::TIFFNestedDir;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream, uint8_t byte_order) override;
  const TIFFEntry* Find(uint32_t wanted_tag) const override;
};

class CanonMakerNote : public TIFFNestedDir {
 public:
  using TIFFNestedDir::TIFFNestedDir;
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream, uint8_t byte_order) override;
  const TIFFEntry* Find(uint32_t wanted_tag) const override;
};

// Owning growable array of entries in walk order: a whole chain of directories.
class TIFFDirectory {
 public:
  TIFFDirectory() : TIFFDirectory(0) {}
  explicit TIFFDirectory(uint8_t order);  // empty, with room for 4 entries
  TIFFDirectory(const TIFFDirectory&) = delete;
  TIFFDirectory& operator=(const TIFFDirectory&) = delete;
  ~TIFFDirectory();

  void Reserve(uint32_t needed);
  void Append(std::unique_ptr<TIFFEntry> entry);
  const TIFFEntry* Find(uint32_t tag) const;
  void OrTag(uint32_t bits);
  void Collect(DecodeState& state, uint8_t order, RawLayer& layer, bool header_only);
  void Dump(const uint8_t* base, int32_t indent, OutStream& stream) const;

  TIFFEntry** items = nullptr;  // owned, and so is each entry
  uint32_t count = 0;
  uint32_t capacity = 0;
  uint8_t byte_order = 0;  // 0 Intel, 1 Motorola
};

// The entries that name the Exif thumbnail in `directory`: the first of tag 0x201 and the first
// of tag 0x202 in walk order; both null unless both stand there.
struct ThumbnailEntries {
  const ThumbnailOffset* offset = nullptr;
  const ThumbnailLength* length = nullptr;
};
ThumbnailEntries FindThumbnailEntries(const TIFFDirectory& directory);

// The Exif thumbnail's offset from the start of the mapped data (untested: it may point
// anywhere) and its length. False when either entry is missing.
bool FindThumbnail(const TIFFDirectory& directory, int64_t& offset, uint32_t& length);

}  // namespace corvi
