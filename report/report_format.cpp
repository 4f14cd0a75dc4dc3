// The report of a file as text, one JSON object, or one CSV row.
#include "report/report_format.h"

#include <bit>
#include <cstring>

#include "base/byte_order.h"
#include "report/json_writer.h"

namespace corvi {

const char kReportSchema[] = "corvi-check/1";

namespace {

// Values of a TIFF type in `byte_order`: numbers (one, or an array), rationals as [n, d], text
// as the bytes read up to the first zero, and BYTE, UNDEFINED and the rest as hex.
void TypedValue(JsonWriter& json, uint32_t type, uint32_t count, const std::string& bytes,
                uint8_t byte_order) {
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t n = bytes.size();
  if (type == 2) {
    json.Latin1(std::string_view(bytes.data(), strnlen(bytes.data(), n)));
    return;
  }
  size_t size = 0;
  switch (type) {
    case 3:
      size = 2;
      break;
    case 4:
    case 9:
    case 11:
      size = 4;
      break;
    case 5:
    case 10:
    case 12:
      size = 8;
      break;
    default:
      json.Hex(bytes);
      return;
  }
  const size_t values = std::min<size_t>(count, n / size);
  const bool many = count != 1;
  if (many) {
    json.BeginArray();
  }
  for (size_t i = 0; i < values; ++i) {
    const uint8_t* v = p + i * size;
    switch (type) {
      case 3:
        json.UInt(ReadOrdered16(v, byte_order));
        break;
      case 4:
        json.UInt(ReadOrdered32(v, byte_order));
        break;
      case 9:
        json.Int(static_cast<int32_t>(ReadOrdered32(v, byte_order)));
        break;
      case 11:
        json.Float(std::bit_cast<float>(ReadOrdered32(v, byte_order)));
        break;
      case 5:
      case 10: {
        const uint32_t numerator = ReadOrdered32(v, byte_order);
        const uint32_t denominator = ReadOrdered32(v + 4, byte_order);
        json.BeginArray();
        if (type == 5) {
          json.UInt(numerator);
          json.UInt(denominator);
        } else {
          json.Int(static_cast<int32_t>(numerator));
          json.Int(static_cast<int32_t>(denominator));
        }
        json.EndArray();
        break;
      }
      default: {
        const uint64_t high = ReadOrdered32(v, byte_order);
        const uint64_t low = ReadOrdered32(v + 4, byte_order);
        const uint64_t bits =
            byte_order == kMotorolaOrder ? (high << 32 | low) : (low << 32 | high);
        json.Double(std::bit_cast<double>(bits));
        break;
      }
    }
  }
  if (many) {
    json.EndArray();
  }
}

void IssueJson(JsonWriter& json, const Issue& issue) {
  json.BeginObject();
  json.TextMember("kind", issue.kind);
  json.TextMember("severity", SeverityName(issue.severity));
  json.OptionalMember("offset", issue.offset);
  if (issue.length >= 0) {
    json.IntMember("length", issue.length);
  }
  if (issue.mcu_row >= 0) {
    json.IntMember("mcu_row", issue.mcu_row);
    json.IntMember("mcu_column", issue.mcu_column);
    json.IntMember("component", issue.component);
  }
  if (issue.thumbnail > 0) {
    json.IntMember("thumbnail", issue.thumbnail);
  }
  json.TextMember("message", issue.message);
  json.EndObject();
}

void TextOrNull(JsonWriter& json, const char* key, const std::string& text, bool latin1) {
  json.Key(key);
  if (text.empty()) {
    json.Null();
  } else if (latin1) {
    json.Latin1(text);
  } else {
    json.Utf8(text);
  }
}

void SegmentFieldsJson(JsonWriter& json, const SegmentFields& fields, uint8_t code) {
  if (const auto* frame = std::get_if<FrameFields>(&fields)) {
    json.UIntMember("precision", frame->precision);
    json.UIntMember("width", frame->width);
    json.UIntMember("height", frame->height);
    json.Key("components");
    json.BeginArray();
    for (const FrameComponent& c : frame->components) {
      json.BeginObject();
      json.UIntMember("id", c.id);
      json.UIntMember("h", c.h);
      json.UIntMember("v", c.v);
      json.UIntMember("quant_table", c.quant_table);
      json.EndObject();
    }
    json.EndArray();
  } else if (const auto* scan = std::get_if<ScanFields>(&fields)) {
    json.Key("components");
    json.BeginArray();
    for (const ScanComponent& c : scan->components) {
      json.BeginObject();
      json.UIntMember("id", c.id);
      json.UIntMember("dc_table", c.dc_table);
      json.UIntMember("ac_table", c.ac_table);
      json.EndObject();
    }
    json.EndArray();
    json.UIntMember("spectral_start", scan->spectral_start);
    json.UIntMember("spectral_end", scan->spectral_end);
    json.UIntMember("approx_high", scan->approx_high);
    json.UIntMember("approx_low", scan->approx_low);
  } else if (const auto* tables = std::get_if<TableFields>(&fields)) {
    json.Key("tables");
    json.BeginArray();
    for (const TableEntry& t : tables->tables) {
      json.BeginObject();
      if (code == 0xC4) {
        json.TextMember("class", t.table_class == 0 ? "DC" : t.table_class == 1 ? "AC" : "?");
        json.UIntMember("id", t.id);
        json.UIntMember("symbols", t.symbols);
      } else {
        json.UIntMember("id", t.id);
        json.UIntMember("precision", t.precision);
      }
      json.EndObject();
    }
    json.EndArray();
  } else if (const auto* restart = std::get_if<RestartFields>(&fields)) {
    json.UIntMember("interval", restart->interval);
  } else if (const auto* jfif = std::get_if<JfifFields>(&fields)) {
    json.TextMember("signature", "JFIF");
    json.TextMember("version", Format("%d.%02d", jfif->major, jfif->minor));
    json.UIntMember("units", jfif->units);
    json.UIntMember("x_density", jfif->x_density);
    json.UIntMember("y_density", jfif->y_density);
    json.UIntMember("thumbnail_width", jfif->thumbnail_width);
    json.UIntMember("thumbnail_height", jfif->thumbnail_height);
  } else if (const auto* adobe = std::get_if<AdobeFields>(&fields)) {
    json.TextMember("signature", "Adobe");
    json.UIntMember("version", adobe->version);
    json.UIntMember("flags0", adobe->flags0);
    json.UIntMember("flags1", adobe->flags1);
    json.UIntMember("transform", adobe->transform);
  } else if (const auto* icc = std::get_if<IccFields>(&fields)) {
    json.TextMember("signature", "ICC_PROFILE");
    json.UIntMember("sequence", icc->sequence);
    json.UIntMember("count", icc->count);
  } else if (const auto* app = std::get_if<AppFields>(&fields)) {
    if (app->kind != AppKind::kOther) {
      json.TextMember("signature", AppKindName(app->kind));
    }
  }
}

void DirectoryJson(JsonWriter& json, const ExifDirectoryRecord& directory) {
  json.BeginObject();
  json.TextMember("name", directory.name);
  if (!directory.make.empty()) {
    json.TextMember("make", directory.make);
  }
  json.OptionalMember("parent", directory.parent);
  json.OptionalMember("segment", directory.segment);
  json.TextMember("byte_order", directory.byte_order == kMotorolaOrder ? "MM" : "II");
  json.Key("entries");
  json.BeginArray();
  for (const ExifEntryRecord& entry : directory.entries) {
    json.BeginObject();
    json.UIntMember("tag", entry.tag);
    json.TextMember("name", entry.name);
    json.UIntMember("type", entry.type);
    json.UIntMember("count", entry.count);
    json.IntMember("first", entry.first);
    json.IntMember("last", entry.last);
    if (entry.cut) {
      json.Key("value");
      json.Null();
      json.Key("head");
      json.Hex(entry.bytes);
    } else {
      json.Key("value");
      TypedValue(json, entry.type, entry.count, entry.bytes, directory.byte_order);
    }
    json.EndObject();
  }
  json.EndArray();
  json.EndObject();
}

// A stream's segments, Exif directories and thumbnails, nested; the report stops nesting at a
// fixed depth, so the recursion is bounded by it.
void StreamJson(JsonWriter& json, const StreamReport& stream) {
  json.Key("segments");
  json.BeginArray();
  for (const SegmentRecord& segment : stream.segments) {
    json.BeginObject();
    json.UIntMember("code", segment.code);
    json.TextMember("name", MarkerName(segment.code));
    json.IntMember("first", segment.first);
    json.IntMember("last", segment.last);
    if (segment.data_last >= 0) {
      json.IntMember("data_last", segment.data_last);
    }
    SegmentFieldsJson(json, segment.fields, segment.code);
    json.EndObject();
  }
  json.EndArray();
  if (stream.segments_omitted > 0) {
    json.UIntMember("segments_omitted", stream.segments_omitted);
  }
  json.OptionalMember("eoi", stream.eoi);
  json.Key("directories");
  json.BeginArray();
  for (const ExifDirectoryRecord& directory : stream.directories) {
    DirectoryJson(json, directory);
  }
  json.EndArray();
  if (stream.directories_omitted > 0) {
    json.UIntMember("directories_omitted", stream.directories_omitted);
  }
  if (stream.entries_omitted > 0) {
    json.UIntMember("entries_omitted", stream.entries_omitted);
  }
  json.Key("thumbnails");
  json.BeginArray();
  for (const StreamReport& thumbnail : stream.thumbnails) {
    json.BeginObject();
    json.IntMember("first", thumbnail.first);
    json.IntMember("last", thumbnail.last);
    StreamJson(json, thumbnail);
    json.EndObject();
  }
  json.EndArray();
  if (stream.thumbnails_deeper > 0) {
    json.UIntMember("thumbnails_deeper", stream.thumbnails_deeper);
  }
}

void FullJson(JsonWriter& json, const FileReport& report) {
  json.Key("scan_failure");
  if (report.scan_failure.empty()) {
    json.Null();
  } else {
    json.Utf8(report.scan_failure);
  }
  json.UIntMember("precision", report.precision);
  json.UIntMember("scans", report.scans);
  StreamJson(json, report.stream);
  json.Key("unclaimed");
  json.BeginArray();
  for (const UnclaimedRange& range : report.unclaimed) {
    json.BeginObject();
    json.IntMember("first", range.first);
    json.IntMember("last", range.last);
    TextOrNull(json, "inside", range.inside, false);
    TextOrNull(json, "after", range.after, false);
    TextOrNull(json, "before", range.before, false);
    json.EndObject();
  }
  json.EndArray();
  if (report.unclaimed_omitted > 0) {
    json.UIntMember("unclaimed_omitted", report.unclaimed_omitted);
  }
  json.Key("properties");
  json.BeginArray();
  const uint8_t host = std::endian::native == std::endian::big ? kMotorolaOrder : kIntelOrder;
  for (const PropertyRecord& property : report.properties) {
    json.BeginObject();
    json.UIntMember("id", property.id);
    json.TextMember("name", property.name);
    json.UIntMember("type", property.type);
    json.Key("value");
    TypedValue(json, property.type, property.count, property.bytes, host);
    json.EndObject();
  }
  json.EndArray();
}

}  // namespace

std::string ReportJson(const FileReport& report, bool full) {
  std::string text;
  JsonWriter json(text);
  json.BeginObject();
  json.TextMember("schema", kReportSchema);
  json.TextMember("file", report.file);
  json.UIntMember("length", report.length);
  json.TextMember("verdict", VerdictName(report.verdict));
  json.Key("issues");
  json.BeginArray();
  for (const Issue& issue : report.issues.items()) {
    IssueJson(json, issue);
  }
  json.EndArray();
  if (report.issues.omitted() > 0) {
    json.UIntMember("issues_omitted", report.issues.omitted());
  }
  json.OptionalMember("identified", report.scanned ? int64_t{report.identified} : -1);
  json.OptionalMember("left", report.scanned ? int64_t{report.left} : -1);
  const bool frame = !report.process.empty();
  json.OptionalMember("width", frame ? int64_t{report.width} : -1);
  json.OptionalMember("height", frame ? int64_t{report.height} : -1);
  json.OptionalMember("components", frame ? int64_t{report.components} : -1);
  TextOrNull(json, "sampling", report.sampling, false);
  TextOrNull(json, "process", report.process, false);
  TextOrNull(json, "make", report.make, true);
  TextOrNull(json, "model", report.model, true);
  TextOrNull(json, "date", report.date, true);
  if (report.decode_ran) {
    json.Key("decoded");
    json.BeginObject();
    if (report.decoded) {
      json.UIntMember("width", report.decoded_width);
      json.UIntMember("height", report.decoded_height);
    } else {
      json.TextMember("failure", report.decode_failure);
    }
    json.EndObject();
  }
  if (full) {
    FullJson(json, report);
  }
  json.EndObject();
  return text;
}

std::string ReportText(const FileReport& report) {
  std::string text = report.file + ": " + VerdictName(report.verdict) + "\n";
  for (const Issue& issue : report.issues.items()) {
    text += "  ";
    if (issue.offset >= 0) {
      text += "at " + std::to_string(issue.offset) + ": ";
    }
    text += issue.kind;
    text += " (";
    text += SeverityName(issue.severity);
    text += "): ";
    text += issue.message;
    text += '\n';
  }
  if (report.issues.omitted() > 0) {
    text += "  and " + std::to_string(report.issues.omitted()) + " more issues\n";
  }
  if (report.decoded) {
    text += "  decoded " + std::to_string(report.decoded_width) + " x " +
            std::to_string(report.decoded_height) + "\n";
  }
  return text;
}

namespace {

// A CSV field as RFC 4180 quotes it: in double quotes, inner ones doubled, where it holds a
// comma, a quote or a line break.
std::string CsvField(const std::string& field) {
  if (field.find_first_of(",\"\r\n") == std::string::npos) {
    return field;
  }
  std::string quoted = "\"";
  for (char c : field) {
    quoted += c;
    if (c == '"') {
      quoted += '"';
    }
  }
  return quoted + "\"";
}

}  // namespace

std::string ReportCsvHeader() {
  return "file,verdict,issues,kind,severity,offset,message,length,identified,left\n";
}

std::string ReportCsv(const FileReport& report) {
  const auto& issues = report.issues.items();
  const Issue* first = issues.empty() ? nullptr : &issues.front();
  std::string row = CsvField(report.file);
  row += ',';
  row += VerdictName(report.verdict);
  row += ',' + std::to_string(issues.size() + report.issues.omitted()) + ',';
  if (first != nullptr) {
    row += first->kind;
    row += ',';
    row += SeverityName(first->severity);
    row += ',';
    if (first->offset >= 0) {
      row += std::to_string(first->offset);
    }
    row += ',' + CsvField(first->message);
  } else {
    row += ",,,";
  }
  row += ',' + std::to_string(report.length) + ',';
  if (report.scanned) {
    row += std::to_string(report.identified) + ',' + std::to_string(report.left);
  } else {
    row += ',';
  }
  return row + "\n";
}

}  // namespace corvi
