// The APP1 segment: Exif with its TIFF header and embedded thumbnail, XMP packets, and other
// content.
#include <cstring>
#include <memory>

#include "base/byte_coverage.h"
#include "base/limits.h"
#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "exif/tiff_walk.h"
#include "jpeg/markers.h"
#include "platform/format.h"

namespace corvi {
namespace {

constexpr uint8_t kExifSignature[6] = {'E', 'x', 'i', 'f', 0, 0};
// The XMP namespace of 28 characters and its terminating zero, as XMP puts it at the head of
// an APP1 segment.
constexpr char kXmpSignature[] = "http://ns.adobe.com/xap/1.0/";
constexpr int32_t kXmpSignatureLength = 29;
static_assert(sizeof kXmpSignature == kXmpSignatureLength);

// A thumbnail's scan may meet an APP1 with a thumbnail of its own, and so on. Each level costs a
// few stack frames, and a crafted file can nest its thumbnails as deep as its bytes allow. A chain
// whose every level scans well keeps each inner thumbnail inside unclaimed bytes of the segment
// above it, so it cannot nest much beyond 65535 / 48 levels; the bound lies above that and is met
// only by chains that fail anyway. Past it a thumbnail is dropped as one whose scan failed.
constexpr int32_t kMaxThumbnailDepth = 2000;

// Pops the limit pushed for a thumbnail on every way out.
class RangeGuard {
 public:
  explicit RangeGuard(ByteCoverage& guarded) : coverage(guarded) {}
  RangeGuard(const RangeGuard&) = delete;
  RangeGuard& operator=(const RangeGuard&) = delete;
  ~RangeGuard() { coverage.PopRange(); }

 private:
  ByteCoverage& coverage;
};

// Counts a thumbnail being scanned, in the file's coverage, on every way out.
class DepthGuard {
 public:
  explicit DepthGuard(ByteCoverage& guarded) : coverage(guarded) { ++coverage.thumbnail_depth; }
  DepthGuard(const DepthGuard&) = delete;
  DepthGuard& operator=(const DepthGuard&) = delete;
  ~DepthGuard() { --coverage.thumbnail_depth; }

