// A JSON writer for the report: commas and nesting kept by the writer, bytes of a name that are
// not UTF-8 as \udcXX escapes, text of a value one character a byte, numbers in the shortest
// form that reads back exactly.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvi {

class JsonWriter {
 public:
  // Nesting is bounded: the report never goes deeper, and a writer asked to is wrong.
  static constexpr int kMaxDepth = 32;

  explicit JsonWriter(std::string& text) : out(text) {}

  void BeginObject() { Open('{'); }
  void EndObject() { Close('}'); }
  void BeginArray() { Open('['); }
  void EndArray() { Close(']'); }
  // A member's name; the value follows.
  void Key(std::string_view name);

  // UTF-8 text; each byte of an invalid sequence as \udcXX (how Python reads such names).
  void Utf8(std::string_view text);
  // Bytes as characters U+0000 to U+00FF, one a byte.
  void Latin1(std::string_view bytes);
  // Bytes as lower-case hex digits.
  void Hex(std::string_view bytes);
  void Int(int64_t value);
  void UInt(uint64_t value);
  // The shortest text that reads back as the same value; "NaN", "Infinity", "-Infinity" as
  // strings.
  void Double(double value);
  void Float(float value);
  void Bool(bool value);
  void Null();

  // A member and its value in one call; an optional one is null below 0.
  void UIntMember(std::string_view key, uint64_t value) {
    Key(key);
    UInt(value);
  }
  void IntMember(std::string_view key, int64_t value) {
    Key(key);
    Int(value);
  }
  void OptionalMember(std::string_view key, int64_t value) {
    Key(key);
    value >= 0 ? Int(value) : Null();
  }
  void TextMember(std::string_view key, std::string_view utf8) {
    Key(key);
    Utf8(utf8);
  }

  int depth() const { return level; }

 private:
  void Open(char bracket);
  void Close(char bracket);
  void Separate();
  void Escaped(uint32_t code_point);
  void WriteUtf8(std::string_view text);
  template <typename T>
  void Number(T value);

  std::string& out;
  int level = 0;
  bool first[kMaxDepth + 1] = {true};
  bool after_key = false;
};

}  // namespace corvi
