// The JSON writer behind --json. Texts reach it as UTF-8 already (the library's are converted
// on the way); a path or a name can still carry any bytes, so those are made valid here rather
// than producing a document a strict reader refuses.
#include "json.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "loaders.h"

namespace tvx::cli {
namespace {

// The length of the well-formed UTF-8 sequence at the start of `s`, 0 when it is not one
// (overlong forms, surrogates and code points past U+10FFFF included).
size_t Utf8Length(const unsigned char* s, size_t left) {
  const unsigned char c = s[0];
  if (c < 0x80) return 1;
  size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;   // the bounds of the second byte
  if (c >= 0xC2 && c <= 0xDF) length = 2;
  else if (c >= 0xE0 && c <= 0xEF) length = 3, low = c == 0xE0 ? 0xA0 : 0x80, high = c == 0xED ? 0x9F : 0xBF;
  else if (c >= 0xF0 && c <= 0xF4) length = 4, low = c == 0xF0 ? 0x90 : 0x80, high = c == 0xF4 ? 0x8F : 0xBF;
  if (length == 0 || left < length || s[1] < low || s[1] > high) return 0;
  for (size_t i = 2; i < length; ++i)
    if (s[i] < 0x80 || s[i] > 0xBF) return 0;
  return length;
}

void Indent(std::string& out, int depth) { out.append(size_t(depth) * 2, ' '); }

}  // namespace

std::string JsonString(const std::string& text) {
  std::string out = "\"";
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = bytes[i];
    const size_t length = Utf8Length(bytes + i, text.size() - i);
    if (length == 0) {
      out += "\xEF\xBF\xBD";   // U+FFFD
      ++i;
      continue;
    }
    if (c == '"' || c == '\\') {
      out += '\\';
      out += char(c);
    } else if (c < 0x20) {
      switch (c) {
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default: {
          char escape[8];
          std::snprintf(escape, sizeof escape, "\\u%04X", unsigned(c));
          out += escape;
        }
      }
    } else {
      out.append(text, i, length);
    }
    i += length;
  }
  return out + "\"";
}

void AddNulls(Json& object, std::initializer_list<const char*> keys) {
  for (const char* key : keys) object[key] = nullptr;
}

Json NumberOrNull(const std::string& text) {
  double value = 0;
  return ParseNumber(text, &value) ? Json(value) : Json();
}

Json::Json(float value) : kind_(Kind::kDouble), double_(value) {
  char text[32];
  const auto end = std::to_chars(text, text + sizeof text - 1, value).ptr;
  *end = '\0';
  if (std::isfinite(value)) double_ = std::strtod(text, nullptr);
}

Json Json::Object() {
  Json json;
  json.kind_ = Kind::kObject;
  return json;
}

Json Json::Array() {
  Json json;
  json.kind_ = Kind::kArray;
  return json;
}

Json& Json::operator[](const std::string& key) {
  if (kind_ == Kind::kNull) kind_ = Kind::kObject;
  auto item = items_.begin();
  for (size_t i = 0; i < keys_.size(); ++i, ++item)
    if (keys_[i] == key) return *item;
  keys_.push_back(key);
  items_.emplace_back();
  return items_.back();
}

Json& Json::Push(Json value) {
  if (kind_ == Kind::kNull) kind_ = Kind::kArray;
  items_.push_back(std::move(value));
  return items_.back();
}

std::string Json::Dump() const {
  std::string out;
  Write(out, 0);
  return out + "\n";
}

void Json::Write(std::string& out, int depth) const {
  char number[32];
  switch (kind_) {
    case Kind::kNull: out += "null"; return;
    case Kind::kBool: out += bool_ ? "true" : "false"; return;
    case Kind::kInt: out += std::to_string(int_); return;
    case Kind::kUint: out += std::to_string(uint_); return;
    case Kind::kDouble: {
      if (!std::isfinite(double_)) {
        out += "null";
        return;
      }
      // The shortest text that reads back as the same double; plain digits where they stay
      // short (10000000 rather than 1e+07).
      const double size = std::fabs(double_);
      const bool plain = size == 0 || (size >= 1e-5 && size < 1e16);
      const auto end = plain ? std::to_chars(number, number + sizeof number, double_,
                                             std::chars_format::fixed).ptr
                             : std::to_chars(number, number + sizeof number, double_).ptr;
      out.append(number, end);
      return;
    }
    case Kind::kString: out += JsonString(text_); return;
    case Kind::kArray:
    case Kind::kObject: break;
  }
  const bool object = kind_ == Kind::kObject;
  if (items_.empty()) {
    out += object ? "{}" : "[]";
    return;
  }
  out += object ? "{\n" : "[\n";
  size_t i = 0;
  for (const Json& item : items_) {
    Indent(out, depth + 1);
    if (object) out += JsonString(keys_[i]) + ": ";
    item.Write(out, depth + 1);
    out += ++i < items_.size() ? ",\n" : "\n";
  }
  Indent(out, depth);
  out += object ? '}' : ']';
}

}  // namespace tvx::cli
