// Every vector form of the inverse DCT and of the colour conversion gives bit for bit what the
// plain form gives, on random and extreme input: sparse and dense blocks, DC-only blocks, zero
// and huge quantisers, NaN, infinities and values far outside the sample range.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "decode/color.h"
#include "decode/decode_state.h"
#include "decode/idct.h"

namespace corvi {
namespace {

bool HaveAvx2() {
#if defined(__x86_64__) || defined(__i386__)
  return InverseDCTAvx2Built() && ColourAvx2Built() && __builtin_cpu_supports("avx2");
#else
  return false;
#endif
}

struct Random {
  uint32_t state = 2463534242u;
  uint32_t Next() {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    return state;
  }
};

using IdctForm = void (*)(const int16_t*, float*, const QuantTable&);

TEST(VectorForms, InverseDCTFormsEqualThePlainForm) {
  std::vector<IdctForm> forms;
#if defined(__SSE2__)
  forms.push_back(InverseDCTSse2);
#endif
  if (HaveAvx2()) {
    forms.push_back(InverseDCTAvx2);
  }
  if (forms.empty()) {
    GTEST_SKIP() << "no vector form on this machine";
  }
  Random random;
  for (int iteration = 0; iteration < 20000; ++iteration) {
    QuantTable table;
    const uint32_t table_kind = iteration % 4;
    for (float& v : table.values) {
      v = table_kind == 0   ? static_cast<float>(1 + random.Next() % 255)
          : table_kind == 1 ? static_cast<float>(random.Next() % 65536)  // zeros too
          : table_kind == 2 ? 0.0f
                            : static_cast<float>(random.Next() % 4);
    }
    ScaleQuantTable(table);
    int16_t block[64] = {};
    const uint32_t block_kind = (iteration / 4) % 5;
    for (int i = 0; i < 64; ++i) {
      const bool set = block_kind == 0   ? i == 0                                 // DC only
                       : block_kind == 1 ? random.Next() % 16 == 0                // sparse
                       : block_kind == 2 ? i % 8 == 0 || random.Next() % 32 == 0  // columns
                                         : true;                                  // dense
      if (set) {
        block[i] = block_kind == 4 ? static_cast<int16_t>(random.Next() % 2 ? 32767 : -32768)
                                   : static_cast<int16_t>(random.Next() % 4096) - 2048;
      }
    }
    float plain[64];
    InverseDCTScalar(block, plain, table);
    for (IdctForm form : forms) {
      float vector[64];
      form(block, vector, table);
      ASSERT_EQ(std::memcmp(plain, vector, sizeof plain), 0) << "iteration " << iteration;
    }
  }
}

TEST(VectorForms, ColourFormsEqualThePlainForm) {
  std::vector<const McuConverters*> forms;
#if defined(__SSE2__)
  forms.push_back(&Sse2Converters());
#endif
  if (HaveAvx2()) {
    forms.push_back(&Avx2Converters());
  }
  if (forms.empty()) {
    GTEST_SKIP() << "no vector form on this machine";
  }
  const float specials[] = {std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity(),
                            1e30f,
                            -1e30f,
                            -0.0f,
                            127.49998f,
                            -128.5f,
                            255.0f};
  Random random;
  // Six blocks of samples, the most any sampling mode reads, and a 16 x 16 pixel target.
  std::vector<float> blocks(6 * 64);
  for (int iteration = 0; iteration < 3000; ++iteration) {
    for (float& v : blocks) {
      const uint32_t r = random.Next();
      v = r % 50 == 0 ? specials[r / 50 % 9]
                      : static_cast<float>(static_cast<int32_t>(r % 40000) - 20000) / 64.0f;
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
