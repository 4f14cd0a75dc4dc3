// corvi-check against jpeginfo -c (libjpeg-turbo's Huffman decoding at 1/8 scale): files per
// second of whole processes on one CPU, on real photos whole and damaged; corvi-check -j 2
// against -j 1 on all CPUs; and each worker's peak memory less the file it maps.
//
//   check_bench [--cpu N] [--rounds R] CORVI_CHECK FILE_OR_DIRECTORY...
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/bench_util.h"

extern char** environ;

namespace {

struct Run {
  double seconds = 0;
  long peak_kb = 0;  // of the child
};

// Runs `args` with standard output and error sent to /dev/null.
Run Spawn(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args) {
    argv.push_back(const_cast<char*>(a.c_str()));
  }
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  const auto start = corvi::bench::Clock::now();
  pid_t pid = 0;
  if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    std::fprintf(stderr, "cannot run %s\n", argv[0]);
    std::exit(1);
  }
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  return Run{corvi::bench::Seconds(start), usage.ru_maxrss};
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void Pin(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (cpu >= 0) {
    CPU_SET(cpu, &set);
  } else {
    for (int i = 0; i < CPU_SETSIZE; ++i) {
      CPU_SET(i, &set);
    }
  }
  sched_setaffinity(0, sizeof set, &set);
}

std::vector<char> Read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<char>((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// Each photo damaged three ways: cut in half, an end of image written half way, a byte flipped
// a third of the way in.
std::vector<std::string> Damaged(const std::vector<std::string>& files, const std::string& dir) {
  std::vector<std::string> out;
  int n = 0;
  for (const std::string& f : files) {
    const std::vector<char> bytes = Read(f);
    if (bytes.size() < 4096) {
      continue;
    }
    const size_t half = bytes.size() / 2;
    for (int kind = 0; kind < 3; ++kind) {
      std::vector<char> v(bytes.begin(), kind == 0 ? bytes.begin() + half : bytes.end());
      if (kind == 1) {
        v[half] = static_cast<char>(0xFF);
        v[half + 1] = static_cast<char>(0xD9);
        v.resize(half + 2);
      } else if (kind == 2) {
        v[bytes.size() / 3] = static_cast<char>(~v[bytes.size() / 3]);
      }
      const std::string path = dir + "/d" + std::to_string(n++) + ".jpg";
      std::ofstream(path, std::ios::binary).write(v.data(), static_cast<std::streamsize>(v.size()));
      out.push_back(path);
    }
  }
  return out;
}

// Files per second of corvi-check -j 1 and jpeginfo -c over `files`, alternating, on one CPU.
void Compare(const char* label, const std::string& tool, const std::vector<std::string>& files,
             int rounds) {
  std::vector<std::string> ours{tool, "-j", "1", "--json"};
  std::vector<std::string> peer{"jpeginfo", "-c"};
  ours.insert(ours.end(), files.begin(), files.end());
  peer.insert(peer.end(), files.begin(), files.end());
  std::vector<double> a, b, ratio;
  for (int r = 0; r < rounds; ++r) {
    const double x = Spawn(ours).seconds;
    const double y = Spawn(peer).seconds;
    a.push_back(x);
    b.push_back(y);
    ratio.push_back(y / x);
  }
  const double n = static_cast<double>(files.size());
  std::printf(
      "%-26s %5zu files: corvi-check %8.0f files/s, jpeginfo -c %8.0f files/s, "
      "ratio %.2fx (median of %d paired runs)\n",
      label, files.size(), n / Median(a), n / Median(b), Median(ratio), rounds);
}

}  // namespace

int main(int argc, char** argv) {
  int cpu = 1;
  int rounds = 11;
  int at = 1;
  for (; at < argc && argv[at][0] == '-'; at += 2) {
    if (at + 1 >= argc) {
      break;
    }
    if (std::strcmp(argv[at], "--cpu") == 0) {
      cpu = std::atoi(argv[at + 1]);
    } else if (std::strcmp(argv[at], "--rounds") == 0) {
      rounds = std::max(1, std::atoi(argv[at + 1]));
    }
  }
  if (argc - at < 2) {
    std::fprintf(stderr, "usage: %s [--cpu N] [--rounds R] CORVI_CHECK FILE_OR_DIRECTORY...\n",
                 argv[0]);
    return 2;
  }
  const std::string tool = argv[at++];
  std::vector<std::string> files;
  for (; at < argc; ++at) {
    if (std::filesystem::is_directory(argv[at])) {
      for (const auto& entry : std::filesystem::directory_iterator(argv[at])) {
        const std::string name = entry.path().string();
        if (entry.is_regular_file() && name.ends_with(".jpg")) {
          files.push_back(name);
        }
      }
    } else {
      files.push_back(argv[at]);
    }
  }
  std::sort(files.begin(), files.end());
  char pattern[] = "/tmp/check-bench-XXXXXX";
  const std::string dir = mkdtemp(pattern);
  const std::vector<std::string> damaged = Damaged(files, dir);

  Pin(cpu);
  std::printf("one CPU (%d), whole processes:\n", cpu);
  Compare("photos, whole", tool, files, rounds);
  Compare("photos, damaged", tool, damaged, rounds);

  // Both CPUs: the same files eight times over, so that the run is long enough to share.
  Pin(-1);
  std::vector<std::string> many;
  for (int i = 0; i < 8; ++i) {
    many.insert(many.end(), files.begin(), files.end());
  }
  std::vector<double> one, two, speedup;
  for (int r = 0; r < rounds; ++r) {
    std::vector<std::string> j1{tool, "-j", "1", "--json"}, j2{tool, "-j", "2", "--json"};
    j1.insert(j1.end(), many.begin(), many.end());
    j2.insert(j2.end(), many.begin(), many.end());
    const double x = Spawn(j1).seconds;
    const double y = Spawn(j2).seconds;
    one.push_back(x);
    two.push_back(y);
    speedup.push_back(x / y);
  }
  std::printf("all CPUs, %zu files: -j 1 %.0f files/s, -j 2 %.0f files/s, speed-up %.2fx\n",
              many.size(), static_cast<double>(many.size()) / Median(one),
              static_cast<double>(many.size()) / Median(two), Median(speedup));

  // One worker's peak memory beyond the file it maps, file by file.
  long worst_kb = 0;
  std::string worst;
  for (const std::string& f : files) {
    struct stat info {};
    stat(f.c_str(), &info);
    const long beyond = Spawn({tool, "-j", "1", "--json", "--full", f}).peak_kb -
                        static_cast<long>(info.st_size / 1024);
    if (beyond > worst_kb) {
      worst_kb = beyond;
      worst = f;
    }
  }
  std::printf("peak memory beyond the file: at most %.1f MB (%s)\n",
              static_cast<double>(worst_kb) / 1024.0, worst.c_str());
  std::filesystem::remove_all(dir);
  return 0;
}
