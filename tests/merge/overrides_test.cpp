// Exif overrides: reading names, converting values to the entry's type and byte order, and
// finding the entry in a parsed file.
#include "merge/overrides.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/property.h"
#include "base/raw_layer_exception.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::TiffBuilder;

TEST(ParseOverride, ReadsPropertyNamesAndTagNumbersAndSplitsAtTheFirstEqualsSign) {
  struct Case {
    const wchar_t* text;
    uint32_t tag;  // 0: refused
    const wchar_t* value;
  };
  const Case cases[] = {
      {L"Make=x", 0x10F, L"x"},
      {L"make=", 0x10F, L""},
      {L" Date  Time =1", 0x132, L"1"},
      {L"date time original=1", 0x9003, L"1"},
      {L"Image Description=a=b", 0x10E, L"a=b"},
      {L"274=1", 274, L"1"},
      {L"0X10f=1", 0x10F, L"1"},
      {L"4294967295=1", 0xFFFFFFFF, L"1"},
      {L"0xffffffff=1", 0xFFFFFFFF, L"1"},
      {L"Make", 0, L""},
      {L"=x", 0, L""},
      {L"Mak=x", 0, L""},
      {L"Date_Time=1", 0, L""},
      {L"0x=1", 0, L""},
      {L"12z=1", 0, L""},
      {L"-1=1", 0, L""},
      {L"4294967296=1", 0, L""},
      {L"0x100000000=1", 0, L""},
  };
  for (const Case& c : cases) {
    OverrideRequest request;
    EXPECT_EQ(ParseOverride(c.text, request), c.tag != 0)
        << testing::PrintToString(std::wstring(c.text));
    EXPECT_TRUE(c.tag == 0 || (request.tag == c.tag && request.value == c.value)) << request.tag;
  }
}

// The value bytes MakeOverride gives, in hex, or the exception's text.
std::wstring Outcome(uint32_t tag, uint32_t type, uint32_t count, uint8_t order,
                     const wchar_t* value) {
  std::unique_ptr<Property> p;
  try {
    p = MakeOverride(tag, type, count, order, value);
  } catch (const RawLayerException& e) {
    return e.message;
  }
  EXPECT_TRUE(p->id == tag && p->type == type && p->count == count);
  EXPECT_EQ(p->data[p->length], 0);
  std::wstring hex;
  for (uint32_t i = 0; i < p->length; ++i) {
    hex += (i == 0 ? L"" : L" ") + std::wstring{L"0123456789ABCDEF"[p->data[i] >> 4]} +
           L"0123456789ABCDEF"[p->data[i] & 15];
  }
  return hex;
}

