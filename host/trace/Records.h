// What a trace is made of: operations, and under each the storage calls and log lines that belong to it.
#pragma once

#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "trace/Fields.h"

namespace zd::host {

struct TracedCall {
    const char* function = "";
    TraceFields arguments;
    std::optional<TraceField> result;  // nothing for a void function, and where an exception left it
    TraceFields out;                   // what the call filled
    bool failed = false;
    bool threw = false;
    int error = 0;               // errno, of a failed call
    DWORD lastError = 0;         // the thread's last Windows error, of a failed call
    std::optional<DWORD> win32;  // the operation's result, where this failure became it
    std::int64_t microseconds = 0;
};

struct TracedLine {
    std::uint32_t level = 0;
    std::string text;  // without its end
};

struct TracedOperation {
    std::string name;  // empty: calls and lines outside of any operation
    TraceFields arguments;
    std::optional<TraceField> result;
    TraceFields out;
    DWORD code = 0;  // the Win32 code that it failed with
    bool threw = false;
    std::int64_t microseconds = 0;
    DWORD threadId = 0;
    std::vector<std::variant<TracedCall, TracedLine>> events;  // in their order
};

// Gives the operation's code to the call whose failure became it: the last failed one that translates to this code.
// A failure that the plug-in passes over stays without a code.
void AttributeCode(TracedOperation& operation);

// Gives the thread's two errors back as they were.
class CKeptErrors {
public:
    CKeptErrors() noexcept : m_lastError(::GetLastError()), m_errno(errno) {}
    ~CKeptErrors() {
        errno = m_errno;
        ::SetLastError(m_lastError);
    }
    CKeptErrors(const CKeptErrors&) = delete;
    CKeptErrors& operator=(const CKeptErrors&) = delete;

    DWORD LastError() const { return m_lastError; }
    int Errno() const { return m_errno; }

private:
    DWORD m_lastError;
    int m_errno;
};

// Microseconds since it was made.
class CStopwatch {
public:
    std::int64_t Microseconds() const;

private:
    static std::int64_t Ticks();
    std::int64_t m_begin = Ticks();
};

}  // namespace zd::host
