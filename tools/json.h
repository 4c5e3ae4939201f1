// The --json documents: nlohmann's ordered JSON, so that members keep the order they were added
// in and a document reads in the order the text output does. Members and elements live in
// vectors: a reference to a member is good until its object gets another member (references
// into the member's own members stay good), which is how the commands fill their documents.
#pragma once

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tvx::cli {

using Json = nlohmann::ordered_json;

// Adds `keys` to an object as null members, in this order: a document keeps its shape whatever
// a command gets as far as filling.
void AddNulls(Json& object, std::initializer_list<const char*> keys);

// A number the virtual board or the library gave as text ("46691666.67"), or null for anything
// else ("none", "?").
Json NumberOrNull(const std::string& text);

// The document, indented two spaces a level, ending with a line end. Any byte of a string that
// is not UTF-8 (a path or a name can carry anything) becomes U+FFFD instead of failing the
// document; a number that is not finite is null; a whole double is written as an integer
// (10000000, not 10000000.0).
std::string Dump(const Json& document);

}  // namespace tvx::cli

namespace nlohmann {

// A float as its shortest decimal: 37.33204f is written 37.33204, not the double next to it.
template <>
struct adl_serializer<float> {
  template <typename BasicJson>
  static void to_json(BasicJson& json, float value) {
    char text[32];
    *std::to_chars(text, text + sizeof text - 1, value).ptr = '\0';
    json = std::isfinite(value) ? std::strtod(text, nullptr) : double(value);
  }
};

// An absent value is null.
template <typename T>
struct adl_serializer<std::optional<T>> {
  template <typename BasicJson>
  static void to_json(BasicJson& json, const std::optional<T>& value) {
    if (value) json = *value;
    else json = nullptr;
  }
};

}  // namespace nlohmann
