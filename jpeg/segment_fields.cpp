// The fields of the table, frame, scan and application segments, read from a payload once.
#include "jpeg/segment_fields.h"

#include <cstdio>
#include <cstring>

#include "base/byte_order.h"

namespace corvi {
namespace {

bool StartsWith(const uint8_t* payload, int32_t length, const char* signature, int32_t n) {
  return length >= n && std::memcmp(payload, signature, static_cast<size_t>(n)) == 0;
}

// T.81 B.2.2: P, Y, X, Nf, then Ci, Hi/Vi, Tqi.
FrameFields ReadFrame(uint8_t code, const uint8_t* p, int32_t length, bool& complete) {
  FrameFields frame;
  frame.code = code;
  complete = false;
  if (length < 6) {
    return frame;
  }
  frame.precision = p[0];
  frame.height = ReadBig16(p + 1);
  frame.width = ReadBig16(p + 3);
  const int32_t count = p[5];
  const int32_t fit = (length - 6) / 3;
  for (int32_t i = 0; i < count && i < fit; ++i) {
    const uint8_t* entry = p + 6 + 3 * i;
    frame.components.push_back(FrameComponent{entry[0], static_cast<uint8_t>(entry[1] >> 4),
                                              static_cast<uint8_t>(entry[1] & 15), entry[2]});
  }
  complete = length == 6 + 3 * count;
  return frame;
}

// T.81 B.2.3: Ns, then Csj, Tdj/Taj, then Ss, Se, Ah/Al.
ScanFields ReadScan(const uint8_t* p, int32_t length, bool& complete) {
  ScanFields scan;
  complete = false;
  if (length < 1) {
    return scan;
  }
  const int32_t count = p[0];
  const int32_t fit = (length - 1) / 2;
  for (int32_t i = 0; i < count && i < fit; ++i) {
    const uint8_t* entry = p + 1 + 2 * i;
    scan.components.push_back(ScanComponent{entry[0], static_cast<uint8_t>(entry[1] >> 4),
                                            static_cast<uint8_t>(entry[1] & 15)});
  }
  if (length >= 4 + 2 * count) {
    const uint8_t* tail = p + 1 + 2 * count;
    scan.spectral_start = tail[0];
    scan.spectral_end = tail[1];
    scan.approx_high = static_cast<uint8_t>(tail[2] >> 4);
    scan.approx_low = static_cast<uint8_t>(tail[2] & 15);
  }
  complete = length == 4 + 2 * count;
  return scan;
}

// T.81 B.2.4.2: Tc/Th, 16 counts L1..L16, then the symbols; several tables in one segment.
TableFields ReadHuffmanTables(const uint8_t* p, int32_t length, bool& complete) {
  TableFields fields;
  int32_t at = 0;
  complete = false;
  while (at < length) {
    if (length - at < 17) {
      return fields;
    }
    TableEntry table;
    table.table_class = static_cast<uint8_t>(p[at] >> 4);
    table.id = static_cast<uint8_t>(p[at] & 15);
    table.counts = p + at + 1;
    int32_t symbols = 0;
    for (int i = 0; i < 16; ++i) {
      symbols += table.counts[i];
    }
    if (length - at - 17 < symbols) {
      return fields;
    }
    table.symbols = static_cast<uint16_t>(symbols);
    table.values = p + at + 17;
    fields.tables.push_back(table);
    at += 17 + symbols;
  }
  complete = true;
  return fields;
}

// T.81 B.2.4.1: Pq/Tq, then 64 entries of 8 or 16 bits.
TableFields ReadQuantTables(const uint8_t* p, int32_t length, bool& complete) {
  TableFields fields;
  int32_t at = 0;
  complete = false;
  while (at < length) {
    TableEntry table;
    table.precision = (p[at] >> 4) != 0 ? 16 : 8;
    table.id = static_cast<uint8_t>(p[at] & 15);
    const int32_t size = 1 + (table.precision == 16 ? 128 : 64);
    if (length - at < size) {
      return fields;
    }
    fields.tables.push_back(table);
    at += size;
  }
  complete = true;
  return fields;
}

SegmentFields ReadApp(uint8_t code, const uint8_t* p, int32_t length, bool& complete) {
  complete = true;
  switch (code) {
    case 0xE0:
      if (StartsWith(p, length, "JFIF", 5)) {
        JfifFields jfif;
        complete = length >= 14;
        if (complete) {
          jfif.major = p[5];
          jfif.minor = p[6];
          jfif.units = p[7];
          jfif.x_density = ReadBig16(p + 8);
          jfif.y_density = ReadBig16(p + 10);
          jfif.thumbnail_width = p[12];
          jfif.thumbnail_height = p[13];
        }
        return jfif;
      }
      if (StartsWith(p, length, "JFXX", 5)) {
        return AppFields{AppKind::kJfxx};
      }
      if (StartsWith(p, length, "AVI1", 4)) {
        return AppFields{AppKind::kAvi1};
      }
      break;
    case 0xE1:
      if (StartsWith(p, length, "Exif\0", 6)) {
        return AppFields{AppKind::kExif};
      }
      if (StartsWith(p, length, "http://ns.adobe.com/xap/1.0/", 29)) {
        return AppFields{AppKind::kXmp};
      }
      if (StartsWith(p, length, "http://ns.adobe.com/xmp/extension/", 35)) {
        return AppFields{AppKind::kXmpExtended};
      }
      break;
    case 0xE2:
      if (StartsWith(p, length, "ICC_PROFILE", 12)) {
        IccFields icc;
        complete = length >= 14;
        if (complete) {
          icc.sequence = p[12];
          icc.count = p[13];
        }
        return icc;
      }
      if (StartsWith(p, length, "MPF", 4)) {
        return AppFields{AppKind::kMpf};
      }
      break;
    case 0xEC:
      if (StartsWith(p, length, "Ducky", 5)) {
        return AppFields{AppKind::kDucky};
      }
      break;
    case 0xED:
      if (StartsWith(p, length, "Photoshop 3.0", 14)) {
        return AppFields{AppKind::kPhotoshop};
      }
      break;
    case 0xEE:
      if (StartsWith(p, length, "Adobe", 5)) {
        AdobeFields adobe;
        complete = length >= 12;
        if (complete) {
          adobe.version = p[6];
          adobe.flags0 = ReadBig16(p + 7);
          adobe.flags1 = ReadBig16(p + 9);
          adobe.transform = p[11];
        }
        return adobe;
      }
      break;
    default:
      break;
  }
  return AppFields{AppKind::kOther};
}

}  // namespace

SegmentFields ReadSegmentFields(uint8_t code, const uint8_t* payload, int32_t length,
                                bool& complete) {
  complete = true;
  if (length < 0) {
    complete = false;
    return std::monostate{};
  }
  if (IsFrameMarker(code)) {
    return ReadFrame(code, payload, length, complete);
  }
  switch (code) {
    case 0xC4:
      return ReadHuffmanTables(payload, length, complete);
    case 0xDA:
      return ReadScan(payload, length, complete);
    case 0xDB:
      return ReadQuantTables(payload, length, complete);
    case 0xDD:
      complete = length == 2;
      return length >= 2 ? SegmentFields{RestartFields{ReadBig16(payload)}} : std::monostate{};
    default:
      if (code >= 0xE0 && code <= 0xEF) {
        return ReadApp(code, payload, length, complete);
      }
      return std::monostate{};
  }
}

bool IsFrameMarker(uint8_t code) {
  return code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC;
}

const char* MarkerName(uint8_t code) {
  static const char* const kFrames[16] = {"SOF0", "SOF1",  "SOF2",  "SOF3", "DHT",   "SOF5",
                                          "SOF6", "SOF7",  "JPG",   "SOF9", "SOF10", "SOF11",
                                          "DAC",  "SOF13", "SOF14", "SOF15"};
  static const char* const kOthers[16] = {"RST0", "RST1", "RST2", "RST3", "RST4", "RST5",
                                          "RST6", "RST7", "SOI",  "EOI",  "SOS",  "DQT",
                                          "DNL",  "DRI",  "DHP",  "EXP"};
  static const char* const kApps[16] = {"APP0",  "APP1",  "APP2",  "APP3", "APP4",  "APP5",
                                        "APP6",  "APP7",  "APP8",  "APP9", "APP10", "APP11",
                                        "APP12", "APP13", "APP14", "APP15"};
  static const struct Hex {
    char names[256][5];
    Hex() {
      for (int i = 0; i < 256; ++i) {
        std::snprintf(names[i], sizeof names[i], "0x%02x", i);
      }
    }
  } kHex;
  if (code >= 0xC0 && code <= 0xCF) {
    return kFrames[code - 0xC0];
  }
  if (code >= 0xD0 && code <= 0xDF) {
    return kOthers[code - 0xD0];
  }
  if (code >= 0xE0 && code <= 0xEF) {
    return kApps[code - 0xE0];
  }
  if (code == 0xFE) {
    return "COM";
  }
  if (code == 0x01) {
    return "TEM";
  }
  return kHex.names[code];
}

const char* AppKindName(AppKind kind) {
  switch (kind) {
    case AppKind::kOther:
      return "other";
    case AppKind::kJfif:
      return "JFIF";
    case AppKind::kJfxx:
      return "JFXX";
    case AppKind::kExif:
      return "Exif";
    case AppKind::kXmp:
      return "XMP";
    case AppKind::kXmpExtended:
      return "XMP extension";
    case AppKind::kIcc:
      return "ICC_PROFILE";
    case AppKind::kMpf:
      return "MPF";
    case AppKind::kDucky:
      return "Ducky";
    case AppKind::kPhotoshop:
      return "Photoshop 3.0";
    case AppKind::kAdobe:
      return "Adobe";
    case AppKind::kAvi1:
      return "AVI1";
  }
  return "other";
}

}  // namespace corvi
