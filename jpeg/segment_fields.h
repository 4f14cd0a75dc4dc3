// The fields of the table, frame, scan and application segments, read from a payload once for
// the checker and the report.
#pragma once

#include <cstdint>
#include <variant>
#include <vector>

namespace corvi {

struct FrameComponent {
  uint8_t id = 0;           // Ci
  uint8_t h = 0;            // Hi
  uint8_t v = 0;            // Vi
  uint8_t quant_table = 0;  // Tqi
};

// T.81 B.2.2.
struct FrameFields {
  uint8_t code = 0;                        // the marker, 0xC0 to 0xCF
  uint8_t precision = 0;                   // P
  uint16_t height = 0;                     // Y
  uint16_t width = 0;                      // X
  std::vector<FrameComponent> components;  // Nf of them
};

struct ScanComponent {
  uint8_t id = 0;        // Csj
  uint8_t dc_table = 0;  // Tdj
  uint8_t ac_table = 0;  // Taj
};

// T.81 B.2.3.
struct ScanFields {
  std::vector<ScanComponent> components;  // Ns of them
  uint8_t spectral_start = 0;             // Ss
  uint8_t spectral_end = 0;               // Se
  uint8_t approx_high = 0;                // Ah
  uint8_t approx_low = 0;                 // Al
};

// One table of a DHT (class 0 DC, 1 AC) or DQT (class 0, precision 8 or 16) segment.
struct TableEntry {
  uint8_t table_class = 0;          // Tc
  uint8_t id = 0;                   // Th or Tq
  uint8_t precision = 0;            // Pq of a DQT table as 8 or 16; 0 in a DHT
  uint16_t symbols = 0;             // codes of a DHT table
  const uint8_t* counts = nullptr;  // a DHT table's 16 code counts, into the payload
  const uint8_t* values = nullptr;  // its symbols
};
struct TableFields {
  std::vector<TableEntry> tables;
};

struct RestartFields {
  uint16_t interval = 0;  // Ri, in MCUs
};

struct JfifFields {
  uint8_t major = 0;
  uint8_t minor = 0;
  uint8_t units = 0;  // 0 aspect ratio, 1 dots per inch, 2 dots per centimetre
  uint16_t x_density = 0;
  uint16_t y_density = 0;
  uint8_t thumbnail_width = 0;
  uint8_t thumbnail_height = 0;
};

struct AdobeFields {
  uint8_t version = 0;
  uint16_t flags0 = 0;
  uint16_t flags1 = 0;
  uint8_t transform = 0;  // 0 RGB or CMYK, 1 YCbCr, 2 YCCK
};

struct IccFields {
  uint8_t sequence = 0;  // of this chunk, from 1
  uint8_t count = 0;     // chunks in all
};

// What an application segment says it holds, by its signature.
enum class AppKind : uint8_t {
  kOther,
  kJfif,
  kJfxx,
  kExif,
  kXmp,
  kXmpExtended,
  kIcc,
  kMpf,
  kDucky,
  kPhotoshop,
  kAdobe,
  kAvi1
};
struct AppFields {
  AppKind kind = AppKind::kOther;
};

using SegmentFields = std::variant<std::monostate, FrameFields, ScanFields, TableFields,
                                   RestartFields, JfifFields, AdobeFields, IccFields, AppFields>;

// The fields of the segment with `code` whose `length` payload bytes start at `payload`. Reads
// no byte outside the payload: fields that do not fit are left out, and `complete` says whether
// the payload held exactly what its fields need (a DHT or DQT may hold several tables; an APPn
// any amount behind its signature).
SegmentFields ReadSegmentFields(uint8_t code, const uint8_t* payload, int32_t length,
                                bool& complete);

// Whether a marker code starts a frame: SOF0 to SOF15 but for DHT (0xC4), JPG (0xC8) and DAC
// (0xCC).
bool IsFrameMarker(uint8_t code);

// The name of a marker code as the report gives it: "SOF0", "DHT", "APP1", "RST3", "EOI", or
// "0x12" for a code without a name.
const char* MarkerName(uint8_t code);
// The signature's name of an application segment kind: "JFIF", "Exif", "ICC_PROFILE", ...
const char* AppKindName(AppKind kind);

}  // namespace corvi
