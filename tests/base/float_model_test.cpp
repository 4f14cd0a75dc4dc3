// The float model the decoder relies on: no fused multiply-add anywhere.
#include <gtest/gtest.h>

TEST(FloatModel, NoFusedMultiplyAdd) {
  volatile float vx = 1.0f + 0x1p-12f, vz = 1.0f + 0x1p-11f;
  float x = vx, z = vz;
  EXPECT_EQ(x * x - z, 0.0f);  // 0x1p-24 if fused
}
