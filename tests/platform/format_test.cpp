// The wide formatter, its UTF-8 output, fixed buffers and the byte round trip of file names.
#include "platform/format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace corvi {
namespace {

template <typename... Args>
std::string Format(const wchar_t* format, const Args&... args) {
  OutStream stream;
  Print(stream, format, args...);
  return stream.Text();
}

TEST(Format, IntegerConversions) {
  struct Case {
    std::string got, expected;
  };
  const Case cases[] = {
      {Format(L"%d", 0), "0"},
      {Format(L"%d", -1), "-1"},
      {Format(L"%d", INT32_MIN), "-2147483648"},
      {Format(L"%d", INT32_MAX), "2147483647"},
      {Format(L"%d", 0xFFFFFFFFu), "-1"},  // an unsigned value read as signed 32 bits
      {Format(L"%u", -1), "4294967295"},
      {Format(L"%u", 0xFFFFFFFFu), "4294967295"},
      {Format(L"%lu", 5u), "5"},
      {Format(L"%lu", 0xFFFFFFFFul), "4294967295"},
      {Format(L"%hu", uint16_t{65535}), "65535"},
      {Format(L"%hu", 65536 + 7), "7"},  // the low 16 bits
      {Format(L"%x", 0xDEADBEEFu), "deadbeef"},
      {Format(L"%x", 0), "0"},
      {Format(L"%02x", uint8_t{5}), "05"},
      {Format(L"%02x", uint8_t{0xAB}), "ab"},
      {Format(L"%02x", 0x123), "123"},  // a width is a minimum
      {Format(L"%04x", 0x101), "0101"},
      {Format(L"%03o", 7), "007"},
      {Format(L"%03o", 0xFF), "377"},
      {Format(L"%5d", -42), "  -42"},
      {Format(L"%05d", -42), "-0042"},
      {Format(L"%d%%", 50), "50%"},
      {Format(L"%d,%u,%x", int64_t{-2}, uint64_t{3}, 255), "-2,3,ff"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.got, c.expected);
  }
}

TEST(Format, StringsAndCharacters) {
  EXPECT_EQ(Format(L"File %s (length=%d):\n", L"a.jpg", 4), "File a.jpg (length=4):\n");
  EXPECT_EQ(Format(L"[%s]", L""), "[]");
  EXPECT_EQ(Format(L"[%s]", static_cast<const wchar_t*>(nullptr)), "[(null)]");
  EXPECT_EQ(Format(L"%c", L'A'), "A");
  EXPECT_EQ(Format(L"%c", static_cast<wchar_t>(0xE9)), "\xC3\xA9");  // é as UTF-8
  EXPECT_EQ(Format(L"%c", 0x41), "A");                               // an int as a code
  EXPECT_EQ(Format(L"%c", static_cast<wchar_t>(0x20AC)), "\xE2\x82\xAC");
  EXPECT_EQ(Format(L"%c", static_cast<wchar_t>(0x1F600)), "\xF0\x9F\x98\x80");
  EXPECT_EQ(Format(L"%s", L"\\"), "\\");
}

TEST(Format, DoublesHaveSixDecimals) {
  struct Case {
    double value;
    const char* expected;
  };
  const Case cases[] = {
      {0.0, "0.000000"},
      {-0.0, "-0.000000"},
      {1.0, "1.000000"},
      {-2.5, "-2.500000"},
      {0.0000005, "0.000000"},  // 5e-7 is just below the halfway point in binary
      {0.0000015, "0.000002"},
      {1.0 / 3.0, "0.333333"},
      {72.0, "72.000000"},
      {static_cast<double>(0.1f), "0.100000"},
      {1e20, "100000000000000000000.000000"},
      {4294967296.0, "4294967296.000000"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(Format(L"%f", c.value), c.expected);
  }
}

TEST(Format, WrongOrMissingArgumentsPrintAMark) {
  EXPECT_EQ(Format(L"%d", L"text"), "%!");
  EXPECT_EQ(Format(L"%s", 5), "%!");
  EXPECT_EQ(Format(L"%f", 5), "%!");
  EXPECT_EQ(Format(L"%c", 1.5), "%!");
  EXPECT_EQ(Format(L"%d %d", 1), "1 %!");
  EXPECT_EQ(Format(L"%q", 1), "%!");
  EXPECT_EQ(Format(L"ends in %"), "ends in ");
}

TEST(FormatBuffer, CutsAndTerminates) {
  struct Case {
    size_t capacity;
    const wchar_t* expected;
    size_t written;
  };
  const Case cases[] = {
      {1, L"", 0}, {2, L"W", 1}, {8, L"Windows", 7}, {17, L"Windows error 12", 16},
      {18, L"Windows error 12", 16}, {256, L"Windows error 12", 16},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.capacity);
    wchar_t buffer[300];
    std::fill(std::begin(buffer), std::end(buffer), L'#');
    size_t n = FormatBuffer(buffer, c.capacity, L"Windows error %lu", 12u);
    EXPECT_EQ(n, c.written);
    EXPECT_EQ(std::wstring(buffer), c.expected);
    EXPECT_EQ(buffer[c.capacity], L'#');  // nothing written behind the buffer
  }
  wchar_t untouched = L'#';
  EXPECT_EQ(FormatBuffer(&untouched, 0, L"abc"), 0u);
  EXPECT_EQ(untouched, L'#');
}

TEST(Utf8, InvalidBytesRoundTripThroughLowSurrogates) {
  struct Case {
    std::string bytes;
    std::wstring wide;
  };
  const Case cases[] = {
      {"plain.jpg", L"plain.jpg"},
      {"caf\xC3\xA9.jpg", L"caf\u00E9.jpg"},
      {"\xE9.jpg", L"\xDCE9.jpg"},                        // Latin-1 byte
      {"\xC3", L"\xDCC3"},                                // truncated sequence
      {"\xC3\x28", L"\xDCC3("},                           // bad continuation
      {"\xC0\xAF", L"\xDCC0\xDCAF"},                      // overlong
      {"\xED\xB2\x80", L"\xDCED\xDCB2\xDC80"},            // an encoded surrogate
      {"\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"},  // beyond U+10FFFF
      {"\xFF\xFE", L"\xDCFF\xDCFE"},
      {"\xF0\x9F\x98\x80", std::wstring(1, static_cast<wchar_t>(0x1F600))},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    std::wstring wide = DecodeUtf8(c.bytes.data(), c.bytes.size());
    EXPECT_EQ(wide, c.wide);
    EXPECT_EQ(EncodeUtf8(wide.c_str()), c.bytes);
    EXPECT_EQ(Format(L"%s", wide.c_str()), c.bytes);
  }
}

TEST(Utf8, EveryByteRoundTrips) {
  for (int b = 1; b < 256; ++b) {
    std::string bytes = {'a', static_cast<char>(b), 'z'};
    std::wstring wide = DecodeUtf8(bytes.data(), bytes.size());
    EXPECT_EQ(EncodeUtf8(wide.c_str()), bytes) << b;
  }
}

TEST(OutStream, LongTextCrossesTheBuffer) {
  OutStream stream;
  std::wstring text(200000, L'\u00E9');
  Print(stream, L"%s|", text.c_str());
  const std::string& out = stream.Text();
  ASSERT_EQ(out.size(), 400001u);
  EXPECT_EQ(out.substr(0, 4), "\xC3\xA9\xC3\xA9");
  EXPECT_EQ(out.back(), '|');
}

}  // namespace
}  // namespace corvi
