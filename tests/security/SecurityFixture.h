// What the tests of ZdGetSecurity and ZdSetSecurity share.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "harness/PluginFixture.h"
#include "SddlText.h"

namespace zd::test {

// Stands in for any function of the system that answers a BOOL: fails with this code, whatever it is given.
inline constexpr DWORD kRefused = 4321;
inline BOOL WINAPI Refuse() {
    ::SetLastError(kRefused);
    return FALSE;
}

struct Gotten {
    DWORD code = kUntouched;
    bool touched = false;
    std::string text;  // of the descriptor, with all its parts
    bool selfRelative = false;
};

class CSecurityTest : public CConnectedTest {
protected:
    void SetUp() override {
        CConnectedTest::SetUp();
        Double().MakeFile("pool/f", "hello");
        Double().MakeDirectory("pool/d");
        m_file = Create(L"\\f", {.disposition = kZdOpen, .access = 0x2}).handle;
        m_directory = Create(L"\\d", {.isDirectory = 1, .disposition = kZdOpen, .access = 0x1}).handle;
        ASSERT_NE(kUntouchedHandle, m_file);
        ASSERT_NE(kUntouchedHandle, m_directory);
        ClearLogs();
    }
    void TearDown() override {
        if (m_file != kUntouchedHandle) Close(m_file);
        if (m_directory != kUntouchedHandle) Close(m_directory);
        CConnectedTest::TearDown();
    }

    void SetSddl(const std::string& path, const std::string& sddl) {
        NodeState state = Double().State(path);
        state.sddl = sddl;
        ASSERT_TRUE(Double().SetState(path, state));
    }
    void SetDsid(const std::string& path, const std::string& text) {
        NodeState state = Double().State(path);
        state.dsidText = text;
        ASSERT_TRUE(Double().SetState(path, state));
    }

    // Gets the descriptor and frees it.
    Gotten Get(Handle handle, std::uint64_t parts = 0) {
        const auto untouched = reinterpret_cast<PSECURITY_DESCRIPTOR>(kUntouchedHandle);
        PSECURITY_DESCRIPTOR descriptor = untouched;
        Gotten gotten;
        gotten.code = m_manager->ZdGetSecurity(handle, parts, &descriptor);
        gotten.touched = descriptor != untouched;
        if (gotten.code != 0 || !gotten.touched) return gotten;
        EXPECT_NE(FALSE, ::IsValidSecurityDescriptor(descriptor));
        EXPECT_NE(FALSE, ::HeapValidate(::GetProcessHeap(), 0, descriptor));
        SECURITY_DESCRIPTOR_CONTROL control = 0;
        DWORD revision = 0;
        EXPECT_NE(FALSE, ::GetSecurityDescriptorControl(descriptor, &control, &revision));
        gotten.selfRelative = (control & SE_SELF_RELATIVE) != 0;
        gotten.text = WholeText(descriptor);
        EXPECT_EQ(nullptr, ::LocalFree(descriptor));
        return gotten;
    }
    // Expects the code and that nothing came out; then that another thread can use the handle.
    void GetFails(DWORD code, Handle handle) {
        const Gotten gotten = Get(handle);
        EXPECT_EQ(code, gotten.code);
        EXPECT_FALSE(gotten.touched);
        UseFromAnotherThread(handle);
    }
    void UseFromAnotherThread(Handle handle) {
        std::thread([&] { m_manager->ZdCloseFile(handle, 0); }).join();
    }

    DWORD Set(Handle handle, const std::string& sddl, std::uint64_t parts = 0) {
        const CDescriptor descriptor(sddl);
        return m_manager->ZdSetSecurity(handle, parts, descriptor.Raw());
    }

    Handle m_file = kUntouchedHandle;
    Handle m_directory = kUntouchedHandle;
};

}  // namespace zd::test
