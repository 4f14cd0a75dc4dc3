// The one exception type of the system, and the conversion of a failed platform call into it.
#pragma once

#include <cstdint>

namespace corvi {

// Thrown by value, caught by const reference. Owns a heap copy of its wide message.
struct RawLayerException {
  wchar_t* message = nullptr;  // owned, may be null

  explicit RawLayerException(const wchar_t* text);
  RawLayerException(const RawLayerException& other);
  RawLayerException& operator=(const RawLayerException& other);
  ~RawLayerException();
};

// Throws "File %s: failed on %s: %s" with the file, the operation and the platform's text for
// `code`.
[[noreturn]] void ThrowPlatformError(const wchar_t* file_name, const wchar_t* operation,
                                     uint32_t code);

}  // namespace corvi
