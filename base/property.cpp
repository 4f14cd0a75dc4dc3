// Metadata values typed with TIFF type codes, and the owning list that replaces them by id.
#include "base/property.h"

#include <bit>
#include <cstring>
#include <utility>

#include "base/raw_layer_exception.h"
#include "platform/format.h"

namespace corvi {

const int32_t kPropertyTypeSizes[13] = {-1, 1, 1, 2, 4, 8, -1, 1, -1, 4, 8, 4, 8};

const PropertyName PropertyNames[16] = {
    {0x132, L"Date Time"},
    {0x9004, L"Date Time Digitized"},
    {0x9003, L"Date Time Original"},
    {0x10D, L"Document Name"},
    {0x10E, L"Image Description"},
    {0x10F, L"Make"},
    {0x110, L"Model"},
    {0x112, L"Orientation"},
    {0x131, L"Software"},
    {0x13B, L"Artist"},
    {0x8298, L"Copyright"},
    {0x11A, L"X Resolution"},
    {0x11B, L"Y Resolution"},
    {0x128, L"Resolution Unit"},
    {0xC000, L"Pixel Format"},
    {0xC001, L"Compression Mode"},
};

uint32_t PropertyTypeSize(uint32_t type) {
  if (type >= 13 || kPropertyTypeSizes[type] < 0) {
    throw RawLayerException(L"Invalid property type");
  }
  return static_cast<uint32_t>(kPropertyTypeSizes[type]);
}

void PrintTypedValues(OutStream& stream, uint32_t type, uint32_t count, const uint8_t* value,
                      uint8_t byte_order) {
  if (type == 2) {
    stream.PutAscii(" \"", 2);
    for (uint32_t i = 0; i < count && value[i] != 0; ++i) {
      Print(stream, L"%c", static_cast<wchar_t>(value[i]));
    }
    stream.PutAscii("\"", 1);
    return;
  }
  uint32_t size = (type < 13 && kPropertyTypeSizes[type] > 0 && type != 1 && type != 7)
                      ? static_cast<uint32_t>(kPropertyTypeSizes[type])
                      : 1;
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* p = value + static_cast<uint64_t>(i) * size;
    switch (type) {
      case 3:
        Print(stream, L" %hu", ReadOrdered16(p, byte_order));
        break;
      case 4:
        Print(stream, L" %u", ReadOrdered32(p, byte_order));
        break;
      case 5:
        Print(stream, L" %u/%u", ReadOrdered32(p, byte_order), ReadOrdered32(p + 4, byte_order));
        break;
      case 9:
        Print(stream, L" %d", static_cast<int32_t>(ReadOrdered32(p, byte_order)));
        break;
      case 10:
        Print(stream, L" %d/%d", static_cast<int32_t>(ReadOrdered32(p, byte_order)),
              static_cast<int32_t>(ReadOrdered32(p + 4, byte_order)));
        break;
      case 11:
        Print(stream, L" %f",
              static_cast<double>(std::bit_cast<float>(ReadOrdered32(p, byte_order))));
        break;
      case 12:
        Print(stream, L" %f", std::bit_cast<double>(ReadOrdered64(p, byte_order)));
        break;
      default:
        Print(stream, L" %02x", p[0]);
        break;
    }
    if (i == 20) {
      stream.PutAscii(" [snip]", 7);
      break;
    }
  }
}

Property::Property(uint32_t property_id, uint32_t property_type, uint32_t property_count,
                   const void* bytes)
    : Property(property_id, property_type, property_count,
               PropertyTypeSize(property_type) * property_count) {
  if (length > 0) {
    std::memcpy(data, bytes, length);
  }
}

Property::Property(uint32_t property_id, uint32_t property_type, uint32_t property_count,
                   uint32_t property_length)
    : id(property_id), type(property_type), count(property_count), length(property_length) {
  if (uint64_t{length} + 1 <= sizeof inline_store) {
    data = inline_store;
  } else {
    data = new uint8_t[uint64_t{length} + 1]();
  }
  data[length] = 0;
}

Property::~Property() {
  if (data != inline_store) {
    delete[] data;
  }
}

PropertyList::PropertyList() : items(new Property*[4]()), capacity(4) {}

PropertyList::~PropertyList() {
  Clear();
  delete[] items;
}

void PropertyList::Reserve(uint32_t needed) {
  if (needed <= capacity) {
    return;
  }
  uint32_t new_capacity = needed * 2;
  auto** grown = new Property*[new_capacity]();
  for (uint32_t i = 0; i < count; ++i) {
    grown[i] = items[i];
  }
  delete[] items;
  items = grown;
  capacity = new_capacity;
}

void PropertyList::Clear() {
  while (count > 0) {
    --count;
    delete items[count];
    items[count] = nullptr;
  }
}

const Property* PropertyList::Find(uint32_t id) const {
  for (uint32_t i = 0; i < count; ++i) {
    if (items[i]->id == id) {
      return items[i];
    }
  }
  return nullptr;
}

void PropertyList::Store(Property* property) {
  for (uint32_t i = 0; i < count; ++i) {
    if (items[i]->id == property->id) {
      delete items[i];
      items[i] = property;
      return;
    }
  }
  try {
    Reserve(count + 1);
  } catch (...) {
    delete property;
    throw;
  }
  items[count++] = property;
}

void PropertyList::SetCompressionMode(const char* text) {
  auto n = static_cast<uint32_t>(std::strlen(text));
  Store(new Property(0xC001, 2, n + 1, text));
}

void PropertyList::SetString(uint32_t id, const uint8_t* bytes, uint32_t string_count) {
  Store(new Property(id, 2, string_count, bytes));
}

void PropertyList::SetShort(uint32_t id, uint16_t value) {
  auto* p = new Property(id, 3, 1, uint32_t{2});
  std::memcpy(p->data, &value, 2);
  Store(p);
}

void PropertyList::SetLong(uint32_t id, uint32_t value) {
  auto* p = new Property(id, 4, 1, uint32_t{4});
  std::memcpy(p->data, &value, 4);
  Store(p);
}

void PropertyList::SetRational(uint32_t id, uint32_t numerator, uint32_t denominator) {
  auto* p = new Property(id, 5, 1, uint32_t{8});
  std::memcpy(p->data, &numerator, 4);
  std::memcpy(p->data + 4, &denominator, 4);
  Store(p);
}

void PropertyList::SetFloat(uint32_t id, float value) {
  auto* p = new Property(id, 11, 1, uint32_t{4});
  std::memcpy(p->data, &value, 4);
  Store(p);
}

void PropertyList::PrintProperties(OutStream& stream) const {
  for (uint32_t i = 0; i < count; ++i) {
    const Property* p = items[i];
    const wchar_t* name = L"???";
    for (const PropertyName& row : PropertyNames) {
      if (row.id == p->id) {
        name = row.name;
        break;
      }
    }
    Print(stream, L"%s:", name);
    PrintTypedValues(stream, p->type, p->count, p->data, NativeByteOrder());
    stream.PutAscii("\n", 1);
  }
}

}  // namespace corvi