TEST(MakeOverride, ConvertsToTheEntrysTypeAndByteOrderOrSaysWhatWouldFit) {
  const std::wstring make = L"Value for Make does not fit: ",
                     version = L"Value for ExifVersion does not fit: ",
                     gps = L"Value for tag 0x30000 does not fit: ",
                     orientation = L"Value for Orientation does not fit: ",
                     resolution = L"Value for X Resolution does not fit: ",
                     type = L"Invalid property type";
  struct Case {
    uint32_t tag, type, count;
    uint8_t order;  // 0 Intel, 1 Motorola
    const wchar_t* value;
    std::wstring outcome;
  };
  const Case cases[] = {
      {0x10F, 2, 6, 0, L"ab", L"61 62 00 00 00 00"},
      {0x10F, 2, 3, 1, L"ab", L"61 62 00"},
      {0x10F, 2, 4, 0, L"\u00e9", L"C3 A9 00 00"},
      {0x9000, 7, 4, 0, L"0230", L"30 32 33 30"},
      {0x9000, 7, 3, 0, L"x", L"78 00 00"},
      {0x30000, 1, 4, 0, L"2,2,0,0", L"02 02 00 00"},
      {0x30000, 1, 3, 1, L" 255 , +0,\t7 ", L"FF 00 07"},
      {0x112, 3, 1, 0, L"258", L"02 01"},
      {0x112, 3, 2, 1, L"258,65535", L"01 02 FF FF"},
      {0x112, 4, 1, 0, L"4294967295", L"FF FF FF FF"},
      {0x112, 4, 1, 1, L"16909060", L"01 02 03 04"},
      {0x112, 4, 1, 0, L"16909060", L"04 03 02 01"},
      {0x112, 9, 2, 1, L"-1,-2147483648", L"FF FF FF FF 80 00 00 00"},
      {0x11A, 5, 1, 1, L"72/1", L"00 00 00 48 00 00 00 01"},
      {0x11A, 5, 2, 0, L"1 / 2, 3/4", L"01 00 00 00 02 00 00 00 03 00 00 00 04 00 00 00"},
      {0x11A, 10, 1, 1, L"-3/-7", L"FF FF FF FD FF FF FF F9"},
      {0x11A, 11, 1, 1, L"1.5", L"3F C0 00 00"},
      {0x11A, 11, 1, 0, L"-2e-1", L"CD CC 4C BE"},
      {0x11A, 12, 1, 1, L"+0.25", L"3F D0 00 00 00 00 00 00"},
      {0x11A, 12, 1, 0, L"1E3", L"00 00 00 00 00 40 8F 40"},
      {0x112, 3, 0, 0, L" ", L""},
      {0x10F, 2, 6, 0, L"abcdef", make + L"at most 5 characters"},
      {0x10F, 2, 0, 0, L"", make + L"at most 0 characters"},
      {0x9000, 7, 4, 0, L"02300", version + L"at most 4 bytes"},
      {0x30000, 1, 4, 0, L"2,2,0", gps + L"expects 4 values"},
      {0x112, 3, 1, 0, L"1,2", orientation + L"expects 1 value"},
      {0x112, 3, 1, 0, L"", orientation + L"expects 1 value"},
      {0x30000, 1, 1, 0, L"300", gps + L"value 300 out of range 0..255"},
      {0x112, 3, 1, 0, L"-1", orientation + L"value -1 out of range 0..65535"},
      {0x112, 4, 1, 0, L"99999999999999999999",
       orientation + L"value 99999999999999999999 out of range 0..4294967295"},
      {0x112, 9, 1, 0, L"2147483648",
       orientation + L"value 2147483648 out of range -2147483648..2147483647"},
      {0x112, 3, 1, 0, L"six", orientation + L"\"six\" is not a whole number"},
      {0x112, 3, 3, 0, L"1,,2", orientation + L"\"\" is not a whole number"},
      {0x112, 3, 1, 0, L"1.0", orientation + L"\"1.0\" is not a whole number"},
      {0x11A, 5, 1, 0, L"72", resolution + L"\"72\" is not a fraction n/d"},
      {0x11A, 5, 1, 0, L"-1/2", resolution + L"value -1 out of range 0..4294967295"},
      {0x11A, 5, 1, 0, L"1/2/3", resolution + L"\"2/3\" is not a whole number"},
      {0x11A, 11, 1, 0, L"1e99", resolution + L"value 1e99 out of range for FLOAT"},
      {0x11A, 11, 1, 0, L"1.5x", resolution + L"\"1.5x\" is not a number"},
      {0x11A, 12, 1, 0, L"0x10", resolution + L"\"0x10\" is not a number"},
      {0x11A, 6, 1, 0, L"1", type},
      {0x11A, 8, 1, 0, L"1", type},
      {0x11A, 0, 1, 0, L"1", type},
      {0x11A, 13, 1, 0, L"1", type},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Outcome(c.tag, c.type, c.count, c.order, c.value), c.outcome)
        << c.type << " " << c.count << " " << int{c.order} << " "
        << testing::PrintToString(std::wstring(c.value));
  }
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

// Each request takes the type, count and byte order of the first entry found in list order.
TEST(ApplyOverrides, ConvertsAgainstTheFirstEntryAndWarnsOfMissingOnes) {
  test::ScanResult r = test::ScanBytes(TwoExifSegments());
  ASSERT_EQ(r.error, L"");
  std::vector<OverrideRequest> requests;
  for (const wchar_t* text :
       {L"Orientation=8", L"0x30001=S", L"Date Time=x", L"make=ab", L"Make=xyz", L"0x30000=2,3,0,0",
        L"Model=abcde", L"0x11c=2", L"1=x", L"Make=four"}) {
    EXPECT_TRUE(ParseOverride(text, requests.emplace_back()));
  }
  PropertyList overrides;
  const std::vector<OverrideRequest> fitting(requests.begin(), requests.end() - 1);
  EXPECT_EQ(
      ApplyOverrides(*r.markers, fitting, overrides),
      (std::vector<std::wstring>{L"No Exif entry holds Date Time: the override is dropped",
                                 L"No Exif entry holds InteropIndex: the override is dropped"}));
  ASSERT_EQ(overrides.count, 6u);  // a later request replaces an earlier one in its place
  EXPECT_EQ(overrides.items[2]->id, 0x10Fu);
  const std::pair<uint32_t, Bytes> expected[] = {
      {0x112, {0, 8}},         {0x10F, {'x', 'y', 'z', 0}},           {0x30001, {'S', 0}},
      {0x30000, {2, 3, 0, 0}}, {0x110, {'a', 'b', 'c', 'd', 'e', 0}}, {0x11C, {2, 0}}};
  for (const auto& [tag, bytes] : expected) {
    const Property* p = overrides.Find(tag);
    ASSERT_NE(p, nullptr) << tag;
    EXPECT_EQ(Bytes(p->data, p->data + p->length), bytes) << tag;
  }
  try {
    ApplyOverrides(*r.markers, {requests.back()}, overrides);
    ADD_FAILURE() << "no exception";
  } catch (const RawLayerException& e) {
    EXPECT_STREQ(e.message, L"Value for Make does not fit: at most 3 characters");
  }
}

}  // namespace
}  // namespace corvi
