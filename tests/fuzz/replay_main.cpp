// A stand-in for libFuzzer's driver: feeds each file named on the command line, or each file of a
// named directory (not recursively, in name order), to LLVMFuzzerTestOneInput once. Lets any
// compiler replay a fuzz target's findings under the suite's sanitizers.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

// Runs one file; false when it cannot be read.
bool Replay(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "replay: cannot read %s\n", path.string().c_str());
    return false;
  }
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
  // An exact-size block, so the sanitizers see a read one byte past the input.
  auto copy = std::make_unique<uint8_t[]>(bytes.size());
  for (size_t i = 0; i < bytes.size(); ++i) {
    copy[i] = static_cast<uint8_t>(bytes[i]);
  }
  std::printf("replay: %s (%zu bytes)\n", path.string().c_str(), bytes.size());
  std::fflush(stdout);  // the name stays visible if the input crashes
  LLVMFuzzerTestOneInput(copy.get(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FILE_OR_DIRECTORY...\n", argv[0]);
    return 2;
  }
  int replayed = 0;
  bool failed = false;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path argument(argv[i]);
    std::error_code error;
    if (std::filesystem::is_directory(argument, error)) {
      std::vector<std::filesystem::path> files;
      for (const auto& entry : std::filesystem::directory_iterator(argument, error)) {
        if (entry.is_regular_file()) {
          files.push_back(entry.path());
        }
      }
      std::sort(files.begin(), files.end());
      for (const auto& file : files) {
        failed |= !Replay(file);
        ++replayed;
      }
    } else {
      failed |= !Replay(argument);
      ++replayed;
    }
  }
  std::printf("replay: %d inputs\n", replayed);
  // An empty run is a failure: a test that replays nothing proves nothing.
  return failed || replayed == 0 ? 1 : 0;
}
