// Exif overrides for the rewriter: from "NAME=VALUE" text to properties typed like the entries
// they replace.
#include "merge/overrides.h"

#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <string_view>
#include <system_error>

#include "base/byte_order.h"
#include "base/property.h"
#include "base/raw_layer_exception.h"
#include "exif/tag_names.h"
#include "exif/tiff_entry.h"
#include "jpeg/jpeg_reader.h"
#include "jpeg/markers.h"
#include "platform/format.h"

namespace corvi {
namespace {

constexpr size_t kMessageCapacity = 300;  // wide characters, terminator included

// Throws "Value for NAME does not fit: " and the formatted reason.
template <typename... Args>
[[noreturn]] void FailFit(uint32_t tag, const wchar_t* format, const Args&... args) {
  wchar_t reason[kMessageCapacity];
  FormatBuffer(reason, kMessageCapacity, format, args...);
  std::wstring name = OverrideName(tag);
  wchar_t message[kMessageCapacity];
  FormatBuffer(message, kMessageCapacity, L"Value for %s does not fit: %s", name.c_str(),
               static_cast<const wchar_t*>(reason));
  throw RawLayerException(message);
}

bool IsBlank(wchar_t c) {
  return c == L' ' || c == L'\t';
}

wchar_t LowerAscii(wchar_t c) {
  return (c >= L'A' && c <= L'Z') ? c - L'A' + L'a' : c;
}

// Equal ignoring ASCII case and blanks.
bool SameName(const wchar_t* a, const wchar_t* b) {
  for (;;) {
    while (IsBlank(*a)) {
      ++a;
    }
    while (IsBlank(*b)) {
      ++b;
    }
    if (*a == 0 || *b == 0) {
      return *a == *b;
    }
    if (LowerAscii(*a) != LowerAscii(*b)) {
      return false;
    }
    ++a;
    ++b;
  }
}

bool ParseTagNumber(const wchar_t* text, uint32_t& tag) {
  uint32_t radix = 10;
  const wchar_t* p = text;
  if (p[0] == L'0' && (p[1] == L'x' || p[1] == L'X')) {
    radix = 16;
    p += 2;
  }
  if (*p == 0) {
    return false;
  }
  uint64_t value = 0;
  for (; *p != 0; ++p) {
    uint32_t digit;
    if (*p >= L'0' && *p <= L'9') {
      digit = static_cast<uint32_t>(*p - L'0');
    } else if (radix == 16 && *p >= L'a' && *p <= L'f') {
      digit = static_cast<uint32_t>(*p - L'a' + 10);
    } else if (radix == 16 && *p >= L'A' && *p <= L'F') {
      digit = static_cast<uint32_t>(*p - L'A' + 10);
    } else {
      return false;
    }
    value = value * radix + digit;
    if (value > 0xFFFFFFFFu) {
      return false;
    }
  }
  tag = static_cast<uint32_t>(value);
  return true;
}

std::string_view TrimBlanks(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
    text.remove_prefix(1);
  }
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
    text.remove_suffix(1);
  }
  return text;
}

// The comma-separated items of `text`, each trimmed; no items for a text of blanks only.
std::vector<std::string_view> SplitItems(std::string_view text) {
  std::vector<std::string_view> items;
  if (TrimBlanks(text).empty()) {
    return items;
  }
  for (;;) {
    size_t comma = text.find(',');
    items.push_back(TrimBlanks(text.substr(0, comma)));
    if (comma == std::string_view::npos) {
      return items;
    }
    text.remove_prefix(comma + 1);
  }
}

std::wstring Wide(std::string_view text) {
  return DecodeUtf8(text.data(), text.size());
}

