// Netpbm reading: header syntax, the tuple types, sample scaling and every refusal. The files,
// written as C literals, and the outcomes are kept in tests/golden/merge_netpbm.txt.
#include "merge/netpbm.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "base/raw_layer.h"
#include "base/raw_layer_exception.h"
#include "tests/support/merge_support.h"

namespace corvi {
namespace {

// The bytes of a literal as testing::PrintToString writes it: pieces in quotes, and escapes.
std::string Unescape(const std::string& literal) {
  std::string out;
  for (size_t i = 1, end = literal.size() - 1; i < end; ++i) {
    if (literal[i] == '"') {
      i += 2;  // `" "` between pieces
    } else if (literal[i] != '\\') {
      out += literal[i];
    } else if (literal[++i] == 'x') {
      size_t digits = 0;
      out += static_cast<char>(std::stoi(literal.substr(i + 1, 2), &digits, 16));
      i += digits;
    } else {
      const char* named = std::strchr("n\nt\ta\ab\bf\fr\rv\v0", literal[i]);  // "\0" last
      out += named != nullptr ? named[1] : literal[i];
    }
  }
  return out;
}

// "is netpbm LITERAL", "scale SAMPLE/MAXVAL" or "read LITERAL".
std::string Read(const std::string& line) {
  uint32_t sample = 0, maxval = 0;
  if (std::sscanf(line.c_str(), "scale %u/%u", &sample, &maxval) == 2) {
    return std::to_string(ScaleNetpbmSample(sample, maxval));
  }
  const std::string file = Unescape(line.substr(line.find('"')));
  const auto* data = reinterpret_cast<const uint8_t*>(file.data());
  if (line[0] == 'i') {
    return IsNetpbm(data, static_cast<uint32_t>(file.size())) ? "yes" : "no";
  }
  RawLayer layer;
  try {
    ReadNetpbm(data, static_cast<uint32_t>(file.size()), layer);
  } catch (const RawLayerException& e) {
    EXPECT_TRUE(layer.pixels == nullptr && layer.width == 0) << "a half-read image is left";
    return test::Narrow(e.message);
  }
  std::string out = std::to_string(layer.width) + "x" + std::to_string(layer.height) + ":";
  for (uint64_t i = 0; i < uint64_t{4} * layer.width * layer.height; ++i) {
    (out += ' ') += std::to_string(layer.pixels[i]);
  }
  return out;
}

TEST(Netpbm, FormatsScalingAndRefusalsMatchGoldenText) {
  test::ExpectGoldenCases("merge_netpbm.txt", Read);
}

}  // namespace
}  // namespace corvi
