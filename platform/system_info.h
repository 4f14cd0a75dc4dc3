// Facts about the machine that the decoder's memory rule needs.
#pragma once

#include <cstdint>

namespace corvi {

// Bytes of physical memory; 0 when the platform does not tell.
uint64_t PhysicalMemoryBytes();

}  // namespace corvi
