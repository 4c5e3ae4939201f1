// Configuration keys of the board model: a table of named numeric settings with their
// defaults and limits, shared by the board's own keys and by every device model's keys, so
// that parsing, range checks, reporting and reset to defaults work the same way for all.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zsim {

enum class KeyResult { kOk, kUnknownKey, kBadValue };

// A whole string as an unsigned 32-bit number: decimal, or hexadecimal after 0x / 0X.
// Surrounding blanks, signs, empty text and overflow are refused.
bool ParseU32(const std::string& text, uint32_t* out);
std::string FormatDecimal(uint64_t value);
std::string FormatHex(uint32_t value);   // "0x%08X"
// A whole string as a finite real number, as strtod reads it; blanks around it are refused.
bool ParseReal(const std::string& text, double* out);
std::string FormatHz(double value);      // "%.2f": frequencies, rates and levels

class KeySet {
 public:
  // A number kept in *field, accepted when min <= value <= max and value % multiple == 0.
  // `hex` only changes how Get reports it.
  void AddNumber(const char* name, uint32_t* field, uint32_t def, uint32_t min, uint32_t max,
                 uint32_t multiple = 1, bool hex = false);
  // One of a few words, kept in *field as the word's position in `words`.
  void AddChoice(const char* name, uint32_t* field, uint32_t def, std::vector<std::string> words);
  // A signed number: decimal with an optional minus sign (no hexadecimal).
  void AddSigned(const char* name, int32_t* field, int32_t def, int32_t min, int32_t max);
  // A real number (ParseReal), reported with two decimals.
  void AddReal(const char* name, double* field, double def, double min, double max);

  KeyResult Set(const std::string& name, const std::string& value);
  bool Get(const std::string& name, std::string* value) const;
  void Names(std::vector<std::string>* out) const;
  void Reset();   // every field to its default

 private:
  struct Key {
    std::string name;
    uint32_t* field;
    uint32_t def, min, max, multiple;
    bool hex;
    std::vector<std::string> words;   // non-empty for a choice
    int32_t* signed_field = nullptr;   // set for a signed number (def, min, max as int32_t)
    double* real_field = nullptr;      // set for a real number
    double real_def = 0, real_min = 0, real_max = 0;
  };
  const Key* Find(const std::string& name) const;
  std::vector<Key> keys_;
};

}  // namespace zsim
