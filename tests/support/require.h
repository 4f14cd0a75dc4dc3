// What a test needs from outside the repository: the shared corpus, libjpeg-turbo, jpegtran.
#pragma once

#include <gtest/gtest.h>

namespace corvi::test {

// True where the environment sets CORVI_REQUIRE_PEERS to anything but "0" (CI does): there a
// missing corpus or peer tool fails the test instead of skipping it.
bool PeersRequired();

}  // namespace corvi::test

// Skips the test when `available` is false, naming `what`; fails it where peers are required.
#define CORVI_NEED(available, what)                               \
  do {                                                            \
    if (!(available)) {                                           \
      if (::corvi::test::PeersRequired()) {                       \
        FAIL() << "needs " << (what) << " (CORVI_REQUIRE_PEERS)"; \
      }                                                           \
      GTEST_SKIP() << "needs " << (what);                         \
    }                                                             \
  } while (0)
