// Parsing and reporting of the board model's configuration keys.
#include "keys.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace zsim {

bool ParseU32(const std::string& text, uint32_t* out) {
  size_t pos = 0;
  unsigned base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    pos = 2;
  }
  if (pos == text.size()) return false;
  uint64_t value = 0;
  for (; pos < text.size(); ++pos) {
    const char c = text[pos];
    unsigned digit;
    if (c >= '0' && c <= '9') {
      digit = unsigned(c - '0');
    } else if (base == 16 && c >= 'a' && c <= 'f') {
      digit = unsigned(c - 'a' + 10);
    } else if (base == 16 && c >= 'A' && c <= 'F') {
      digit = unsigned(c - 'A' + 10);
    } else {
      return false;
    }
    value = value * base + digit;
    if (value > 0xFFFFFFFFu) return false;
  }
  *out = uint32_t(value);
  return true;
}

std::string FormatDecimal(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "%llu", static_cast<unsigned long long>(value));
  return text;
}

std::string FormatHex(uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08X", value);
  return text;
}

bool ParseReal(const std::string& text, double* out) {
  if (text.empty() || text[0] == ' ' || text[0] == '\t' || text[0] == '\n') return false;
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || !std::isfinite(value)) return false;
  *out = value;
  return true;
}

std::string FormatHz(double value) {
  char text[48];
  std::snprintf(text, sizeof text, "%.2f", value);
  return text;
}

void KeySet::AddNumber(const char* name, uint32_t* field, uint32_t def, uint32_t min,
                       uint32_t max, uint32_t multiple, bool hex) {
  keys_.push_back(Key{name, field, def, min, max, multiple == 0 ? 1 : multiple, hex, {}});
  *field = def;
}

void KeySet::AddChoice(const char* name, uint32_t* field, uint32_t def,
                       std::vector<std::string> words) {
  const uint32_t last = uint32_t(words.size() - 1);
  keys_.push_back(Key{name, field, def, 0, last, 1, false, std::move(words)});
  *field = def;
}

void KeySet::AddSigned(const char* name, int32_t* field, int32_t def, int32_t min, int32_t max) {
  Key key{name, nullptr, uint32_t(def), uint32_t(min), uint32_t(max), 1, false, {}};
  key.signed_field = field;
  keys_.push_back(key);
  *field = def;
}

void KeySet::AddReal(const char* name, double* field, double def, double min, double max) {
  Key key{name, nullptr, 0, 0, 0, 1, false, {}};
  key.real_field = field;
  key.real_def = def, key.real_min = min, key.real_max = max;
  keys_.push_back(key);
  *field = def;
}

const KeySet::Key* KeySet::Find(const std::string& name) const {
  for (const Key& key : keys_)
    if (key.name == name) return &key;
  return nullptr;
}

KeyResult KeySet::Set(const std::string& name, const std::string& value) {
  const Key* key = Find(name);
  if (!key) return KeyResult::kUnknownKey;
  if (key->real_field) {
    double r = 0;
    if (!ParseReal(value, &r) || r < key->real_min || r > key->real_max)
      return KeyResult::kBadValue;
    *key->real_field = r;
    return KeyResult::kOk;
  }
  if (key->signed_field) {
    const bool negative = !value.empty() && value[0] == '-';
    const std::string digits = value.substr(negative ? 1 : 0);
    uint32_t magnitude = 0;
    if (digits.compare(0, 2, "0x") == 0 || digits.compare(0, 2, "0X") == 0 ||
        !ParseU32(digits, &magnitude) || magnitude > 0x80000000u)
      return KeyResult::kBadValue;
    const int64_t v = negative ? -int64_t(magnitude) : int64_t(magnitude);
    if (v < int32_t(key->min) || v > int32_t(key->max)) return KeyResult::kBadValue;
    *key->signed_field = int32_t(v);
    return KeyResult::kOk;
  }
  uint32_t v = 0;
  if (!key->words.empty()) {
    bool found = false;
    for (size_t i = 0; i < key->words.size() && !found; ++i)
      if (key->words[i] == value) {
        v = uint32_t(i);
        found = true;
      }
    if (!found) return KeyResult::kBadValue;
  } else if (!ParseU32(value, &v) || v < key->min || v > key->max || v % key->multiple != 0) {
    return KeyResult::kBadValue;
  }
  *key->field = v;
  return KeyResult::kOk;
}

bool KeySet::Get(const std::string& name, std::string* value) const {
  const Key* key = Find(name);
  if (!key) return false;
  if (key->real_field)
    *value = FormatHz(*key->real_field);
  else if (key->signed_field)
    *value = std::to_string(*key->signed_field);
  else if (!key->words.empty())
    *value = key->words[*key->field];
  else
    *value = key->hex ? FormatHex(*key->field) : FormatDecimal(*key->field);
  return true;
}

void KeySet::Names(std::vector<std::string>* out) const {
  for (const Key& key : keys_) out->push_back(key.name);
}

void KeySet::Reset() {
  for (const Key& key : keys_) {
    if (key.real_field) *key.real_field = key.real_def;
    else if (key.signed_field) *key.signed_field = int32_t(key.def);
    else *key.field = key.def;
  }
}

}  // namespace zsim