// A decimal integer with an optional sign, in [low, high]; throws naming `item` otherwise.
int64_t ParseInteger(uint32_t tag, std::string_view item, int64_t low, int64_t high) {
  std::string_view digits = item;
  bool negative = false;
  if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) {
    negative = digits.front() == '-';
    digits.remove_prefix(1);
  }
  std::wstring text = Wide(item);
  if (digits.empty()) {
    FailFit(tag, L"\"%s\" is not a whole number", text.c_str());
  }
  uint64_t magnitude = 0;
  bool huge = false;
  for (char c : digits) {
    if (c < '0' || c > '9') {
      FailFit(tag, L"\"%s\" is not a whole number", text.c_str());
    }
    if (magnitude > (uint64_t{1} << 40)) {
      huge = true;  // far beyond every range; keep reading to check the digits
    } else {
      magnitude = magnitude * 10 + static_cast<uint64_t>(c - '0');
    }
  }
  const int64_t value =
      negative ? -static_cast<int64_t>(magnitude) : static_cast<int64_t>(magnitude);
  if (huge || value < low || value > high) {
    std::wstring range = std::to_wstring(low) + L".." + std::to_wstring(high);
    FailFit(tag, L"value %s out of range %s", text.c_str(), range.c_str());
  }
  return value;
}

template <typename T>
T ParseFloating(uint32_t tag, std::string_view item, const wchar_t* type_name) {
  std::string_view number = item;
  if (number.size() > 1 && number.front() == '+' && number[1] != '-') {
    number.remove_prefix(1);  // from_chars takes no plus sign
  }
  T value{};
  const char* end = number.data() + number.size();
  auto [ptr, error] = std::from_chars(number.data(), end, value, std::chars_format::general);
  std::wstring text = Wide(item);
  if (error == std::errc::result_out_of_range) {
    FailFit(tag, L"value %s out of range for %s", text.c_str(), type_name);
  }
  if (error != std::errc() || ptr != end || number.empty()) {
    FailFit(tag, L"\"%s\" is not a number", text.c_str());
  }
  return value;
}

}  // namespace

bool ParseOverrideName(const wchar_t* name, uint32_t& tag) {
  for (const PropertyName& row : PropertyNames) {
    if (SameName(name, row.name)) {
      tag = row.id;
      return true;
    }
  }
  return ParseTagNumber(name, tag);
}

std::wstring OverrideName(uint32_t tag) {
  for (const PropertyName& row : PropertyNames) {
    if (row.id == tag) {
      return row.name;
    }
  }
  const wchar_t* tiff_name = TIFFTagName(tag);
  if (std::wcscmp(tiff_name, L"???") != 0) {
    return tiff_name;
  }
  wchar_t number[32];
  FormatBuffer(number, 32, L"tag 0x%x", tag);
  return number;
}

OverrideTarget FindOverrideTarget(const MarkerList& markers, uint32_t tag) {
  for (uint32_t i = 0; i < markers.count; ++i) {
    const auto* app1 = dynamic_cast<const APP1Marker*>(markers.items[i]);
    if (app1 == nullptr || app1->directory == nullptr) {
      continue;
    }
    if (const TIFFEntry* entry = app1->directory->Find(tag)) {
      return {entry, app1->directory->byte_order};
    }
  }
  return {};
}

