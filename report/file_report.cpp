// The report of one file: corvi's scan for the segments, the Exif entries and the byte counts, a
// lenient scan where corvi's fails on metadata, the checker's walk over the picture and its
// thumbnails, and the properties.
#include "report/file_report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "base/byte_coverage.h"
#include "base/byte_order.h"
#include "base/limits.h"
#include "base/property.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "check/stream_check.h"
#include "decode/decode_state.h"
#include "exif/tag_names.h"
#include "exif/tiff_entry.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "platform/file_view.h"
#include "platform/format.h"
#include "report/pipeline.h"

namespace corvi {
namespace {

// Thumbnails inside thumbnails are reported to this depth; deeper ones are counted.
constexpr int32_t kReportDepth = 8;
// Bounds of one report, whatever the file holds.
constexpr size_t kMaxDirectories = 256;
constexpr size_t kMaxEntries = 10000;
constexpr size_t kMaxUnclaimed = 256;
// An Exif value longer than this is given by its first kCutValueBytes bytes.
constexpr size_t kWholeValueBytes = 256;
constexpr size_t kCutValueBytes = 64;

std::string Utf8(const wchar_t* text) {
  return text != nullptr ? EncodeUtf8(text) : std::string();
}

// The lenient scan of the file by corvi's reader, where its own scan failed.
struct ReaderScan {
  std::unique_ptr<ByteCoverage> coverage;
  std::unique_ptr<MarkerList> markers;
  bool ok = false;
  std::vector<ScanFault> faults;  // what it passed over
};

ReaderScan ScanLeniently(const uint8_t* data, size_t size) {
  ReaderScan scan;
  // No limits, as in corvi's own scan.
  scan.coverage = std::make_unique<ByteCoverage>(data, static_cast<int32_t>(size));
  scan.markers = std::make_unique<MarkerList>();
  scan.coverage->lenient = &scan.faults;
  try {
    scan.markers->Scan(*scan.coverage, data, static_cast<int32_t>(size - 2));
    scan.ok = true;
  } catch (const RawLayerException&) {
    // The segment whose parse failed may hold fields it never claimed: it is not read.
    MarkerList& list = *scan.markers;
    if (list.count > 0) {
      delete list.items[list.count - 1];
      list.items[--list.count] = nullptr;
    }
  }
  scan.coverage->lenient = nullptr;
  return scan;
}

const char* DirectoryName(const TIFFEntry& entry, std::string& make) {
  if (dynamic_cast<const CanonMakerNote*>(&entry) != nullptr) {
    make = "Canon";
    return "MakerNote";
  }
  if (dynamic_cast<const SonyMakerNote*>(&entry) != nullptr) {
    make = "SONY";
    return "MakerNote";
  }
  switch (entry.tag & 0xFFFF) {
    case 0x8769:
      return "Exif";
    case 0x8825:
      return "GPS";
    case 0xA005:
      return "Interoperability";
    default:
      return "SubIFD";
  }
}

ExifEntryRecord EntryRecord(const TIFFEntry& entry, const uint8_t* base) {
  ExifEntryRecord record;
  record.tag = entry.tag & 0xFFFF;
  record.name = Utf8(TIFFTagName(entry.tag));
  record.type = static_cast<uint16_t>(entry.type);
  record.count = entry.count;
  const int64_t size = int64_t{kPropertyTypeSizes[entry.type < 13 ? entry.type : 0]} * entry.count;
  record.first = entry.value - base;
  record.last = record.first + size - 1;
  const auto whole = static_cast<size_t>(size > 0 ? size : 0);
  const size_t kept = whole <= kWholeValueBytes ? whole : kCutValueBytes;
  record.cut = kept < whole;
  record.bytes.assign(reinterpret_cast<const char*>(entry.value), kept);
  return record;
}

// The directories of one Exif segment as a flat list in walk order: a chain's directories one
// by one, each sub-directory behind the entry that leads to it. The walk keeps its own stack.
void AddExif(const TIFFDirectory& root, int32_t segment, const uint8_t* base,
             StreamReport& stream) {
  struct Level {
    const TIFFDirectory* directory;
    uint32_t next;     // the next entry to read
    int32_t record;    // the directory record the entries go to, -1 before the first
    uint32_t ifd;      // the chain's directory of that record
    int32_t parent;    // the record the chain hangs from
    const char* name;  // of a sub-directory chain; null for the segment's own chain
    std::string make;
  };
  constexpr int32_t kNoRecord = -1;
  constexpr int32_t kOmitted = -2;
  size_t entries = 0;
  for (const ExifDirectoryRecord& d : stream.directories) {
    entries += d.entries.size();
  }
  std::vector<Level> stack;
  stack.push_back(Level{&root, 0, kNoRecord, 0, -1, nullptr, {}});
  while (!stack.empty()) {
    Level& level = stack.back();
    if (level.next >= level.directory->count) {
      stack.pop_back();
      continue;
    }
    const TIFFEntry& entry = *level.directory->items[level.next++];
    if (level.record == kNoRecord || entry.ifd != level.ifd) {
      level.ifd = entry.ifd;
      if (stream.directories.size() >= kMaxDirectories) {
        ++stream.directories_omitted;  // counted, and its entries with it
        level.record = kOmitted;
      } else {
        ExifDirectoryRecord record;
        record.name = level.name != nullptr ? level.name : "IFD" + std::to_string(entry.ifd);
        if (level.name != nullptr && entry.ifd != 0) {
          record.name += std::to_string(entry.ifd);
        }
        record.make = level.make;
        record.parent = level.parent;
        record.segment = segment;
        record.byte_order = level.directory->byte_order;
        stream.directories.push_back(std::move(record));
        level.record = static_cast<int32_t>(stream.directories.size() - 1);
      }
    }
    if (level.record == kOmitted || entries >= kMaxEntries) {
      ++stream.entries_omitted;
    } else {
      stream.directories[static_cast<size_t>(level.record)].entries.push_back(
          EntryRecord(entry, base));
      ++entries;
    }
    if (const auto* nested = dynamic_cast<const TIFFNestedDir*>(&entry)) {
      if (nested->directory != nullptr && nested->directory->count > 0) {
        std::string make;
        const char* name = DirectoryName(entry, make);
        const int32_t parent = level.record >= 0 ? level.record : -1;  // `level` may move
        stack.push_back(Level{nested->directory, 0, kNoRecord, 0, parent, name, std::move(make)});
      }
    }
  }
}

// Index of the segment whose 0xFF stands at `first`, or -1.
int32_t SegmentAt(const StreamReport& stream, int64_t first) {
  const auto it =
      std::lower_bound(stream.segments.begin(), stream.segments.end(), first,
                       [](const SegmentRecord& s, int64_t offset) { return s.first < offset; });
  if (it == stream.segments.end() || it->first != first) {
    return -1;
  }
  return static_cast<int32_t>(it - stream.segments.begin());
}

// An image of an MPF index: where it lies in the file, and its number in the index from 1.
struct MpfImage {
  int64_t first;
  int64_t size;
  uint32_t number;
};

// The images that an MPF index (CIPA DC-007) names, other than the first: the index is a TIFF
// structure at `index` of `index_length` bytes, whose MP Entry tag (0xB002) holds 16 bytes an
// image (attributes, size, offset from the TIFF header, two dependents), in the TIFF's byte
// order. Images that reach outside the file are left out.
std::vector<MpfImage> MpfImages(const uint8_t* data, int64_t index, int64_t index_length,
                                int64_t file_length) {
  std::vector<MpfImage> images;
  if (index < 0 || index_length < 8) {
    return images;
  }
  const uint8_t* tiff = data + index;
  const uint8_t order = tiff[0] == 'M' ? kMotorolaOrder : kIntelOrder;
  const int64_t ifd = ReadOrdered32(tiff + 4, order);
  if (ifd < 8 || ifd + 2 > index_length) {
    return images;
  }
  const uint32_t count = ReadOrdered16(tiff + ifd, order);
  for (uint32_t i = 0; i < count && ifd + 2 + 12 * (int64_t{i} + 1) <= index_length; ++i) {
    const uint8_t* entry = tiff + ifd + 2 + 12 * i;
    if (ReadOrdered16(entry, order) != 0xB002) {
      continue;
    }
    const int64_t bytes = ReadOrdered32(entry + 4, order);
    const int64_t at = ReadOrdered32(entry + 8, order);
    for (int64_t e = 0; e + 16 <= bytes && at + e + 16 <= index_length; e += 16) {
      const int64_t size = ReadOrdered32(tiff + at + e + 4, order);
      const int64_t offset = ReadOrdered32(tiff + at + e + 8, order);
      if (offset != 0 && index + offset + size <= file_length) {
        images.push_back(MpfImage{index + offset, size, static_cast<uint32_t>(e / 16 + 1)});
      }
    }
  }
  return images;
}

// The Exif segments of a stream, and the thumbnails they name.
struct ThumbnailFound {
  const APP1Marker* segment;
  int64_t offset;
  uint32_t length;
};

void CollectExif(const MarkerList& markers, const uint8_t* base, StreamReport& stream, bool keep,
                 std::vector<ThumbnailFound>& thumbnails) {
  for (uint32_t i = 0; i < markers.count; ++i) {
    const auto* app1 = dynamic_cast<const APP1Marker*>(markers.items[i]);
    if (app1 == nullptr || app1->directory == nullptr) {
      continue;
    }
    if (keep) {
      AddExif(*app1->directory, SegmentAt(stream, app1->FirstByte(base)), base, stream);
    }
    ThumbnailFound found{app1, 0, 0};
    if (FindThumbnail(*app1->directory, found.offset, found.length)) {
      thumbnails.push_back(found);
    }
  }
}

// How many thumbnails nest inside `markers`, at any depth; counted with a stack of its own.
size_t CountThumbnails(const MarkerList* markers) {
  size_t count = 0;
  std::vector<const MarkerList*> stack{markers};
  while (!stack.empty()) {
    const MarkerList* list = stack.back();
    stack.pop_back();
    for (uint32_t i = 0; list != nullptr && i < list->count; ++i) {
      const auto* app1 = dynamic_cast<const APP1Marker*>(list->items[i]);
      if (app1 != nullptr && app1->thumbnail != nullptr) {
        ++count;
        stack.push_back(app1->thumbnail);
      }
    }
  }
  return count;
}

class ReportBuilder {
 public:
  ReportBuilder(FileReport& file_report, const FileRun& file_run, const uint8_t* bytes, size_t size,
                const InspectOptions& inspect_options)
      : report(file_report), run(file_run), data(bytes), length(size), options(inspect_options) {}

