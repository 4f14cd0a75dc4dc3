// The wide formatter, its UTF-8 output, fixed buffers and the byte round trip of file names.
#include "platform/format.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>

#include "platform/file_search.h"
#include "tests/support/golden.h"

namespace corvi {
namespace {

template <typename... Args>
std::string Format(const wchar_t* format, const Args&... args) {
  OutStream stream;
  Print(stream, format, args...);
  return stream.Text();
}

// Each line of base_format.txt: the format, then what it printed. The arguments are here: an
// unsigned value read by %d as signed 32 bits, %hu the low 16 bits, a width a minimum, an int
// given to %c as a code; 5e-7 is just below the halfway point in binary; a wrong or missing
// argument prints a mark.
TEST(Format, Conversions) {
  std::string text;
  auto add = [&text](const wchar_t* format, const auto&... args) {
    text += EncodeUtf8(format) + " -> " + Format(format, args...) + "\n";
  };
  add(L"%d|%d|%u|%lu|%hu", INT32_MIN, 0xFFFFFFFFu, -1, 0xFFFFFFFFul, 65536 + 7);
  add(L"%x|%02x|%02x|%04x|%04x", 0xDEADBEEFu, uint8_t{5}, 0x123, 0x101, 0xABCDE);
  add(L"%03o|%03o|%5d|%05d|%d%%", 0xFF, 8, -42, -42, 50);
  add(L"%d,%u,%x", int64_t{-2}, uint64_t{3}, 255);
  add(L"File %s (length=%d):", L"a.jpg", 4);
  add(L"[%s]%c%c%c", static_cast<const wchar_t*>(nullptr), 0x41, static_cast<wchar_t>(0xE9),
      static_cast<wchar_t>(0x1F600));
  add(L"%f|%f|%f|%f|%f", -0.0, 1.0 / 3.0, 0.0000005, 0.0000015, 1e20);
  add(L"%d|%s|%f|%c", L"text", 5, 5, 1.5);
  add(L"%d %d %q", 1);
  add(L"ends in %");
  test::ExpectGolden("base_format", text);
}

TEST(FormatBuffer, CutsAndTerminates) {
  for (size_t capacity : {0, 1, 2, 17, 18}) {
    std::wstring buffer(20, L'#'), expected = buffer;
    const size_t n = capacity == 0 ? 0 : std::min<size_t>(capacity - 1, 16);
    if (capacity > 0) {  // the text cut to fit, and its terminator
      expected.replace(0, n + 1, std::wstring(L"Windows error 12", n) + L'\0');
    }
    EXPECT_EQ(FormatBuffer(buffer.data(), capacity, L"Windows error %lu", 12u), n);
    EXPECT_EQ(buffer, expected) << capacity;  // nothing written behind the buffer
  }
}

TEST(Utf8, InvalidBytesRoundTripThroughLowSurrogates) {
  const std::pair<std::string, std::wstring> cases[] = {
      {"caf\xC3\xA9.jpg", L"caf\u00E9.jpg"},
      {"\xE9.jpg", L"\xDCE9.jpg"},                        // Latin-1 byte
      {"\xC3", L"\xDCC3"},                                // truncated sequence
      {"\xC3\x28", L"\xDCC3("},                           // bad continuation
      {"\xC0\xAF", L"\xDCC0\xDCAF"},                      // overlong
      {"\xED\xB2\x80", L"\xDCED\xDCB2\xDC80"},            // an encoded surrogate
      {"\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"},  // beyond U+10FFFF
      {"\xF0\x9F\x98\x80", std::wstring(1, static_cast<wchar_t>(0x1F600))},
  };
  for (const auto& [bytes, wide] : cases) {
    SCOPED_TRACE(bytes);
    EXPECT_EQ(DecodeUtf8(bytes.data(), bytes.size()), wide);
    EXPECT_EQ(DecodeArgument(bytes.c_str()), wide);
    EXPECT_EQ(EncodeUtf8(wide.c_str()), bytes);
    EXPECT_EQ(Format(L"%s", wide.c_str()), bytes);
  }
  for (int b = 1; b < 256; ++b) {  // every byte round trips
    std::string bytes = {'a', static_cast<char>(b), 'z'};
    EXPECT_EQ(EncodeUtf8(DecodeArgument(bytes.c_str()).c_str()), bytes) << b;
  }
  std::string expected;  // a long text crosses the stream's buffer
  for (int i = 0; i < 200000; ++i) {
    expected += "\xC3\xA9";
  }
  EXPECT_EQ(Format(L"%s|", std::wstring(200000, L'\u00E9').c_str()), expected + "|");
}

}  // namespace
}  // namespace corvi
