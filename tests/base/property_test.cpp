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

// `count` big-endian values of `size` bytes: 1, 2, 3, ...
std::vector<uint8_t> Sequence(uint32_t count, uint32_t size) {
  std::vector<uint8_t> out(count * size + 1);
  for (uint32_t i = 0; i < count; ++i) {
    out[i * size + size - 1] = static_cast<uint8_t>(i + 1);
  }
  return out;
}

TEST(PropertyTypeSize, TableAndInvalidRows) {
  const int32_t expected[] = {-1, 1, 1, 2, 4, 8, -1, 1, -1, 4, 8, 4, 8, -1, -1};
  for (uint32_t type = 0; type < 15; ++type) {
    SCOPED_TRACE(type);
    if (expected[type] < 0) {
      try {
        PropertyTypeSize(type);
        ADD_FAILURE() << "no exception";
      } catch (const RawLayerException& e) {
        EXPECT_STREQ(e.message, L"Invalid property type");
      }
    } else {
      EXPECT_EQ(PropertyTypeSize(type), static_cast<uint32_t>(expected[type]));
    }
  }
  EXPECT_THROW(PropertyTypeSize(0xFFFFFFFF), RawLayerException);
}

TEST(Property, InlineUpTo23Bytes) {
  struct Case {
    uint32_t count;
    bool inline_value;
  };
  const Case cases[] = {{0, true}, {1, true}, {23, true}, {24, false}, {1000, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.count);
    std::vector<uint8_t> bytes(c.count + 1, 'a');  // no terminator inside the value
    PropertyList list;
    list.SetString(0x10F, bytes.data(), c.count);
    const Property* p = list.Find(0x10F);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->length, c.count);
    EXPECT_EQ(p->data == p->inline_store, c.inline_value);
    EXPECT_EQ(p->data[p->length], 0);
    EXPECT_EQ(std::memcmp(p->data, bytes.data(), c.count), 0);
  }
}

TEST(PropertyList, ReplacesInPlaceAndGrows) {
  PropertyList list;
  EXPECT_EQ(list.capacity, 4u);
  list.SetCompressionMode("Baseline 2x2");
  list.SetLong(0xC000, 7);
  list.SetCompressionMode("Progressive 1x1");
  ASSERT_EQ(list.count, 2u);
  EXPECT_EQ(list.items[0]->id, 0xC001u);
  EXPECT_EQ(list.items[0]->count, 16u);  // the terminator is part of the value
  EXPECT_EQ(list.items[0]->type, 2u);

  list.SetCompressionMode("Baseline 2x2");
  EXPECT_EQ(list.items[0]->count, 13u);

  const uint32_t ids[] = {1, 2, 3, 4, 5, 6, 7, 8, 9};  // up to 11 properties
  for (uint32_t id : ids) {
    list.SetShort(id, static_cast<uint16_t>(id));
    EXPECT_EQ(list.capacity, list.count <= 4 ? 4u : list.count <= 10 ? 10u : 22u);
  }
  EXPECT_EQ(list.count, 11u);
  EXPECT_EQ(list.capacity, 22u);
  list.SetShort(5, 50);
  EXPECT_EQ(list.count, 11u);
  EXPECT_EQ(list.items[6]->id, 5u);
  EXPECT_EQ(Printed(list).rfind("Compression Mode: \"Baseline 2x2\"\nPixel Format: 7\n", 0), 0u);

  list.Clear();
  EXPECT_EQ(list.count, 0u);
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
  list.SetString(0xC002, text, 2);
  EXPECT_EQ(Printed(list),
            "Make: \"Can\"\n"
            "Model: \"caf\xC3\xA9\"\n"
            "Software: \"\"\n"
            "Orientation: 65535\n"
            "Pixel Format: 4294967295\n"
            "X Resolution: 72/1\n"
            "???: 0.500000\n"
            "???: \"Ca\"\n");
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
  const Case cases[] = {
      {1, 1, " 15"}, {3, 2, " 21"},       {4, 4, " 21"}, {5, 8, " 0/21"}, {7, 1, " 15"},
      {9, 4, " 21"}, {10, 8, " 0/21"},    {0, 1, " 15"}, {6, 1, " 15"},   {8, 1, " 15"},
      {13, 1, " 15"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.type);
    std::string twenty = Values(c.type, 20, Sequence(20, c.size));
    std::string twenty_one = Values(c.type, 21, Sequence(21, c.size));
    std::string many = Values(c.type, 300, Sequence(300, c.size));
    EXPECT_EQ(twenty.find("[snip]"), std::string::npos);
    EXPECT_EQ(twenty_one, twenty + c.twenty_first + " [snip]");
    EXPECT_EQ(many, twenty_one);
    EXPECT_EQ(Values(c.type, 0, {0}), "");
  }
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
      {7, 3, {0x41, 0x00, 0x0A}, kMotorolaOrder, " 41 00 0a"},
      {9, 1, {0xFF, 0xFF, 0xFF, 0xFE}, kMotorolaOrder, " -2"},
      {10, 1, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 2}, kMotorolaOrder, " -1/2"},
      {11, 1, {0x3F, 0xC0, 0, 0}, kMotorolaOrder, " 1.500000"},
      {11, 1, {0, 0, 0xC0, 0x3F}, kIntelOrder, " 1.500000"},
      {12, 1, {0x40, 0x09, 0x21, 0xFB, 0x54, 0x44, 0x2D, 0x18}, kMotorolaOrder, " 3.141593"},
      {12, 1, {0x18, 0x2D, 0x44, 0x54, 0xFB, 0x21, 0x09, 0x40}, kIntelOrder, " 3.141593"},
      {6, 2, {0xFE, 0x01}, kMotorolaOrder, " fe 01"},
      {99, 1, {0x7F}, kMotorolaOrder, " 7f"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(Values(c.type, c.count, c.bytes, c.order), c.expected);
  }
  std::vector<uint8_t> long_text(300, 'x');
  long_text.push_back(0);
  EXPECT_EQ(Values(2, 301, long_text), " \"" + std::string(300, 'x') + "\"");  // no snip
}

TEST(RawLayer, ResetKeepsTheListArray) {
  RawLayer layer;
  layer.Reset();
  EXPECT_NE(layer.properties.items, nullptr);
  EXPECT_EQ(layer.properties.count, 0u);
  EXPECT_EQ(layer.properties.capacity, 4u);

  layer.width = 3;
  layer.height = 2;
  layer.AllocatePixels();
  layer.thumbnail = new RawLayer();
  layer.thumbnail->thumbnail = new RawLayer();
  layer.thumbnail->properties.SetLong(1, 1);
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
  uint16_t* small = AllocateArray<uint16_t>(4);
  delete[] small;
}

}  // namespace
}  // namespace corvi
