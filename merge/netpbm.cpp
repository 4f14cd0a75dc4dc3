// Reading netpbm images (PGM, PPM, PAM) into a pixel layer for the rewriter.
#include "merge/netpbm.h"

#include <string>

#include "base/byte_order.h"
#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "platform/format.h"

namespace corvi {
namespace {

constexpr size_t kMessageCapacity = 200;  // wide characters, terminator included

template <typename... Args>
[[noreturn]] void Fail(const wchar_t* format, const Args&... args) {
  wchar_t message[kMessageCapacity];
  FormatBuffer(message, kMessageCapacity, format, args...);
  throw RawLayerException(message);
}

bool IsBlank(uint8_t c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// The kinds of tuple the rewriter takes, with the number of samples each has.
enum class Tuple { kGray, kGrayAlpha, kRgb, kRgbAlpha };

struct TupleRow {
  const char* name;
  Tuple tuple;
  uint32_t depth;
};
constexpr TupleRow kTupleRows[] = {
    {"GRAYSCALE", Tuple::kGray, 1},
    {"GRAYSCALE_ALPHA", Tuple::kGrayAlpha, 2},
    {"RGB", Tuple::kRgb, 3},
    {"RGB_ALPHA", Tuple::kRgbAlpha, 4},
};

// A netpbm header as read: the raster starts at `raster`.
struct Header {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t depth = 0;
  uint32_t maxval = 0;
  Tuple tuple = Tuple::kGray;
  uint32_t raster = 0;
};

// Walks the header bytes; every read stays inside [0, length).
class HeaderReader {
 public:
  HeaderReader(const uint8_t* bytes, uint32_t size) : data(bytes), length(size) {}

  // Steps over blanks and comments ("#" to the end of the line).
  void SkipBlanksAndComments() {
    while (pos < length) {
      if (IsBlank(data[pos])) {
        ++pos;
      } else if (data[pos] == '#') {
        while (pos < length && data[pos] != '\n' && data[pos] != '\r') {
          ++pos;
        }
      } else {
        return;
      }
    }
  }

  // A decimal number of up to 32 bits; `what` names it in the message.
  uint32_t Number(const wchar_t* what) {
    SkipBlanksAndComments();
    if (pos >= length) {
      Fail(L"Netpbm header ends before the %s", what);
    }
    if (data[pos] < '0' || data[pos] > '9') {
      Fail(L"Netpbm header: the %s is not a number", what);
    }
    uint64_t value = 0;
    while (pos < length && data[pos] >= '0' && data[pos] <= '9') {
      value = value * 10 + (data[pos] - '0');
      if (value > 0xFFFFFFFFu) {
        Fail(L"Netpbm header: the %s is too large", what);
      }
      ++pos;
    }
    if (pos < length && !IsBlank(data[pos]) && data[pos] != '#') {
      Fail(L"Netpbm header: the %s is not a number", what);
    }
    return static_cast<uint32_t>(value);
  }

  // The rest of the current line with its blanks trimmed, and the line end stepped over.
  std::string Line() {
    uint32_t start = pos;
    while (pos < length && data[pos] != '\n') {
      ++pos;
    }
    uint32_t end = pos;
    if (pos < length) {
      ++pos;
    }
    while (start < end && IsBlank(data[start])) {
      ++start;
    }
    while (end > start && IsBlank(data[end - 1])) {
      --end;
    }
    return std::string(reinterpret_cast<const char*>(data + start), end - start);
  }

  bool AtEnd() const { return pos >= length; }

  const uint8_t* data;
  uint32_t length;
  uint32_t pos = 0;
};

uint32_t ParsePamNumber(const std::string& text, const wchar_t* keyword) {
  if (text.empty()) {
    Fail(L"PAM header: %s has no value", keyword);
  }
  uint64_t value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') {
      Fail(L"PAM header: the value of %s is not a number", keyword);
    }
    value = value * 10 + static_cast<uint32_t>(c - '0');
    if (value > 0xFFFFFFFFu) {
      Fail(L"PAM header: the value of %s is too large", keyword);
    }
  }
  return static_cast<uint32_t>(value);
}

// P7: lines of KEYWORD VALUE up to ENDHDR; comment lines start with "#".
Header ReadPamHeader(HeaderReader& reader) {
  Header header;
  bool have_width = false, have_height = false, have_depth = false, have_maxval = false;
  std::string tuple_type;
  reader.Line();  // the rest of the "P7" line
  for (;;) {
    if (reader.AtEnd()) {
      Fail(L"PAM header ends before ENDHDR");
    }
    std::string line = reader.Line();
    if (line.empty() || line[0] == '#') {
      continue;
    }
    size_t split = 0;
    while (split < line.size() && !IsBlank(static_cast<uint8_t>(line[split]))) {
      ++split;
    }
    std::string keyword = line.substr(0, split);
    size_t value_start = split;
    while (value_start < line.size() && IsBlank(static_cast<uint8_t>(line[value_start]))) {
      ++value_start;
    }
    std::string value = line.substr(value_start);
    if (keyword == "ENDHDR") {
      break;
    }
    if (keyword == "WIDTH") {
      header.width = ParsePamNumber(value, L"WIDTH");
      have_width = true;
    } else if (keyword == "HEIGHT") {
      header.height = ParsePamNumber(value, L"HEIGHT");
      have_height = true;
    } else if (keyword == "DEPTH") {
      header.depth = ParsePamNumber(value, L"DEPTH");
      have_depth = true;
    } else if (keyword == "MAXVAL") {
      header.maxval = ParsePamNumber(value, L"MAXVAL");
      have_maxval = true;
    } else if (keyword == "TUPLTYPE") {
      // Repeated TUPLTYPE lines join with a blank, as netpbm does.
      if (!tuple_type.empty()) {
        tuple_type += ' ';
      }
      tuple_type += value;
    } else {
      std::wstring text = DecodeUtf8(keyword.data(), keyword.size());
      Fail(L"PAM header: unknown keyword \"%s\"", text.c_str());
    }
  }
  if (!have_width || !have_height || !have_depth || !have_maxval) {
    Fail(L"PAM header lacks %s", !have_width    ? L"WIDTH"
                                 : !have_height ? L"HEIGHT"
                                 : !have_depth  ? L"DEPTH"
                                                : L"MAXVAL");
  }
  if (tuple_type.empty()) {
    if (header.depth < 1 || header.depth > 4) {
      Fail(L"PAM depth %u is not supported: 1 to 4 samples a pixel", header.depth);
    }
    header.tuple = kTupleRows[header.depth - 1].tuple;
  } else {
    const TupleRow* row = nullptr;
    for (const TupleRow& candidate : kTupleRows) {
      if (tuple_type == candidate.name) {
        row = &candidate;
      }
    }
    std::wstring text = DecodeUtf8(tuple_type.data(), tuple_type.size());
    if (row == nullptr) {
      Fail(L"PAM tuple type %s is not supported", text.c_str());
    }
    if (row->depth != header.depth) {
      Fail(L"PAM depth %u does not match tuple type %s", header.depth, text.c_str());
    }
    header.tuple = row->tuple;
  }
  header.raster = reader.pos;
  return header;
}

// P5 and P6: width, height, maxval, then one blank before the raster.
Header ReadPnmHeader(HeaderReader& reader, bool colour) {
  Header header;
  header.width = reader.Number(L"width");
  header.height = reader.Number(L"height");
  header.maxval = reader.Number(L"MAXVAL");
  if (reader.AtEnd()) {
    Fail(L"Netpbm header ends before the raster");
  }
  if (!IsBlank(reader.data[reader.pos])) {
    Fail(L"Netpbm header: MAXVAL must be followed by one blank");
  }
  header.raster = reader.pos + 1;
  header.depth = colour ? 3 : 1;
  header.tuple = colour ? Tuple::kRgb : Tuple::kGray;
  return header;
}

}  // namespace

