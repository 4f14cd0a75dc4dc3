// How many CPUs this process may use: the default number of files corvi-check checks at once.
#include "platform/cpu_count.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

namespace corvi {
namespace {

// The CPUs in the affinity mask; 0 when the system does not tell. The mask is grown until it
// holds every CPU the kernel knows of.
uint32_t AffinityCount() {
  for (int cpus = 1024; cpus <= (1 << 20); cpus *= 2) {
    cpu_set_t* set = CPU_ALLOC(cpus);
    if (set == nullptr) {
      return 0;
    }
    const size_t size = CPU_ALLOC_SIZE(cpus);
    CPU_ZERO_S(size, set);
    const int result = sched_getaffinity(0, size, set);
    const int error = errno;
    const int count = result == 0 ? CPU_COUNT_S(size, set) : 0;
    CPU_FREE(set);
    if (result == 0) {
      return static_cast<uint32_t>(count);
    }
    if (error != EINVAL) {
      return 0;
    }
  }
  return 0;
}

// The first line of a small file, without its line end; empty when it cannot be read.
std::string FirstLine(const std::string& path) {
  std::FILE* file = std::fopen(path.c_str(), "re");
  if (file == nullptr) {
    return std::string();
  }
  char line[4096];
  std::string text;
  if (std::fgets(line, sizeof line, file) != nullptr) {
    text = line;
  }
  std::fclose(file);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
    text.pop_back();
  }
  return text;
}

// This process's cgroup from the "0::" line of /proc/self/cgroup (cgroup v2), as a path below
// /sys/fs/cgroup: "/a/b", or empty for the root. Inside a container with its own cgroup
// namespace it is the root, and the quota is /sys/fs/cgroup/cpu.max itself.
std::string OwnCgroup() {
  std::string group;
  std::FILE* file = std::fopen("/proc/self/cgroup", "re");
  if (file == nullptr) {
    return group;
  }
  char line[4096];
  while (std::fgets(line, sizeof line, file) != nullptr) {
    if (std::strncmp(line, "0::/", 4) == 0) {
      group.append(line + 3);
      break;
    }
  }
  std::fclose(file);
  while (!group.empty() && (group.back() == '\n' || group.back() == '/')) {
    group.pop_back();
  }
  return group;
}

// The least quota of this process's cgroup and the cgroups above it; 0 when none is set.
uint32_t CgroupQuotaCount() {
  std::string group = OwnCgroup();
  uint32_t least = 0;
  while (true) {
    const uint32_t count = CpuQuotaCount(FirstLine("/sys/fs/cgroup" + group + "/cpu.max").c_str());
    if (count != 0 && (least == 0 || count < least)) {
      least = count;
    }
    if (group.empty()) {
      return least;
    }
    group.resize(group.rfind('/'));
  }
}

}  // namespace

uint32_t CpuQuotaCount(const char* text) {
  const char* end = text + std::strlen(text);
  uint64_t quota = 0;
  uint64_t period = 0;
  auto [after_quota, quota_error] = std::from_chars(text, end, quota);
  if (quota_error != std::errc() || after_quota == end || *after_quota != ' ') {
    return 0;  // "max": no limit, or not a quota at all
  }
  auto [after_period, period_error] = std::from_chars(after_quota + 1, end, period);
  if (period_error != std::errc() || after_period != end || period == 0 || quota == 0) {
    return 0;
  }
  const uint64_t count = quota / period + (quota % period != 0 ? 1 : 0);
  return static_cast<uint32_t>(std::min<uint64_t>(count, UINT32_MAX));
}

uint32_t UsableCpuCount() {
  uint32_t count = AffinityCount();
  if (count == 0) {
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    count = online > 0 ? static_cast<uint32_t>(online) : 1;
  }
  const uint32_t quota = CgroupQuotaCount();
  if (quota != 0 && quota < count) {
    count = quota;
  }
  return std::max<uint32_t>(count, 1);
}

}  // namespace corvi
