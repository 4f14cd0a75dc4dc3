// The check of one JPEG stream, marker after marker, the way a decoder reads it.
#include "check/stream_check.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "base/byte_order.h"
#include "check/check_table.h"
#include "check/entropy_reader.h"
#include "check/scan_check.h"
#include "decode/scan_walk.h"

namespace corvi {

namespace {

// Why a frame's process is not checked, or null when it is.
const char* Unchecked(uint8_t code) {
  switch (code) {
    case 0xC0:
    case 0xC1:
    case 0xC2:
      return nullptr;
    case 0xC3:
      return "lossless frames are not checked";
    case 0xC5:
    case 0xC6:
    case 0xC7:
    case 0xCD:
    case 0xCE:
    case 0xCF:
      return "hierarchical (differential) frames are not checked";
    default:
      return "arithmetic-coded frames are not checked";
  }
}

// A Huffman table slot: what a DHT defined there, and its checker table once a scan used it.
struct TableSlot {
  bool defined = false;
  uint8_t counts[16] = {};
  uint8_t symbols[256] = {};
  std::unique_ptr<CheckTable> built;
  bool runs_built = false;  // built->runs is filled
  bool failed = false;
};

// A sequential scan of more blocks than this reads its AC symbols several a lookup: the
// lookup's 4096 entries cost less than they save.
constexpr int64_t kRunTableBlocks = 4096;

class StreamWalk {
 public:
  StreamWalk(const uint8_t* file_base, int64_t first, int64_t length,
             const StreamCheckOptions& walk_options)
      : file(file_base),
        begin(file_base + first),
        end(file_base + first + length),
        options(walk_options) {}

  StreamCheck Run();

 private:
  void Add(const char* kind, Severity severity, const uint8_t* at, std::string message,
           int64_t length = -1) {
    Issue issue;
    issue.kind = kind;
    issue.severity = severity;
    issue.offset = at != nullptr ? at - file : -1;
    issue.length = length;
    issue.thumbnail = options.thumbnail;
    issue.message = std::move(message);
    result.issues.Add(std::move(issue));
  }
  int64_t Offset(const uint8_t* p) const { return p - file; }
  bool Record(uint8_t code, const uint8_t* marker, const uint8_t* payload, int32_t length,
              const SegmentFields& fields);

  // Each returns false when the walk cannot go on.
  bool Segment(uint8_t code, const uint8_t* marker, const uint8_t* payload, int32_t length);
  void Frame(const uint8_t* marker, const FrameFields& frame, bool complete);
  void HuffmanTables(const uint8_t* marker, const TableFields& tables);
  void QuantTables(const uint8_t* marker, const TableFields& tables);
  void Application(uint8_t code, const uint8_t* marker, const uint8_t* payload, int32_t length,
                   const SegmentFields& fields);
  // A scan: its header's checks, then its data. Returns where the walk goes on, or null when
  // it cannot.
  const uint8_t* Scan(const uint8_t* marker, const ScanFields& scan, bool complete,
                      const uint8_t* data);
  const uint8_t* SkipData(const uint8_t* data);
  const CheckTable* Table(bool is_dc, int32_t id, const uint8_t* marker);
  bool Progression(const uint8_t* marker, const ScanFields& scan, const int32_t* indices);
  void Finish(bool stopped);

  const uint8_t* file;
  const uint8_t* begin;
  const uint8_t* end;
  const StreamCheckOptions& options;
  StreamCheck result;

