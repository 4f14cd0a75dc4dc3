// What a test needs from outside the repository.
#include "tests/support/require.h"

#include <cstdlib>
#include <cstring>

namespace corvi::test {

bool PeersRequired() {
  const char* value = std::getenv("CORVI_REQUIRE_PEERS");
  return value != nullptr && *value != '\0' && std::strcmp(value, "0") != 0;
}

}  // namespace corvi::test
