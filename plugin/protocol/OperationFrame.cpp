#include "protocol/OperationFrame.h"

#include "protocol/MountBlock.h"

namespace zd {
namespace {

constexpr DWORD kDrainMilliseconds = 2000;
constexpr UINT kExitCode = 1;

#if defined(__GNUC__)
// The formats come from the table of the texts, never from outside.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#endif
void LogCode(const char* format, DWORD code) noexcept {
    LogLine(kLogError, format, static_cast<long>(code));
}

void ForwardCode(const char* format, DWORD code) {
    char line[256];
    FormatBuffer(line, sizeof line, format, static_cast<long>(code));
    ForwardToLog(static_cast<std::uint32_t>(kLogError), line);
}
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

}  // namespace

DWORD ReportOutOfMemory(const COperationText& text, DWORD shown) noexcept {
    LogCode(text.outOfMemory, shown);
    return ERROR_NOT_ENOUGH_MEMORY;
}

DWORD ReportUnexpected(const COperationText& text, EUnexpected unexpected, DWORD lastError) noexcept {
    const DWORD code = lastError != 0 ? lastError : ERROR_IO_DEVICE;
    if (text.unhandled != nullptr) LogCode(text.unhandled, code);
    if (unexpected == EUnexpected::EndProcess) {
        DrainLog(kDrainMilliseconds);
        ::ExitProcess(kExitCode);
    }
    return code;
}

void PassUnexpectedOn(const COperationText& text, DWORD result) {
    ForwardCode(text.unhandled, result);
    ThrowWin32(ERROR_IO_DEVICE);
}

}  // namespace zd
