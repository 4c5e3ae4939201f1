// What the C runtime's buffered streams do differently on the two systems: file positions
// beyond 2 GiB (the plain fseek/ftell take a `long`, which is 32 bits on Windows) and whether a
// stream is an interactive terminal.
#pragma once

#include <cstdint>
#include <cstdio>

namespace tvx::os {

// fseek with a 64-bit offset; `origin` is SEEK_SET, SEEK_CUR or SEEK_END. True on success.
bool SeekFile(std::FILE* file, int64_t offset, int origin);
// The stream's position in bytes, or -1 when it has none (a pipe, a failed stream).
int64_t TellFile(std::FILE* file);
// True when the stream is connected to a terminal (a console on Windows).
bool IsTerminal(std::FILE* file);

}  // namespace tvx::os
