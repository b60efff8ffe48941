// What zdhost writes: data and reports on standard output, the progress line and failures on standard error.
#pragma once

#include <cstddef>
#include <string_view>

namespace zd::host {

// Puts the standard streams into binary mode and the console, where there is one, to UTF-8.
void PrepareStreams();

// Writes bytes to standard output; throws CFailure where not all could be written.
void WriteOutput(const void* data, std::size_t size);

// Writes a line to standard output, made Printable; throws like WriteOutput.
void WriteLine(std::string_view line);

// Pushes what was written through to the system; throws CFailure where that fails.
void FlushOutput();

// Writes "zdhost: <text>" to standard error, made Printable.
void WriteError(std::string_view text);

// The columns of the terminal that standard error is; 0 where it is none, and no progress line can be drawn.
std::size_t TerminalWidth();

}  // namespace zd::host
