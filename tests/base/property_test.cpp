// Typed metadata values: replacement by id, printing of every type, and the layer's Reset.
#include "base/property.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "platform/format.h"

namespace corvi {
namespace {

std::string Values(uint32_t type, uint32_t count, const std::vector<uint8_t>& bytes,
                   uint8_t order = kMotorolaOrder) {
  OutStream stream;
  PrintTypedValues(stream, type, count, bytes.data(), order);
  return stream.Text();
}

TEST(PrintTypedValues, EveryType) {
  struct Case {
    uint32_t type, count;
    std::vector<uint8_t> bytes;
    uint8_t order;
    std::string expected;
  };
  const uint8_t m = kMotorolaOrder, i = kIntelOrder;
  const Case cases[] = {
      {1, 2, {0x00, 0xFF}, m, " 00 ff"},
      {2, 5, {'a', 'b', 0, 'c', 'd'}, m, " \"ab\""},
      {2, 2, {'a', 'b', 'c'}, m, " \"ab\""},
      {2, 2, {'f', 0xE9}, m, " \"f\xC3\xA9\""},  // a byte is a code point
      {3, 2, {0x01, 0x02, 0xFF, 0xFF}, m, " 258 65535"},
      {3, 1, {0x01, 0x02}, i, " 513"},
      {4, 1, {0x80, 0, 0, 1}, m, " 2147483649"},
      {5, 1, {0, 0, 0, 1, 0, 0, 0, 3}, m, " 1/3"},
      {9, 1, {0xFF, 0xFF, 0xFF, 0xFE}, m, " -2"},
      {10, 1, {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 2}, m, " -1/2"},
      {11, 1, {0x3F, 0xC0, 0, 0}, m, " 1.500000"},
      {12, 1, {0x18, 0x2D, 0x44, 0x54, 0xFB, 0x21, 0x09, 0x40}, i, " 3.141593"},
      {99, 2, {0x7F, 0x80}, m, " 7f 80"},
  };
  for (const auto& [type, count, bytes, order, expected] : cases) {
    EXPECT_EQ(Values(type, count, bytes, order), expected);
  }
  // Numbers stop behind the 21st value; text does not.
  std::vector<uint8_t> bytes(300 * 8);
  for (uint32_t n = 0; n < 300; ++n) {
    bytes[n * 8 + 7] = static_cast<uint8_t>(n + 1);  // big-endian values 1, 2, 3, ...
  }
  EXPECT_EQ(Values(10, 300, bytes), Values(10, 20, bytes) + " 0/21 [snip]");
  EXPECT_EQ(Values(3, 21, bytes), Values(3, 20, bytes) + " 0 [snip]");
  EXPECT_EQ(Values(2, 300, std::vector<uint8_t>(300, 'x')), " \"" + std::string(300, 'x') + "\"");
}

TEST(PropertyList, ReplacesByIdAndPrintsNames) {
  PropertyList list;
  list.SetCompressionMode("Progressive 1x1");
  list.SetLong(0xC000, 0xFFFFFFFF);
  for (uint32_t id = 1; id <= 9; ++id) {  // grows past its capacity
    list.SetShort(id, static_cast<uint16_t>(id));
  }
  list.SetCompressionMode("Baseline 2x2");  // replaces the first in place
  list.SetRational(0x11A, 72, 1);
  list.SetFloat(0x1234, 0.5f);
  const uint8_t text[] = {'C', 'a', 'n', 0, 'o', 'n'};
  list.SetString(0x10F, text, 6);
  const std::vector<uint8_t> a(25, 'a');  // no terminator behind the value
  list.SetString(0x13B, a.data(), 23);    // the longest value held inline
  list.SetString(0x8298, a.data(), 24);
  OutStream stream;
  list.PrintProperties(stream);
  EXPECT_EQ(stream.Text(),
            "Compression Mode: \"Baseline 2x2\"\nPixel Format: 4294967295\n???: 1\n???: 2\n"
            "???: 3\n???: 4\n???: 5\n???: 6\n???: 7\n???: 8\n???: 9\nX Resolution: 72/1\n"
            "???: 0.500000\nMake: \"Can\"\nArtist: \"" +
                std::string(23, 'a') + "\"\nCopyright: \"" + std::string(24, 'a') + "\"\n");
  EXPECT_THROW(PropertyTypeSize(13), RawLayerException);
}

TEST(RawLayer, ResetFreesAllButTheListArray) {
  RawLayer layer;
  layer.width = 3, layer.height = 2;
  layer.AllocatePixels();  // the sanitizer sees whether Reset frees these
  layer.thumbnail = new RawLayer();
  layer.thumbnail->thumbnail = new RawLayer();
  layer.properties.SetLong(1, 1);
  layer.Reset();
  EXPECT_EQ(layer.width + layer.height + layer.properties.count, 0u);
  EXPECT_TRUE(layer.pixels == nullptr && layer.thumbnail == nullptr);
  EXPECT_NE(layer.properties.items, nullptr);
}

TEST(CheckAllocation, RefusesWhatCannotBeHad) {
  EXPECT_NO_THROW(CheckAllocation(1024));
  EXPECT_THROW(CheckAllocation(UINT64_MAX), RawLayerException);
  EXPECT_THROW(AllocateArray<uint16_t>(UINT64_MAX / 2 + 1), RawLayerException);  // wraps × 2
}

}  // namespace
}  // namespace corvi
