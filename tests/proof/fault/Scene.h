// A small world for one operation: the store's content, open handles, and the operation itself.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "harness/PluginFixture.h"
#include "harness/Untouched.h"

namespace zd::test {

// What came of an operation: its result, and what it did to its out arguments that it must not do.
struct COutcome {
    DWORD code = 0;
    std::string broken;
};

class CScene {
public:
    CScene(CEnvironment& environment, IProtocolManager* connected)
        : m_environment(environment), m_connected(connected), m_manager(connected) {}

    // Empties the pool "pool"; no rules, no handles, no written-down calls.
    void Reset();
    // Releases the handles, and the object that the situation has made for itself.
    void End();

    void MakeFragments(const std::string& name, const std::vector<std::string>& contents);
    void SetSddl(const std::string& path, const std::string& sddl);

    // Opens; the handle belongs to the scene.
    Handle Open(const std::wstring& name, DWORD access = 0x3, DWORD isDirectory = 0);
    // The handle goes on existing, its descriptors are closed.
    void Shut(Handle handle) { EXPECT_EQ(0U, m_manager->ZdCloseFile(handle, 0)); }
    // A handle that an operation has answered.
    void Own(Handle handle) { m_handles.push_back(handle); }
    void Forget(Handle handle) { std::erase(m_handles, handle); }
    // All handles ended with their connection.
    void ForgetAll() { m_handles.clear(); }

    // The operations work on an object that is not connected yet from here on.
    void UseFreshObject() { m_manager = m_environment.NewManager(); }

    CEnvironment& Environment() { return m_environment; }
    IDoubleControl& Store() { return m_environment.Double(); }
    IHulControl& Hul() { return m_environment.Hul(); }
    IProtocolManager& Manager() { return *m_manager; }
    IProtocolManager& Connected() { return *m_connected; }
    Handle First() const { return m_handles.at(0); }
    Handle Second() const { return m_handles.at(1); }

private:
    CEnvironment& m_environment;
    IProtocolManager* m_connected;
    IProtocolManager* m_manager;
    std::vector<Handle> m_handles;
};

struct CSituation {
    std::string name;       // "three fragments, closed"
    std::string operation;  // "ZdReadFile"
    std::function<void(CScene&)> prepare;
    std::function<COutcome(CScene&)> act;
    // What must be found after a success, empty where it is; without faults.
    std::function<std::string(CScene&)> check = [](CScene&) { return std::string(); };
    bool canRepeat = true;  // the operation makes sense a second time
};

using CSituations = std::vector<CSituation>;

// The contents of the files that most situations have, fragment by fragment.
inline const std::vector<std::string> kOne = {"hello world"};
inline const std::vector<std::string> kThree = {"0123456789", "abcdefghij", "xyz"};

using CPrepare = std::function<void(CScene&)>;

// The file "f" of these fragments, opened; all its descriptors closed where `shut`, as many open as may be otherwise.
CPrepare FileOf(const std::vector<std::string>& fragments, bool shut);

CSituations CreateSituations();
CSituations CreateDirectorySituations();
CSituations TransferSituations();
CSituations SizeSituations();
CSituations CloseSituations();
CSituations InformationSituations();
CSituations RenameSituations();
CSituations ChangeSituations();
CSituations ControlSituations();
CSituations SecuritySituations();
CSituations ConnectSituations();
CSituations LogSituations();

}  // namespace zd::test
