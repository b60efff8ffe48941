#include "text/Output.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <algorithm>
#include <cstdio>

#include "text/Failure.h"
#include "text/Text.h"

namespace zd::host {

void PrepareStreams() {
    for (FILE* stream : {stdin, stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
    // Unbuffered, a terminal gets letter by letter. Whoever writes flushes.
    std::setvbuf(stderr, nullptr, _IOFBF, 4096);
    std::setvbuf(stdout, nullptr, _IOFBF, 65536);
    ::SetConsoleOutputCP(CP_UTF8);
}

void WriteOutput(const void* data, std::size_t size) {
    if (size != 0 && std::fwrite(data, 1, size, stdout) != size) throw CFatalFailure("cannot write to standard output");
}

void WriteLine(std::string_view line) {
    const std::string shown = Printable(line) + "\n";
    WriteOutput(shown.data(), shown.size());
    FlushOutput();
}

void FlushOutput() {
    if (std::fflush(stdout) != 0) throw CFatalFailure("cannot write to standard output");
}

void WriteError(std::string_view text) {
    std::fprintf(stderr, "zdhost: %s\n", Printable(text).c_str());
    std::fflush(stderr);
}

std::size_t TerminalWidth() {
    // _isatty alone is also true for NUL.
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (_isatty(_fileno(stderr)) == 0) return 0;
    if (::GetConsoleScreenBufferInfo(::GetStdHandle(STD_ERROR_HANDLE), &info) == FALSE) return 0;
    return static_cast<std::size_t>(std::max<int>(info.srWindow.Right - info.srWindow.Left + 1, 0));
}

}  // namespace zd::host
