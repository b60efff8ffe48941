#include "Shell.h"

#include <windows.h>

#include <cstdio>
#include <optional>
#include <string>

#include "CommandLine.h"
#include "Lines.h"
#include "text/Failure.h"
#include "text/Interrupt.h"
#include "text/Output.h"
#include "text/Text.h"

namespace zd::host {

namespace {

// Lines that somebody types: the console edits them and keeps those before.
class CConsoleLines {
public:
    // Nothing where standard input is no console.
    static std::optional<CConsoleLines> Open() {
        const HANDLE handle = ::GetStdHandle(STD_INPUT_HANDLE);
        DWORD mode = 0;
        if (::GetConsoleMode(handle, &mode) == FALSE) return std::nullopt;
        ::SetConsoleMode(handle, mode | ENABLE_LINE_INPUT | ENABLE_ECHO_INPUT | ENABLE_PROCESSED_INPUT);
        return CConsoleLines(handle);
    }

    // False where the input ends: Ctrl-Z in front of a line. Ctrl-C gives an empty line.
    bool Next() {
        const CPrompting prompting;
        std::wstring line;
        while (line.empty() || line.back() != L'\n') {
            wchar_t part[512];
            DWORD count = 0;
            if (::ReadConsoleW(m_handle, part, static_cast<DWORD>(std::size(part)), &count, nullptr) == FALSE) {
                ThrowFailure("reading the console", ::GetLastError(), L"");
            }
            if (count == 0) {
                WriteLine("");
                line.clear();
                break;
            }
            line.append(part, count);
        }
        while (!line.empty() && (line.back() == L'\n' || line.back() == L'\r')) line.pop_back();
        m_text = ToUtf8(line);
        return line.empty() || line.front() != kEndOfInput;
    }

    const std::string& Text() const { return m_text; }

private:
    static constexpr wchar_t kEndOfInput = 0x1A;

    explicit CConsoleLines(HANDLE handle) : m_handle(handle) {}

    HANDLE m_handle;
    std::string m_text;
};

class CShell {
public:
    CShell(CommandContext& context, bool prompt)
        : m_context{context.session, context.quiet, /*standardInputFree=*/false, L"\\"},
          m_console(CConsoleLines::Open()),
          m_prompt(prompt || m_console) {}

    int Run() {
        while (!m_context.ended && Next()) {
            const int result = RunText();
            if (m_status == kExitOk) m_status = result;
        }
        return m_status;
    }

private:
    bool Next() {
        if (m_prompt) {
            // Beside standard output, which may be gathering data.
            const std::string where = m_context.session.PoolName() + ":" + ToUtf8(m_context.directory);
            std::fputs((Printable(where) + "> ").c_str(), stderr);
            std::fflush(stderr);
        }
        return m_console ? m_console->Next() : m_lines.Next();
    }

    int RunText() {
        try {
            if (m_console) return RunLine(m_console->Text(), m_context, "", &RunShellCommand);
            CheckInterrupted();
            return RunLine(m_lines.Text(), m_context, m_lines.Where(), &RunShellCommand);
        } catch (const CInterrupted&) {
            // Lines that nobody types were written for the case that those before them are done.
            if (!m_console) m_context.ended = true;
        } catch (const CFatalFailure&) {
            if (std::ferror(stdout) != 0) m_context.ended = true;
            ForgetConnection();
        }
        return kExitFailed;
    }

    // The next command that needs a connection makes a new one.
    void ForgetConnection() {
        try {
            m_context.session.Disconnect();
        } catch (const CFailure& failure) {
            WriteError(failure.what());
        }
    }

    CommandContext m_context;
    std::optional<CConsoleLines> m_console;
    CInputLines m_lines;
    bool m_prompt;
    int m_status = kExitOk;
};

}  // namespace

int RunShell(CommandContext& context, bool prompt) {
    return CShell(context, prompt).Run();
}

}  // namespace zd::host
