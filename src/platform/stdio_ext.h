// What the C runtime's buffered streams do differently on the two systems: opening a file that
// a caller names without ever blocking, file positions beyond 2 GiB (the plain fseek/ftell take
// a `long`, which is 32 bits on Windows) and whether a stream is an interactive terminal.
#pragma once

#include <cstdint>
#include <cstdio>

namespace tvx::os {

// Opens an existing regular disk file for reading as a buffered stream (text mode where the
// runtime has one, else binary). Anything else a name can reach is refused without waiting for
// it: a FIFO or named pipe (whose open would wait for a writer), a device, a console, a
// directory. Null when refused or when the open fails; other readers and writers are not
// excluded.
std::FILE* OpenRegularFile(const char* name, bool text);
// fseek with a 64-bit offset; `origin` is SEEK_SET, SEEK_CUR or SEEK_END. True on success.
bool SeekFile(std::FILE* file, int64_t offset, int origin);
// The stream's position in bytes, or -1 when it has none (a pipe, a failed stream).
int64_t TellFile(std::FILE* file);
// True when the stream is connected to a terminal (a console on Windows).
bool IsTerminal(std::FILE* file);
// What joins a directory and a file name into a path: a backslash on Windows, '/' elsewhere.
extern const char kPathSeparator;

}  // namespace tvx::os
