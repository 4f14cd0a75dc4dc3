// Wide formatted output: the formatter of the system's format strings and the buffered UTF-8
// writer.
#include "platform/format.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstring>

namespace corvi {
namespace {

void PutNumber(WideSink& sink, uint64_t value, unsigned radix, bool negative, unsigned width,
               bool zero_pad) {
  char digits[32];
  auto result = std::to_chars(digits, digits + sizeof digits, value, static_cast<int>(radix));
  size_t n = static_cast<size_t>(result.ptr - digits);
  size_t total = n + (negative ? 1 : 0);
  if (!zero_pad) {
    for (size_t i = total; i < width; ++i) {
      sink.Put(L' ');
    }
  }
  if (negative) {
    sink.Put(L'-');
  }
  if (zero_pad) {
    for (size_t i = total; i < width; ++i) {
      sink.Put(L'0');
    }
  }
  sink.PutAscii(digits, n);
}

void PutDouble(WideSink& sink, double value) {
  char text[400];
  auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6);
  if (result.ec != std::errc()) {
    sink.PutAscii("nan", 3);
    return;
  }
  sink.PutAscii(text, static_cast<size_t>(result.ptr - text));
}

bool IsInteger(const FormatArg& a) {
  return a.kind == FormatArg::kSigned || a.kind == FormatArg::kUnsigned ||
         a.kind == FormatArg::kChar;
}

uint64_t Bits(const FormatArg& a) {
  if (a.kind == FormatArg::kChar) {
    return static_cast<uint64_t>(static_cast<uint32_t>(a.c));
  }
  return a.u;  // two's complement bits of a signed value
}

class BufferSink final : public WideSink {
 public:
  BufferSink(wchar_t* out, size_t cap) : buffer(out), capacity(cap) {}
  void Put(wchar_t c) override {
    if (used + 1 < capacity) {
      buffer[used++] = c;
    }
  }
  wchar_t* buffer;
  size_t capacity;
  size_t used = 0;
};

void PutUtf8(char* out, size_t& n, uint32_t c) {
  if (c < 0x80) {
    out[n++] = static_cast<char>(c);
  } else if (c >= 0xDC80 && c <= 0xDCFF) {
    out[n++] = static_cast<char>(c - 0xDC00);  // a raw byte of a file name
  } else if (c < 0x800) {
    out[n++] = static_cast<char>(0xC0 | (c >> 6));
    out[n++] = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out[n++] = static_cast<char>(0xE0 | (c >> 12));
    out[n++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[n++] = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x110000) {
    out[n++] = static_cast<char>(0xF0 | (c >> 18));
    out[n++] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out[n++] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[n++] = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out[n++] = static_cast<char>(0xEF);  // U+FFFD for a value beyond Unicode
    out[n++] = static_cast<char>(0xBF);
    out[n++] = static_cast<char>(0xBD);
  }
}

}  // namespace

void FormatTo(WideSink& sink, const wchar_t* format, const FormatArg* args, size_t count) {
  size_t next = 0;
  for (const wchar_t* p = format; *p != 0; ++p) {
    if (*p != L'%') {
      sink.Put(*p);
      continue;
    }
    ++p;
    if (*p == L'%') {
      sink.Put(L'%');
      continue;
    }
    bool zero_pad = false;
    if (*p == L'0') {
      zero_pad = true;
      ++p;
    }
    unsigned width = 0;
    while (*p >= L'0' && *p <= L'9') {
      width = width * 10 + static_cast<unsigned>(*p - L'0');
      ++p;
    }
    bool half = false;
    if (*p == L'h') {
      half = true;
      ++p;
    } else if (*p == L'l') {
      ++p;  // a long is 32 bits in the system's formats
    }
    wchar_t conversion = *p;
    if (conversion == 0) {
      break;
    }
    if (next >= count) {
      sink.PutAscii("%!", 2);
      continue;
    }
    const FormatArg& a = args[next++];
    switch (conversion) {
      case L's':
        if (a.kind != FormatArg::kString) {
          sink.PutAscii("%!", 2);
        } else if (a.s == nullptr) {
          sink.PutAscii("(null)", 6);
        } else {
          for (const wchar_t* s = a.s; *s != 0; ++s) {
            sink.Put(*s);
          }
        }
        break;
      case L'c':
        if (!IsInteger(a)) {
          sink.PutAscii("%!", 2);
        } else {
          sink.Put(static_cast<wchar_t>(Bits(a)));
        }
        break;
      case L'd': {
        if (!IsInteger(a)) {
          sink.PutAscii("%!", 2);
          break;
        }
        int32_t v = half ? static_cast<int16_t>(Bits(a)) : static_cast<int32_t>(Bits(a));
        uint64_t magnitude =
            v < 0 ? uint64_t{0} - static_cast<uint64_t>(int64_t{v}) : static_cast<uint64_t>(v);
        PutNumber(sink, magnitude, 10, v < 0, width, zero_pad);
        break;
      }
      case L'u':
      case L'x':
      case L'o': {
        if (!IsInteger(a)) {
          sink.PutAscii("%!", 2);
          break;
        }
        uint64_t v = half ? static_cast<uint16_t>(Bits(a)) : static_cast<uint32_t>(Bits(a));
        unsigned radix = conversion == L'u' ? 10 : conversion == L'x' ? 16 : 8;
        PutNumber(sink, v, radix, false, width, zero_pad);
        break;
      }
      case L'f':
        if (a.kind != FormatArg::kDouble) {
          sink.PutAscii("%!", 2);
        } else {
          PutDouble(sink, a.d);
        }
        break;
      default:
        sink.PutAscii("%!", 2);
        break;
    }
  }
}

size_t FormatToBuffer(wchar_t* buffer, size_t capacity, const wchar_t* format,
                      const FormatArg* args, size_t count) {
  if (capacity == 0) {
    return 0;
  }
  BufferSink sink(buffer, capacity);
  FormatTo(sink, format, args, count);
  buffer[sink.used] = 0;
  return sink.used;
}

OutStream::OutStream(int descriptor, bool flush_each_print)
    : fd(descriptor), flush_each(flush_each_print) {}

OutStream::~OutStream() {
  try {
    Flush();
  } catch (const Full&) {
    // a memory stream past its limit: the text is cut there already
  }
}

void OutStream::Put(wchar_t c) {
  Reserve(4);
  PutUtf8(buffer, used, static_cast<uint32_t>(c));
}

void OutStream::PutAscii(const char* text, size_t n) {
  while (n > 0) {
    Reserve(1);
    size_t room = kCapacity - used;
    size_t chunk = n < room ? n : room;
    std::memcpy(buffer + used, text, chunk);
    used += chunk;
    text += chunk;
    n -= chunk;
  }
}

void OutStream::Flush() {
  if (fd == kDiscard) {
    used = 0;
    return;
  }
  if (fd < 0) {
    const size_t room = memory_limit - memory.size();
    const size_t taken = used < room ? used : room;
    memory.append(buffer, taken);
    const bool full = taken < used;
    used = 0;
    if (full) {
      throw Full{};
    }
    return;
  }
  size_t done = 0;
  while (done < used) {
    ssize_t n = write(fd, buffer + done, used - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      break;  // nowhere to write to: the text is dropped, as a closed console would
    }
    done += static_cast<size_t>(n);
  }
  used = 0;
}

const std::string& OutStream::Text() {
  Flush();
  return memory;
}

OutStream& StdOut() {
  static OutStream stream(1);
  return stream;
}

OutStream& StdErr() {
  static OutStream stream(2, true);
  return stream;
}

std::wstring DecodeUtf8(const char* bytes, size_t n) {
  std::wstring out;
  out.reserve(n);
  const auto* b = reinterpret_cast<const unsigned char*>(bytes);
  size_t i = 0;
  while (i < n) {
    unsigned lead = b[i];
    size_t extra = 0;
    uint32_t code = 0;
    uint32_t minimum = 0;
    if (lead < 0x80) {
      out.push_back(static_cast<wchar_t>(lead));
      ++i;
      continue;
    } else if ((lead & 0xE0) == 0xC0) {
      extra = 1, code = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      extra = 2, code = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      extra = 3, code = lead & 0x07, minimum = 0x10000;
    } else {
      out.push_back(static_cast<wchar_t>(0xDC00 + lead));
      ++i;
      continue;
    }
    bool valid = i + extra < n;
    for (size_t k = 1; valid && k <= extra; ++k) {
      if ((b[i + k] & 0xC0) != 0x80) {
        valid = false;
      } else {
        code = (code << 6) | (b[i + k] & 0x3F);
      }
    }
    // Overlong forms, surrogates and values beyond Unicode are not valid UTF-8 either.
    if (valid && (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))) {
      valid = false;
    }
    if (!valid) {
      out.push_back(static_cast<wchar_t>(0xDC00 + lead));
      ++i;
      continue;
    }
    out.push_back(static_cast<wchar_t>(code));
    i += extra + 1;
  }
  return out;
}

std::string EncodeUtf8(const wchar_t* text) {
  std::string out;
  char bytes[4];
  for (const wchar_t* p = text; *p != 0; ++p) {
    size_t n = 0;
    PutUtf8(bytes, n, static_cast<uint32_t>(*p));
    out.append(bytes, n);
  }
  return out;
}

}  // namespace corvi
