// The fields of the table, frame, scan and application segments, read from a payload once.
#include "jpeg/segment_fields.h"

#include <cstdio>
#include <cstring>

#include "base/byte_order.h"

namespace corvi {
namespace {

bool StartsWith(const uint8_t* p, int64_t available, const char* signature, int64_t n) {
  return available >= n && std::memcmp(p, signature, static_cast<size_t>(n)) == 0;
}

}  // namespace

// T.81 B.2.2: P, Y, X, Nf, then Ci, Hi|Vi, Tqi.
int64_t ReadFrameFields(uint8_t code, const uint8_t* p, int64_t available, FrameFields& out) {
  out = FrameFields{};
  out.code = code;
  if (available < 6) {
    return 6;
  }
  out.precision = p[0];
  out.height = ReadBig16(p + 1);
  out.width = ReadBig16(p + 3);
  out.count = p[5];
  for (int64_t i = 0; i < out.count && 6 + 3 * (i + 1) <= available; ++i) {
    const uint8_t* c = p + 6 + 3 * i;
    out.components.push_back(FrameComponent{c[0], static_cast<uint8_t>(c[1] >> 4),
                                            static_cast<uint8_t>(c[1] & 0x0F), c[2]});
  }
  return 6 + 3 * int64_t{out.count};
}

// T.81 B.2.3: Ns, then Csj, Tdj|Taj, then Ss, Se, Ah|Al.
int64_t ReadScanFields(const uint8_t* p, int64_t available, ScanFields& out) {
  out = ScanFields{};
  if (available < 1) {
    return 4;
  }
  out.count = p[0];
  for (int64_t i = 0; i < out.count && 1 + 2 * (i + 1) <= available; ++i) {
    const uint8_t* c = p + 1 + 2 * i;
    out.components.push_back(
        ScanComponent{c[0], static_cast<uint8_t>(c[1] >> 4), static_cast<uint8_t>(c[1] & 0x0F)});
  }
  const int64_t tail = 1 + 2 * int64_t{out.count};
  if (tail + 3 <= available) {
    out.spectral_start = p[tail];
    out.spectral_end = p[tail + 1];
    out.approx_high = static_cast<uint8_t>(p[tail + 2] >> 4);
    out.approx_low = static_cast<uint8_t>(p[tail + 2] & 0x0F);
  }
  return tail + 3;
}

// T.81 B.2.4.2: Tc|Th, the 16 counts L1..L16, then the symbols, table after table.
int64_t ReadHuffmanFields(const uint8_t* p, int64_t length, int64_t available, TableFields& out) {
  out = TableFields{};
  int64_t at = 0;
  while (at < length) {
    if (available - at < 17) {
      return at + 17;
    }
    TableEntry table;
    table.table_class = static_cast<uint8_t>(p[at] >> 4);
    table.id = static_cast<uint8_t>(p[at] & 0x0F);
    table.counts = p + at + 1;
    int64_t symbols = 0;
    for (int i = 0; i < 16; ++i) {
      symbols += table.counts[i];
    }
    if (available - at - 17 < symbols) {
      return at + 17 + symbols;
    }
    table.symbols = static_cast<uint16_t>(symbols);
    table.values = p + at + 17;
    out.tables.push_back(table);
    at += 17 + symbols;
  }
  return at;
}

// T.81 B.2.4.1: Pq|Tq, then 64 entries of 8 bits, or 16 where bit 0x10 is set (only that bit
// decides the size, so a Pq of 2 reads 8-bit entries), table after table.
int64_t ReadQuantFields(const uint8_t* p, int64_t length, int64_t available, TableFields& out) {
  out = TableFields{};
  int64_t at = 0;
  while (at < length) {
    if (available - at < 1) {
      return at + 1;
    }
    TableEntry table;
    table.pq = static_cast<uint8_t>(p[at] >> 4);
    table.id = static_cast<uint8_t>(p[at] & 0x0F);
    table.precision = (p[at] & 0x10) != 0 ? 16 : 8;
    const int64_t size = 1 + 64 * int64_t{table.precision / 8};
    if (available - at < size) {
      return at + size;
    }
    table.values = p + at + 1;
    out.tables.push_back(table);
    at += size;
  }
  return at;
}

// JFIF 1.02: "JFIF" and a zero, version, units, Xdensity, Ydensity, Xthumbnail, Ythumbnail.
bool ReadJfifFields(const uint8_t* p, int64_t available, JfifFields& out) {
  if (!StartsWith(p, available, "JFIF", 5) || available < 14) {
    return false;
  }
  out.major = p[5];
  out.minor = p[6];
  out.units = p[7];
  out.x_density = ReadBig16(p + 8);
  out.y_density = ReadBig16(p + 10);
  out.thumbnail_width = p[12];
  out.thumbnail_height = p[13];
  return true;
}

// Adobe: "Adobe", a byte not read, version, flags0, flags1, colour transform.
bool ReadAdobeFields(const uint8_t* p, int64_t available, AdobeFields& out) {
  if (!StartsWith(p, available, "Adobe", 5) || available < 12) {
    return false;
  }
  out.version = p[6];
  out.flags0 = ReadBig16(p + 7);
  out.flags1 = ReadBig16(p + 9);
  out.transform = p[11];
  return true;
}

// Signatures in their full width: a shorter payload holds none.
AppKind ReadAppKind(uint8_t code, const uint8_t* p, int64_t available) {
  struct Signature {
    uint8_t code;
    const char* text;
    int64_t size;
    AppKind kind;
  };
  static const Signature kSignatures[] = {
      {0xE0, "JFIF", 5, AppKind::kJfif},
      {0xE0, "JFXX", 5, AppKind::kJfxx},
      {0xE0, "AVI1", 4, AppKind::kAvi1},
      {0xE1, "Exif\0", 6, AppKind::kExif},
      {0xE1, "http://ns.adobe.com/xap/1.0/", 29, AppKind::kXmp},
      {0xE1, "http://ns.adobe.com/xmp/extension/", 35, AppKind::kXmpExtended},
      {0xE2, "ICC_PROFILE", 12, AppKind::kIcc},
      {0xE2, "MPF", 4, AppKind::kMpf},
      {0xEC, "Ducky", 5, AppKind::kDucky},
      {0xED, "Photoshop 3.0", 14, AppKind::kPhotoshop},
      {0xEE, "Adobe", 5, AppKind::kAdobe},
  };
  for (const Signature& signature : kSignatures) {
    if (signature.code == code && StartsWith(p, available, signature.text, signature.size)) {
      return signature.kind;
    }
  }
  return AppKind::kOther;
}

SegmentFields ReadSegmentFields(uint8_t code, const uint8_t* payload, int32_t length,
                                bool& complete) {
  complete = false;
  if (length < 0) {
    return std::monostate{};
  }
  if (IsFrameMarker(code)) {
    FrameFields frame;
    complete = ReadFrameFields(code, payload, length, frame) == length;
    return frame;
  }
  switch (code) {
    case 0xC4:
    case 0xDB: {
      TableFields tables;
      const int64_t taken = code == 0xC4 ? ReadHuffmanFields(payload, length, length, tables)
                                         : ReadQuantFields(payload, length, length, tables);
      complete = taken == length;
      return tables;
    }
    case 0xDA: {
      ScanFields scan;
      complete = ReadScanFields(payload, length, scan) == length;
      return scan;
    }
    case 0xDD:
      complete = length == 2;
      return length >= 2 ? SegmentFields{RestartFields{ReadBig16(payload)}} : std::monostate{};
    default:
      break;
  }
  if (code < 0xE0 || code > 0xEF) {
    return std::monostate{};
  }
  const AppKind kind = ReadAppKind(code, payload, length);
  complete = true;
  if (kind == AppKind::kJfif) {
    JfifFields jfif;
    complete = ReadJfifFields(payload, length, jfif);
    return complete ? SegmentFields{jfif} : SegmentFields{AppFields{kind}};
  }
  if (kind == AppKind::kAdobe) {
    AdobeFields adobe;
    complete = ReadAdobeFields(payload, length, adobe);
    return complete ? SegmentFields{adobe} : SegmentFields{AppFields{kind}};
  }
  if (kind == AppKind::kIcc) {
    complete = length >= 14;
    return complete ? SegmentFields{IccFields{payload[12], payload[13]}}
                    : SegmentFields{AppFields{kind}};
  }
  return AppFields{kind};
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
