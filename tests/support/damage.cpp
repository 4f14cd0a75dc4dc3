// Damaged variants of a JPEG file.
#include "tests/support/damage.h"

#include <algorithm>
#include <random>

namespace corvi::test {
namespace {

std::string Named(const char* what, size_t at) {
  std::string name(what);
  name += ' ';
  name += std::to_string(at);
  return name;
}

}  // namespace

std::pair<size_t, size_t> FirstScanData(const Bytes& file) {
  const auto ranges = ScanDataRanges(file);
  return ranges.empty() ? std::pair<size_t, size_t>{0, 0} : ranges.front();
}

std::vector<Variant> MakeVariants(const Bytes& file, uint32_t seed, int flips) {
  std::vector<Variant> out;
  const auto [first, last] = FirstScanData(file);
  if (last <= first + 64) {
    return out;
  }
  const size_t span = last - first;
  auto cut = [&](size_t at, const Bytes& tail, const std::string& name) {
    Variant v;
    v.name = name;
    v.bytes.assign(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(at));
    v.bytes.insert(v.bytes.end(), tail.begin(), tail.end());
    v.damage_at = static_cast<int64_t>(at);
    out.push_back(std::move(v));
  };
  for (size_t share : {10u, 50u, 90u}) {
    size_t at = first + span * share / 100;
    while (file[at - 1] == 0xFF) {
      ++at;  // not behind a 0xFF, which would be read as fill in front of what is written
    }
    cut(at, {}, Named("cut", at));
    cut(at, {0xFF, 0xD9}, Named("eoi", at));
  }
  cut(file.size() - 2, {}, Named("cut before eoi", file.size() - 2));
  {
    Variant v{"ff-run", file, static_cast<int64_t>(first + span / 3)};
    const size_t run = std::min<size_t>(100, last - static_cast<size_t>(v.damage_at));
    std::fill_n(v.bytes.begin() + v.damage_at, run, uint8_t{0xFF});
    v.name.append(" ").append(std::to_string(v.damage_at)).append("+").append(std::to_string(run));
    out.push_back(std::move(v));
  }
  for (size_t i = first; i + 1 < last; ++i) {
    if (file[i] == 0xFF && file[i + 1] >= 0xD0 && file[i + 1] <= 0xD7) {
      Variant v{Named("rst renumbered", i), file, static_cast<int64_t>(i)};
      v.bytes[i + 1] = static_cast<uint8_t>(0xD0 + ((file[i + 1] - 0xD0 + 3) & 7));
      out.push_back(std::move(v));
      break;
    }
  }
  {
    Variant v{"trailing 10", file, -1};
    const char tail[] = "GARBAGE!\r\n";
    v.bytes.insert(v.bytes.end(), tail, tail + 10);
    out.push_back(std::move(v));
  }
  std::mt19937 random(seed);
  for (int i = 0; i < flips; ++i) {
    const size_t at = first + random() % span;
    Variant v{Named("flip", at), file, static_cast<int64_t>(at)};
    v.bytes[at] = static_cast<uint8_t>(~v.bytes[at]);
    out.push_back(std::move(v));
  }
  return out;
}

}  // namespace corvi::test
