// The --json documents: a small value tree that commands fill as they go, written out once at
// the end as RFC 8259 JSON. Members keep the order they were added in, so a document reads in
// the order the text output does; a reference to a member stays good while others are added.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <list>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace tvx::cli {

class Json {
 public:
  Json() = default;   // null
  Json(std::nullptr_t) {}
  Json(bool value) : kind_(Kind::kBool), bool_(value) {}
  Json(double value) : kind_(Kind::kDouble), double_(value) {}
  // As its shortest decimal: 37.33204f is written 37.33204, not the double next to it.
  Json(float value);
  template <typename T, typename = std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool>>>
  Json(T value) {
    if constexpr (std::is_signed_v<T>) kind_ = Kind::kInt, int_ = value;
    else kind_ = Kind::kUint, uint_ = value;
  }
  Json(std::string text) : kind_(Kind::kString), text_(std::move(text)) {}
  Json(const char* text) : Json(std::string(text)) {}
  template <typename T>
  Json(const std::optional<T>& value) : Json(value ? Json(*value) : Json()) {}

  static Json Object();
  static Json Array();

  // The member `key` of an object, added (null) when missing; a null value becomes an object.
  Json& operator[](const std::string& key);
  // Appends to an array; a null value becomes an array.
  Json& Push(Json value);

  // The document, indented two spaces a level, ending with a line end. Strings are escaped and
  // any byte that is not UTF-8 becomes U+FFFD; a number that is not finite is written null.
  std::string Dump() const;

 private:
  enum class Kind { kNull, kBool, kInt, kUint, kDouble, kString, kArray, kObject };
  void Write(std::string& out, int depth) const;

  Kind kind_ = Kind::kNull;
  bool bool_ = false;
  int64_t int_ = 0;
  uint64_t uint_ = 0;
  double double_ = 0;
  std::string text_;
  std::vector<std::string> keys_;   // an object's, beside its values in items_
  std::list<Json> items_;
};

// Adds `keys` to an object as null members, in this order: a document keeps its shape whatever
// a command gets as far as filling.
void AddNulls(Json& object, std::initializer_list<const char*> keys);

// A string as a JSON string literal, quotes included.
std::string JsonString(const std::string& text);

// A number the virtual board or the library gave as text ("46691666.67"), or null for anything
// else ("none", "?").
Json NumberOrNull(const std::string& text);

}  // namespace tvx::cli