  bool checkable = false;  // a frame whose scans this check can read
  FrameGeometry geometry;
  bool quant_defined[4] = {};
  TableSlot dc[4];
  TableSlot ac[4];
  uint32_t restart_interval = 0;
  std::unique_ptr<CoefficientMasks> masks;
  int8_t coef_bits[4][64];  // per frame component: the Al of each coefficient's last scan
  bool coded[4] = {};       // sequential: the component was in a scan
  bool standard_tables_said = false;
  bool sequential_said = false;
  bool fill_said = false;
  bool app_said[16] = {};
};

StreamCheck StreamWalk::Run() {
  std::memset(coef_bits, -1, sizeof coef_bits);
  if (end == begin) {
    Add("empty", Severity::kBroken, nullptr, "the file is empty");
    result.issues.Last().offset = begin - file;  // where the bytes stop: at once
    return std::move(result);
  }
  if (end - begin < 2 || begin[0] != 0xFF || begin[1] != 0xD8) {
    Add("not_jpeg", Severity::kBroken, begin,
        end - begin < 2 ? std::string("no start-of-image marker: the stream holds one byte")
                        : Format("no start-of-image marker: the stream starts with 0x%02x 0x%02x",
                                 begin[0], begin[1]));
    return std::move(result);
  }
  const uint8_t* p = begin + 2;
  bool stopped = false;
  for (;;) {
    const MarkerFound m = FindMarker(p, end);
    if (m.stray > 0) {
      Add("extraneous_bytes", Severity::kDamaged, m.stray_start,
          m.found ? Format("%lld stray bytes before marker %s", static_cast<long long>(m.stray),
                           MarkerName(m.code))
                  : Format("%lld stray bytes before the end", static_cast<long long>(m.stray)),
          m.stray);
    }
    if (!m.found) {
      break;
    }
    if (m.marker > m.ff && !fill_said) {
      fill_said = true;
      Add("fill_bytes", Severity::kInfo, m.ff,
          Format("%lld fill bytes 0xff before marker %s", static_cast<long long>(m.marker - m.ff),
                 MarkerName(m.code)),
          m.marker - m.ff);
    }
    const uint8_t code = m.code;
    p = m.marker + 2;
    if (code == 0xD9) {
      result.end = Offset(p);
      break;
    }
    if (code == 0xD8 || (code >= 0xD0 && code <= 0xD7) || code == 0x01) {
      Add("stray_marker", Severity::kDamaged, m.marker,
          Format("marker %s where no entropy-coded data runs", MarkerName(code)));
      continue;
    }
    if (code < 0xC0) {
      // A reserved code: no length to trust. The walk looks for the next marker behind it.
      Add("unknown_marker", Severity::kDamaged, m.marker,
          Format("marker %s has no meaning in a JPEG stream", MarkerName(code)));
      continue;
    }
    if (end - p < 2) {
      Add("segment_overrun", Severity::kBroken, end,
          Format("the stream ends inside the length of the %s segment at %lld", MarkerName(code),
                 static_cast<long long>(Offset(m.marker))));
      stopped = true;
      break;
    }
    const int32_t length = ReadBig16(p) - 2;
    if (length < 0) {
      Add("bad_segment", Severity::kBroken, p,
          Format("the %s segment at %lld gives its length as %d", MarkerName(code),
                 static_cast<long long>(Offset(m.marker)), length + 2));
      stopped = true;
      break;
    }
    const uint8_t* payload = p + 2;
    if (end - payload < length) {
      Add("segment_overrun", Severity::kBroken, end,
          Format("the %s segment at %lld needs %d bytes; the stream ends after %lld",
                 MarkerName(code), static_cast<long long>(Offset(m.marker)), length,
                 static_cast<long long>(end - payload)));
      stopped = true;
      break;
    }
    if (code == 0xDA) {
      bool complete = true;
      const SegmentFields fields = ReadSegmentFields(code, payload, length, complete);
      const bool recorded = Record(code, m.marker, payload, length, fields);
      p = Scan(m.marker, std::get<ScanFields>(fields), complete, payload + length);
      if (p == nullptr) {
        stopped = true;
        break;
      }
      if (recorded && p > payload + length) {
        result.segments.back().data_last = Offset(p) - 1;
      }
      continue;
    }
    if (!Segment(code, m.marker, payload, length)) {
      stopped = true;
      break;
    }
    p = payload + length;
  }
  Finish(stopped);
  return std::move(result);
}

bool StreamWalk::Record(uint8_t code, const uint8_t* marker, const uint8_t* payload, int32_t length,
                        const SegmentFields& fields) {
  if (!options.keep_segments) {
    return false;
  }
  if (result.segments.size() >= options.max_segments) {
    ++result.segments_omitted;
    return false;
  }
  SegmentRecord record{code, Offset(marker), Offset(payload) + length - 1, -1, fields};
  // The record outlives the mapped file: no pointer into it stays.
  if (auto* tables = std::get_if<TableFields>(&record.fields)) {
    for (TableEntry& t : tables->tables) {
      t.counts = nullptr;
      t.values = nullptr;
    }
  }
  result.segments.push_back(std::move(record));
  return true;
}

bool StreamWalk::Segment(uint8_t code, const uint8_t* marker, const uint8_t* payload,
                         int32_t length) {
  bool complete = true;
  const SegmentFields fields = ReadSegmentFields(code, payload, length, complete);
  Record(code, marker, payload, length, fields);
  if (IsFrameMarker(code)) {
    Frame(marker, std::get<FrameFields>(fields), complete);
  } else if (code == 0xC4 || code == 0xDB) {
    if (!complete) {
      Add("bad_segment", Severity::kBroken, marker,
          Format("a %s segment whose tables do not fill it", MarkerName(code)));
    }
    const TableFields& tables = std::get<TableFields>(fields);
    code == 0xC4 ? HuffmanTables(marker, tables) : QuantTables(marker, tables);
  } else if (code == 0xDD) {
    if (!complete) {
      Add("bad_segment", Severity::kBroken, marker,
          Format("a DRI segment of %d bytes; it holds 2", length));
    } else {
      restart_interval = std::get<RestartFields>(fields).interval;
    }
  } else if ((code >= 0xE0 && code <= 0xEF) || code == 0xFE) {
    Application(code, marker, payload, length, fields);
  } else if (code == 0xDE || code == 0xDF) {
    result.process_checked = false;
    checkable = false;
    Add("unsupported_process", Severity::kInfo, marker,
        Format("marker %s: hierarchical frames are not checked", MarkerName(code)));
  } else if (code != 0xDC && code != 0xCC) {
    // JPG and JPGn: no decoder knows what they hold. (DNL and DAC are legal: a DNL's height is
    // not checked, and arithmetic frames are not.)
    Add("unknown_marker", Severity::kDamaged, marker,
        Format("marker %s has no meaning in a JPEG stream", MarkerName(code)));
  }
  return true;
}

void StreamWalk::Frame(const uint8_t* marker, const FrameFields& frame, bool complete) {
  if (result.has_frame) {
    Add("unexpected_marker", Severity::kDamaged, marker,
        Format("a second frame header (%s)", MarkerName(frame.code)));
    return;
  }
  result.has_frame = true;
  result.frame = frame;
  if (!complete) {
    Add("bad_frame", Severity::kBroken, marker,
        Format("the %s segment does not hold its %zu components", MarkerName(frame.code),
               frame.components.size()));
    return;
  }
  if (const char* why = Unchecked(frame.code)) {
    result.process_checked = false;
    Add("unsupported_process", Severity::kInfo, marker, why);
    return;
  }
  const size_t n = frame.components.size();
  if (n == 0 || frame.width == 0) {
    Add("bad_frame", Severity::kBroken, marker,
        n == 0 ? std::string("a frame without components") : std::string("a frame of width 0"));
    return;
  }
  const char* why = nullptr;
  if (frame.precision != 8 && frame.precision != 12) {
    why = "only 8- and 12-bit frames are checked";
  } else if (n > 4) {
    why = "frames of more than 4 components are not checked";
  } else if (frame.height == 0) {
    why = "a frame whose height a DNL segment gives is not checked";
  }
  if (why != nullptr) {
    result.process_checked = false;
    Add("unsupported_process", Severity::kInfo, marker, why);
    return;
  }
  for (size_t i = 0; i < n; ++i) {
    const FrameComponent& c = frame.components[i];
    if (c.h < 1 || c.h > 4 || c.v < 1 || c.v > 4) {
      Add("bad_frame", Severity::kBroken, marker,
          Format("component %d has sampling factors %dx%d", c.id, c.h, c.v));
      return;
    }
    for (size_t j = 0; j < i; ++j) {
      if (frame.components[j].id == c.id) {
        Add("bad_frame", Severity::kBroken, marker,
            Format("component id %d appears twice in the frame", c.id));
        return;
      }
    }
  }
  geometry = PlanFrame(frame);
  masks = std::make_unique<CoefficientMasks>(geometry);
  checkable = true;
}

void StreamWalk::HuffmanTables(const uint8_t* marker, const TableFields& tables) {
  for (const TableEntry& t : tables.tables) {
    if (t.table_class > 1 || t.id > 3) {
      Add("bad_segment", Severity::kBroken, marker,
          Format("a Huffman table of class %d, id %d", t.table_class, t.id));
      continue;
    }
    TableSlot& slot = t.table_class == 0 ? dc[t.id] : ac[t.id];
    slot.defined = true;
    slot.failed = false;
    slot.runs_built = false;
    slot.built.reset();
    std::memcpy(slot.counts, t.counts, 16);
    const size_t symbols = std::min<size_t>(t.symbols, 256);
    std::memcpy(slot.symbols, t.values, symbols);
    if (t.symbols > 256) {
      slot.failed = true;
      Add("bad_huffman_table", Severity::kBroken, marker,
          Format("%s table %d has %d symbols", t.table_class == 0 ? "DC" : "AC", t.id, t.symbols));
    }
  }
}

void StreamWalk::QuantTables(const uint8_t* marker, const TableFields& tables) {
  for (const TableEntry& t : tables.tables) {
    // T.81 knows precisions 0 and 1 only: for another, decoders disagree on the table's size.
    if (t.id > 3 || t.pq > 1) {
      Add("bad_segment", Severity::kBroken, marker,
          Format("a quantization table of id %d, precision %d", t.id, t.pq));
      continue;
    }
    quant_defined[t.id] = true;
  }
}

void StreamWalk::Application(uint8_t code, const uint8_t* marker, const uint8_t* payload,
                             int32_t length, const SegmentFields& fields) {
  if (const auto* jfif = std::get_if<JfifFields>(&fields)) {
    if (jfif->major != 1) {
      Add("jfif_version", Severity::kInfo, marker,
          Format("JFIF version %d.%02d is unknown", jfif->major, jfif->minor));
    }
    return;
  }
  if (const auto* adobe = std::get_if<AdobeFields>(&fields)) {
    if (adobe->transform > 2) {
      Add("adobe_transform", Severity::kInfo, marker,
          Format("Adobe colour transform %d is unknown", adobe->transform));
    }
    return;
  }
  const auto* app = std::get_if<AppFields>(&fields);
  if (app == nullptr) {
    return;
  }
  if (app->kind == AppKind::kMpf && result.mpf_index < 0 && length > 4) {
    result.mpf_index = Offset(payload + 4);
    result.mpf_length = length - 4;
  }
  if (code != 0xFE && app->kind == AppKind::kOther && !app_said[code - 0xE0]) {
    app_said[code - 0xE0] = true;
    Add("app_segment", Severity::kInfo, marker,
        Format("%s segment of a kind corvi does not read", MarkerName(code)));
  }
}

const uint8_t* StreamWalk::SkipData(const uint8_t* data) {
  // Entropy-coded data that is not checked: up to the first marker that is no restart marker.
  const uint8_t* p = data;
  for (;;) {
    const MarkerFound m = FindMarker(p, end);
    if (!m.found) {
      return end;
    }
    if (m.code < 0xD0 || m.code > 0xD7) {
      return m.ff;
    }
    p = m.marker + 2;
  }
}

const CheckTable* StreamWalk::Table(bool is_dc, int32_t id, const uint8_t* marker) {
  const char* name = is_dc ? "DC" : "AC";
  if (id > 3) {
    Add("missing_huffman_table", Severity::kBroken, marker,
        Format("a scan names %s Huffman table %d", name, id));
    return nullptr;
  }
  TableSlot& slot = is_dc ? dc[id] : ac[id];
  if (!slot.defined) {
    if (id > 1) {
      Add("missing_huffman_table", Severity::kBroken, marker,
          Format("a scan uses %s Huffman table %d, which no DHT segment defines", name, id));
      return nullptr;
    }
    const StandardTable standard = StandardHuffmanTable(is_dc, id);
    std::memcpy(slot.counts, standard.counts, 16);
    std::memcpy(slot.symbols, standard.symbols, is_dc ? 12 : 162);
    slot.defined = true;
    if (!standard_tables_said) {
      standard_tables_said = true;
      Add("standard_tables", Severity::kInfo, marker,
          "a scan uses Huffman tables that no DHT segment defines: the standard tables of "
          "T.81 K.3 stand in");
    }
  }
  if (slot.failed) {
    return nullptr;
  }
  if (slot.built == nullptr) {
    auto table = std::make_unique<CheckTable>();
    std::string error;
    if (!BuildCheckTable(slot.counts, slot.symbols, is_dc, *table, error)) {
      slot.failed = true;
      Add("bad_huffman_table", Severity::kBroken, marker,
          Format("%s Huffman table %d: %s", name, id, error.c_str()));
      return nullptr;
    }
    slot.built = std::move(table);
  }
  return slot.built.get();
}

bool StreamWalk::Progression(const uint8_t* marker, const ScanFields& scan,
                             const int32_t* indices) {
  // The rules of libjpeg-turbo's progressive decoder (T.81 G.1.1.1).
  const int ss = scan.spectral_start;
  const int se = scan.spectral_end;
  const int ah = scan.approx_high;
  const int al = scan.approx_low;
  const bool dc_band = ss == 0;
  bool bad = al > 13 || (ah != 0 && al != ah - 1);
  if (dc_band) {
    bad = bad || se != 0;
  } else {
    bad = bad || ss > se || se > 63 || scan.components.size() != 1;
  }
  if (bad) {
    Add("bad_progression", Severity::kDamaged, marker,
        Format("scan %u: Ss=%d, Se=%d, Ah=%d, Al=%d are no progressive scan", result.scans, ss, se,
               ah, al));
    return false;
  }
  int bogus_component = -1;
  int bogus_coefficient = -1;
  for (size_t i = 0; i < scan.components.size(); ++i) {
    int8_t* bits = coef_bits[indices[i]];
    if (!dc_band && bits[0] < 0 && bogus_component < 0) {
      bogus_component = scan.components[i].id;
      bogus_coefficient = 0;
    }
    for (int k = ss; k <= se; ++k) {
      const int expected = bits[k] < 0 ? 0 : bits[k];
      if (ah != expected && bogus_component < 0) {
        bogus_component = scan.components[i].id;
        bogus_coefficient = k;
      }
      bits[k] = static_cast<int8_t>(al);
    }
  }
  if (bogus_component >= 0) {
    Add("bad_progression", Severity::kDamaged, marker,
        Format("scan %u: coefficient %d of component %d does not follow from the scans before",
               result.scans, bogus_coefficient, bogus_component));
  }
  return true;
}

const uint8_t* StreamWalk::Scan(const uint8_t* marker, const ScanFields& scan, bool complete,
                                const uint8_t* data) {
  ++result.scans;
  if (!result.has_frame) {
    Add("no_frame", Severity::kBroken, marker, "a scan before any frame header");
    return nullptr;
  }
  const size_t n = scan.components.size();
  if (!complete || n == 0 || n > 4) {
    Add("bad_scan", Severity::kBroken, marker,
        Format("an SOS segment that does not hold its %zu components", n));
    return SkipData(data);
  }
  if (!checkable) {
    return SkipData(data);
  }
  int32_t indices[4];
  for (size_t i = 0; i < n; ++i) {
    indices[i] = -1;
    for (size_t c = 0; c < result.frame.components.size(); ++c) {
      if (result.frame.components[c].id == scan.components[i].id) {
        indices[i] = static_cast<int32_t>(c);
        break;
      }
    }
    bool repeated = false;
    for (size_t j = 0; j < i; ++j) {
      repeated = repeated || scan.components[j].id == scan.components[i].id;
    }
    if (indices[i] < 0 || repeated) {
      Add("bad_scan", Severity::kBroken, marker,
          Format(repeated ? "scan %u names component %d twice"
                          : "scan %u names component %d, which the frame lacks",
                 result.scans, scan.components[i].id));
      return SkipData(data);
    }
  }
  const auto count = static_cast<int32_t>(n);
  const int32_t blocks = BlocksInMcu(geometry, indices, count);
  if (count > 1 && blocks > 10) {
    Add("bad_scan", Severity::kBroken, marker,
        Format("scan %u: an MCU of %d blocks; at most 10 may be interleaved", result.scans,
               blocks));
    return SkipData(data);
  }
  const bool progressive = result.frame.code == 0xC2;
  if (progressive) {
    if (!Progression(marker, scan, indices)) {
      return SkipData(data);
    }
  } else {
    if ((scan.spectral_start != 0 || scan.spectral_end != 63 || scan.approx_high != 0 ||
         scan.approx_low != 0) &&
        !sequential_said) {
      sequential_said = true;
      Add("sequential_parameters", Severity::kInfo, marker,
          Format("Ss=%d, Se=%d, Ah=%d, Al=%d in a sequential scan, where 0, 63, 0, 0 belong",
                 scan.spectral_start, scan.spectral_end, scan.approx_high, scan.approx_low));
    }
    for (size_t i = 0; i < n; ++i) {
      if (coded[indices[i]]) {
        Add("repeated_component", Severity::kDamaged, marker,
            Format("component %d is coded again in scan %u", scan.components[i].id, result.scans));
      }
      coded[indices[i]] = true;
    }
  }
  for (size_t i = 0; i < n; ++i) {
    const uint8_t table = result.frame.components[static_cast<size_t>(indices[i])].quant_table;
    if (table > 3 || !quant_defined[table]) {
      Add("missing_quant_table", Severity::kBroken, marker,
          Format("component %d uses quantization table %d, which no DQT segment defines",
                 scan.components[i].id, table));
      return SkipData(data);
    }
  }
  ScanCheckInput input;
  input.frame_fields = &result.frame;
  input.frame = &geometry;
  input.fields = &scan;
  input.progressive = progressive;
  input.restart_interval = restart_interval;
  input.scan_number = static_cast<int32_t>(result.scans);
  input.file_base = file;
  input.thumbnail = options.thumbnail;
  const bool need_dc = !progressive || (scan.spectral_start == 0 && scan.approx_high == 0);
  const bool need_ac = !progressive || scan.spectral_start > 0;
  for (size_t i = 0; i < n; ++i) {
    if (need_dc && (input.dc[i] = Table(true, scan.components[i].dc_table, marker)) == nullptr) {
      return SkipData(data);
    }
    if (need_ac && (input.ac[i] = Table(false, scan.components[i].ac_table, marker)) == nullptr) {
      return SkipData(data);
    }
  }
  input.geometry = PlanScan(geometry, indices, count);
  if (!progressive && options.run_tables &&
      input.geometry.units * input.geometry.blocks_in_unit > kRunTableBlocks) {
    for (size_t i = 0; i < n; ++i) {
      TableSlot& slot = ac[scan.components[i].ac_table];
      if (!slot.runs_built) {
        BuildRunTable(*slot.built);
        slot.runs_built = true;
      }
      input.ac_runs[i] = slot.built->runs;
    }
  }
  EntropyReader reader;
  reader.Start(data, end);
  const ScanCheckResult checked = CheckScanData(input, reader, *masks, result.issues);
  // What the scan left unread up to the next marker.
  const int64_t held = reader.HeldBytes();
  const uint8_t* position = reader.Position();
  const MarkerFound m = FindMarker(reader.Stop() != nullptr ? reader.Stop() : reader.Next(), end);
  if (!checked.data_lost && held + m.stray > 0) {
    Add("extraneous_bytes", Severity::kDamaged, position,
        Format("%lld bytes left over behind the data of scan %u",
               static_cast<long long>(held + m.stray), result.scans),
        held + m.stray);
  }
  return m.found ? m.ff : end;
}

void StreamWalk::Finish(bool stopped) {
  result.mask_bytes = masks != nullptr ? masks->Bytes() : 0;
  // What the whole stream lacks is found at its end: the end-of-image marker, or the end.
  const uint8_t* at = result.end >= 0 ? file + result.end - 2 : end;
  if (!result.has_frame) {
    if (result.issues.Worst() < Severity::kBroken) {
      Add("no_frame", Severity::kBroken, at, "no frame header (SOFn)");
    }
  } else if (checkable && result.scans == 0 && !stopped) {
    Add("no_scan", Severity::kBroken, at, "the frame has no scan");
  }
  if (result.end < 0 && !stopped) {
    Add("missing_eoi", Severity::kDamaged, end, "no end-of-image marker");
  }
  if (!checkable || result.scans == 0 || stopped || result.issues.Worst() == Severity::kBroken) {
    return;  // what the scans cover says nothing where the frame or a scan was refused
  }
  const bool progressive = result.frame.code == 0xC2;
  for (int32_t c = 0; c < geometry.count; ++c) {
    const int id = result.frame.components[static_cast<size_t>(c)].id;
    if (!progressive) {
      if (!coded[c]) {
        Add("missing_scan", Severity::kDamaged, at, Format("component %d is in no scan", id));
      }
      continue;
    }
    if (coef_bits[c][0] < 0) {
      Add("missing_scan", Severity::kDamaged, at, Format("component %d has no DC scan", id));
      continue;
    }
    int uncoded = 0;
    int refined_to = 0;
    for (int k = 1; k < 64; ++k) {
      uncoded += coef_bits[c][k] < 0 ? 1 : 0;
      refined_to = std::max<int>(refined_to, coef_bits[c][k]);
    }
    refined_to = std::max<int>(refined_to, coef_bits[c][0]);
    if (uncoded > 0 || refined_to > 0) {
      Add("incomplete_progression", Severity::kInfo, at,
          uncoded > 0 ? Format("%d AC coefficients of component %d are never coded", uncoded, id)
                      : Format("component %d is refined down to bit %d only", id, refined_to));
    }
  }
}

}  // namespace

StreamCheck CheckStream(const uint8_t* file, int64_t first, int64_t length,
                        const StreamCheckOptions& options) {
  StreamWalk walk(file, first, length, options);
  return walk.Run();
}

}  // namespace corvi
