// Runs the built CLI through the shell exactly as a user runs it, from the test's directory
// where the CLI, the library and zarimio all sit.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

namespace cli_e2e {

struct CliResult {
  int status;
  std::string out, err;
};

// A captured stream with Windows line ends (CR LF) made plain.
inline std::string Slurp(const char* path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  std::string lf = text.str();
  lf.erase(std::remove(lf.begin(), lf.end(), '\r'), lf.end());
  return lf;
}

// `dir`: the CLI of that subdirectory, beside its own copy of the library.
inline CliResult RunCli(const std::string& args, const std::string& dir = "") {
  const std::string file = TVX_CLI_FILE;
  // cmd.exe finds a program in the current directory and reads '/' as a switch; POSIX shells
  // need the "./".
  const bool windows = file.size() > 4 && file.compare(file.size() - 4, 4, ".exe") == 0;
  const std::string program = dir.empty() ? file : dir + (windows ? "\\" : "/") + file;
  // A CLI of its own directory takes its own library there, whatever LD_LIBRARY_PATH says.
  const std::string prefix = windows ? "" : (dir.empty() ? "./" : "LD_LIBRARY_PATH=" + dir + " ./");
  int status = std::system((prefix + program + " " + args +
                            " >cli_e2e_out.txt 2>cli_e2e_err.txt").c_str());
  // POSIX returns a wait status (exit code in the second byte); Windows the exit code itself.
  if (status > 255 && (status & 0xFF) == 0) status >>= 8;
  return {status, Slurp("cli_e2e_out.txt"), Slurp("cli_e2e_err.txt")};
}

inline bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// How often `part` occurs in `text`.
inline size_t Count(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

// The line of `text` that starts with `prefix`, or "".
inline std::string LineStarting(const std::string& text, const std::string& prefix) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    if (line.compare(0, prefix.size(), prefix) == 0) return line;
  return "";
}

}  // namespace cli_e2e
