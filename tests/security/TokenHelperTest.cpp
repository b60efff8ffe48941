// Whose token it is: the thread's that is named, else the process's.
#include "security/TokenHelper.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

#include "harness/ImportPatch.h"
#include "harness/Security.h"

namespace zd::test {
namespace {

static_assert(std::has_virtual_destructor_v<CTokenHelper> && std::has_virtual_destructor_v<CThreadTokenHelper> &&
              std::has_virtual_destructor_v<CProcessTokenHelper>);

constexpr std::uint32_t kNobody = 0x7FFFFFF0;  // no thread's and no process's id

TOKEN_TYPE TypeOf(HANDLE token) {
    TOKEN_TYPE type{};
    DWORD size = 0;
    EXPECT_NE(FALSE, ::GetTokenInformation(token, TokenType, &type, sizeof type, &size));
    return type;
}

// The type of the token that comes out; closes it.
TOKEN_TYPE TypeFor(std::uint32_t threadId, std::uint32_t processId) {
    const HANDLE token = CTokenHelper(threadId, processId).GetToken();
    const TOKEN_TYPE type = TypeOf(token);
    EXPECT_NE(FALSE, ::CloseHandle(token));
    return type;
}

// The code thrown; 0 where a token came out.
DWORD CodeFor(std::uint32_t threadId, std::uint32_t processId) {
    try {
        ::CloseHandle(CTokenHelper(threadId, processId).GetToken());
    } catch (DWORD code) {
        return code;
    }
    return 0;
}

// A thread that waits while the object lives, impersonating or not.
class CWaitingThread {
public:
    explicit CWaitingThread(bool impersonates)
        : m_thread([this, impersonates] {
              m_id = ::GetCurrentThreadId();
              if (impersonates) ::ImpersonateSelf(SecurityImpersonation);
              ::SetEvent(m_ready);
              ::WaitForSingleObject(m_end, INFINITE);
          }) {
        ::WaitForSingleObject(m_ready, INFINITE);
    }
    ~CWaitingThread() {
        ::SetEvent(m_end);
        m_thread.join();
        ::CloseHandle(m_ready);
        ::CloseHandle(m_end);
    }
    CWaitingThread(const CWaitingThread&) = delete;
    CWaitingThread& operator=(const CWaitingThread&) = delete;
    std::uint32_t Id() const { return m_id; }

private:
    HANDLE m_ready = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE m_end = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::uint32_t m_id = 0;
    std::thread m_thread;
};

// What the functions of the system were asked for, and what they answered.
struct Calls {
    int openThread = 0;
    int openProcess = 0;
    int processToken = 0;
    DWORD threadAccess = 0;
    DWORD processAccess = 0;
    BOOL inherited = FALSE;
    HANDLE thread = nullptr;
    HANDLE process = nullptr;
    HANDLE asked = nullptr;
    DWORD tokenAccess = 0;
    BOOL asSelf = FALSE;
    int closedThread = 0;
    int closedProcess = 0;
} g_calls;

decltype(&::OpenThread) g_openThread = nullptr;
decltype(&::OpenProcess) g_openProcess = nullptr;
decltype(&::OpenThreadToken) g_openThreadToken = nullptr;
decltype(&::OpenProcessToken) g_openProcessToken = nullptr;
decltype(&::CloseHandle) g_closeHandle = nullptr;

HANDLE WINAPI KeepOpenThread(DWORD access, BOOL inherit, DWORD id) {
    ++g_calls.openThread;
    g_calls.threadAccess = access;
    g_calls.inherited |= inherit;
    return g_calls.thread = g_openThread(access, inherit, id);
}
HANDLE WINAPI KeepOpenProcess(DWORD access, BOOL inherit, DWORD id) {
    ++g_calls.openProcess;
    g_calls.processAccess = access;
    g_calls.inherited |= inherit;
    return g_calls.process = g_openProcess(access, inherit, id);
}
BOOL WINAPI KeepThreadToken(HANDLE thread, DWORD access, BOOL asSelf, PHANDLE token) {
    g_calls.asked = thread;
    g_calls.tokenAccess = access;
    g_calls.asSelf = asSelf;
    return g_openThreadToken(thread, access, asSelf, token);
}
BOOL WINAPI KeepProcessToken(HANDLE process, DWORD access, PHANDLE token) {
    ++g_calls.processToken;
    g_calls.asked = process;
    g_calls.tokenAccess = access;
    return g_openProcessToken(process, access, token);
}
BOOL WINAPI KeepClosing(HANDLE handle) {
    if (handle == g_calls.thread) ++g_calls.closedThread;
    if (handle == g_calls.process) ++g_calls.closedProcess;
    return g_closeHandle(handle);
}
BOOL WINAPI RefuseToken(HANDLE, DWORD, PHANDLE) {
    ::SetLastError(4321);
    return FALSE;
}

class TokenHelper : public ::testing::Test {
protected:
    void SetUp() override {
        g_calls = Calls();
        g_openThread = m_openThread.Original<decltype(&::OpenThread)>();
        g_openProcess = m_openProcess.Original<decltype(&::OpenProcess)>();
        g_openThreadToken = m_threadToken.Original<decltype(&::OpenThreadToken)>();
        g_openProcessToken = m_processToken.Original<decltype(&::OpenProcessToken)>();
        g_closeHandle = m_close.Original<decltype(&::CloseHandle)>();
    }