  void Build();

 private:
  void Issue(const char* kind, Severity severity, int64_t offset, std::string message) {
    corvi::Issue issue;
    issue.kind = kind;
    issue.severity = severity;
    issue.offset = offset;
    issue.message = std::move(message);
    report.issues.Add(std::move(issue));
  }
  void ReaderScans();
  void Picture();
  void Summarize(const StreamCheck& check);
  void ReaderFailure(IssueList& picture);
  void Thumbnails(const MarkerList* markers);
  bool ThumbnailUsable(const ThumbnailFound& found, int32_t depth);
  void Trailing(const StreamCheck& check);
  void Properties(const MarkerList& markers);
  void Decode();
  void Unclaimed();

  FileReport& report;
  const FileRun& run;  // corvi's own pipeline over the file
  const uint8_t* data;
  size_t length;
  const InspectOptions& options;
  int64_t failure_at = 0;  // where corvi's scan stood when it failed
  ReaderScan lenient;
  const MarkerList* markers = nullptr;  // the segments the report reads: strict, or lenient
  bool process_checked = true;
};

void ReportBuilder::Build() {
  report.length = length;
  ReaderScans();
  Picture();
  if (markers != nullptr) {
    Thumbnails(markers);
    Properties(*markers);
  }
  if (options.decode) {
    Decode();
  }
  if (report.scanned && options.full) {
    Unclaimed();
  }
  report.issues.Sort();
  report.verdict = VerdictOf(report.issues, process_checked);
}

void ReportBuilder::ReaderScans() {
  if (length > 0x7FFFFFFF) {
    // Offsets in corvi's reader are 32-bit: it refuses the file before reading it.
    report.scan_failure = "File too large (" + std::to_string(length) + " bytes)";
    return;
  }
  if (length == 0) {
    return;  // nothing to scan; the check says the file is empty
  }
  if (run.scanned) {
    report.scanned = true;
    report.left = run.reader->coverage->LeftCount();
    report.identified = static_cast<uint32_t>(length) - report.left;
    markers = run.reader->markers;
    return;
  }
  report.scan_failure = Utf8(run.failure.c_str());
  if (run.reader != nullptr && run.reader->coverage != nullptr) {
    failure_at = run.reader->coverage->last_attempt.start;
  }
  lenient = ScanLeniently(data, length);
  markers = lenient.markers.get();
}

void ReportBuilder::Picture() {
  StreamCheckOptions check_options;
  check_options.keep_segments = options.full;
  StreamCheck check = CheckStream(data, 0, static_cast<int64_t>(length), check_options);
  process_checked = check.process_checked;
  Summarize(check);
  if (!report.scanned && !report.scan_failure.empty()) {
    ReaderFailure(check.issues);
  }
  report.issues.Append(check.issues);
  Trailing(check);
  report.stream.first = 0;
  report.stream.last = static_cast<int64_t>(length) - 1;
  report.stream.segments = std::move(check.segments);
  report.stream.segments_omitted = check.segments_omitted;
  report.stream.eoi = check.end >= 0 ? check.end - 2 : -1;
}

void ReportBuilder::Summarize(const StreamCheck& check) {
  report.scans = check.scans;
  if (!check.has_frame) {
    return;
  }
  const FrameFields& frame = check.frame;
  report.width = frame.width;
  report.height = frame.height;
  report.components = static_cast<uint32_t>(frame.components.size());
  report.precision = frame.precision;
  report.process = ModeName(frame.code);
  for (size_t i = 0; i < frame.components.size(); ++i) {
    if (i != 0) {
      report.sampling += ',';
    }
    report.sampling += std::to_string(frame.components[i].h);
    report.sampling += 'x';
    report.sampling += std::to_string(frame.components[i].v);
  }
}

void ReportBuilder::ReaderFailure(IssueList& picture) {
  // corvi's scan failed: on metadata, when the lenient scan got through, else on something the
  // check reads past; either way its message stands at the place it stopped. Where it says the
  // end is missing, the check says so too: one issue, in corvi's words.
  bool said = false;
  if (report.scan_failure == "Missing JPEG EOI") {
    if (corvi::Issue* missing = picture.Find("missing_eoi")) {
      missing->message = report.scan_failure;
      said = true;
    }
  }
  // What the lenient scan passed over, each at the place it stood; corvi's own failure is among
  // them unless something else failed (a thumbnail colliding with what follows it).
  for (const ScanFault& fault : lenient.faults) {
    const std::string message = Utf8(fault.message.c_str());
    said = said || message == report.scan_failure;
    Issue("metadata", Severity::kBenign, fault.offset, message);
  }
  if (!said) {
    // Only the dump is lost: what the failure means for the picture, the check's own issues
    // say, each at its place. The search for the end comes first: a file without one fails
    // before anything is read.
    const int64_t at =
        report.scan_failure == "Missing JPEG EOI" ? static_cast<int64_t>(length) : failure_at;
    Issue(lenient.ok ? "metadata" : "scan_failure", Severity::kBenign, at, report.scan_failure);
  }
}

void ReportBuilder::Trailing(const StreamCheck& check) {
  const auto size = static_cast<int64_t>(length);
  if (check.end < 0 || check.end >= size) {
    return;
  }
  int64_t from = check.end;
  for (const MpfImage& image : MpfImages(data, check.mpf_index, check.mpf_length, size)) {
    if (image.first < check.end) {
      continue;
    }
    Issue("mpf_image", Severity::kInfo, image.first,
          Format("image %u of the MPF index, %lld bytes behind the end of the first", image.number,
                 static_cast<long long>(image.size)));
    // Zero bytes of padding in front of an image are accounted for with it.
    if (image.first >= from &&
        std::all_of(data + from, data + image.first, [](uint8_t b) { return b == 0; })) {
      from = image.first + image.size;
    }
  }
  if (from < size) {
    Issue("trailing_bytes", Severity::kBenign, from,
          Format("%lld bytes behind the end of the image that nothing accounts for",
                 static_cast<long long>(size - from)));
  }
}

bool ReportBuilder::ThumbnailUsable(const ThumbnailFound& found, int32_t depth) {
  const int64_t size = static_cast<int64_t>(length);
  const int64_t end = found.offset + found.length;
  corvi::Issue issue;
  issue.kind = "thumbnail_pointer";
  issue.severity = Severity::kBenign;
  issue.offset = found.segment->FirstByte(data);
  issue.thumbnail = depth;
  bool usable = true;
  if (found.length < 2 || found.offset < 0 || end > size) {
    issue.message = Format("the Exif thumbnail pointer (%lld, %u bytes) leads outside the file",
                           static_cast<long long>(found.offset), found.length);
    usable = false;
  } else if (data[found.offset] != 0xFF || data[found.offset + 1] != 0xD8) {
    issue.message = Format("the Exif thumbnail pointer (%lld) leads to no JPEG stream",
                           static_cast<long long>(found.offset));
    usable = false;
  } else if (found.offset < found.segment->FirstByte(data) ||
             end - 1 > found.segment->LastByte(data)) {
    issue.kind = "thumbnail_outside_segment";
    issue.message = Format(
        "the Exif thumbnail (bytes %lld - %lld) reaches outside its APP1 "
        "segment (bytes %lld - %lld)",
        static_cast<long long>(found.offset), static_cast<long long>(end - 1),
        static_cast<long long>(found.segment->FirstByte(data)),
        static_cast<long long>(found.segment->LastByte(data)));
  } else {
    return true;
  }
  report.issues.Add(std::move(issue));
  return usable;
}

void ReportBuilder::Thumbnails(const MarkerList* top) {
  struct Pending {
    const MarkerList* markers;
    StreamReport* stream;
    int32_t depth;
  };
  std::vector<Pending> stack{Pending{top, &report.stream, 0}};
  while (!stack.empty()) {
    const Pending node = stack.back();
    stack.pop_back();
    std::vector<ThumbnailFound> found;
    CollectExif(*node.markers, data, *node.stream, options.full, found);
    std::vector<ThumbnailFound> usable;
    for (const ThumbnailFound& f : found) {
      if (ThumbnailUsable(f, node.depth)) {
        usable.push_back(f);
      }
    }
    if (node.depth >= kReportDepth) {
      for (const ThumbnailFound& f : usable) {
        node.stream->thumbnails_deeper += 1 + CountThumbnails(f.segment->thumbnail);
      }
      continue;
    }
    node.stream->thumbnails.resize(usable.size());
    for (size_t i = 0; i < usable.size(); ++i) {
      const ThumbnailFound& f = usable[i];
      StreamReport& child = node.stream->thumbnails[i];
      child.first = f.offset;
      child.last = f.offset + f.length - 1;
      StreamCheckOptions check_options;
      check_options.thumbnail = node.depth + 1;
      check_options.keep_segments = options.full;
      StreamCheck check = CheckStream(data, f.offset, f.length, check_options);
      for (const corvi::Issue& issue : check.issues.items()) {
        report.issues.AddFromThumbnail(issue, f.offset);
      }
      child.segments = std::move(check.segments);
      child.segments_omitted = check.segments_omitted;
      child.eoi = check.end >= 0 ? check.end - 2 : -1;
      if (f.segment->thumbnail != nullptr) {
        stack.push_back(Pending{f.segment->thumbnail, &child, node.depth + 1});
      }
    }
  }
}

void ReportBuilder::Properties(const MarkerList& list) {
  // As `corvi -d` collects them, header-only; where the frame is refused, what the segments
  // gave before, segment by segment.
  auto layer = std::make_unique<RawLayer>();
  try {
    auto state = std::make_unique<DecodeState>();
    state->limits = Limits::None();
    DecodeImage(list, *state, *layer, true);
  } catch (const RawLayerException&) {
    layer = std::make_unique<RawLayer>();
    auto state = std::make_unique<DecodeState>();
    state->limits = Limits::None();
    for (uint32_t i = 0; i < list.count; ++i) {
      try {
        list.items[i]->Apply(*state, *layer, true);
      } catch (const RawLayerException&) {
        // This segment gives nothing; the others still may.
      }
    }
  }
  const PropertyList& properties = layer->properties;
  for (uint32_t i = 0; i < properties.count; ++i) {
    const Property& p = *properties.items[i];
    PropertyRecord record;
    record.id = p.id;
    record.name = "???";
    for (const PropertyName& row : PropertyNames) {
      if (row.id == p.id) {
        record.name = Utf8(row.name);
        break;
      }
    }
    record.type = p.type;
    record.count = p.count;
    record.bytes.assign(reinterpret_cast<const char*>(p.data),
                        std::min<size_t>(p.length, kWholeValueBytes));
    report.properties.push_back(std::move(record));
  }
  auto text = [&](uint32_t id) {
    const Property* p = properties.Find(id);
    if (p == nullptr || p->type != 2) {
      return std::string();
    }
    const auto* bytes = reinterpret_cast<const char*>(p->data);
    return std::string(bytes, strnlen(bytes, p->length));
  };
  report.make = text(0x10F);
  report.model = text(0x110);
  report.date = text(0x9003);
  if (report.date.empty()) {
    report.date = text(0x132);
  }
}

void ReportBuilder::Decode() {
  if (report.scanned && !run.decode_ran) {
    return;  // the caller's run went without its decode stage
  }
  report.decode_ran = true;
  if (!report.scanned) {
    // `corvi -d` stops at the scan's failure.
    report.decode_failure = report.scan_failure.empty() ? "No data" : report.scan_failure;
  } else if (run.decoded) {
    report.decoded = true;
    report.decoded_width = run.width;
    report.decoded_height = run.height;
    return;
  } else {
    report.decode_failure = Utf8(run.decode_failure.c_str());
  }
  Issue("decode_failed", Severity::kInfo, -1, "corvi -d: " + report.decode_failure);
}

void ReportBuilder::Unclaimed() {
  const std::vector<SegmentRecord>& segments = report.stream.segments;
  auto label = [](const SegmentRecord& s) {
    return std::string(MarkerName(s.code)) + " at " + std::to_string(s.first);
  };
  for (const auto& [end, start] : run.reader->coverage->unidentified) {
    if (report.unclaimed.size() >= kMaxUnclaimed) {
      ++report.unclaimed_omitted;
      continue;
    }
    UnclaimedRange range;
    range.first = start;
    range.last = int64_t{end} - 1;
    // The segments that hold the range, or stand in front of and behind it.
    const auto behind =
        std::upper_bound(segments.begin(), segments.end(), range.first,
                         [](int64_t offset, const SegmentRecord& s) { return offset < s.first; });
    if (behind != segments.begin()) {
      const SegmentRecord& before = *(behind - 1);
      if (before.last >= range.first) {
        range.inside = label(before);
      } else {
        range.after = label(before);
      }
    } else {
      range.after = "SOI";
    }
    if (behind != segments.end()) {
      range.before = label(*behind);
    } else {
      range.before = range.last + 1 >= static_cast<int64_t>(length) ? "the end of the file"
                                                                    : "the end of the image";
    }
    report.unclaimed.push_back(std::move(range));
  }
}

}  // namespace

FileReport UnreadableReport(const std::string& name, const std::string& reason) {
  FileReport report;
  report.file = name;
  report.unreadable = true;
  Issue issue;
  issue.kind = "unreadable";
  issue.severity = Severity::kBroken;
  issue.message = reason;
  report.issues.Add(std::move(issue));
  report.verdict = Verdict::kBroken;
  return report;
}

FileReport InspectRun(const std::string& name, const FileRun& run, const uint8_t* data, size_t size,
                      const InspectOptions& options) {
  FileReport report;
  report.file = name;
  ReportBuilder builder(report, run, data, size, options);
  builder.Build();
  return report;
}

FileReport InspectBytes(const std::string& name, const uint8_t* data, size_t size,
                        const InspectOptions& options) {
  FileRun run;
  if (size > 0 && size <= 0x7FFFFFFF) {
    PipelineOptions pipeline;
    pipeline.decode = options.decode;
    pipeline.threads = false;  // a checker runs one file on each thread
    const std::wstring wide = DecodeUtf8(name.data(), name.size());
    run = RunBytes(wide.c_str(), data, static_cast<uint32_t>(size), pipeline);
  }
  return InspectRun(name, run, data, size, options);
}

FileReport Inspect(const std::string& path, const InspectOptions& options) {
  FileView view;
  std::string error;
  if (!view.Open(path, error)) {
    return UnreadableReport(path, error);
  }
  FileReport report = InspectBytes(path, view.data(), static_cast<size_t>(view.size()), options);
  if (view.size() == 0) {
    // corvi cannot map an empty file: its failure line names the mapping.
    const std::wstring name = DecodeUtf8(path.data(), path.size());
    try {
      ThrowPlatformError(name.c_str(), L"CreateFileMapping", EINVAL);
    } catch (const RawLayerException& e) {
      report.scan_failure = Utf8(e.message);
    }
  }
  return report;
}

}  // namespace corvi
