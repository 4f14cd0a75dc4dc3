// The platform's text for an error code, and the code of the last failed call.
#include "platform/error_text.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/format.h"

namespace corvi {

uint32_t LastPlatformError() {
  return static_cast<uint32_t>(errno);
}

void PlatformErrorText(uint32_t code, wchar_t* buffer, size_t capacity) {
  if (capacity == 0 || code > 0x7FFFFFFF) {
    return;
  }
  char text[256];
  // The GNU strerror_r returns its text, which may not be in `text`.
  const char* message = strerror_r(static_cast<int>(code), text, sizeof text);
  if (message == nullptr || std::strncmp(message, "Unknown error", 13) == 0) {
    return;
  }
  std::wstring wide = DecodeUtf8(message, std::strlen(message));
  size_t n = wide.size() < capacity - 1 ? wide.size() : capacity - 1;
  wide.copy(buffer, n);
  buffer[n] = 0;
}

}  // namespace corvi
