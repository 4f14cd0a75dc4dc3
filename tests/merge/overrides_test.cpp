// Exif overrides: reading names, converting values to the entry's type and byte order, and
// finding the entry in a parsed file.
#include "merge/overrides.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/property.h"
#include "base/raw_layer_exception.h"
#include "exif/tiff_directory.h"
#include "tests/support/tiff_builder.h"

namespace corvi {
namespace {

using test::Bytes;
using test::TiffBuilder;

TEST(ParseOverrideName, ReadsPropertyNamesAndTagNumbers) {
  struct Case {
    const wchar_t* name;
    bool ok;
    uint32_t tag;
  };
  const Case cases[] = {
      {L"Make", true, 0x10F},
      {L"make", true, 0x10F},
      {L"DATETIME", true, 0x132},
      {L" Date  Time ", true, 0x132},
      {L"date time original", true, 0x9003},
      {L"X Resolution", true, 0x11A},
      {L"274", true, 274},
      {L"0x30001", true, 0x30001},
      {L"0X10f", true, 0x10F},
      {L"4294967295", true, 0xFFFFFFFF},
      {L"0xffffffff", true, 0xFFFFFFFF},
      {L"", false, 0},
      {L"Mak", false, 0},
      {L"0x", false, 0},
      {L"12z", false, 0},
      {L"-1", false, 0},
      {L"4294967296", false, 0},
      {L"0x100000000", false, 0},
      {L"Date_Time", false, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << std::string(c.name, c.name + std::wcslen(c.name)));
    uint32_t tag = 0;
    EXPECT_EQ(ParseOverrideName(c.name, tag), c.ok);
    if (c.ok) {
      EXPECT_EQ(tag, c.tag);
    }
  }
}

TEST(ParseOverride, SplitsAtTheFirstEqualsSign) {
  OverrideRequest request;
  ASSERT_TRUE(ParseOverride(L"Image Description=a=b", request));
  EXPECT_EQ(request.tag, 0x10Eu);
  EXPECT_EQ(request.value, L"a=b");
  ASSERT_TRUE(ParseOverride(L"0x10f=", request));
  EXPECT_EQ(request.value, L"");
  EXPECT_FALSE(ParseOverride(L"Make", request));
  EXPECT_FALSE(ParseOverride(L"=x", request));
  EXPECT_FALSE(ParseOverride(L"Nothing=x", request));
}

struct ValueCase {
  const char* label;
  uint32_t type, count;
  uint8_t byte_order;
  const wchar_t* value;
  Bytes expected;
};

TEST(MakeOverride, ConvertsToTheEntrysTypeAndByteOrder) {
  const ValueCase cases[] = {
      {"ascii padded", 2, 6, 0, L"ab", {'a', 'b', 0, 0, 0, 0}},
      {"ascii full", 2, 3, 1, L"ab", {'a', 'b', 0}},
      {"ascii utf-8", 2, 4, 0, L"\u00e9", {0xC3, 0xA9, 0, 0}},
      {"undefined fills the count", 7, 4, 0, L"0230", {'0', '2', '3', '0'}},
      {"undefined padded", 7, 3, 0, L"x", {'x', 0, 0}},
      {"bytes", 1, 4, 0, L"2,2,0,0", {2, 2, 0, 0}},
      {"bytes with blanks", 1, 3, 1, L" 255 , +0,\t7 ", {255, 0, 7}},
      {"short intel", 3, 1, 0, L"258", {0x02, 0x01}},
      {"short motorola", 3, 2, 1, L"258,65535", {0x01, 0x02, 0xFF, 0xFF}},
      {"long intel", 4, 1, 0, L"4294967295", {0xFF, 0xFF, 0xFF, 0xFF}},
      {"long motorola", 4, 1, 1, L"16909060", {1, 2, 3, 4}},
      {"slong", 9, 2, 1, L"-1,-2147483648", {0xFF, 0xFF, 0xFF, 0xFF, 0x80, 0, 0, 0}},
      {"rational", 5, 1, 1, L"72/1", {0, 0, 0, 72, 0, 0, 0, 1}},
      {"rational intel with blanks",
       5,
       2,
       0,
       L"1 / 2, 3/4",
       {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0}},
      {"srational", 10, 1, 1, L"-3/-7", {0xFF, 0xFF, 0xFF, 0xFD, 0xFF, 0xFF, 0xFF, 0xF9}},
      {"float", 11, 1, 1, L"1.5", {0x3F, 0xC0, 0, 0}},
      {"float exponent intel", 11, 1, 0, L"-2e-1", {0xCD, 0xCC, 0x4C, 0xBE}},
      {"double", 12, 1, 1, L"+0.25", {0x3F, 0xD0, 0, 0, 0, 0, 0, 0}},
      {"double intel", 12, 1, 0, L"1E3", {0, 0, 0, 0, 0, 0x40, 0x8F, 0x40}},
      {"no values", 3, 0, 0, L" ", {}},
  };
  for (const ValueCase& c : cases) {
    SCOPED_TRACE(c.label);
    std::unique_ptr<Property> p = MakeOverride(0x10F, c.type, c.count, c.byte_order, c.value);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->id, 0x10Fu);
    EXPECT_EQ(p->type, c.type);
    EXPECT_EQ(p->count, c.count);
    EXPECT_EQ(Bytes(p->data, p->data + p->length), c.expected);
    EXPECT_EQ(p->data[p->length], 0);
  }
}

std::wstring OverrideError(uint32_t tag, uint32_t type, uint32_t count, const wchar_t* value) {
  try {
    MakeOverride(tag, type, count, 0, value);
  } catch (const RawLayerException& e) {
    return e.message;
  }
  return L"";
}

TEST(MakeOverride, SaysWhatWouldFit) {
  struct Case {
    uint32_t tag, type, count;
    const wchar_t* value;
    const wchar_t* message;
  };
  const Case cases[] = {
      {0x10F, 2, 6, L"abcdef", L"Value for Make does not fit: at most 5 characters"},
      {0x10F, 2, 0, L"", L"Value for Make does not fit: at most 0 characters"},
      {0x9000, 7, 4, L"02300", L"Value for ExifVersion does not fit: at most 4 bytes"},
      {0x30000, 1, 4, L"2,2,0", L"Value for tag 0x30000 does not fit: expects 4 values"},
      {0x112, 3, 1, L"1,2", L"Value for Orientation does not fit: expects 1 value"},
      {0x112, 3, 1, L"", L"Value for Orientation does not fit: expects 1 value"},
      {0x30000, 1, 1, L"300", L"Value for tag 0x30000 does not fit: value 300 out of range 0..255"},
      {0x112, 3, 1, L"-1", L"Value for Orientation does not fit: value -1 out of range 0..65535"},
      {0x112, 4, 1, L"99999999999999999999",
       L"Value for Orientation does not fit: value 99999999999999999999 out of range "
       L"0..4294967295"},
      {0x112, 9, 1, L"2147483648",
       L"Value for Orientation does not fit: value 2147483648 out of range "
       L"-2147483648..2147483647"},
      {0x112, 3, 1, L"six", L"Value for Orientation does not fit: \"six\" is not a whole number"},
      {0x112, 3, 3, L"1,,2", L"Value for Orientation does not fit: \"\" is not a whole number"},
      {0x112, 3, 1, L"1.0", L"Value for Orientation does not fit: \"1.0\" is not a whole number"},
      {0x11A, 5, 1, L"72", L"Value for X Resolution does not fit: \"72\" is not a fraction n/d"},
      {0x11A, 5, 1, L"-1/2",
       L"Value for X Resolution does not fit: value -1 out of range 0..4294967295"},
      {0x11A, 5, 1, L"1/2/3",
       L"Value for X Resolution does not fit: \"2/3\" is not a whole number"},
      {0x11A, 11, 1, L"1e99",
       L"Value for X Resolution does not fit: value 1e99 out of range for FLOAT"},
      {0x11A, 11, 1, L"1.5x", L"Value for X Resolution does not fit: \"1.5x\" is not a number"},
      {0x11A, 12, 1, L"0x10", L"Value for X Resolution does not fit: \"0x10\" is not a number"},
      {0x11A, 6, 1, L"1", L"Invalid property type"},
      {0x11A, 8, 1, L"1", L"Invalid property type"},
      {0x11A, 0, 1, L"1", L"Invalid property type"},
      {0x11A, 13, 1, L"1", L"Invalid property type"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.type << " " << std::wstring(c.value).size());
    EXPECT_EQ(OverrideError(c.tag, c.type, c.count, c.value), c.message);
  }
}

TEST(SetOverride, ReplacesAnEarlierValueInItsPlace) {
  PropertyList list;
  SetOverride(list, MakeOverride(0x10F, 2, 4, 0, L"a"));
  SetOverride(list, MakeOverride(0x112, 3, 1, 0, L"1"));
  SetOverride(list, MakeOverride(0x10F, 2, 4, 0, L"b"));
  ASSERT_EQ(list.count, 2u);
  EXPECT_EQ(list.items[0]->id, 0x10Fu);
  EXPECT_EQ(list.items[0]->data[0], 'b');
  for (uint32_t tag = 1; tag <= 5; ++tag) {
    SetOverride(list, MakeOverride(tag, 3, 1, 0, L"1"));
  }
  EXPECT_EQ(list.count, 7u);
}

// A file whose first Exif APP1 is Motorola with Make, Orientation and a GPS sub-directory
// holding the latitude reference; a second, Intel APP1 holds Model and a Make of its own.
Bytes TwoExifSegments() {
  TiffBuilder first(true);
  auto dir = first.Directory({{0x10F, 2, 4, TiffBuilder::Ascii("Cam")},
                              {0x112, 3, 1, first.Short(1)},
                              {0x8825, 4, 1, {}, 0}});
  auto gps = first.Directory({{0x0, 1, 4, {2, 2, 0, 0}}, {0x1, 2, 2, TiffBuilder::Ascii("N")}});
  first.Patch32(dir.value_field[2], gps.start);
  TiffBuilder second(false);
  second.Directory(
      {{0x10F, 2, 6, TiffBuilder::Ascii("Other")}, {0x110, 2, 6, TiffBuilder::Ascii("Model")}});
  Bytes app1 = {0xFF, 0xE1};
  Bytes payload = second.ExifPayload();
  app1.push_back(static_cast<uint8_t>((payload.size() + 2) >> 8));
  app1.push_back(static_cast<uint8_t>(payload.size() + 2));
  app1.insert(app1.end(), payload.begin(), payload.end());
  return test::JpegWithApp1(first.ExifPayload(), app1);
}

TEST(FindOverrideTarget, TakesTheFirstSegmentThatAnswers) {
  test::ScanResult r = test::ScanBytes(TwoExifSegments());
  ASSERT_EQ(r.error, L"");
  struct Case {
    uint32_t tag;
    bool found;
    uint32_t type, count;
    uint8_t order;
  };
  const Case cases[] = {
      {0x10F, true, 2, 4, 1},                           // both hold Make: the first wins
      {0x110, true, 2, 6, 0},                           // only the second holds Model
      {0x30001, true, 2, 2, 1},                         // GPS, found in its tag space
      {0x30000, true, 1, 4, 1}, {0x1, false, 0, 0, 0},  // GPS tag 1 without its space is no entry
      {0x132, false, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.tag);
    OverrideTarget target = FindOverrideTarget(*r.markers, c.tag);
    ASSERT_EQ(target.entry != nullptr, c.found);
    if (c.found) {
      EXPECT_EQ(target.entry->type, c.type);
      EXPECT_EQ(target.entry->count, c.count);
      EXPECT_EQ(target.byte_order, c.order);
    }
  }
}

TEST(ApplyOverrides, ConvertsAgainstTheFileAndWarnsOfMissingEntries) {
  test::ScanResult r = test::ScanBytes(TwoExifSegments());
  ASSERT_EQ(r.error, L"");
  std::vector<OverrideRequest> requests;
  for (const wchar_t* text : {L"Orientation=8", L"0x30001=S", L"Date Time=x", L"make=ab",
                              L"Make=xyz", L"0x30000=2,3,0,0"}) {
    OverrideRequest request;
    ASSERT_TRUE(ParseOverride(text, request));
    requests.push_back(request);
  }
  PropertyList overrides;
  std::vector<std::wstring> warnings = ApplyOverrides(*r.markers, requests, overrides);
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_EQ(warnings[0], L"No Exif entry holds Date Time: the override is dropped");
  ASSERT_EQ(overrides.count, 4u);
  const Property* orientation = overrides.Find(0x112);
  ASSERT_NE(orientation, nullptr);
  EXPECT_EQ(Bytes(orientation->data, orientation->data + 2), (Bytes{0, 8}));  // Motorola
  const Property* make = overrides.Find(0x10F);
  ASSERT_NE(make, nullptr);
  EXPECT_EQ(Bytes(make->data, make->data + 4), (Bytes{'x', 'y', 'z', 0}));
  EXPECT_EQ(overrides.Find(0x30001)->data[0], 'S');
  EXPECT_EQ(overrides.Find(0x30000)->data[1], 3);

  OverrideRequest too_long;
  ASSERT_TRUE(ParseOverride(L"Make=four", too_long));
  try {
    ApplyOverrides(*r.markers, {too_long}, overrides);
    ADD_FAILURE() << "no exception";
  } catch (const RawLayerException& e) {
    EXPECT_STREQ(e.message, L"Value for Make does not fit: at most 3 characters");
  }
}

}  // namespace
}  // namespace corvi
