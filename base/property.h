// Metadata values typed with TIFF type codes, and the owning list that replaces them by id.
#pragma once

#include <cstdint>

#include "base/byte_order.h"

namespace corvi {

class OutStream;

// Size in bytes of one value of a TIFF type code; throws "Invalid property type" for codes 0, 6,
// 8 and 13 and up.
uint32_t PropertyTypeSize(uint32_t type);

// Bytes of one value by type code, -1 for an invalid row.
extern const int32_t kPropertyTypeSizes[13];

struct PropertyName {
  uint32_t id;
  const wchar_t* name;
};
extern const PropertyName PropertyNames[16];

// One typed value. Values of up to 23 bytes live in `inline_store`; `data[length]` is always 0.
struct Property {
  uint32_t id = 0;
  uint32_t type = 0;
  uint32_t count = 0;
  uint32_t length = 0;
  uint8_t* data = nullptr;  // inline_store, or an owned block of length + 1 bytes
  uint8_t inline_store[24] = {};

  // The general construction: length = type size × count, wrapped to 32 bits.
  Property(uint32_t property_id, uint32_t property_type, uint32_t property_count,
           const void* bytes);
  // A value whose fields the caller fills: `property_length` bytes, zeroed, then the terminator.
  Property(uint32_t property_id, uint32_t property_type, uint32_t property_count,
           uint32_t property_length);
  Property(const Property&) = delete;
  Property& operator=(const Property&) = delete;
  ~Property();
};

// Owning growable array of properties, in the order in which each id was first set.
struct PropertyList {
  Property** items = nullptr;  // owned, and so is each entry
  uint32_t count = 0;
  uint32_t capacity = 0;

  PropertyList();
  PropertyList(const PropertyList&) = delete;
  PropertyList& operator=(const PropertyList&) = delete;
  ~PropertyList();  // properties from the last to the first, then the array

  void SetCompressionMode(const char* text);
  void SetString(uint32_t id, const uint8_t* bytes, uint32_t string_count);
  void SetShort(uint32_t id, uint16_t value);
  void SetLong(uint32_t id, uint32_t value);
  void SetRational(uint32_t id, uint32_t numerator, uint32_t denominator);
  void SetFloat(uint32_t id, float value);
  void Reserve(uint32_t needed);
  void Clear();
  void PrintProperties(OutStream& stream) const;

  // The property with this id, or null.
  const Property* Find(uint32_t id) const;

 private:
  void Store(Property* property);  // takes ownership
};

// Prints values of a TIFF type the way properties and TIFF entries print them: " %hu", " %u/%u"
// and so on, at most 21 values then " [snip]"; type 2 as quoted text with no limit; other types
// as " %02x" bytes. `value` holds `count` values of the type in `byte_order`.
void PrintTypedValues(OutStream& stream, uint32_t type, uint32_t count, const uint8_t* value,
                      uint8_t byte_order);

}  // namespace corvi
