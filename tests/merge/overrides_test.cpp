// Exif overrides: reading names, converting values to the entry's type and byte order, and
// finding the entry in a parsed file. The outcomes are pinned in tests/golden/merge_overrides.txt.
#include "merge/overrides.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <sstream>
#include <string>
#include <vector>

#include "base/property.h"
#include "base/raw_layer_exception.h"
#include "tests/support/merge_support.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::TiffBuilder;

// A file whose first Exif APP1 is Motorola with Make, Orientation and a GPS sub-directory
// holding the latitude reference; a second, Intel APP1 holds Model, PlanarConfiguration and a
// Make of its own.
test::Bytes TwoExifSegments() {
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
  std::wistringstream names(
      L"Make=x|make=| Date  Time =1|date time original=1|Image Description=a=b|274=1|0X10f=1|"
      L"4294967295=1|0xffffffff=1|Make|=x|Mak=x|Date_Time=1|0x=1|12z=1|-1=1|4294967296=1|"
      L"0x100000000=1");
  for (std::wstring text; std::getline(names, text, L'|');) {
    OverrideRequest request;
    out << "parse \"" << test::Narrow(text) << "\" => ";
    if (ParseOverride(text.c_str(), request)) {
      out << "0x" << std::hex << request.tag << std::dec << " \"" << test::Narrow(request.value)
          << "\"\n";
    } else {
      out << "refused\n";
    }
  }
  // MakeOverride: "tag type count order(I/M)=value".
  std::wistringstream requests(
      L"10F 2 6 I=ab|10F 2 3 M=ab|10F 2 4 I=\u00e9|9000 7 4 I=0230|9000 7 3 I=x|"
      L"30000 1 4 I=2,2,0,0|30000 1 3 M= 255 , +0,\t7 |112 3 1 I=258|112 3 2 M=258,65535|"
      L"112 4 1 I=4294967295|112 4 1 M=16909060|112 4 1 I=16909060|112 9 2 M=-1,-2147483648|"
      L"11A 5 1 M=72/1|11A 5 2 I=1 / 2, 3/4|11A 10 1 M=-3/-7|11A 11 1 M=1.5|11A 11 1 I=-2e-1|"
      L"11A 12 1 M=+0.25|11A 12 1 I=1E3|112 3 0 I= |10F 2 6 I=abcdef|10F 2 0 I=|"
      L"9000 7 4 I=02300|30000 1 4 I=2,2,0|112 3 1 I=1,2|112 3 1 I=|30000 1 1 I=300|"
      L"112 3 1 I=-1|112 4 1 I=99999999999999999999|112 9 1 I=2147483648|112 3 1 I=six|"
      L"112 3 3 I=1,,2|112 3 1 I=1.0|11A 5 1 I=72|11A 5 1 I=-1/2|11A 5 1 I=1/2/3|"
      L"11A 11 1 I=1e99|11A 11 1 I=1.5x|11A 12 1 I=0x10|11A 6 1 I=1|11A 8 1 I=1|11A 0 1 I=1|"
      L"11A 13 1 I=1");
  for (std::wstring request; std::getline(requests, request, L'|');) {
    uint32_t tag = 0, type = 0, count = 0;
    wchar_t order = 0;
    std::swscanf(request.c_str(), L"%x %u %u %lc", &tag, &type, &count, &order);
    out << "make " << test::Narrow(request) << " => ";
    try {
      const auto p =
          MakeOverride(tag, type, count, order == L'M', request.c_str() + request.find(L'=') + 1);
      EXPECT_TRUE(p->id == tag && p->type == type && p->count == count);
      EXPECT_EQ(p->data[p->length], 0);
      out << test::Hex(p->data, p->length) << "\n";
    } catch (const RawLayerException& e) {
      out << test::Narrow(e.message) << "\n";
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
        out << "apply warning: " << test::Narrow(warning) << "\n";
      }
    } catch (const RawLayerException& e) {
      out << "apply refused: " << test::Narrow(e.message) << "\n";
    }
    for (uint32_t i = 0; i < overrides.count; ++i) {
      const Property* p = overrides.items[i];
      out << "apply 0x" << std::hex << p->id << std::dec << " => " << test::Hex(p->data, p->length)
          << "\n";
    }
  }
  test::ExpectGolden("merge_overrides.txt", out.str());
}

}  // namespace
}  // namespace corvi