    HMODULE m_self = ::GetModuleHandleW(nullptr);
    CImportPatch m_openThread{m_self, "OpenThread", &KeepOpenThread};
    CImportPatch m_openProcess{m_self, "OpenProcess", &KeepOpenProcess};
    CImportPatch m_threadToken{m_self, "OpenThreadToken", &KeepThreadToken};
    CImportPatch m_processToken{m_self, "OpenProcessToken", &KeepProcessToken};
    CImportPatch m_close{m_self, "CloseHandle", &KeepClosing};
};

TEST_F(TokenHelper, ThreadThatImpersonatesYieldsItsToken) {
    const CImpersonation caller;
    g_calls = Calls();
    EXPECT_EQ(TokenImpersonation, TypeFor(0, 0));
    EXPECT_EQ(::GetCurrentThread(), g_calls.asked);
    EXPECT_EQ(0x000EU, g_calls.tokenAccess);
    EXPECT_EQ(TRUE, g_calls.asSelf);
    EXPECT_EQ(0, g_calls.processToken);
}

TEST_F(TokenHelper, ThreadThatDoesNotYieldsTheProcessToken) {
    EXPECT_EQ(TokenPrimary, TypeFor(0, 0));
    EXPECT_EQ(::GetCurrentProcess(), g_calls.asked);
    EXPECT_EQ(0x000EU, g_calls.tokenAccess);
    EXPECT_EQ(0, g_calls.openThread);
    EXPECT_EQ(0, g_calls.openProcess);
}

TEST_F(TokenHelper, NamedThreadThatImpersonatesYieldsItsToken) {
    CWaitingThread other(true);
    g_calls = Calls();
    EXPECT_EQ(TokenImpersonation, TypeFor(other.Id(), 0));
    EXPECT_EQ(DWORD{THREAD_QUERY_INFORMATION}, g_calls.threadAccess);
    EXPECT_EQ(FALSE, g_calls.inherited);
    EXPECT_EQ(g_calls.thread, g_calls.asked);
    EXPECT_EQ(1, g_calls.closedThread);
}

TEST_F(TokenHelper, NamedThreadThatDoesNotImpersonateYieldsTheProcessToken) {
    CWaitingThread other(false);
    const CImpersonation caller;
    g_calls = Calls();
    EXPECT_EQ(TokenPrimary, TypeFor(other.Id(), 0));
    EXPECT_EQ(1, g_calls.closedThread);
    EXPECT_EQ(1, g_calls.processToken);
}

TEST_F(TokenHelper, ThreadThatCannotBeOpenedEndsTheCallWithThatCode) {
    EXPECT_EQ(nullptr, ::OpenThread(THREAD_QUERY_INFORMATION, FALSE, kNobody));
    const DWORD code = ::GetLastError();
    ASSERT_NE(0U, code);
    g_calls = Calls();
    EXPECT_EQ(code, CodeFor(kNobody, 0));
    EXPECT_EQ(0, g_calls.processToken);
    EXPECT_EQ(0, g_calls.openProcess);
}

TEST_F(TokenHelper, NamedProcessYieldsItsToken) {
    EXPECT_EQ(TokenPrimary, TypeFor(0, ::GetCurrentProcessId()));
    EXPECT_EQ(DWORD{PROCESS_QUERY_INFORMATION}, g_calls.processAccess);
    EXPECT_EQ(FALSE, g_calls.inherited);
    EXPECT_EQ(g_calls.process, g_calls.asked);
    EXPECT_EQ(1, g_calls.closedProcess);
}

TEST_F(TokenHelper, ProcessThatCannotBeOpenedEndsTheCallWithThatCode) {
    EXPECT_EQ(nullptr, ::OpenProcess(PROCESS_QUERY_INFORMATION, FALSE, kNobody));
    const DWORD code = ::GetLastError();
    ASSERT_NE(0U, code);
    EXPECT_EQ(code, CodeFor(0, kNobody));
    EXPECT_EQ(0, g_calls.processToken);
}

TEST_F(TokenHelper, ProcessIsNotLookedForWhereTheThreadHasAToken) {
    const CImpersonation caller;
    g_calls = Calls();
    EXPECT_EQ(TokenImpersonation, TypeFor(0, kNobody));
    EXPECT_EQ(0, g_calls.openProcess);
}

TEST_F(TokenHelper, ProcessTokenThatCannotBeHadIsThrownAndHandlesAreClosed) {
    CWaitingThread other(false);
    const CImportPatch refuse(m_self, "OpenProcessToken", &RefuseToken);
    EXPECT_EQ(4321U, CodeFor(0, 0));
    g_calls = Calls();
    EXPECT_EQ(4321U, CodeFor(other.Id(), ::GetCurrentProcessId()));
    EXPECT_EQ(1, g_calls.closedThread);
    EXPECT_EQ(1, g_calls.closedProcess);
}

TEST_F(TokenHelper, ProcessHelperWithoutAHandleMeansTheCurrentProcess) {
    const HANDLE token = CProcessTokenHelper(nullptr).OpenToken();
    EXPECT_EQ(TokenPrimary, TypeOf(token));
    ::CloseHandle(token);
}

}  // namespace
}  // namespace zd::test
