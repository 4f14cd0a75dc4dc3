// Exif overrides: reading names, converting values to the entry's type and byte order, and
// finding the entry in a parsed file. The outcomes are pinned in tests/golden/merge_overrides.txt.
#include "merge/overrides.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "base/property.h"
#include "base/raw_layer_exception.h"
#include "tests/support/merge_support.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::TiffBuilder;

std::string Narrow(const std::wstring& text) {
  std::string out;
  for (wchar_t c : text) {
    out += c < 0x80 ? static_cast<char>(c) : '?';
  }
  return out;
}

std::string Hex(const uint8_t* data, uint32_t length) {
  std::string out;
  for (uint32_t i = 0; i < length; ++i) {
    char byte[4];
    std::snprintf(byte, sizeof byte, i == 0 ? "%02X" : " %02X", data[i]);
    out += byte;
  }
  return out;
}

// A file whose first Exif APP1 is Motorola with Make, Orientation and a GPS sub-directory
// holding the latitude reference; a second, Intel APP1 holds Model, PlanarConfiguration and a
// Make of its own.
Bytes TwoExifSegments() {
  TiffBuilder first(true), second(false);
  auto dir = first.Directory({{0x10F, 2, 4, TiffBuilder::Ascii("Cam")},
                              {0x112, 3, 1, first.Short(1)},
                              {0x8825, 4, 1, {}, 0}});
  auto gps = first.Directory({{0x0, 1, 4, {2, 2, 0, 0}}, {0x1, 2, 2, TiffBuilder::Ascii("N")}});
  first.Patch32(dir.value_field[2], gps.start);
  second.Directory({{0x10F, 2, 6, TiffBuilder::Ascii("Other")},
                    {0x110, 2, 6, TiffBuilder::Ascii("Model")},
                    {0x11C, 3, 1, second.Short(1)}});
  return test::JpegWithApp1(first.ExifPayload(),
                            test::JpegBuilder().Segment(0xE1, second.ExifPayload()).bytes());
}

