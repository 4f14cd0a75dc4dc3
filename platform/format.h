// Wide formatted output: the formatter of the system's format strings and the buffered UTF-8
// writer.
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <string>

// Float results must be reproducible: intermediate results stay in their own precision.
static_assert(FLT_EVAL_METHOD == 0, "float expressions must be evaluated in their own type");

namespace corvi {

// One argument of a formatted print. Only the types that the system's formats take are accepted;
// a narrow char or narrow string does not convert, so a wrong argument fails to compile.
struct FormatArg {
  enum Kind : uint8_t { kSigned, kUnsigned, kChar, kString, kDouble };
  Kind kind;
  union {
    int64_t i;
    uint64_t u;
    wchar_t c;
    const wchar_t* s;
    double d;
  };
  FormatArg(int v) : kind(kSigned), i(v) {}
  FormatArg(long v) : kind(kSigned), i(v) {}
  FormatArg(long long v) : kind(kSigned), i(v) {}
  FormatArg(signed char v) : kind(kSigned), i(v) {}
  FormatArg(short v) : kind(kSigned), i(v) {}
  FormatArg(unsigned char v) : kind(kUnsigned), u(v) {}
  FormatArg(unsigned short v) : kind(kUnsigned), u(v) {}
  FormatArg(unsigned v) : kind(kUnsigned), u(v) {}
  FormatArg(unsigned long v) : kind(kUnsigned), u(v) {}
  FormatArg(unsigned long long v) : kind(kUnsigned), u(v) {}
  FormatArg(wchar_t v) : kind(kChar), c(v) {}
  FormatArg(const wchar_t* v) : kind(kString), s(v) {}
  FormatArg(wchar_t* v) : kind(kString), s(v) {}
  FormatArg(double v) : kind(kDouble), d(v) {}
  FormatArg(float v) = delete;  // widen explicitly: %f takes a double
  FormatArg(char v) = delete;
  FormatArg(const char* v) = delete;
  FormatArg(bool v) = delete;
};

// Receives wide characters from the formatter.
class WideSink {
 public:
  virtual ~WideSink() = default;
  virtual void Put(wchar_t c) = 0;
  virtual void PutAscii(const char* text, size_t n) {
    for (size_t i = 0; i < n; ++i) {
      Put(static_cast<wchar_t>(static_cast<unsigned char>(text[i])));
    }
  }
};

// Interprets `format` with the system's meanings: %s a wide string, %c a wide character, %d, %u,
// %hu, %lu (32-bit), %x and %o with an optional 0 flag and width, %f with six decimals, %%.
// A conversion whose argument is missing or of the wrong kind prints "%!".
void FormatTo(WideSink& sink, const wchar_t* format, const FormatArg* args, size_t count);

// A buffered writer that encodes wide text as UTF-8. Characters U+DC80 to U+DCFF stand for the
// raw bytes 0x80 to 0xFF that were not valid UTF-8 in a file name, and are written back as those
// bytes. A stream writes to a descriptor, collects its text in memory (fd -1), or discards it.
class OutStream final : public WideSink {
 public:
  static constexpr int kDiscard = -2;  // a stream that drops what it is given
  explicit OutStream(int fd, bool flush_each_print = false);
  OutStream() : OutStream(-1) {}
  OutStream(const OutStream&) = delete;
  OutStream& operator=(const OutStream&) = delete;
  ~OutStream() override;

  void Put(wchar_t c) override;
  void PutAscii(const char* text, size_t n) override;
  void Flush();
  // Memory streams: the text written so far (flushed into it).
  const std::string& Text();
  // Memory streams: once the text would pass `bytes`, it keeps its first `bytes` and the next
  // write throws Full, so that a caller can end a dump of any length early.
  struct Full {};
  void LimitMemory(size_t bytes) { memory_limit = bytes; }
  bool flush_each_print() const { return flush_each; }

 private:
  static constexpr size_t kCapacity = 1 << 16;
  void Reserve(size_t n) {
    if (used + n > kCapacity) {
      Flush();
    }
  }
  int fd;
  bool flush_each;
  size_t used = 0;
  std::string memory;
  size_t memory_limit = static_cast<size_t>(-1);
  char buffer[kCapacity];
};

OutStream& StdOut();
OutStream& StdErr();  // flushed after every print, as an unbuffered stream would be

template <typename... Args>
void Print(OutStream& stream, const wchar_t* format, const Args&... args) {
  const FormatArg list[] = {FormatArg(args)..., FormatArg(0)};
  FormatTo(stream, format, list, sizeof...(Args));
  if (stream.flush_each_print()) {
    stream.Flush();
  }
}

// Formats into a fixed buffer of `capacity` wide characters, cutting the text if it does not
// fit; the result is always terminated. Returns the length written.
size_t FormatToBuffer(wchar_t* buffer, size_t capacity, const wchar_t* format,
                      const FormatArg* args, size_t count);

template <typename... Args>
size_t FormatBuffer(wchar_t* buffer, size_t capacity, const wchar_t* format, const Args&... args) {
  const FormatArg list[] = {FormatArg(args)..., FormatArg(0)};
  return FormatToBuffer(buffer, capacity, format, list, sizeof...(Args));
}

// UTF-8 conversions used for names and text. Decoding maps each byte of an invalid sequence to
// U+DC80 + byte; encoding maps those back, so every byte string round-trips.
std::wstring DecodeUtf8(const char* bytes, size_t n);
std::string EncodeUtf8(const wchar_t* text);

}  // namespace corvi