 private:
  ByteCoverage& coverage;
};

// Whether the payload starts with `signature`. The payload is not claimed yet and a segment at
// the end of the data can promise more than exists, so the bytes are tested to be there first.
bool HasSignature(const ByteCoverage& coverage, const uint8_t* payload, int32_t length,
                  const void* signature, int32_t signature_length) {
  return length >= signature_length &&
         coverage.InData(coverage.OffsetOf(payload), signature_length) &&
         std::memcmp(payload, signature, static_cast<size_t>(signature_length)) == 0;
}

// UTF-8 to wide text, with trailing blanks and carriage returns cut from every line and blank
// lines dropped. Stops at the first malformed or cut sequence and keeps what came before.
// `text` has room for `length` - 28 characters: every character takes at least one byte of the
// packet behind the signature, and the terminator takes the last place.
void DecodeXmp(const uint8_t* payload, int32_t length, wchar_t* text) {
  uint32_t n = 0;
  int32_t i = kXmpSignatureLength;
  while (i < length) {
    const uint8_t lead = payload[i++];
    uint32_t code = 0;
    int32_t following = 0;
    if (lead < 0x80) {
      code = lead;
    } else if ((lead & 0xE0) == 0xC0) {
      code = lead & 0x1Fu;
      following = 1;
    } else if ((lead & 0xF0) == 0xE0) {
      code = lead & 0x0Fu;
      following = 2;
    } else if ((lead & 0xF8) == 0xF0) {
      code = lead & 0x07u;
      following = 3;
    } else {
      break;  // a continuation byte or 11111xxx as lead
    }
    if (following > length - i) {
      break;  // the sequence would overrun the payload
    }
    bool valid = true;
    for (int32_t k = 0; k < following; ++k) {
      const uint8_t b = payload[i++];
      if ((b & 0xC0) != 0x80) {
        valid = false;
        break;
      }
      code = (code << 6) | (b & 0x3Fu);
    }
    if (!valid) {
      break;
    }
    if (code == 0x0A) {
      while (n > 0 && (text[n - 1] == 0x20 || text[n - 1] == 0x0A || text[n - 1] == 0x0D)) {
        --n;
      }
    }
    text[n++] = static_cast<wchar_t>(code & 0xFFFF);  // no surrogate pairs
  }
  text[n] = 0;
}

// The thumbnail named by tags 0x201 and 0x202, wherever they stand in walk order, scanned into a
// list of its own; null when there is none or its scan failed. Its range is tested against the
// enclosing limit (the file, or an enclosing thumbnail) and what has been claimed so far; that
// test is the only bound on the stored offset and length.
std::unique_ptr<MarkerList> ScanThumbnail(const TIFFDirectory& directory, ByteCoverage& coverage) {
  int64_t start = 0;
  uint32_t stored_length = 0;
  if (!FindThumbnail(directory, start, stored_length) || stored_length < 2) {
    return nullptr;
  }
  const auto thumbnail_length = static_cast<int32_t>(stored_length);
  if (!coverage.IsUnidentifiedAt(start, thumbnail_length)) {
    return nullptr;
  }
  const uint8_t* data = coverage.base + start;  // inside the data from here on
  if (data[0] != 0xFF || data[1] != 0xD8 ||
      coverage.thumbnail_depth >= static_cast<uint32_t>(kMaxThumbnailDepth)) {
    return nullptr;
  }
  CheckLimit(L"Thumbnails nested too deep", uint64_t{coverage.thumbnail_depth} + 1,
             coverage.max_thumbnail_depth);
  auto thumbnail = std::make_unique<MarkerList>();
  // A lenient scan gives the thumbnail a coverage of its own: claims of a thumbnail that
  // reaches outside its segment cannot then collide with the segments behind it.
  std::unique_ptr<ByteCoverage> own;
  if (coverage.lenient != nullptr) {
    own = std::make_unique<ByteCoverage>(coverage.base, coverage.data_length);
    own->max_thumbnail_depth = coverage.max_thumbnail_depth;
    own->max_directory_depth = coverage.max_directory_depth;
    own->thumbnail_depth = coverage.thumbnail_depth;
  }
  ByteCoverage& scanned = own != nullptr ? *own : coverage;
  scanned.PushRangeAt(start, thumbnail_length);
  RangeGuard pop(scanned);
  DepthGuard depth(scanned);
  try {
    thumbnail->Scan(scanned, data, thumbnail_length - 2);
  } catch (const LimitExceeded&) {
    throw;  // a caller's limit ends the file, not just this thumbnail
  } catch (const RawLayerException&) {
    return nullptr;  // dropped without a word; what the scan claimed stays claimed
  }
  return thumbnail;
}

}  // namespace

void ParseTIFFHeader(TIFFDirectory& directory, ByteCoverage& coverage, const uint8_t* header) {
  coverage.Identify(header, 8);
  if (header[0] == 0x49 && header[1] == 0x49) {
    directory.byte_order = kIntelOrder;
  } else if (header[0] == 0x4D && header[1] == 0x4D) {
    directory.byte_order = kMotorolaOrder;
  } else {
    throw RawLayerException(L"Exif header has invalid byte order");
  }
  if (ReadOrdered16(header + 2, directory.byte_order) != 42) {
    throw RawLayerException(L"Exif header has invalid start marker");
  }
  const auto first = static_cast<int32_t>(ReadOrdered32(header + 4, directory.byte_order));
  Walk(directory, coverage, header, first, directory, true);
}

APP1Marker::~APP1Marker() {
  delete directory;
  directory = nullptr;
  delete thumbnail;
  thumbnail = nullptr;
  delete[] xmp;
  xmp = nullptr;
}

void APP1Marker::Parse(ByteCoverage& coverage) {
  payload_offset = coverage.OffsetOf(payload);
  if (HasSignature(coverage, payload, length, kExifSignature, 6)) {
    coverage.Identify(payload, 6);
    if (directory == nullptr) {
      directory = new TIFFDirectory();
    }
    // The TIFF data is bound to the segment; the thumbnail is not.
    coverage.PushRange(payload + 6, length - 6);
    {
      RangeGuard pop(coverage);
      ParseTIFFHeader(*directory, coverage, payload + 6);
    }
    std::unique_ptr<MarkerList> found = ScanThumbnail(*directory, coverage);
    delete thumbnail;
    thumbnail = found.release();
    return;
  }
  if (HasSignature(coverage, payload, length, kXmpSignature, kXmpSignatureLength)) {
    coverage.Identify(payload, length);  // all of it, even if the decoding stops early
    xmp = new wchar_t[static_cast<size_t>(length - 28)];
    DecodeXmp(payload, length, xmp);
    return;
  }
  if (length != 0) {
    coverage.Identify(payload, length);
  }
}

void APP1Marker::Apply(DecodeState& state, RawLayer& layer, bool header_only) {
  if (directory != nullptr) {
    directory->Collect(state, directory->byte_order, layer, header_only);
  }
  if (thumbnail != nullptr) {
    if (layer.thumbnail == nullptr) {
      layer.thumbnail = new RawLayer();
    }
    // On the heap, destroyed on every way out: thumbnails nest, one level per frame.
    auto thumbnail_state = std::make_unique<DecodeState>();
    thumbnail_state->limits = state.limits;
    DecodeImage(*thumbnail, *thumbnail_state, *layer.thumbnail, true);
  }
}

void APP1Marker::Dump(const uint8_t* base, int32_t indent, OutStream& stream) {
  PrintIndent(indent, stream);
  Print(stream, L"Marker APP1 (bytes %d - %d)\n", static_cast<int32_t>(FirstByte(base)),
        static_cast<int32_t>(LastByte(base)));
  if (directory != nullptr) {
    directory->Dump(base, indent + 1, stream);
  }
  if (thumbnail != nullptr) {
    PrintIndent(indent + 1, stream);
    stream.PutAscii("Thumbnail:\n", 11);
    thumbnail->Dump(base, indent + 2, stream);
  }
  if (xmp != nullptr) {
    PrintIndent(indent + 1, stream);
    Print(stream, L"Adobe XMP packet:\n%s\n", xmp);
  }
  if (directory == nullptr && xmp == nullptr) {
    PrintHexLines(payload, length, indent + 1, stream);
  }
}

}  // namespace corvi
