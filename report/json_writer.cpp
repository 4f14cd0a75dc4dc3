// A JSON writer for the report.
#include "report/json_writer.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace corvi {

void JsonWriter::Separate() {
  if (after_key) {
    after_key = false;
    return;
  }
  if (!first[level]) {
    out += ',';
  }
  first[level] = false;
}

void JsonWriter::Open(char bracket) {
  if (level >= kMaxDepth) {
    std::abort();  // the report's shape bounds its depth; deeper is a fault of the caller
  }
  Separate();
  out += bracket;
  first[++level] = true;
}

void JsonWriter::Close(char bracket) {
  out += bracket;
  --level;
}

void JsonWriter::Key(std::string_view name) {
  Separate();
  WriteUtf8(name);
  out += ':';
  after_key = true;
}

void JsonWriter::Escaped(uint32_t c) {
  static const char kHex[] = "0123456789abcdef";
  switch (c) {
    case '"':
      out += "\\\"";
      return;
    case '\\':
      out += "\\\\";
      return;
    case '\n':
      out += "\\n";
      return;
    case '\r':
      out += "\\r";
      return;
    case '\t':
      out += "\\t";
      return;
    default:
      break;
  }
  if (c < 0x20 || c == 0x7F || (c >= 0xD800 && c <= 0xDFFF)) {
    out += "\\u";
    out += kHex[(c >> 12) & 15];
    out += kHex[(c >> 8) & 15];
    out += kHex[(c >> 4) & 15];
    out += kHex[c & 15];
    return;
  }
  // UTF-8 of a code point below U+D800 or from U+E000 on.
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void JsonWriter::Utf8(std::string_view text) {
  Separate();
  WriteUtf8(text);
}

void JsonWriter::WriteUtf8(std::string_view text) {
  out += '"';
  const auto* p = reinterpret_cast<const uint8_t*>(text.data());
  const size_t n = text.size();
  for (size_t i = 0; i < n;) {
    const uint8_t lead = p[i];
    // The length and the smallest code point of a sequence by its lead byte (RFC 3629).
    size_t length = 0;
    uint32_t code = 0;
    uint32_t smallest = 0;
    if (lead < 0x80) {
      length = 1;
      code = lead;
    } else if ((lead & 0xE0) == 0xC0) {
      length = 2;
      code = lead & 0x1Fu;
      smallest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3;
      code = lead & 0x0Fu;
      smallest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4;
      code = lead & 0x07u;
      smallest = 0x10000;
    }
    bool valid = length != 0 && i + length <= n;
    for (size_t k = 1; valid && k < length; ++k) {
      valid = (p[i + k] & 0xC0) == 0x80;
      code = (code << 6) | (p[i + k] & 0x3Fu);
    }
    valid = valid && code >= smallest && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    if (!valid) {
      Escaped(0xDC00 | lead);  // one byte, as a lone surrogate
      ++i;
      continue;
    }
    Escaped(code);
    i += length;
  }
  out += '"';
}

void JsonWriter::Latin1(std::string_view bytes) {
  Separate();
  out += '"';
  for (char c : bytes) {
    Escaped(static_cast<uint8_t>(c));
  }
  out += '"';
}

void JsonWriter::Hex(std::string_view bytes) {
  static const char kHex[] = "0123456789abcdef";
  Separate();
  out += '"';
  for (char c : bytes) {
    const auto b = static_cast<uint8_t>(c);
    out += kHex[b >> 4];
    out += kHex[b & 15];
  }
  out += '"';
}

void JsonWriter::Int(int64_t value) {
  Separate();
  out += std::to_string(value);
}

void JsonWriter::UInt(uint64_t value) {
  Separate();
  out += std::to_string(value);
}

template <typename T>
void JsonWriter::Number(T value) {
  if (std::isnan(value)) {
    Utf8("NaN");
    return;
  }
  if (std::isinf(value)) {
    Utf8(value > 0 ? "Infinity" : "-Infinity");
    return;
  }
  Separate();
  char text[32];
  const auto result = std::to_chars(text, text + sizeof text, value);  // the shortest form
  out.append(text, result.ptr);
}

void JsonWriter::Double(double value) {
  Number(value);
}

void JsonWriter::Float(float value) {
  Number(value);
}

void JsonWriter::Bool(bool value) {
  Separate();
  out += value ? "true" : "false";
}

void JsonWriter::Null() {
  Separate();
  out += "null";
}

}  // namespace corvi