bool IsNetpbm(const uint8_t* data, uint32_t length) {
  return length >= 2 && data[0] == 'P' && data[1] >= '1' && data[1] <= '7';
}

uint16_t ScaleNetpbmSample(uint32_t sample, uint32_t maxval) {
  return static_cast<uint16_t>((uint64_t{sample} * 65535 + maxval / 2) / maxval);
}

void ReadNetpbm(const uint8_t* data, uint32_t length, RawLayer& layer) {
  if (!IsNetpbm(data, length)) {
    Fail(L"Not a netpbm file");
  }
  const wchar_t format = static_cast<wchar_t>(data[1]);
  if (format < L'5') {
    Fail(L"Netpbm format P%c is not supported: only P5, P6 and P7", format);
  }
  HeaderReader reader(data, length);
  reader.pos = 2;
  // A comment may follow the magic number of P5 and P6; PAM wants its header lines.
  if (reader.AtEnd() || !(IsBlank(data[2]) || (data[2] == '#' && format != L'7'))) {
    Fail(L"Netpbm header: P%c must be followed by a blank", format);
  }
  Header header = format == L'7' ? ReadPamHeader(reader) : ReadPnmHeader(reader, format == L'6');
  if (header.maxval < 1 || header.maxval > 65535) {
    Fail(L"Netpbm MAXVAL %u out of range 1..65535", header.maxval);
  }
  if (header.width == 0 || header.height == 0) {
    Fail(L"Netpbm image has no pixels: width %u, height %u", header.width, header.height);
  }
  // Sizes in 64 bits: width × height fits, and a pixel has at most 4 samples of 2 bytes, so
  // the comparison divides instead of multiplying again.
  const uint32_t sample_bytes = header.maxval > 255 ? 2 : 1;
  const uint32_t pixel_bytes = header.depth * sample_bytes;
  const uint64_t pixel_count = uint64_t{header.width} * header.height;
  const uint32_t present = length - header.raster;
  if (pixel_count > present / pixel_bytes) {
    Fail(L"Netpbm raster is short: %u x %u pixels of %u bytes, %u bytes present", header.width,
         header.height, pixel_bytes, present);
  }

  layer.FreePixels();
  layer.width = header.width;
  layer.height = header.height;
  layer.AllocatePixels();

  const uint8_t* p = data + header.raster;
  uint16_t* out = layer.pixels;
  uint32_t tuple[4];
  for (uint64_t i = 0; i < pixel_count; ++i) {
    for (uint32_t k = 0; k < header.depth; ++k) {
      uint32_t s;
      if (sample_bytes == 2) {
        s = ReadBig16(p);
        p += 2;
      } else {
        s = *p++;
      }
      if (s > header.maxval) {
        layer.FreePixels();  // no half-read image is left behind
        layer.width = 0;
        layer.height = 0;
        Fail(L"Netpbm sample %u above MAXVAL %u", s, header.maxval);
      }
      tuple[k] = ScaleNetpbmSample(s, header.maxval);
    }
    switch (header.tuple) {
      case Tuple::kGray:
        out[0] = out[1] = out[2] = static_cast<uint16_t>(tuple[0]);
        out[3] = 0xFFFF;
        break;
      case Tuple::kGrayAlpha:
        out[0] = out[1] = out[2] = static_cast<uint16_t>(tuple[0]);
        out[3] = static_cast<uint16_t>(tuple[1]);
        break;
      case Tuple::kRgb:
        out[0] = static_cast<uint16_t>(tuple[0]);
        out[1] = static_cast<uint16_t>(tuple[1]);
        out[2] = static_cast<uint16_t>(tuple[2]);
        out[3] = 0xFFFF;
        break;
      case Tuple::kRgbAlpha:
        out[0] = static_cast<uint16_t>(tuple[0]);
        out[1] = static_cast<uint16_t>(tuple[1]);
        out[2] = static_cast<uint16_t>(tuple[2]);
        out[3] = static_cast<uint16_t>(tuple[3]);
        break;
    }
    out += 4;
  }
}

}  // namespace corvi
