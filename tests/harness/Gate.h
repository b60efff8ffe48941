// Lets the threads of a test wait for each other.
#pragma once

#include <windows.h>

namespace zd::test {

// Stays open once it was set.
//   CGate entered, proceed;
//   Double().Add(OnCall("ZdvfsPwrite").Before([&](const Call&) { entered.Set(); proceed.Wait(); }));
//   std::thread writer([&] { Write(handle, 0, "x"); });
//   ASSERT_TRUE(entered.Wait());            the writer stands inside the storage call
class CGate {
public:
    CGate() : m_event(::CreateEventW(nullptr, /*manual=*/TRUE, FALSE, nullptr)) {}
    ~CGate() { ::CloseHandle(m_event); }
    CGate(const CGate&) = delete;
    CGate& operator=(const CGate&) = delete;

    void Set() { ::SetEvent(m_event); }
    bool IsSet() const { return ::WaitForSingleObject(m_event, 0) == WAIT_OBJECT_0; }
    // False after `milliseconds`: a test that meets its deadline has failed, it is never the expected way.
    bool Wait(DWORD milliseconds = 10000) const {
        return ::WaitForSingleObject(m_event, milliseconds) == WAIT_OBJECT_0;
    }

private:
    HANDLE m_event;
};

}  // namespace zd::test
