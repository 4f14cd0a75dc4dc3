// The one exception type of the system, and the conversion of a failed platform call into it.
#include "base/raw_layer_exception.h"

#include <cwchar>

#include "platform/error_text.h"
#include "platform/format.h"

namespace corvi {
namespace {

wchar_t* CopyText(const wchar_t* text) {
  if (text == nullptr) {
    return nullptr;
  }
  size_t n = std::wcslen(text);
  auto* copy = new wchar_t[n + 1];
  std::wmemcpy(copy, text, n + 1);
  return copy;
}

}  // namespace

RawLayerException::RawLayerException(const wchar_t* text) : message(CopyText(text)) {}

RawLayerException::RawLayerException(const RawLayerException& other)
    : message(CopyText(other.message)) {}

RawLayerException& RawLayerException::operator=(const RawLayerException& other) {
  if (this != &other) {
    wchar_t* copy = CopyText(other.message);
    delete[] message;
    message = copy;
  }
  return *this;
}

RawLayerException::~RawLayerException() {
  delete[] message;
  message = nullptr;
}

void ThrowPlatformError(const wchar_t* file_name, const wchar_t* operation, uint32_t code) {
  wchar_t error_text[256];
  FormatBuffer(error_text, 256, L"Windows error %lu", code);
  PlatformErrorText(code, error_text, 256);  // keeps the first text when there is none
  wchar_t message[1000];
  FormatBuffer(message, 1000, L"File %s: failed on %s: %s", file_name, operation,
               static_cast<const wchar_t*>(error_text));
  throw RawLayerException(message);
}

}  // namespace corvi
