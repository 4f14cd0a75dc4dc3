// The map of a JPEG file as one self-contained HTML page.
#include "map/map_page.h"

#include <algorithm>
#include <memory>

#include "base/limits.h"
#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "decode/decode_state.h"
#include "exif/tag_names.h"
#include "exif/tiff_entry.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "map/map_page_html.h"
#include "platform/format.h"

namespace corvi {
namespace {

// A dump longer than this is cut: a hostile file can make a segment's dump gigabytes long.
constexpr size_t kDumpLimit = 256 * 1024;
// Thumbnails inside thumbnails get their own maps to this depth; deeper ones are bands only.
constexpr int32_t kMapDepth = 8;

std::string Text(const wchar_t* text) {
  return text != nullptr ? EncodeUtf8(text) : std::string();
}

// The segment's name by marker code, as the map labels its band.
std::string KindOf(uint8_t code) {
  static const char* const kFrames[16] = {"SOF0", "SOF1",  "SOF2",  "SOF3", "DHT",   "SOF5",
                                          "SOF6", "SOF7",  "JPG",   "SOF9", "SOF10", "SOF11",
                                          "DAC",  "SOF13", "SOF14", "SOF15"};
  if (code >= 0xC0 && code <= 0xCF) {
    return kFrames[code - 0xC0];
  }
  if (code >= 0xE0 && code <= 0xEF) {
    return "APP" + std::to_string(code - 0xE0);
  }
  if (code >= 0xD0 && code <= 0xD7) {
    return "RST" + std::to_string(code - 0xD0);
  }
  switch (code) {
    case 0xDA:
      return "SOS";
    case 0xDB:
      return "DQT";
    case 0xDD:
      return "DRI";
    case 0xFE:
      return "COM";
    default: {
      wchar_t name[16];
      FormatBuffer(name, 16, L"%02x", static_cast<uint32_t>(code));
      return Text(name);
    }
  }
}

// The segment's dump as the tool prints it, cut at kDumpLimit.
std::string DumpOf(JPEGReader::Marker& marker, const uint8_t* base) {
  OutStream stream;
  stream.LimitMemory(kDumpLimit);
  try {
    marker.Dump(base, 1, stream);
    return stream.Text();
  } catch (const OutStream::Full&) {
    return stream.Text() + "  [the dump goes on; cut here]\n";
  }
}

void AddExif(const TIFFDirectory& directory, int32_t depth, std::vector<MapExifRow>& rows) {
  for (uint32_t i = 0; i < directory.count; ++i) {
    const TIFFEntry& entry = *directory.items[i];
    MapExifRow row;
    row.depth = depth;
    row.ifd = entry.ifd;
    row.tag = entry.tag;
    row.name = Text(TIFFTagName(entry.tag));
    row.type = entry.type;
    row.count = entry.count;
    OutStream value;
    value.LimitMemory(4096);
    try {
      PrintTypedValues(value, entry.type, entry.count, entry.value, directory.byte_order);
      row.value = value.Text();
    } catch (const OutStream::Full&) {
      row.value = value.Text() + " ...";
    } catch (const RawLayerException&) {
      row.value = "(type " + std::to_string(entry.type) + ")";
    }
    if (!row.value.empty() && row.value[0] == ' ') {
      row.value.erase(0, 1);
    }
    rows.push_back(std::move(row));
    if (const auto* nested = dynamic_cast<const TIFFNestedDir*>(&entry)) {
      if (nested->directory != nullptr && depth < 64) {
        AddExif(*nested->directory, depth + 1, rows);
      }
    }
  }
}

// The bands of a stream's segments in file order, with the compressed data, the start and end
// markers and the bytes between them; the stream covers [first, last].
void MapStream(const MarkerList& markers, const uint8_t* base,
               const std::vector<ClaimRecord>& claims, const ByteCoverage& coverage, int32_t depth,
               StreamMap& map) {
  std::vector<MapBand> found;
  if (map.last - map.first >= 1 && base[map.first] == 0xFF && base[map.first + 1] == 0xD8) {
    found.push_back(MapBand{"SOI", map.first, map.first + 1, {}});
  }
  for (uint32_t i = 0; i < markers.count; ++i) {
    JPEGReader::Marker& marker = *markers.items[i];
    const int64_t first = marker.FirstByte(base);
    int64_t last = marker.LastByte(base);
    last = std::min(std::max(last, first + 3), map.last);  // a refused length ends at the stream
    found.push_back(MapBand{KindOf(marker.code), first, last, DumpOf(marker, base)});
    if (const auto* app1 = dynamic_cast<const APP1Marker*>(&marker)) {
      if (app1->directory != nullptr) {
        AddExif(*app1->directory, 0, map.exif);
        int64_t offset = 0;
        uint32_t length = 0;
        if (app1->thumbnail != nullptr && FindThumbnail(*app1->directory, offset, length) &&
            depth < kMapDepth) {
          StreamMap thumbnail;
          thumbnail.first = offset;
          thumbnail.last = offset + length - 1;
          MapStream(*app1->thumbnail, base, claims, coverage, depth + 1, thumbnail);
          map.thumbnails.push_back(std::move(thumbnail));
        }
      }
    }
  }
  if (markers.compressed_data != nullptr && markers.compressed_length > 0) {
    const int64_t first = markers.compressed_data - base;
    const int64_t last = first + markers.compressed_length - 1;
    found.push_back(MapBand{"data", first, last, {}});
    if (last + 2 <= map.last && base[last + 1] == 0xFF && base[last + 2] == 0xD9) {
      found.push_back(MapBand{"EOI", last + 1, last + 2, {}});
    }
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const MapBand& a, const MapBand& b) { return a.first < b.first; });
  int64_t next = map.first;
  for (MapBand& band : found) {
    if (band.first > next) {
      map.bands.push_back(MapBand{"gap", next, band.first - 1, {}});
    }
    if (band.first >= next && band.first <= band.last && band.last <= map.last) {
      next = band.last + 1;
      map.bands.push_back(std::move(band));
    }
  }
  if (next <= map.last) {
    map.bands.push_back(MapBand{"tail", next, map.last, {}});
  }
  for (const ClaimRecord& claim : claims) {
    if (claim.start >= map.first && claim.end - 1 <= map.last) {
      map.claims.push_back(claim);
    }
  }
  for (const auto& [end, start] : coverage.unidentified) {
    if (start <= map.last && end - 1 >= map.first) {
      map.unclaimed.push_back(
          ByteRange{static_cast<int32_t>(std::max<int64_t>(start, map.first)),
                    static_cast<int32_t>(std::min<int64_t>(end, map.last + 1))});
    }
  }
}

const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void AppendBase64(const uint8_t* bytes, size_t n, std::string& out) {
  out.reserve(out.size() + (n + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= n; i += 3) {
    const uint32_t v = uint32_t{bytes[i]} << 16 | uint32_t{bytes[i + 1]} << 8 | bytes[i + 2];
    const char quad[4] = {kBase64[v >> 18], kBase64[(v >> 12) & 63], kBase64[(v >> 6) & 63],
                          kBase64[v & 63]};
    out.append(quad, 4);
  }
  if (i < n) {
    const uint32_t v = uint32_t{bytes[i]} << 16 | (i + 1 < n ? uint32_t{bytes[i + 1]} << 8 : 0);
    out += kBase64[v >> 18];
    out += kBase64[(v >> 12) & 63];
    out += i + 1 < n ? kBase64[(v >> 6) & 63] : '=';
    out += '=';
  }
}

// Appends "start,end" to a flat JSON list, behind a comma unless it is the first pair.
void AppendPair(int32_t start, int32_t end, bool first, std::string& out) {
  if (!first) {
    out += ',';
  }
  out += std::to_string(start);
  out += ',';
  out += std::to_string(end);
}

void AppendStream(const StreamMap& map, std::string& out) {
  out += "{\"first\":" + std::to_string(map.first) + ",\"last\":" + std::to_string(map.last);
  out += ",\"bands\":[";
  for (size_t i = 0; i < map.bands.size(); ++i) {
    const MapBand& band = map.bands[i];
    out += i == 0 ? "[" : ",[";
    out += JsonString(band.kind) + "," + std::to_string(band.first) + "," +
           std::to_string(band.last) + "," + JsonString(band.dump) + "]";
  }
  out += "],\"claims\":[";
  for (size_t i = 0; i < map.claims.size(); ++i) {
    AppendPair(map.claims[i].start, map.claims[i].end, i == 0, out);
  }
  out += "],\"unclaimed\":[";
  for (size_t i = 0; i < map.unclaimed.size(); ++i) {
    AppendPair(map.unclaimed[i].start, map.unclaimed[i].end, i == 0, out);
  }
  out += "],\"exif\":[";
  for (size_t i = 0; i < map.exif.size(); ++i) {
    const MapExifRow& row = map.exif[i];
    out += i == 0 ? "[" : ",[";
    out += std::to_string(row.depth) + "," + std::to_string(row.ifd) + "," +
           std::to_string(row.tag) + "," + JsonString(row.name) + "," + std::to_string(row.type) +
           "," + std::to_string(row.count) + "," + JsonString(row.value) + "]";
  }
  out += "],\"thumbnails\":[";
  for (size_t i = 0; i < map.thumbnails.size(); ++i) {
    if (i != 0) {
      out += ",";
    }
    AppendStream(map.thumbnails[i], out);
  }
  out += "]}";
}

}  // namespace

FileMap MapFile(const wchar_t* name, bool decode) {
  FileMap map;
  map.name = Text(name);
  JPEGReader reader(name);  // a file that cannot be opened or mapped throws here
  reader.limits = Limits::None();
  std::vector<ClaimRecord> claims;
  reader.claims = &claims;
  map.length = reader.length;
  try {
    reader.Scan();
  } catch (const RawLayerException& e) {
    map.failed = true;
    wchar_t line[512];
    FormatBuffer(line, 512, L"Failed on %s: %s", name, static_cast<const wchar_t*>(e.message));
    map.report = Text(line);
  }
  if (reader.coverage != nullptr) {
    map.left = reader.coverage->LeftCount();
    map.identified = reader.length - map.left;
    map.failed_at = reader.coverage->last_attempt;
    // A claim refused for reaching past the end is shown at the last byte.
    if (map.length > 0 && map.failed_at.start >= static_cast<int64_t>(map.length)) {
      map.failed_at =
          ByteRange{static_cast<int32_t>(map.length - 1), static_cast<int32_t>(map.length)};
    }
  }
  if (!map.failed) {
    wchar_t line[512];
    FormatBuffer(line, 512, L"Finished parsing %s (identified %d bytes out of %d, %d left).", name,
                 map.identified, reader.length, map.left);
    map.report = Text(line);
  }
  map.file.first = 0;
  map.file.last = int64_t{reader.length} - 1;
  if (reader.markers != nullptr && reader.coverage != nullptr) {
    MapStream(*reader.markers, reader.view, claims, *reader.coverage, 0, map.file);
  }
  if (decode && !map.failed) {
    map.decoded = true;
    OutStream text;
    try {
      auto layer = std::make_unique<RawLayer>();
      auto state = std::make_unique<DecodeState>();
      SetToolDecoding(*state);
      DecodeImage(*reader.markers, *state, *layer, false);
      map.width = layer->width;
      map.height = layer->height;
      map.mcu_width = state->mcu_width;
      map.mcu_height = state->mcu_height;
      Print(text, L"Decoded %d x %d pixels\n", layer->width, layer->height);
      layer->properties.PrintProperties(text);
    } catch (const RawLayerException& e) {
      Print(text, L"Failed on %s: %s\n", name, static_cast<const wchar_t*>(e.message));
    }
    map.decode_report = text.Text();
  }
  return map;
}

std::string MapPage(const FileMap& map, const uint8_t* bytes) {
  std::string data = "{\"name\":" + JsonString(map.name);
  data += ",\"length\":" + std::to_string(map.length);
  data += ",\"identified\":" + std::to_string(map.identified);
  data += ",\"left\":" + std::to_string(map.left);
  data += ",\"report\":" + JsonString(map.report);
  data += ",\"failed\":";
  data += map.failed ? "true" : "false";
  data += ",\"failedAt\":[" + std::to_string(map.failed_at.start) + "," +
          std::to_string(map.failed_at.end) + "]";
  data += ",\"decoded\":";
  data += map.decoded ? "true" : "false";
  data += ",\"decodeReport\":" + JsonString(map.decode_report);
  data += ",\"width\":" + std::to_string(map.width) + ",\"height\":" + std::to_string(map.height);
  data += ",\"mcu\":[" + std::to_string(map.mcu_width) + "," + std::to_string(map.mcu_height) + "]";
  data += ",\"file\":";
  AppendStream(map.file, data);
  data += "}";

  std::string page = kMapPageHead;
  page += "<script>const corviMap = ";
  page += data;
  page += ";\nconst corviBytes = \"";
  AppendBase64(bytes, map.length, page);
  page += "\";\n</script>\n";
  page += kMapPageTail;
  return page;
}

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '<':
      case '>':
      case '&':
        // Never a tag, a comment or an entity inside the script element.
        out += c == '<' ? "\\u003c" : (c == '>' ? "\\u003e" : "\\u0026");
        break;
      default:
        if (c < 0x20) {
          static const char kHex[] = "0123456789abcdef";
          out += "\\u00";
          out += kHex[c >> 4];
          out += kHex[c & 15];
        } else {
          out += ch;
        }
    }
  }
  // U+2028 and U+2029 end a line inside a script; they stay inside the string.
  size_t at = 0;
  while ((at = out.find("\xE2\x80\xA8", at)) != std::string::npos) {
    out.replace(at, 3, "\\u2028");
  }
  at = 0;
  while ((at = out.find("\xE2\x80\xA9", at)) != std::string::npos) {
    out.replace(at, 3, "\\u2029");
  }
  return out + "\"";
}

}  // namespace corvi
