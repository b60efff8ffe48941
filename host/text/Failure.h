// The two ways in which a command of zdhost fails, and the one line that the user gets to see.
#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace zd::host {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// What was asked for could not be done. The text is UTF-8, one line without an end.
class CFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A failure that no later command of a script can get past, such as a refused connection.
class CFatalFailure : public CFailure {
public:
    using CFailure::CFailure;
};

// The user has interrupted.
class CInterrupted : public CFatalFailure {
public:
    CInterrupted() : CFatalFailure("interrupted") {}
};

// What was asked for makes no sense; nothing was tried.
class CUsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A failure that the user has been told of already; only the exit status is left to pass on.
class CToldFailure : public std::runtime_error {
public:
    explicit CToldFailure(int status) : std::runtime_error("told"), m_status(status) {}
    int Status() const { return m_status; }

private:
    int m_status;
};

// The system's text of a Win32 code, without a line end; a stand-in where the system has none.
std::string Win32Text(DWORD code);

// "ZdCreateFile failed: 2 (File not found.) \dir\x".
std::string DescribeFailure(std::string_view operation, DWORD code, std::wstring_view path);

// Throws CFailure with the text of DescribeFailure.
[[noreturn]] void ThrowFailure(std::string_view operation, DWORD code, std::wstring_view path);

// The same where `code` is not 0.
inline void CheckCode(std::string_view operation, DWORD code, std::wstring_view path) {
    if (code != ERROR_SUCCESS) ThrowFailure(operation, code, path);
}

}  // namespace zd::host
