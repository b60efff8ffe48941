#include "benchmark/harness/Bench.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace zd::bench {
namespace {

constexpr DWORD kLogWaitMilliseconds = 30000;

std::wstring ProgramFolder() {
    std::vector<wchar_t> path(32768);
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    const std::wstring program(path.data(), length);
    return program.substr(0, program.rfind(L'\\') + 1);
}

void MakeSystemFolder(const std::wstring& path) {
    if (::CreateDirectoryW(path.c_str(), nullptr) == FALSE) Check(::GetLastError(), "CreateDirectory");
}

std::wstring NewFolder() {
    std::array<wchar_t, MAX_PATH + 1> temporary{};
    ::GetTempPathW(static_cast<DWORD>(temporary.size()), temporary.data());
    std::wstring folder = std::wstring(temporary.data()) + L"zdbench-" + std::to_wstring(::GetCurrentProcessId()) +
                          L"-" + std::to_wstring(::GetTickCount64()) + L"\\";
    MakeSystemFolder(folder);
    return folder;
}

// Removes a folder, whose name ends with "\", and everything in it.
void RemoveFolder(const std::wstring& folder) {
    WIN32_FIND_DATAW entry{};
    const HANDLE search = ::FindFirstFileW((folder + L"*").c_str(), &entry);
    if (search != INVALID_HANDLE_VALUE) {
        do {
            const std::wstring name(entry.cFileName);
            if (name == L"." || name == L"..") continue;
            if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
                RemoveFolder(folder + name + L"\\");
            } else {
                ::DeleteFileW((folder + name).c_str());
            }
        } while (::FindNextFileW(search, &entry) != FALSE);
        ::FindClose(search);
    }
    ::RemoveDirectoryW(folder.c_str());
}

// Metadata that waits for the disk would hide what is measured. Other engines pass over these settings.
void SetUpLocalEngine(const std::wstring& pools) {
    MakeSystemFolder(pools);
    ::_wputenv_s(L"ZDVFS_LOCAL_ROOT", pools.c_str());
    ::_wputenv_s(L"ZDVFS_LOCAL_CREATE", L"1");
    FILE* const settings = ::_wfopen((pools + L"engine.ini").c_str(), L"wb");
    if (settings == nullptr) throw std::runtime_error("cannot write engine.ini");
    std::fputs("durable_metadata=0\n", settings);
    std::fclose(settings);
}

}  // namespace

void Check(DWORD code, const char* what) {
    if (code != ERROR_SUCCESS) throw std::runtime_error(std::string(what) + " failed: " + std::to_string(code));
}

std::int64_t CheckStorage(std::int64_t result, const char* what) {
    if (result < 0) throw std::runtime_error(std::string(what) + " failed: errno " + std::to_string(errno));
    return result;
}

// ---- CConnection ------------------------------------------------------------------------------------------------

CConnection::CConnection(GetProtocolFunction getProtocol, CLogger& logger) {
    void* hostContext = this;
    m_manager = getProtocol(&hostContext, &logger);
    if (m_manager == nullptr) throw std::runtime_error("GetProtocol answered no object");
    ConnectParameters parameters{};
    std::wstring_view(kPoolName).copy(parameters.poolName, std::size(parameters.poolName) - 1);
    const DWORD code = m_manager->ZdConnect(&parameters);
    if (code != ERROR_SUCCESS) {
        m_manager->Release();
        Check(code, "ZdConnect");
    }
}

CConnection::~CConnection() {
    m_manager->ZdDisconnect();
    m_manager->Release();
}

Handle CConnection::Open(const std::wstring& name, const COpen& open) const {
    Handle handle = 0;
    Check(m_manager->ZdCreateFile(name.c_str(), open.isDirectory, 0, open.attributes, 0, open.disposition, open.access,
                                  0, open.descriptor, &handle, nullptr, nullptr),
          "ZdCreateFile");
    return handle;
}

void CConnection::Close(Handle handle) const {
    Check(m_manager->ZdCloseFile(handle, 0), "ZdCloseFile");
    Check(m_manager->ZdReleaseFile(handle), "ZdReleaseFile");
}

