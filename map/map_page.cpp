// The map of a JPEG file as one self-contained HTML page, drawn from the file's report.
#include "map/map_page.h"

#include <memory>

#include "exif/tiff_entry.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "map/map_page_html.h"
#include "platform/format.h"
#include "report/json_writer.h"
#include "report/pipeline.h"
#include "report/report_format.h"

namespace corvi {
namespace {

// A dump longer than this is cut: a hostile file can make a segment's dump gigabytes long.
constexpr size_t kDumpLimit = 256 * 1024;
// The page keeps this much of all dumps together; the segments behind go without.
constexpr size_t kDumpsLimit = 32 * 1024 * 1024;
// Thumbnails inside thumbnails have their dumps kept to the depth the report goes.
constexpr int32_t kDumpDepth = 8;

// The segment's dump as the tool prints it at `indent`, cut at kDumpLimit.
std::string DumpOf(JPEGReader::Marker& marker, const uint8_t* base, int32_t indent) {
  OutStream stream;
  stream.LimitMemory(kDumpLimit);
  try {
    marker.Dump(base, indent, stream);
    return stream.Text();
  } catch (const OutStream::Full&) {
    return stream.Text() + "  [the dump goes on; cut here]\n";
  }
}

// The dumps of a stream's segments and, behind each Exif segment, its thumbnail's; `count`
// segments of the list are read. The walk keeps its own stack. False when the dumps reached
// kDumpsLimit and the rest were left out.
bool CollectDumps(const MarkerList& top, uint32_t count, const uint8_t* base,
                  std::vector<SegmentDump>& dumps) {
  size_t total = 0;
  struct Pending {
    const MarkerList* markers;
    uint32_t next;
    uint32_t count;
  };
  std::vector<Pending> stack{Pending{&top, 0, count}};
  while (!stack.empty()) {
    Pending& level = stack.back();
    if (level.next >= level.count) {
      stack.pop_back();
      continue;
    }
    JPEGReader::Marker& marker = *level.markers->items[level.next++];
    // A thumbnail's segments stand two levels deeper than its Exif segment.
    const auto indent = static_cast<int32_t>(2 * stack.size() - 1);
    if (total >= kDumpsLimit) {
      return false;
    }
    dumps.push_back(SegmentDump{marker.FirstByte(base), DumpOf(marker, base, indent)});
    total += dumps.back().text.size();
    const auto* app1 = dynamic_cast<const APP1Marker*>(&marker);
    if (app1 != nullptr && app1->thumbnail != nullptr &&
        stack.size() <= static_cast<size_t>(kDumpDepth)) {
      stack.push_back(Pending{app1->thumbnail, 0, app1->thumbnail->count});
    }
  }
  return true;
}

// A stream's text without its last line end.
std::string Line(OutStream& stream) {
  std::string text = stream.Text();
  if (!text.empty() && text.back() == '\n') {
    text.pop_back();
  }
  return text;
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

}  // namespace

FileMap MapBytes(const std::string& name, const uint8_t* data, size_t length, bool decode) {
  FileMap map;
  FileRun run;
  std::vector<ClaimRecord> claims;
  const std::wstring wide = DecodeUtf8(name.data(), name.size());
  if (length > 0 && length <= 0x7FFFFFFF) {
    OutStream line;
    OutStream decode_text;
    PipelineOptions options;
    options.decode = decode;
    options.out = &line;
    options.decode_out = &decode_text;
    options.claims = &claims;
    run = RunBytes(wide.c_str(), data, static_cast<uint32_t>(length), options);
    map.line = Line(line);
    map.decode_text = decode_text.Text();
    map.mcu_width = run.mcu_width;
    map.mcu_height = run.mcu_height;
  }
  InspectOptions options;
  options.decode = decode;
  map.report = InspectRun(name, run, data, length, options);
  if (map.line.empty() && !map.report.scan_failure.empty()) {
    map.line = "Failed on " + name + ": " + map.report.scan_failure;
  }
  for (const ClaimRecord& claim : claims) {
    map.claims.push_back(ByteRange{claim.start, claim.end});
  }
  if (run.reader != nullptr && run.reader->markers != nullptr) {
    // The segment whose parse failed may hold fields it never read: it is not dumped.
    const MarkerList& markers = *run.reader->markers;
    const uint32_t count = run.scanned || markers.count == 0 ? markers.count : markers.count - 1;
    map.dumps_cut = !CollectDumps(markers, count, data, map.dumps);
  }
  return map;
}

std::string MapPage(const FileMap& map, const uint8_t* bytes) {
  std::string data = "{\"report\":" + ReportJson(map.report, true);
  std::string extra;
  JsonWriter json(extra);
  json.BeginObject();
  json.TextMember("line", map.line);
  json.TextMember("decodeText", map.decode_text);
  json.Key("mcu");
  json.BeginArray();
  json.Int(map.mcu_width);
  json.Int(map.mcu_height);
  json.EndArray();
  json.Key("claims");  // start and end of each, flat
  json.BeginArray();
  for (const ByteRange& claim : map.claims) {
    json.Int(claim.start);
    json.Int(claim.end);
  }
  json.EndArray();
  json.Key("dumps");
  json.BeginArray();
  for (const SegmentDump& dump : map.dumps) {
    json.BeginArray();
    json.Int(dump.first);
    json.Utf8(dump.text);
    json.EndArray();
  }
  json.EndArray();
  json.Key("dumpsCut");
  json.Bool(map.dumps_cut);
  json.EndObject();
  data += ',';
  data.append(extra, 1, std::string::npos);  // the members of `extra` behind the report's

  std::string page = kMapPageHead;
  page += "<script>const corviMap = ";
  page += ScriptSafe(data);
  page += ";\nconst corviBytes = \"";
  AppendBase64(bytes, static_cast<size_t>(map.report.length), page);
  page += "\";\n</script>\n";
  page += kMapPageTail;
  return page;
}

std::string JsonString(const std::string& text) {
  std::string out;
  JsonWriter json(out);
  json.Utf8(text);
  return ScriptSafe(out);
}

std::string ScriptSafe(const std::string& json) {
  std::string out;
  out.reserve(json.size());
  for (size_t i = 0; i < json.size(); ++i) {
    const char c = json[i];
    if (c == '<') {
      out += "\\u003c";  // never a tag or a comment inside the script element
    } else if (c == '>') {
      out += "\\u003e";
    } else if (c == '&') {
      out += "\\u0026";
    } else if (c == '\xE2' && i + 2 < json.size() && json[i + 1] == '\x80' &&
               (json[i + 2] == '\xA8' || json[i + 2] == '\xA9')) {
      // U+2028 and U+2029 end a line inside a script; they stay inside the string.
      out += json[i + 2] == '\xA8' ? "\\u2028" : "\\u2029";
      i += 2;
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace corvi
