// Board configuration from an INI file: the same keys as zsim_set.
//
//   # comment            ; comment     (whole lines, or after a blank inside a line)
//   boards = 2           keys before any section, or in [sim], are global; a board key
//   mmio = passive       there applies to every board configured at that point
//   [board.1]
//   slot = 9             keys of board 1
//
// Lines apply in order; the first refused line stops the load and its number is returned.
#include <cstdio>
#include <sstream>
#include <string>

#include "board.h"
#include "keys.h"
#include "platform/stdio_ext.h"

namespace zsim {

namespace {

std::string Trim(const std::string& text) {
  const char* blanks = " \t\r\n";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Drops a comment: a line starting with '#' or ';', or the rest of a line from a '#' or ';'
// that follows a blank.
std::string StripComment(const std::string& line) {
  for (size_t i = 0; i < line.size(); ++i) {
    if ((line[i] == '#' || line[i] == ';') && (i == 0 || line[i - 1] == ' ' || line[i - 1] == '\t'))
      return line.substr(0, i);
  }
  return line;
}

constexpr int kGlobalSection = -1;

// The section a header names: kGlobalSection for [sim], the board index for [board.N].
bool ParseSection(const std::string& header, int* section) {
  const std::string name = Trim(header.substr(1, header.size() - 2));
  if (name == "sim") {
    *section = kGlobalSection;
    return true;
  }
  uint32_t index;
  if (name.compare(0, 6, "board.") != 0 || !ParseU32(name.substr(6), &index) ||
      index >= kMaxBoards)
    return false;
  *section = int(index);
  return true;
}

bool Apply(int section, const std::string& key, const std::string& value) {
  if (section != kGlobalSection || key == "boards") return SetKey(unsigned(section < 0 ? 0 : section), key, value) == 0;
  const unsigned count = BoardCount();
  for (unsigned board = 0; board < count; ++board)
    if (SetKey(board, key, value) != 0) return false;
  return true;
}

}  // namespace

// Only a regular file: a FIFO or a device named here must not hold up the board.
bool ReadRegularFile(const char* path, std::string* text) {
  std::FILE* file = tvx::os::OpenRegularFile(path, false);
  if (file == nullptr) return false;
  text->clear();
  char chunk[65536];
  for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, file)) > 0;) text->append(chunk, n);
  const bool failed = std::ferror(file) != 0;
  std::fclose(file);
  return !failed;
}

int LoadConfigFile(const char* path) {
  std::string text;
  if (!ReadRegularFile(path, &text)) return -1;
  std::istringstream lines(text);
  int section = kGlobalSection;
  std::string raw;
  for (int number = 1; std::getline(lines, raw); ++number) {
    const std::string line = Trim(StripComment(raw));
    if (line.empty()) continue;
    if (line.front() == '[') {
      if (line.back() != ']' || !ParseSection(line, &section)) return number;
      continue;
    }
    const size_t equals = line.find('=');
    if (equals == std::string::npos) return number;
    const std::string key = Trim(line.substr(0, equals));
    if (key.empty() || !Apply(section, key, Trim(line.substr(equals + 1)))) return number;
  }
  return 0;
}

}  // namespace zsim
