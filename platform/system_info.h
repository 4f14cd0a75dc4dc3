// Facts about the machine that the decoder's memory rule needs.
#pragma once

#include <cstdint>

namespace corvi {

// Bytes of physical memory; 0 when the platform does not tell.
uint64_t PhysicalMemoryBytes();

// Asks the system to back the 2 MB pages lying wholly inside the block with huge pages, so that a
// large buffer written once costs a few hundred page faults instead of tens of thousands. A hint:
// does nothing where it is not supported.
void AdviseHugePages(void* block, uint64_t bytes);

// Sets the block to zero bytes. The whole pages inside a large block are handed back to the
// system, which gives them out as zero pages again when next touched, so a block that was mostly
// never written is not walked or brought into memory.
void ZeroMemory(void* block, uint64_t bytes);

}  // namespace corvi