TEST(Overrides, ParseConvertAndApplyMatchGoldenText) {
  std::ostringstream out;
  // ParseOverride: a property name (case and blanks ignored) or a tag number, then the value.
  for (const wchar_t* text :
       {L"Make=x", L"make=", L" Date  Time =1", L"date time original=1", L"Image Description=a=b",
        L"274=1", L"0X10f=1", L"4294967295=1", L"0xffffffff=1", L"Make", L"=x", L"Mak=x",
        L"Date_Time=1", L"0x=1", L"12z=1", L"-1=1", L"4294967296=1", L"0x100000000=1"}) {
    OverrideRequest request;
    out << "parse \"" << Narrow(text) << "\" => ";
    if (ParseOverride(text, request)) {
      out << "0x" << std::hex << request.tag << std::dec << " \"" << Narrow(request.value)
          << "\"\n";
    } else {
      out << "refused\n";
    }
  }
  // MakeOverride: tag type count order(I/M) value.
  struct Request {
    uint32_t tag, type, count;
    char order;
    const wchar_t* value;
  };
  const Request requests[] = {{0x10F, 2, 6, 'I', L"ab"},
                              {0x10F, 2, 3, 'M', L"ab"},
                              {0x10F, 2, 4, 'I', L"\u00e9"},
                              {0x9000, 7, 4, 'I', L"0230"},
                              {0x9000, 7, 3, 'I', L"x"},
                              {0x30000, 1, 4, 'I', L"2,2,0,0"},
                              {0x30000, 1, 3, 'M', L" 255 , +0,\t7 "},
                              {0x112, 3, 1, 'I', L"258"},
                              {0x112, 3, 2, 'M', L"258,65535"},
                              {0x112, 4, 1, 'I', L"4294967295"},
                              {0x112, 4, 1, 'M', L"16909060"},
                              {0x112, 4, 1, 'I', L"16909060"},
                              {0x112, 9, 2, 'M', L"-1,-2147483648"},
                              {0x11A, 5, 1, 'M', L"72/1"},
                              {0x11A, 5, 2, 'I', L"1 / 2, 3/4"},
                              {0x11A, 10, 1, 'M', L"-3/-7"},
                              {0x11A, 11, 1, 'M', L"1.5"},
                              {0x11A, 11, 1, 'I', L"-2e-1"},
                              {0x11A, 12, 1, 'M', L"+0.25"},
                              {0x11A, 12, 1, 'I', L"1E3"},
                              {0x112, 3, 0, 'I', L" "},
                              {0x10F, 2, 6, 'I', L"abcdef"},
                              {0x10F, 2, 0, 'I', L""},
                              {0x9000, 7, 4, 'I', L"02300"},
                              {0x30000, 1, 4, 'I', L"2,2,0"},
                              {0x112, 3, 1, 'I', L"1,2"},
                              {0x112, 3, 1, 'I', L""},
                              {0x30000, 1, 1, 'I', L"300"},
                              {0x112, 3, 1, 'I', L"-1"},
                              {0x112, 4, 1, 'I', L"99999999999999999999"},
                              {0x112, 9, 1, 'I', L"2147483648"},
                              {0x112, 3, 1, 'I', L"six"},
                              {0x112, 3, 3, 'I', L"1,,2"},
                              {0x112, 3, 1, 'I', L"1.0"},
                              {0x11A, 5, 1, 'I', L"72"},
                              {0x11A, 5, 1, 'I', L"-1/2"},
                              {0x11A, 5, 1, 'I', L"1/2/3"},
                              {0x11A, 11, 1, 'I', L"1e99"},
                              {0x11A, 11, 1, 'I', L"1.5x"},
                              {0x11A, 12, 1, 'I', L"0x10"},
                              {0x11A, 6, 1, 'I', L"1"},
                              {0x11A, 8, 1, 'I', L"1"},
                              {0x11A, 0, 1, 'I', L"1"},
                              {0x11A, 13, 1, 'I', L"1"}};
  for (const Request& r : requests) {
    out << "make 0x" << std::hex << r.tag << std::dec << " " << r.type << " " << r.count << " "
        << r.order << " \"" << Narrow(r.value) << "\" => ";
    try {
      const auto p = MakeOverride(r.tag, r.type, r.count, r.order == 'M', r.value);
      EXPECT_TRUE(p->id == r.tag && p->type == r.type && p->count == r.count);
      EXPECT_EQ(p->data[p->length], 0);
      out << Hex(p->data, p->length) << "\n";
    } catch (const RawLayerException& e) {
      out << Narrow(e.message) << "\n";
    }
  }
  // ApplyOverrides: each request takes the type, count and byte order of the first entry found
  // in list order; a later request replaces an earlier one in its place.
  test::ScanResult r = test::ScanBytes(TwoExifSegments());
  ASSERT_EQ(r.error, L"");
  for (const std::vector<const wchar_t*>& texts : std::vector<std::vector<const wchar_t*>>{
           {L"Orientation=8", L"0x30001=S", L"Date Time=x", L"make=ab", L"Make=xyz",
            L"0x30000=2,3,0,0", L"Model=abcde", L"0x11c=2", L"1=x"},
           {L"Make=four"}}) {
    std::vector<OverrideRequest> requests_in;
    for (const wchar_t* text : texts) {
      EXPECT_TRUE(ParseOverride(text, requests_in.emplace_back()));
    }
    PropertyList overrides;
    try {
      for (const std::wstring& warning : ApplyOverrides(*r.markers, requests_in, overrides)) {
        out << "apply warning: " << Narrow(warning) << "\n";
      }
    } catch (const RawLayerException& e) {
      out << "apply refused: " << Narrow(e.message) << "\n";
    }
    for (uint32_t i = 0; i < overrides.count; ++i) {
      const Property* p = overrides.items[i];
      out << "apply 0x" << std::hex << p->id << std::dec << " => " << Hex(p->data, p->length)
          << "\n";
    }
  }
  test::ExpectGolden("merge_overrides.txt", out.str());
}

}  // namespace
}  // namespace corvi
