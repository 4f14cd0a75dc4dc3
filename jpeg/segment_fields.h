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
  uint8_t count = 0;                       // Nf
  std::vector<FrameComponent> components;  // those of the Nf that were read
};

struct ScanComponent {
  uint8_t id = 0;        // Csj
  uint8_t dc_table = 0;  // Tdj
  uint8_t ac_table = 0;  // Taj
};

// T.81 B.2.3.
struct ScanFields {
  uint8_t count = 0;                      // Ns
  std::vector<ScanComponent> components;  // those of the Ns that were read
  uint8_t spectral_start = 0;             // Ss
  uint8_t spectral_end = 0;               // Se
  uint8_t approx_high = 0;                // Ah
  uint8_t approx_low = 0;                 // Al
};

// One table of a DHT (class 0 DC, 1 AC) or DQT segment. The pointers lead into the payload: they
// are good as long as the data is.
struct TableEntry {
  uint8_t table_class = 0;  // Tc of a DHT table (the head byte's high nibble); 0 in a DQT
  uint8_t id = 0;           // Th or Tq (its low nibble)
  uint8_t pq = 0;           // Pq of a DQT table (its high nibble)
  uint8_t precision = 0;    // bits of a DQT entry: 16 when bit 0x10 of the head byte is set, else 8
  uint16_t symbols = 0;     // codes of a DHT table
  const uint8_t* counts = nullptr;  // a DHT table's 16 code counts, its symbols behind them
  const uint8_t* values = nullptr;  // a DHT table's symbols, a DQT table's 64 entries
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

// The readers of each layout, shared by the segment classes' Parse and by the checker. Each reads
// the fields at `p` and no byte beyond `available`; fields that do not fit are left out. Each
// returns how many bytes the layout takes, which may be more than `available`. A DHT or DQT
// holds tables while the next one starts before `length`; the last may reach past it.
int64_t ReadFrameFields(uint8_t code, const uint8_t* p, int64_t available, FrameFields& out);
int64_t ReadScanFields(const uint8_t* p, int64_t available, ScanFields& out);
int64_t ReadHuffmanFields(const uint8_t* p, int64_t length, int64_t available, TableFields& out);
int64_t ReadQuantFields(const uint8_t* p, int64_t length, int64_t available, TableFields& out);
// JFIF's 14 header bytes and Adobe's 12; false when they do not fit or the signature differs.
bool ReadJfifFields(const uint8_t* p, int64_t available, JfifFields& out);
bool ReadAdobeFields(const uint8_t* p, int64_t available, AdobeFields& out);
// What the signature of an application segment with `code` says it holds.
AppKind ReadAppKind(uint8_t code, const uint8_t* p, int64_t available);

// The fields of the segment with `code` whose `length` payload bytes start at `payload`, read no
// further than the payload, and whether the payload held exactly what its fields take (an APPn
// may hold any amount behind its signature).
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
