// Scans and dumps every .jpg file of a directory, repeatedly, and prints files/s and MB/s.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "base/byte_coverage.h"
#include "base/raw_layer_exception.h"
#include "jpeg/jpeg_reader.h"
#include "platform/format.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <directory> [seconds]\n", argv[0]);
    return 1;
  }
  double seconds = argc > 2 ? std::stod(argv[2]) : 2.0;
  std::vector<std::wstring> files;
  for (const auto& item : std::filesystem::directory_iterator(argv[1])) {
    std::string name = item.path().string();
    if (item.is_regular_file() && name.size() > 4 &&
        (name.substr(name.size() - 4) == ".jpg" || name.substr(name.size() - 4) == ".JPG")) {
      files.push_back(corvi::DecodeUtf8(name.data(), name.size()));
    }
  }
  std::sort(files.begin(), files.end());
  corvi::OutStream sink(corvi::OutStream::kDiscard);
  uint64_t bytes = 0;
  uint64_t done = 0;
  uint64_t failed = 0;
  auto start = std::chrono::steady_clock::now();
  double elapsed = 0;
  do {
    for (const std::wstring& file : files) {
      try {
        corvi::JPEGReader reader(file.c_str());
        reader.Scan();
        reader.Dump(file.c_str(), sink);
        corvi::Print(sink, L"Finished parsing %s (%u left)\n", file.c_str(),
                     reader.coverage->LeftCount());
        bytes += reader.length;
      } catch (const corvi::RawLayerException& e) {
        corvi::Print(sink, L"Failed on %s: %s\n", file.c_str(),
                     static_cast<const wchar_t*>(e.message));
        ++failed;
      }
      ++done;
    }
    elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  } while (elapsed < seconds && !files.empty());
  std::printf("%zu files, %llu scans+dumps (%llu failed) in %.2f s: %.0f files/s, %.1f MB/s\n",
              files.size(), static_cast<unsigned long long>(done),
              static_cast<unsigned long long>(failed), elapsed, static_cast<double>(done) / elapsed,
              static_cast<double>(bytes) / elapsed / 1e6);
  return 0;
}
