// Typed metadata values: replacement by id, printing of every type, and the layer's Reset.
#include "base/property.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "platform/format.h"
#include "tests/support/golden.h"

namespace corvi {
namespace {

std::string Values(uint32_t type, uint32_t count, const std::vector<uint8_t>& bytes,
                   uint8_t order = kMotorolaOrder) {
  OutStream stream;
  PrintTypedValues(stream, type, count, bytes.data(), order);
  return stream.Text();
}

// Cases of type, count, byte order (M or I) and the bytes in hex. A text byte is a code point.
TEST(PrintTypedValues, EveryType) {
  std::istringstream in(
      "1 2 M 00ff  2 5 M 6162006364  2 2 M 616263  2 2 M 66e9  3 2 M 0102ffff  3 1 I 0102  "
      "4 1 M 80000001  5 1 M 0000000100000003  9 1 M fffffffe  10 1 M ffffffff00000002  "
      "11 1 M 3fc00000  12 1 I 182d4454fb210940  99 2 M 7f80");
  uint32_t type, count;
  char order;
  std::string hex, text;
  while (in >> type >> count >> order >> hex) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < hex.size(); i += 2) {
      bytes.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    text += std::to_string(type) + " " + std::to_string(count) + " " + order + " " + hex + " ->" +
            Values(type, count, bytes, order == 'I' ? kIntelOrder : kMotorolaOrder) + "\n";
  }
  test::ExpectGolden("base_typed_values", text);
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
  test::ExpectGolden("base_properties", stream.Text());
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