std::unique_ptr<Property> MakeOverride(uint32_t tag, uint32_t type, uint32_t count,
                                       uint8_t byte_order, const std::wstring& value) {
  const uint32_t size = PropertyTypeSize(type);  // refuses SBYTE, SSHORT and invalid codes
  const uint64_t total = uint64_t{size} * count;
  if (total > 0xFFFFFFFEu) {
    FailFit(tag, L"the entry is too large");
  }
  const std::string bytes = EncodeUtf8(value.c_str());
  auto property = std::make_unique<Property>(tag, type, count, static_cast<uint32_t>(total));
  uint8_t* out = property->data;  // zero-filled

  if (type == 2 || type == 7) {
    // ASCII keeps one byte for its terminating zero.
    const uint64_t room = type == 2 ? (count == 0 ? 0 : count - 1) : count;
    if (bytes.size() > room) {
      FailFit(tag, type == 2 ? L"at most %u characters" : L"at most %u bytes",
              static_cast<uint32_t>(room));
    }
    if (!bytes.empty()) {
      std::memcpy(out, bytes.data(), bytes.size());
    }
    if (type == 2 && count == 0) {
      FailFit(tag, L"at most 0 characters");
    }
    return property;
  }

  const std::vector<std::string_view> items = SplitItems(bytes);
  if (items.size() != count) {
    FailFit(tag, count == 1 ? L"expects %u value" : L"expects %u values", count);
  }
  for (uint32_t i = 0; i < count; ++i) {
    const std::string_view item = items[i];
    uint8_t* p = out + uint64_t{i} * size;
    switch (type) {
      case 1:
        *p = static_cast<uint8_t>(ParseInteger(tag, item, 0, 0xFF));
        break;
      case 3:
        WriteOrdered16(p, static_cast<uint16_t>(ParseInteger(tag, item, 0, 0xFFFF)), byte_order);
        break;
      case 4:
        WriteOrdered32(p, static_cast<uint32_t>(ParseInteger(tag, item, 0, 0xFFFFFFFF)),
                       byte_order);
        break;
      case 9:
        WriteOrdered32(p, static_cast<uint32_t>(ParseInteger(tag, item, INT32_MIN, INT32_MAX)),
                       byte_order);
        break;
      case 5:
      case 10: {
        const size_t slash = item.find('/');
        if (slash == std::string_view::npos) {
          std::wstring text = Wide(item);
          FailFit(tag, L"\"%s\" is not a fraction n/d", text.c_str());
        }
        const int64_t low = type == 5 ? 0 : INT32_MIN;
        const int64_t high = type == 5 ? 0xFFFFFFFF : INT32_MAX;
        const int64_t numerator = ParseInteger(tag, TrimBlanks(item.substr(0, slash)), low, high);
        const int64_t denominator =
            ParseInteger(tag, TrimBlanks(item.substr(slash + 1)), low, high);
        WriteOrdered32(p, static_cast<uint32_t>(numerator), byte_order);
        WriteOrdered32(p + 4, static_cast<uint32_t>(denominator), byte_order);
        break;
      }
      case 11:
        WriteOrdered32(p, std::bit_cast<uint32_t>(ParseFloating<float>(tag, item, L"FLOAT")),
                       byte_order);
        break;
      case 12:
        WriteOrdered64(p, std::bit_cast<uint64_t>(ParseFloating<double>(tag, item, L"DOUBLE")),
                       byte_order);
        break;
      default:
        throw RawLayerException(L"Invalid property type");
    }
  }
  return property;
}

void SetOverride(PropertyList& list, std::unique_ptr<Property> property) {
  for (uint32_t i = 0; i < list.count; ++i) {
    if (list.items[i]->id == property->id) {
      delete list.items[i];
      list.items[i] = property.release();
      return;
    }
  }
  list.Reserve(list.count + 1);  // may throw; the property is still ours
  list.items[list.count++] = property.release();
}

bool ParseOverride(const wchar_t* assignment, OverrideRequest& request) {
  const wchar_t* equals = std::wcschr(assignment, L'=');
  if (equals == nullptr) {
    return false;
  }
  std::wstring name(assignment, static_cast<size_t>(equals - assignment));
  uint32_t tag = 0;
  if (!ParseOverrideName(name.c_str(), tag)) {
    return false;
  }
  request.tag = tag;
  request.value = equals + 1;
  return true;
}

std::vector<std::wstring> ApplyOverrides(const MarkerList& markers,
                                         const std::vector<OverrideRequest>& requests,
                                         PropertyList& overrides) {
  std::vector<std::wstring> warnings;
  for (const OverrideRequest& request : requests) {
    const OverrideTarget target = FindOverrideTarget(markers, request.tag);
    if (target.entry == nullptr) {
      warnings.push_back(L"No Exif entry holds " + OverrideName(request.tag) +
                         L": the override is dropped");
      continue;
    }
    // A maker note or sub-directory answers for its own tag, but its value is no plain value.
    if (dynamic_cast<const TIFFNestedDir*>(target.entry) != nullptr) {
      FailFit(request.tag, L"the entry holds a directory");
    }
    SetOverride(overrides, MakeOverride(request.tag, target.entry->type, target.entry->count,
                                        target.byte_order, request.value));
  }
  return warnings;
}

}  // namespace corvi
