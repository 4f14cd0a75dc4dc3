// Facts about the machine that the decoder's memory rule needs.
#include "platform/system_info.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>

namespace corvi {

uint64_t PhysicalMemoryBytes() {
  long pages = sysconf(_SC_PHYS_PAGES);
  long page_size = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || page_size <= 0) {
    return 0;
  }
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(page_size);
}

void AdviseHugePages(void* block, uint64_t bytes) {
#if defined(MADV_HUGEPAGE)
  constexpr uintptr_t kHugePage = uintptr_t{1} << 21;
  const uintptr_t start = reinterpret_cast<uintptr_t>(block);
  if (block == nullptr || bytes < 2 * kHugePage || bytes > UINTPTR_MAX - start) {
    return;
  }
  const uintptr_t first = (start + kHugePage - 1) & ~(kHugePage - 1);
  const uintptr_t last = (start + static_cast<uintptr_t>(bytes)) & ~(kHugePage - 1);
  if (last > first) {
    madvise(reinterpret_cast<void*>(first), static_cast<size_t>(last - first), MADV_HUGEPAGE);
  }
#else
  (void)block;
  (void)bytes;
#endif
}

}  // namespace corvi
