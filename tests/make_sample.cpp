// Writes the sample JPEG of the tests to the path given as the only argument.
#include <cstdio>

#include "tests/support/sample_jpeg.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: make_sample <output.jpg>\n");
    return 1;
  }
  const corvi::test::Bytes bytes = corvi::test::MakeSampleJpeg();
  std::FILE* file = std::fopen(argv[1], "wb");
  if (file == nullptr) {
    std::perror(argv[1]);
    return 1;
  }
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (std::fclose(file) != 0 || !written) {
    std::perror(argv[1]);
    return 1;
  }
  return 0;
}
