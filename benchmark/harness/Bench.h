// What every row stands on: the plug-in, its log, a private registry and folder, and connections to a pool.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "IProtocolManager.h"
#include "Logger.h"
#include "tests/harness/RegistrySandbox.h"
#include "zdvfs.h"

namespace zd::bench {

inline constexpr wchar_t kPoolName[] = L"pool";

// Throws std::runtime_error that names `what` where the code is not 0.
void Check(DWORD code, const char* what);

// The same for a result of the storage, which is negative where it failed. Answers the result.
std::int64_t CheckStorage(std::int64_t result, const char* what);

// The settings that a connection begins with.
struct CSettings {
    DWORD maxFileSizeMb = 51200;
    DWORD maxOpenFragments = 100;
};

// One object of the plug-in, connected; disconnected and released at the end.
class CConnection {
public:
    CConnection(GetProtocolFunction getProtocol, CLogger& logger);
    ~CConnection();
    CConnection(const CConnection&) = delete;
    CConnection& operator=(const CConnection&) = delete;

    IProtocolManager& Manager() const { return *m_manager; }

    struct COpen {
        DWORD disposition = kZdOpen;
        DWORD access = kZdAccessReadWrite;
        DWORD attributes = FILE_ATTRIBUTE_NORMAL;
        DWORD isDirectory = 0;
        PSECURITY_DESCRIPTOR descriptor = nullptr;
    };
    // Opens or creates. Throws std::runtime_error.
    Handle Open(const std::wstring& name, const COpen& open) const;
    Handle Open(const std::wstring& name) const { return Open(name, COpen()); }
    // Closes and releases.
    void Close(Handle handle) const;

private:
    IProtocolManager* m_manager = nullptr;
};

// One a process: the plug-in keeps state of its own for the process.
class CBench {
public:
    CBench();
    ~CBench();
    CBench(const CBench&) = delete;
    CBench& operator=(const CBench&) = delete;

    // A connection of the default settings, which lives as long as this object.
    const CConnection& Connection() const { return *m_connection; }
    IProtocolManager& Manager() const { return m_connection->Manager(); }

    // A further connection to the same pool.
    std::unique_ptr<CConnection> Connect(const CSettings& settings);

    // Level 1 unless a row changes it, and changes it back.
    CLogger& Logger() { return *m_logger; }
    GetProtocolFunction Entry() const { return m_getProtocol; }
    // HKEY_LOCAL_MACHINE of this process, with the settings in it; nobody else sees it.
    test::CRegistrySandbox& Registry() { return m_registry; }

    // A folder of this process with "\" at the end, removed with everything in it.
    const std::wstring& Folder() const { return m_folder; }

    // The storage path of a host's name, as the plug-in makes it: "\a\b" is "pool/a/b".
    static std::string Path(const std::wstring& name);
    // The same of a fragment, 0 for the file itself.
    static std::string Path(const std::wstring& name, std::int64_t fragment);

    // Makes a file of `fragments` fragments of `fragmentSize` bytes each, straight in the storage. The plug-in takes
    // the size of the first for the fragment size of the file, so that it can be any.
    static void MakeFile(const std::wstring& name, std::int64_t fragmentSize, std::int64_t fragments = 1);
    static void RemoveFile(const std::wstring& name, std::int64_t fragments = 1);
    static void MakeDirectory(const std::wstring& name);

private:
    void LoadPlugin();

    test::CRegistrySandbox m_registry;
    std::wstring m_folder;
    std::unique_ptr<CLogger> m_logger;
    HMODULE m_module = nullptr;
    GetProtocolFunction m_getProtocol = nullptr;
    std::unique_ptr<CConnection> m_connection;
};

}  // namespace zd::bench
