// Facts about the machine that the decoder's memory rule needs.
#include "platform/system_info.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

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

void ZeroMemory(void* block, uint64_t bytes) {
  if (block == nullptr || bytes == 0) {
    return;
  }
  auto* bytes_at = static_cast<unsigned char*>(block);
  const long page_size = sysconf(_SC_PAGESIZE);
  const auto page = static_cast<uintptr_t>(page_size > 0 ? page_size : 4096);
  const uintptr_t start = reinterpret_cast<uintptr_t>(block);
  if (bytes >= 16 * uint64_t{page} && bytes <= UINTPTR_MAX - start) {
    const uintptr_t first = (start + page - 1) & ~(page - 1);
    const uintptr_t last = (start + static_cast<uintptr_t>(bytes)) & ~(page - 1);
    if (madvise(reinterpret_cast<void*>(first), static_cast<size_t>(last - first), MADV_DONTNEED) ==
        0) {
      std::memset(bytes_at, 0, static_cast<size_t>(first - start));
      std::memset(bytes_at + (last - start), 0, static_cast<size_t>(start + bytes - last));
      return;
    }
  }
  std::memset(bytes_at, 0, static_cast<size_t>(bytes));
}

}  // namespace corvi
