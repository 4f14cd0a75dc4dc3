// Exif overrides for the rewriter: from "NAME=VALUE" text to properties typed like the entries
// they replace.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace corvi {

class TIFFEntry;
struct MarkerList;
struct Property;
struct PropertyList;

// Reads NAME: a property name of PropertyNames ("Date Time", "Make", ...) compared ignoring case
// and blanks, or a 32-bit tag number with its tag space (decimal, or hex after "0x"). False when
// it is neither.
bool ParseOverrideName(const wchar_t* name, uint32_t& tag);

// The name messages use for a tag: its property name, else its TIFF tag name, else its number.
std::wstring OverrideName(uint32_t tag);

// Where an override of a tag lands: the entry and the byte order of its directory.
struct OverrideTarget {
  const TIFFEntry* entry = nullptr;  // null when no Exif directory holds the tag
  uint8_t byte_order = 0;            // 0 Intel, 1 Motorola
};

// Searches the directories of the Exif APP1 segments of `markers` in list order with Find; the
// first one that answers gives the target.
OverrideTarget FindOverrideTarget(const MarkerList& markers, uint32_t tag);

// Converts `value` to `count` values of TIFF `type` in `byte_order`, as a property with id `tag`:
//   ASCII: the UTF-8 bytes, zero-filled to `count`, with room for one terminating zero;
//   UNDEFINED: the bytes, zero-filled to `count`;
//   BYTE, SHORT, LONG, SLONG: comma-separated decimal integers, each in the type's range;
//   RATIONAL, SRATIONAL: comma-separated "n/d";
//   FLOAT, DOUBLE: comma-separated decimals with an optional exponent.
// The numeric types take exactly `count` values; blanks around items are allowed. Throws
// "Invalid property type" for a type a property cannot hold, and "Value for NAME does not fit:
// ..." saying what would fit.
std::unique_ptr<Property> MakeOverride(uint32_t tag, uint32_t type, uint32_t count,
                                       uint8_t byte_order, const std::wstring& value);

// Stores `property` in `list`, replacing a property of the same id in its place.
void SetOverride(PropertyList& list, std::unique_ptr<Property> property);

// One "-s NAME=VALUE" as given.
struct OverrideRequest {
  uint32_t tag = 0;
  std::wstring value;
};

// Splits "NAME=VALUE" at the first "=" and reads NAME; false when there is no "=" or NAME is no
// property name or tag number.
bool ParseOverride(const wchar_t* assignment, OverrideRequest& request);

// Converts each request against the Exif entries of `markers` and stores it in `overrides`; a
// later request for a tag replaces an earlier one. A request whose tag no directory holds is
// dropped, with a warning in the returned list. Throws as MakeOverride does.
std::vector<std::wstring> ApplyOverrides(const MarkerList& markers,
                                         const std::vector<OverrideRequest>& requests,
                                         PropertyList& overrides);

}  // namespace corvi
