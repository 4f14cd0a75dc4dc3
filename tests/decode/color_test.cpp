// Colour conversion of single samples, and every vector form of the MCU converters against the
// plain one, bit for bit.
#include "decode/color.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace corvi {
namespace {

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

TEST(YCbCrToPixel, ConvertsLevelShiftsAndClamps) {
  const struct {
    const char* name;
    float y, cb, cr;
    uint16_t red, green, blue;
  } cases[] = {
      {"mid grey", 0.0f, 0.0f, 0.0f, 32896, 32896, 32896},
      {"white: 65535.5 truncated", 127.0f, 0.0f, 0.0f, 65535, 65535, 65535},
      {"above white clamps", 127.5f, 0.0f, 0.0f, 65535, 65535, 65535},
      {"black: 0.5 truncated", -128.0f, 0.0f, 0.0f, 0, 0, 0},
      {"below black clamps", -129.0f, 0.0f, 0.0f, 0, 0, 0},
      {"sum in (-1, 0) truncates to zero", -128.003f, 0.0f, 0.0f, 0, 0, 0},
      {"chroma", 0.0f, 10.0f, -10.0f, 29274, 33855, 37469},
      {"infinite chroma", 0.0f, kInf, -kInf, 0, 0, 65535},
      {"NaN gives zero", kNaN, 0.0f, 0.0f, 0, 0, 0},
      {"NaN chroma", 0.0f, kNaN, 0.0f, 32896, 0, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    uint16_t pixel[4] = {1, 2, 3, 4};
    YCbCrToPixel(c.y, c.cb, c.cr, pixel);
    EXPECT_EQ(std::vector<uint16_t>(pixel, pixel + 4),
              (std::vector<uint16_t>{c.red, c.green, c.blue, 65535}));
  }
}

// Random samples with NaN, infinities and values far outside the sample range among them.
TEST(ConvertMcu, VectorFormsEqualThePlainForm) {
  std::vector<const McuConverters*> forms;
#if defined(__SSE2__)
  forms.push_back(&Sse2Converters());
#endif
#if defined(__x86_64__) || defined(__i386__)
  if (ColourAvx2Built() && __builtin_cpu_supports("avx2")) {
    forms.push_back(&Avx2Converters());
  }
#endif
  if (forms.empty()) {
    GTEST_SKIP() << "no vector form on this machine";
  }
  const float specials[] = {kNaN, kInf, -kInf, 1e30f, -1e30f, -0.0f, 127.49998f, -128.5f, 255.0f};
  std::mt19937 random(2463534242u);
  // Six blocks of samples, the most any sampling mode reads, and a 16 x 16 pixel target.
  std::vector<float> blocks(6 * 64);
  for (int iteration = 0; iteration < 1000; ++iteration) {
    for (float& v : blocks) {
      const uint32_t r = random();
      v = r % 50 == 0 ? specials[r / 50 % 9] : static_cast<float>(int32_t(r % 40000) - 20000) / 64;
    }
    for (int mode = 0; mode < 5; ++mode) {
      std::vector<uint16_t> plain(16 * 16 * 4, 0);
      ScalarConverters().by_mode[mode](blocks.data(), plain.data(), 16);
      for (const McuConverters* form : forms) {
        std::vector<uint16_t> vector(16 * 16 * 4, 0);
        form->by_mode[mode](blocks.data(), vector.data(), 16);
        ASSERT_EQ(plain, vector) << "mode " << mode + 1 << ", iteration " << iteration;
      }
    }
  }
}

}  // namespace
}  // namespace corvi
