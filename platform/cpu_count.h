// How many CPUs this process may use: the default number of files corvi-check checks at once.
#pragma once

#include <cstdint>

namespace corvi {

// The CPUs this process may run on (its affinity mask), lowered to its cgroup's CPU quota where
// one is set; at least 1.
uint32_t UsableCpuCount();

// The CPUs a cgroup v2 `cpu.max` text ("QUOTA PERIOD", in microseconds) allows, rounded up: a
// quota of one and a half CPUs gives 2. 0 when it sets no limit ("max ...") or cannot be read.
uint32_t CpuQuotaCount(const char* text);

}  // namespace corvi
