// A strict reader of RFC 8259 JSON for the tests: whatever the CLI writes with --json must read
// here, numbers as numbers and strings unescaped. Deliberately separate from the writer it checks.
#pragma once

#include <cctype>
#include <cstdlib>
#include <string>
#include <vector>

namespace json_read {

struct Value {
  enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
  bool boolean = false;
  double number = 0;
  std::string text;
  std::vector<std::string> keys;   // an object's, beside its values in items
  std::vector<Value> items;

  // An object's member; a null value when there is none.
  const Value& operator[](const std::string& key) const {
    static const Value none;
    for (size_t i = 0; i < keys.size(); ++i)
      if (keys[i] == key) return items[i];
    return none;
  }
};

class Reader {
 public:
  explicit Reader(const std::string& text) : s_(text) {}

  // The one document the text holds, white space around it allowed. False for anything else.
  bool Document(Value* out) { return Read(out, 0) && (Space(), at_ == s_.size()); }

 private:
  void Space() {
    while (at_ < s_.size() && (s_[at_] == ' ' || s_[at_] == '\t' || s_[at_] == '\n' || s_[at_] == '\r')) ++at_;
  }
  bool Take(char c) {
    Space();
    if (at_ >= s_.size() || s_[at_] != c) return false;
    ++at_;
    return true;
  }
  bool Word(const char* word) {
    const std::string w(word);
    if (s_.compare(at_, w.size(), w) != 0) return false;
    at_ += w.size();
    return true;
  }
  bool Digits() {
    const size_t start = at_;
    while (at_ < s_.size() && std::isdigit(static_cast<unsigned char>(s_[at_]))) ++at_;
    return at_ > start;
  }
  bool Number(Value* v) {
    const size_t start = at_;
    if (s_[at_] == '-') ++at_;
    if (at_ < s_.size() && s_[at_] == '0') ++at_;
    else if (!Digits()) return false;
    if (at_ < s_.size() && s_[at_] == '.' && (++at_, !Digits())) return false;
    if (at_ < s_.size() && (s_[at_] == 'e' || s_[at_] == 'E')) {
      ++at_;
      if (at_ < s_.size() && (s_[at_] == '+' || s_[at_] == '-')) ++at_;
      if (!Digits()) return false;
    }
    v->kind = Value::kNumber;
    v->number = std::strtod(s_.substr(start, at_ - start).c_str(), nullptr);
    return true;
  }
  bool String(std::string* out) {
    if (!Take('"')) return false;
    for (; at_ < s_.size(); ++at_) {
      const unsigned char c = static_cast<unsigned char>(s_[at_]);
      if (c == '"') return ++at_, true;
      if (c < 0x20) return false;
      if (c != '\\') {
        *out += char(c);
        continue;
      }
      if (++at_ >= s_.size()) return false;
      const char e = s_[at_];
      const std::string simple = "\"\\/bfnrt", meant = "\"\\/\b\f\n\r\t";
      if (simple.find(e) != std::string::npos) {
        *out += meant[simple.find(e)];
      } else if (e == 'u' && at_ + 4 < s_.size()) {
        const unsigned cp = unsigned(std::strtoul(s_.substr(at_ + 1, 4).c_str(), nullptr, 16));
        if (cp >= 0x80) return false;   // the writer escapes only control characters
        *out += char(cp);
        at_ += 4;
      } else {
        return false;
      }
    }
    return false;
  }
  bool Read(Value* v, int depth) {
    Space();
    if (at_ >= s_.size() || depth > 64) return false;
    const char c = s_[at_];
    if (c == '{' || c == '[') {
      const bool object = c == '{';
      v->kind = object ? Value::kObject : Value::kArray;
      ++at_;
      if (Take(object ? '}' : ']')) return true;
      do {
        std::string key;
        if (object && !(String(&key) && Take(':'))) return false;
        if (object) v->keys.push_back(key);
        v->items.emplace_back();
        if (!Read(&v->items.back(), depth + 1)) return false;
      } while (Take(','));
      return Take(object ? '}' : ']');
    }
    if (c == '"') return v->kind = Value::kString, String(&v->text);
    if (Word("true")) return v->kind = Value::kBool, v->boolean = true;
    if (Word("false")) return v->kind = Value::kBool, true;
    if (Word("null")) return true;
    return Number(v);
  }

  const std::string& s_;
  size_t at_ = 0;
};

inline bool Parse(const std::string& text, Value* out) { return Reader(text).Document(out); }

}  // namespace json_read