// ---- CBench -----------------------------------------------------------------------------------------------------

CBench::CBench() : m_folder(NewFolder()), m_logger(std::make_unique<CLogger>()) {
    MakeSystemFolder(m_folder + L"agent");
    SetUpLocalEngine(m_folder + L"pools\\");
    m_registry.SetText(test::kAgentKey, L"path", m_folder + L"agent\\");
    LoadPlugin();
    m_connection = Connect(CSettings());
}

CBench::~CBench() {
    m_connection.reset();
    // A log that does not end keeps its object, and the process ends with both.
    if (!m_logger->Stop(kLogWaitMilliseconds)) static_cast<void>(m_logger.release());
    if (m_logger && m_logger->file != nullptr) std::fclose(m_logger->file);
    RemoveFolder(m_folder);
}

void CBench::LoadPlugin() {
    const std::wstring path = ProgramFolder() + L"ZdvfsProtocol.dll";
    m_module = ::LoadLibraryW(path.c_str());
    if (m_module == nullptr) Check(::GetLastError(), "loading ZdvfsProtocol.dll");
    const auto address = ::GetProcAddress(m_module, "GetProtocol");
    if (address == nullptr) Check(::GetLastError(), "looking up GetProtocol");
    m_getProtocol = reinterpret_cast<GetProtocolFunction>(reinterpret_cast<void*>(address));
}

std::unique_ptr<CConnection> CBench::Connect(const CSettings& settings) {
    m_registry.SetDword(test::kPluginKey, L"MaxFileSizeMB", settings.maxFileSizeMb);
    m_registry.SetDword(test::kPluginKey, L"MaxOpenFragments", settings.maxOpenFragments);
    return std::make_unique<CConnection>(m_getProtocol, *m_logger);
}

std::string CBench::Path(const std::wstring& name) {
    return Path(name, 0);
}

std::string CBench::Path(const std::wstring& name, std::int64_t fragment) {
    std::wstring path = kPoolName + name;
    std::replace(path.begin(), path.end(), L'\\', L'/');
    if (fragment > 0) path += L";F" + std::to_wstring(fragment);
    std::string utf8(path.size() * 3, '\0');
    const int length = ::WideCharToMultiByte(CP_UTF8, 0, path.data(), static_cast<int>(path.size()), utf8.data(),
                                             static_cast<int>(utf8.size()), nullptr, nullptr);
    utf8.resize(static_cast<std::size_t>(length));
    return utf8;
}

void CBench::MakeFile(const std::wstring& name, std::int64_t fragmentSize, std::int64_t fragments) {
    std::vector<char> piece(static_cast<std::size_t>(std::min<std::int64_t>(fragmentSize, 1 << 20)));
    for (std::size_t i = 0; i < piece.size(); ++i) piece[i] = static_cast<char>(i * 31);
    for (std::int64_t n = 0; n < fragments; ++n) {
        const auto file = static_cast<int>(CheckStorage(
            ::ZdvfsOpen(Path(name, n).c_str(), kZdvfsReadWrite | kZdvfsCreate | kZdvfsTruncate, FILE_ATTRIBUTE_NORMAL),
            "ZdvfsOpen"));
        for (std::int64_t done = 0; done < fragmentSize;) {
            const std::int64_t length = std::min(fragmentSize - done, static_cast<std::int64_t>(piece.size()));
            done += CheckStorage(::ZdvfsPwrite(file, piece.data(), static_cast<std::uint64_t>(length), done),
                                 "ZdvfsPwrite");
        }
        CheckStorage(::ZdvfsClose(file), "ZdvfsClose");
    }
}

void CBench::RemoveFile(const std::wstring& name, std::int64_t fragments) {
    for (std::int64_t n = 0; n < fragments; ++n) {
        CheckStorage(::ZdvfsUnlink(Path(name, n).c_str()), "ZdvfsUnlink");
    }
}

void CBench::MakeDirectory(const std::wstring& name) {
    CheckStorage(::ZdvfsMkdir(Path(name).c_str(), FILE_ATTRIBUTE_DIRECTORY), "ZdvfsMkdir");
}

}  // namespace zd::bench
