// Facts about the machine that the decoder's memory rule needs.
#include "platform/system_info.h"

#include <unistd.h>

namespace corvi {

uint64_t PhysicalMemoryBytes() {
  long pages = sysconf(_SC_PHYS_PAGES);
  long page_size = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || page_size <= 0) {
    return 0;
  }
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(page_size);
}

}  // namespace corvi
