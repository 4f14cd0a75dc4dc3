// Exif overrides: reading names, converting values to the entry's type and byte order, and
// finding the entry in a parsed file. The requests and their outcomes are kept in
// tests/golden/merge_overrides.txt.
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

// "parse TEXT", "make TAG TYPE COUNT ORDER=VALUE" (I or M) or "apply TEXT|TEXT...", in UTF-8.
std::string Outcome(const std::string& line, const MarkerList& markers) {
  std::wstring text;
  for (size_t i = line.find(' ') + 1; i < line.size(); ++i) {
    const int32_t c = static_cast<uint8_t>(line[i]);  // two-byte UTF-8 sequences only
    text += static_cast<wchar_t>(c >= 0xC0 ? (c & 0x1F) << 6 | (line[++i] & 0x3F) : c);
  }
  std::ostringstream out;
  OverrideRequest request;
  std::vector<OverrideRequest> requests;
  PropertyList overrides;
  uint32_t tag = 0, type = 0, count = 0;
  wchar_t order = 0;
  try {
    if (line[0] == 'p' && !ParseOverride(text.c_str(), request)) {
      return "refused";
    } else if (line[0] == 'p') {
      out << "0x" << std::hex << request.tag << " \"" << test::Narrow(request.value) << "\"";
    } else if (line[0] == 'm') {
      std::swscanf(text.c_str(), L"%x %u %u %lc", &tag, &type, &count, &order);
      const auto p =
          MakeOverride(tag, type, count, order == L'M', text.c_str() + text.find('=') + 1);
      EXPECT_TRUE(p->id == tag && p->type == type && p->count == count);
      EXPECT_EQ(p->data[p->length], 0);
      out << test::Hex(p->data, p->length);
    } else {
      std::wistringstream texts(text);
      for (std::wstring one; std::getline(texts, one, L'|');) {
        EXPECT_TRUE(ParseOverride(one.c_str(), requests.emplace_back()));
      }
      for (const std::wstring& warning : ApplyOverrides(markers, requests, overrides)) {
        out << "warning: " << test::Narrow(warning) << "\n";
      }
      for (uint32_t i = 0; i < overrides.count; ++i) {
        const Property* p = overrides.items[i];
        out << "0x" << std::hex << p->id << std::dec << " => " << test::Hex(p->data, p->length)
            << "\n";
      }
    }
  } catch (const RawLayerException& e) {
    out << (line[0] == 'a' ? "refused: " : "") << test::Narrow(e.message);
  }
  return out.str();
}

TEST(Overrides, ParseConvertAndApplyMatchGoldenText) {
  const test::ScanResult r = test::ScanBytes(TwoExifSegments());
  ASSERT_EQ(r.error, L"");
  test::ExpectGoldenCases("merge_overrides.txt",
                          [&](const std::string& line) { return Outcome(line, *r.markers); });
}

}  // namespace
}  // namespace corvi
