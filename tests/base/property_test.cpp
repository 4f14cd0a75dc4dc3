// Typed metadata values: storage, replacement by id, growth, printing; and the layer's Reset.
#include "base/property.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "platform/format.h"

namespace corvi {
namespace {

std::string Printed(const PropertyList& list) {
  OutStream stream;
  list.PrintProperties(stream);
  return stream.Text();
}

std::string Values(uint32_t type, uint32_t count, const std::vector<uint8_t>& bytes,
                   uint8_t order = kMotorolaOrder) {
  OutStream stream;
  PrintTypedValues(stream, type, count, bytes.data(), order);
  return stream.Text();
}

TEST(PropertyTypeSize, RefusesUnknownTypes) {
  for (uint32_t type : {0u, 6u, 8u, 13u, 14u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(type);
    try {
      PropertyTypeSize(type);
      ADD_FAILURE() << "no exception";
    } catch (const RawLayerException& e) {
      EXPECT_STREQ(e.message, L"Invalid property type");
    }
  }
}

TEST(PropertyList, ReplacesInPlaceAndGrows) {
  PropertyList list;
  list.SetCompressionMode("Progressive 1x1");
  list.SetLong(0xC000, 7);
  list.SetCompressionMode("Baseline 2x2");
  ASSERT_EQ(list.count, 2u);
  EXPECT_EQ(list.items[0]->id, 0xC001u);
  EXPECT_EQ(list.items[0]->count, 13u);  // the terminator is part of the value
  EXPECT_EQ(list.items[0]->type, 2u);
  for (uint32_t id = 1; id <= 9; ++id) {
    list.SetShort(id, static_cast<uint16_t>(id));
    EXPECT_EQ(list.capacity, list.count <= 4 ? 4u : list.count <= 10 ? 10u : 22u);
  }
  list.SetShort(5, 50);
  EXPECT_EQ(list.count, 11u);
  EXPECT_EQ(list.items[6]->id, 5u);
  EXPECT_EQ(Printed(list).rfind("Compression Mode: \"Baseline 2x2\"\nPixel Format: 7\n", 0), 0u);
  list.Clear();
  EXPECT_EQ(list.capacity, 22u);
  EXPECT_EQ(Printed(list), "");
}

TEST(PropertyList, PrintsEachSetter) {
  PropertyList list;
  const uint8_t text[] = {'C', 'a', 'n', 0, 'o', 'n'};
  const uint8_t accent[] = {'c', 'a', 'f', 0xE9};
  list.SetString(0x10F, text, 6);
  list.SetString(0x110, accent, 4);
  list.SetString(0x131, text, 0);
  list.SetShort(0x112, 65535);
  list.SetLong(0xC000, 0xFFFFFFFF);
  list.SetRational(0x11A, 72, 1);
  list.SetFloat(0x1234, 0.5f);
  const std::vector<uint8_t> a(25, 'a');  // no terminator behind the value
  list.SetString(0x13B, a.data(), 23);    // the longest value held inline
  list.SetString(0x8298, a.data(), 24);
  EXPECT_EQ(Printed(list),
            "Make: \"Can\"\nModel: \"caf\xC3\xA9\"\nSoftware: \"\"\nOrientation: 65535\n"
            "Pixel Format: 4294967295\nX Resolution: 72/1\n???: 0.500000\nArtist: \"" +
                std::string(23, 'a') + "\"\nCopyright: \"" + std::string(24, 'a') + "\"\n");
}

TEST(PropertyList, NamesOfEveryRow) {
  PropertyList list;
  for (const PropertyName& row : PropertyNames) {
    list.SetShort(row.id, 1);
  }
  EXPECT_EQ(Printed(list),
            "Date Time: 1\nDate Time Digitized: 1\nDate Time Original: 1\nDocument Name: 1\n"
            "Image Description: 1\nMake: 1\nModel: 1\nOrientation: 1\nSoftware: 1\nArtist: 1\n"
            "Copyright: 1\nX Resolution: 1\nY Resolution: 1\nResolution Unit: 1\n"
            "Pixel Format: 1\nCompression Mode: 1\n");
}

TEST(PrintTypedValues, SnipsBehindTheTwentyFirstValue) {
  struct Case {
    uint32_t type, size;
    std::string twenty_first;  // what the 21st value prints as
  };
  const Case cases[] = {{1, 1, " 15"}, {3, 2, " 21"}, {4, 4, " 21"}, {10, 8, " 0/21"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    std::vector<uint8_t> bytes(300 * c.size);  // big-endian values 1, 2, 3, ...
    for (uint32_t i = 0; i < 300; ++i) {
      bytes[i * c.size + c.size - 1] = static_cast<uint8_t>(i + 1);
    }
    std::string twenty = Values(c.type, 20, bytes);
    EXPECT_EQ(twenty.find("[snip]"), std::string::npos);
    EXPECT_EQ(Values(c.type, 21, bytes), twenty + c.twenty_first + " [snip]");
    EXPECT_EQ(Values(c.type, 300, bytes), twenty + c.twenty_first + " [snip]");
  }
  EXPECT_EQ(Values(3, 0, {0}), "");
}

TEST(PrintTypedValues, EveryType) {
  struct Case {
    uint32_t type, count;
    std::vector<uint8_t> bytes;
    uint8_t order;
    std::string expected;
  };
  const Case cases[] = {
      {1, 2, {0x00, 0xFF}, kMotorolaOrder, " 00 ff"},
      {2, 5, {'a', 'b', 0, 'c', 'd'}, kMotorolaOrder, " \"ab\""},
      {2, 2, {'a', 'b', 'c'}, kMotorolaOrder, " \"ab\""},
      {2, 0, {'a'}, kMotorolaOrder, " \"\""},
      {3, 2, {0x01, 0x02, 0xFF, 0xFF}, kMotorolaOrder, " 258 65535"},
      {3, 1, {0x01, 0x02}, kIntelOrder, " 513"},
      {4, 1, {0x80, 0, 0, 1}, kMotorolaOrder, " 2147483649"},
      {5, 1, {0, 0, 0, 1, 0, 0, 0, 3}, kMotorolaOrder, " 1/3"},
      {9, 1, {0xFF, 0xFF, 0xFF, 0xFE}, kMotorolaOrder, " -2"},
      {10, 1, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 2}, kMotorolaOrder, " -1/2"},
      {11, 1, {0x3F, 0xC0, 0, 0}, kMotorolaOrder, " 1.500000"},
      {12, 1, {0x18, 0x2D, 0x44, 0x54, 0xFB, 0x21, 0x09, 0x40}, kIntelOrder, " 3.141593"},
      {99, 2, {0x7F, 0x80}, kMotorolaOrder, " 7f 80"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(Values(c.type, c.count, c.bytes, c.order), c.expected);
  }
  std::vector<uint8_t> long_text(300, 'x');
  long_text.push_back(0);
  EXPECT_EQ(Values(2, 301, long_text), " \"" + std::string(300, 'x') + "\"");  // no snip
}

TEST(RawLayer, ResetFreesAllButTheListArray) {
  RawLayer layer;
  layer.width = 3;
  layer.height = 2;
  layer.AllocatePixels();  // the sanitizer sees whether Reset frees these
  layer.thumbnail = new RawLayer();
  layer.thumbnail->thumbnail = new RawLayer();
  for (uint32_t id = 0; id < 5; ++id) {
    layer.properties.SetLong(id, id);
  }
  layer.Reset();
  EXPECT_EQ(layer.width, 0u);
  EXPECT_EQ(layer.height, 0u);
  EXPECT_EQ(layer.pixels, nullptr);
  EXPECT_EQ(layer.thumbnail, nullptr);
  EXPECT_EQ(layer.properties.count, 0u);
  EXPECT_EQ(layer.properties.capacity, 10u);
}

TEST(CheckAllocation, RefusesWhatCannotBeHad) {
  EXPECT_NO_THROW(CheckAllocation(1024));
  EXPECT_THROW(CheckAllocation(UINT64_MAX), RawLayerException);
  EXPECT_THROW(AllocateArray<uint16_t>(UINT64_MAX / 2 + 1), RawLayerException);  // wraps × 2
}

}  // namespace
}  // namespace corvi
