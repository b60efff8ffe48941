#include "Child.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "Environment.h"
#include "TextCompare.h"

namespace zd::test {

namespace {

constexpr wchar_t kSharedVariable[] = L"ZD_TEST_SHARED_FOLDER";

std::wstring CommandLine() {
    std::vector<wchar_t> program(32768);
    ::GetModuleFileNameW(nullptr, program.data(), static_cast<DWORD>(program.size()));
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    if (test == nullptr) throw std::logic_error("no test is running");
    return L"\"" + std::wstring(program.data()) + L"\" \"--gtest_filter=" +
           Widen(std::string(test->test_suite_name()) + "." + test->name()) + L"\"";
}

// A file that a child may write into.
HANDLE OpenOutput(const std::wstring& path) {
    SECURITY_ATTRIBUTES inherited{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    const HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inherited,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) throw std::runtime_error("no file for the child's output");
    return file;
}

}  // namespace

std::wstring SharedFolder() {
    const wchar_t* const folder = ::_wgetenv(kSharedVariable);
    return folder == nullptr ? std::wstring() : folder;
}

bool InChild() {
    return !SharedFolder().empty();
}

ChildResult RunTestInChild(const std::wstring& shared, std::uint32_t milliseconds) {
    const std::wstring outputPath = shared + L"child-output.txt";
    std::wstring command = CommandLine();
    const HANDLE output = OpenOutput(outputPath);
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output;
    startup.hStdError = output;
    PROCESS_INFORMATION process{};
    ::_wputenv_s(kSharedVariable, shared.c_str());
    const BOOL started =
        ::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    ::_wputenv_s(kSharedVariable, L"");
    ::CloseHandle(output);
    if (started == FALSE) throw std::runtime_error("the child does not start");
    ChildResult result;
    result.timedOut = ::WaitForSingleObject(process.hProcess, milliseconds) != WAIT_OBJECT_0;
    if (result.timedOut) {
        ::TerminateProcess(process.hProcess, 99);
        ::WaitForSingleObject(process.hProcess, 10000);
    }
    DWORD code = 0;
    ::GetExitCodeProcess(process.hProcess, &code);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    result.exitCode = code;
    result.output = FileContent(outputPath);
    return result;
}

}  // namespace zd::test
