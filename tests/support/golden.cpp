// Golden text files: whole outputs pinned in tests/golden/.
#include "tests/support/golden.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace corvi::test {

void ExpectGolden(const std::string& name, const std::string& text) {
  std::string path = std::string(CORVI_GOLDEN_DIR) + "/" + name;
  if (name.find('.') == std::string::npos) {
    path += ".txt";
  }
  const char* update = std::getenv("CORVI_UPDATE_GOLDEN");
  if (update != nullptr && std::strcmp(update, "1") == 0) {
    std::ofstream(path, std::ios::binary) << text;
    return;
  }
  std::ifstream in(path, std::ios::binary);
  ASSERT_TRUE(in.good()) << "missing golden file " << path;
  const std::string expected((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
  EXPECT_EQ(text, expected) << "golden file " << path;
}

}  // namespace corvi::test
