// Segment re-emission: each segment appends itself to the rewriter's output. Most are copied,
// DHT is rebuilt from the new statistics, DRI is dropped, and APP1 gets the overrides and a
// thumbnail made anew.
#include <cstring>
#include <memory>
#include <string>

#include "base/byte_order.h"
#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "exif/tiff_entry.h"
#include "jpeg/markers.h"
#include "merge/byte_buffer.h"
#include "merge/huffman_encode.h"
#include "merge/merge.h"
#include "merge/segment_writer.h"
#include "platform/file_write.h"
#include "platform/format.h"

namespace corvi {

SegmentWriter::SegmentWriter(uint8_t code, ByteBuffer& buffer) : out(buffer) {
  out.AppendByte(0xFF);
  out.AppendByte(code);
  position = out.length;
  out.AppendByte(0xFF);  // placeholder of the length field
  out.AppendByte(0xFF);
}

void SegmentWriter::Finish() {
  if (finished) {
    return;
  }
  finished = true;
  // The length counts its own two bytes and the payload.
  const int32_t stored = out.length - position;
  WriteBig16(out.data + position, static_cast<uint16_t>(stored));
}

void WriteHuffmanTable(const HuffmanStats& stats, uint8_t id, bool ac, ByteBuffer& out) {
  out.AppendByte(static_cast<uint8_t>((ac ? 0x10 : 0x00) | (id & 0x0F)));
  uint8_t counts[17] = {};
  for (const HuffmanStats::Entry& e : stats.entries) {
    if (e.length >= 1 && e.length <= 16) {
      counts[e.length]++;
    }
  }
  out.AppendBlock(counts + 1, 16);
  for (int32_t l = 1; l <= 16; ++l) {
    for (int32_t symbol = 0; symbol < 256; ++symbol) {
      if (stats.entries[symbol].length == l) {
        out.AppendByte(static_cast<uint8_t>(symbol));
      }
    }
  }
}

void JPEGReader::Marker::Write(MergeState& /*state*/, const RawLayer& /*layer*/,
                               const PropertyList& /*overrides*/, const Background& /*background*/,
                               ByteBuffer& out) {
  SegmentWriter segment(code, out);
  out.AppendBlock(payload, length);
}

// The output has no restart intervals, so it has no DRI segment.
void DRIMarker::Write(MergeState&, const RawLayer&, const PropertyList&, const Background&,
                      ByteBuffer&) {}

void DHTMarker::Write(MergeState& state, const RawLayer& /*layer*/,
                      const PropertyList& /*overrides*/, const Background& /*background*/,
                      ByteBuffer& out) {
  SegmentWriter segment(0xC4, out);
  // The old definitions only say which tables go out, and in which order.
  for (const TableEntry& table : tables.tables) {
    if (table.table_class > 1 || table.id >= 4) {
      throw RawLayerException(L"Invalid Huffman table ID");
    }
    const uint8_t id = table.id;
    const bool ac = table.table_class == 1;
    const HuffmanStats* stats = ac ? state.ac_stats[id] : state.dc_stats[id];
    if (stats == nullptr) {
      throw RawLayerException(L"Invalid Huffman table ID");  // a table the scan does not use
    }
    WriteHuffmanTable(*stats, id, ac, out);
  }
}

void APP1Marker::Write(MergeState& state, const RawLayer& layer, const PropertyList& overrides,
                       const Background& background, ByteBuffer& out) {
  // All changes go to a private copy; the parsed data stay as they are.
  int64_t copy_length = length > 0 ? length : 0;
  std::unique_ptr<uint8_t[]> copy(new uint8_t[static_cast<size_t>(copy_length) + 1]);
  if (copy_length > 0) {
    std::memcpy(copy.get(), payload, static_cast<size_t>(copy_length));
  }

  if (directory != nullptr) {
    // Overrides, as raw bytes: a numeric value must already be in the directory's byte order.
    for (uint32_t i = 0; i < overrides.count; ++i) {
      const Property& property = *overrides.items[i];
      const TIFFEntry* entry = directory->Find(property.id);
      if (entry == nullptr) {
        continue;
      }
      const uint64_t size = uint64_t{PropertyTypeSize(property.type)} * property.count;
      if (size != uint64_t{PropertyTypeSize(entry->type)} * entry->count) {
        throw RawLayerException(L"Size mismatch in overridden property");
      }
      const int64_t at = entry->value - payload;
      if (at >= 0 && static_cast<uint64_t>(at) + size <= static_cast<uint64_t>(copy_length) &&
          size <= property.length) {
        std::memcpy(copy.get() + at, property.data, static_cast<size_t>(size));
      }
    }

    // The thumbnail, made anew from the whole layer with the thumbnail's own frame and tables.
    const ThumbnailEntries entries = FindThumbnailEntries(*directory);
    const ThumbnailOffset* offset_entry = entries.offset;
    const ThumbnailLength* length_entry = entries.length;
    if (thumbnail != nullptr && offset_entry != nullptr) {
      std::wstring temp_name;
      if (state.temp_directory != nullptr) {
        temp_name = state.temp_directory;
        temp_name += L"/";
      }
      temp_name += L"tempthumb.jpg";
      {
        OutputFile file(temp_name.c_str());
        Merge(file, layer, *thumbnail, overrides, background, state.temp_directory);
      }
      const int64_t start = offset_entry->thumbnail - payload_offset;
      {
        MappedFile made(temp_name.c_str());
        const uint32_t new_size = made.length;
        // A thumbnail that does not start inside the payload is not spliced in.
        if (start >= 0 && start < copy_length) {
          const int64_t old_end = start + int64_t{length_entry->length};
          const int64_t fill_end = old_end < copy_length ? old_end : copy_length;
          std::memset(copy.get() + start, 0, static_cast<size_t>(fill_end - start));
          const int64_t new_end = start + int64_t{new_size};
          if (new_end > copy_length) {
            if (new_end > 0xFFFFFFF) {
              throw RawLayerException(L"Image too large for this machine's memory");
            }
            std::unique_ptr<uint8_t[]> grown(new uint8_t[static_cast<size_t>(new_end) + 1]);
            std::memcpy(grown.get(), copy.get(), static_cast<size_t>(copy_length));
            copy = std::move(grown);
            copy_length = new_end;
          }
          std::memcpy(copy.get() + start, made.view, new_size);
          const int64_t length_at = length_entry->value - payload;
          if (length_at >= 0 && length_at + 4 <= copy_length) {
            WriteOrdered32(copy.get() + length_at, new_size, directory->byte_order);
          }
        }
      }
      // Only a thumbnail that went through is removed; after a failure the file stays.
      PlatformDeleteFile(temp_name.c_str());
    }
  }

  // The length field counts its own two bytes: a longer payload does not fit.
  if (copy_length + 2 > 65535) {
    wchar_t message[200];
    FormatBuffer(message, 200, L"Exif segment too long (%u bytes)",
                 static_cast<uint32_t>(copy_length + 2));
    throw RawLayerException(message);
  }
  SegmentWriter segment(0xE1, out);
  out.AppendBlock(copy.get(), static_cast<int32_t>(copy_length));
}

}  // namespace corvi
