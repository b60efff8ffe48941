// The frame around every operation: entry line, body, handlers, exit line, result.
//
// A body fails by throwing a Win32 code as a DWORD, which becomes the result without a line of its own. No exception
// leaves the frame but the one that ZdConnect passes on.
#pragma once

#include <windows.h>

#include <new>
#include <utility>

#include "base/Errors.h"
#include "log/Log.h"
#include "protocol/OperationTexts.h"

namespace zd {

// What an operation does with an exception that is neither a code nor exhausted memory.
enum class EUnexpected {
    Report,      // logs it; the result is the thread's last error, 1117 where that is 0
    EndProcess,  // logs it, drains the log and ends the process with exit code 1
    PassOn       // logs it with the result as it stands and throws 1117 on, without an exit line
};

// Which code the out-of-memory line shows.
enum class EMemoryLine {
    NewResult,  // 8
    OldResult   // the result as it stood before
};

// The handlers' work, outside of the template. The first two answer the operation's new result.
DWORD ReportOutOfMemory(const COperationText& text, DWORD shown) noexcept;
DWORD ReportUnexpected(const COperationText& text, EUnexpected unexpected, DWORD lastError) noexcept;
[[noreturn]] void PassUnexpectedOn(const COperationText& text, DWORD result);

// Runs `body`. `enter()` and `exit(result)` write the operation's own lines.
template <EUnexpected kUnexpected = EUnexpected::Report, EMemoryLine kMemoryLine = EMemoryLine::NewResult, class Enter,
          class Body, class Exit>
DWORD RunOperation(const COperationText& text, Enter&& enter, Body&& body, Exit&& exit) {
    DWORD result = ERROR_SUCCESS;
    enter();
    try {
        body();
    } catch (DWORD code) {
        result = code;
    } catch (const std::bad_alloc&) {
        result = ReportOutOfMemory(text, kMemoryLine == EMemoryLine::OldResult ? result : ERROR_NOT_ENOUGH_MEMORY);
    } catch (...) {
        // The last error first: the next call could change it.
        const DWORD lastError = ::GetLastError();
        if constexpr (kUnexpected == EUnexpected::PassOn) PassUnexpectedOn(text, result);
        result = ReportUnexpected(text, kUnexpected, lastError);
    }
    exit(result);
    return result;
}

// The same with the lines of the table.
template <EUnexpected kUnexpected = EUnexpected::Report, EMemoryLine kMemoryLine = EMemoryLine::NewResult, class Enter,
          class Body>
DWORD RunOperation(const COperationText& text, Enter&& enter, Body&& body) {
    return RunOperation<kUnexpected, kMemoryLine>(text, std::forward<Enter>(enter), std::forward<Body>(body),
                                                  [&text](DWORD) { LogText(kLogTrace, text.exit); });
}

template <EUnexpected kUnexpected = EUnexpected::Report, class Body>
DWORD RunOperation(const COperationText& text, Body&& body) {
    return RunOperation<kUnexpected>(
        text, [&text] { LogText(kLogTrace, text.enter); }, std::forward<Body>(body));
}

}  // namespace zd
