// The platform's text for an error code, and the code of the last failed call.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvi {

// The error code of the last failed platform call of this thread (errno here).
uint32_t LastPlatformError();

// Writes the platform's text for `code` into `buffer` (at most `capacity` wide characters,
// terminated). Leaves the buffer as it was when the platform has no text for the code.
void PlatformErrorText(uint32_t code, wchar_t* buffer, size_t capacity);

}  // namespace corvi
