// What one stream may cost a caller of the library.
#include "base/limits.h"

#include <string>

namespace corvi {

void CheckLimit(const wchar_t* what, uint64_t count, uint64_t limit) {
  if (limit == 0 || count <= limit) {
    return;
  }
  const std::wstring text = std::wstring(what) + L" (" + std::to_wstring(count) + L", limit " +
                            std::to_wstring(limit) + L")";
  throw LimitExceeded(text.c_str());
}

}  // namespace corvi
