// What a host needs besides the interface: it loads ZdvfsProtocol.dll, owns what comes of that, and tells failures as
// text. All of it is in this header; a host links nothing of the plug-in.
//
//     zdvfs::CHost host(zdvfs::PathBesideProgram());
//     zdvfs::Check("ZdConnect", zdvfs::Connect(*host, L"pool"), L"pool");
//     host->ZdCreateFile(...);
//     host->ZdDisconnect();
//     host.End();
//
// Lifetime. One CLog serves the process: the plug-in keeps to the first log that it is given, and once that has stopped
// it is not used again. So a process makes one CHost (or one CLibrary and one CLog of its own), keeps it while any
// operation may run, and makes no second one after it has ended. More connections are more objects of the same host:
// CHost::NewManager. They end before the host does. Once a line has been logged the library stays in the process.
//
// Threads. Each object here is used by one thread at a time. The operations of a manager have rules of their own
// (IProtocolManager.h); making and ending managers, connecting and disconnecting are not to run beside them.
//
// Failures. What cannot be done is thrown as CError, which has the Win32 code and a line of text. Destructors throw
// nothing.
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <iterator>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

#include "IProtocolManager.h"
#include "Logger.h"

#if !defined(_WIN64)
#error "ZdvfsProtocol.dll is for 64-bit Windows."
#endif
#if defined(__MINGW32__) && !defined(_UCRT)
#error "Host and plug-in share memory: build over the universal C runtime, as with the SDK's toolchain file."
#endif
#if defined(_GLIBCXX_DEBUG)
#error "Containers cross the border to the plug-in, and _GLIBCXX_DEBUG changes their layout."
#endif

namespace zdvfs {

// The product's registry trees below HKEY_LOCAL_MACHINE; the former maker's counts only where the other is missing.
constexpr wchar_t kProductTree[] = L"SOFTWARE\\Orvane\\Zendra";
constexpr wchar_t kFormerProductTree[] = L"SOFTWARE\\Halvern\\Zendra";

// ---- Failures ---------------------------------------------------------------------------------------------------

// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD.
inline std::string Utf8(std::wstring_view text) {
    const auto units = static_cast<int>(text.size());
    const int size = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<std::size_t>((std::max)(size, 0)), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, bytes.data(), size, nullptr, nullptr);
    return bytes;
}

// The system's text of a Win32 code, in UTF-8 and one line without an end; a stand-in where the system has none.
inline std::string ErrorText(DWORD code) {
    constexpr DWORD kFlags =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    wchar_t* block = nullptr;
    const DWORD length =
        ::FormatMessageW(kFlags, nullptr, code, 0, reinterpret_cast<wchar_t*>(&block), 0, /*Arguments=*/nullptr);
    const std::unique_ptr<wchar_t, decltype(&::LocalFree)> owner(block, &::LocalFree);
    std::wstring text(block != nullptr ? block : L"", length);
    while (!text.empty() && text.back() <= L' ') text.pop_back();
    std::replace_if(
        text.begin(), text.end(), [](wchar_t unit) { return unit < L' '; }, L' ');
    return text.empty() ? "the system has no text for this code" : Utf8(text);
}

// "ZdCreateFile failed: 2 (File not found.) \dir\x"; all of it UTF-8.
inline std::string FailureText(std::string_view what, DWORD code, std::string_view subject = {}) {
    std::string text(what);
    text.append(" failed: ").append(std::to_string(code)).append(" (").append(ErrorText(code)).append(")");
    if (!subject.empty()) text.append(" ").append(subject);
    return text;
}

// What could not be done: what() is the line of FailureText.
class CError : public std::runtime_error {
public:
    CError(std::string_view what, DWORD code, std::wstring_view subject = {})
        : std::runtime_error(FailureText(what, code, Utf8(subject))), m_code(code) {}
    DWORD Code() const { return m_code; }

private:
    DWORD m_code;
};

// Throws CError where `code` is not 0.
inline void Check(std::string_view what, DWORD code, std::wstring_view subject = {}) {
    if (code != ERROR_SUCCESS) throw CError(what, code, subject);
}

// ---- The library ------------------------------------------------------------------------------------------------

// The path of a file in the folder of this program.
inline std::wstring PathBesideProgram(std::wstring_view name = L"ZdvfsProtocol.dll") {
    std::wstring path(32768, L'\0');
    const DWORD length = ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0 || length >= path.size()) throw CError("finding this program's folder", ::GetLastError());
    path.resize(length);
    path.resize(path.rfind(L'\\') + 1);
    return path.append(name);
}

// The loaded ZdvfsProtocol.dll. It is moved, not copied; a moved-from one is only destroyed.
class CLibrary {
public:
    // Loads `fullPath`, which begins with a drive or with "\\"; another one is refused (161), so that the current
    // folder decides nothing. zdvfs.dll and hul.dll are looked for beside the plug-in, then in this program's folder,
    // those of AddDllDirectory and SetDllDirectory, and the system's; never in the current folder or along PATH.
    // Throws CError: 126 where the file or a library that it needs is missing, 193 where it is no 64-bit library,
    // 127 where it exports no GetProtocol.
    explicit CLibrary(std::wstring_view fullPath) {
        std::wstring path(fullPath);
        std::replace(path.begin(), path.end(), L'/', L'\\');
        if (!IsFull(path)) throw CError("loading the plug-in", ERROR_BAD_PATHNAME, fullPath);
        m_module.reset(::LoadLibraryExW(path.c_str(), nullptr,
                                        LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS));
        if (m_module == nullptr) throw CError("loading the plug-in", ::GetLastError(), fullPath);
        const auto address = reinterpret_cast<void*>(::GetProcAddress(m_module.get(), "GetProtocol"));
        if (address == nullptr) throw CError("looking up GetProtocol", ::GetLastError(), fullPath);
        m_entry = reinterpret_cast<GetProtocolFunction>(address);
    }

    // The library's export.
    GetProtocolFunction Entry() const { return m_entry; }

    // The library's module; this object keeps it.
    HMODULE Module() const { return m_module.get(); }

    // Leaves the library loaded until the process ends, for a log that could not be stopped.
    void KeepLoaded() { static_cast<void>(m_module.release()); }

private:
    struct CFree {
        void operator()(HMODULE module) const { ::FreeLibrary(module); }
    };

    static bool IsFull(std::wstring_view path) {
        return path.substr(0, 2) == L"\\\\" || (path.size() > 2 && path.substr(1, 2) == L":\\");
    }

    std::unique_ptr<std::remove_pointer_t<HMODULE>, CFree> m_module;
    GetProtocolFunction m_entry = nullptr;
};

// ---- The log ----------------------------------------------------------------------------------------------------

// The process's log, set up as the plug-in expects it: with the registry tree in use, and with the settings of folding
// from its first line on where their key is there. It is moved, not copied.
class CLog {
public:
    // Throws CError 1247 where this program has made one before.
    CLog() {
        static std::atomic<bool> made{false};
        if (made.exchange(true)) throw CError("making a second log", ERROR_ALREADY_INITIALIZED);
        m_logger.reset(new CLogger);
        m_logger->formerMakerKeys = !TreeExists(kProductTree) && TreeExists(kFormerProductTree);
        const std::wstring tree = m_logger->formerMakerKeys ? kFormerProductTree : kProductTree;
        HKEY key = nullptr;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, (tree + L"\\ZDVFS").c_str(), 0, KEY_READ, &key) == ERROR_SUCCESS) {
            m_logger->settingsKey = key;
        }
    }
    CLog(CLog&&) noexcept = default;
    CLog& operator=(CLog&&) = delete;
    CLog(const CLog&) = delete;
    CLog& operator=(const CLog&) = delete;
    ~CLog() { Stop(); }

    // The logger that GetProtocol is given. Null after Stop.
    CLogger* Get() const { return m_logger.get(); }

    // Lets the writer finish its lines, waiting at most `milliseconds`, and ends the log with all that it holds: the
    // file, the handles, the lines remembered for folding. No thread uses it or the plug-in any more. False where the
    // writer did not end, or could not be told to for want of memory: the log then stays in memory for it, and the
    // library has to stay loaded.
    bool Stop(DWORD milliseconds = 30000) noexcept {
        if (m_logger == nullptr) return true;
        if (!WriterEnds(milliseconds)) {
            static_cast<void>(m_logger.release());
            return false;
        }
        m_logger.reset();
        return true;
    }

private:
    // The plug-in opens these and gives none of them back. Its runtime and its heap are the host's too.
    struct CFree {
        void operator()(CLogger* logger) const noexcept {
            const std::unique_ptr<CLogger> owner(logger);
            for (const RecentMessage& message : logger->suppressor.recent) delete message.record;
            if (logger->file != nullptr) std::fclose(logger->file);
            if (logger->writerThread != nullptr) ::CloseHandle(logger->writerThread);
            if (logger->wakeEvent != nullptr) ::CloseHandle(logger->wakeEvent);
            // The plug-in keeps a failed registration as an invalid handle.
            if (logger->eventSource != nullptr && logger->eventSource != INVALID_HANDLE_VALUE) {
                ::DeregisterEventSource(logger->eventSource);
            }
            if (logger->settingsKey != nullptr) ::RegCloseKey(logger->settingsKey);
            if (logger->lockInitialised) ::DeleteCriticalSection(&logger->lock);
        }
    };

    bool WriterEnds(DWORD milliseconds) const noexcept {
        try {
            return m_logger->Stop(milliseconds);
        } catch (const std::bad_alloc&) {
            return false;
        }
    }

    // The plug-in asks for the same access, so that both choose the same tree.
    static bool TreeExists(const wchar_t* tree) {
        HKEY key = nullptr;
        if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, tree, 0, KEY_READ | KEY_WRITE, &key) != ERROR_SUCCESS) return false;
        ::RegCloseKey(key);
        return true;
    }

    std::unique_ptr<CLogger, CFree> m_logger;
};

// ---- The plug-in's objects --------------------------------------------------------------------------------------

struct CReleaseManager {
    void operator()(IProtocolManager* manager) const { manager->Release(); }
};

// An object of the plug-in; its end disconnects where connected, and frees the object.
using CManager = std::unique_ptr<IProtocolManager, CReleaseManager>;

// Mounts `pool`, and hands the two further names to the storage where they are not empty. Answers ZdConnect's code, the
// thrown one too; 87 for a name that does not fit its field.
inline DWORD Connect(IProtocolManager& manager, std::wstring_view pool, std::wstring_view second = {},
                     std::wstring_view third = {}) {
    ConnectParameters parameters{};
    const auto store = [](auto& field, std::wstring_view text) {
        if (text.size() > std::size(field)) return false;
        std::copy(text.begin(), text.end(), field);
        return true;
    };
    if (!store(parameters.poolName, pool) || !store(parameters.secondName, second) ||
        !store(parameters.thirdName, third)) {
        return ERROR_INVALID_PARAMETER;
    }
    try {
        return manager.ZdConnect(&parameters);
    } catch (unsigned long code) {
        return code;
    }
}

// The library, the log and one object, which end in the order that the plug-in needs. It is moved, not copied; a
// moved-from one is only destroyed.
class CHost {
public:
    // Loads the plug-in and makes an object, unconnected. `context` is the host's own value for this connection, which
    // the plug-in keeps and does nothing with. Throws CError.
    explicit CHost(std::wstring_view fullPath, void* context = nullptr)
        : m_library(fullPath), m_manager(NewManager(context)) {}
    CHost(CHost&&) noexcept = default;
    CHost& operator=(CHost&&) = delete;
    CHost(const CHost&) = delete;
    CHost& operator=(const CHost&) = delete;
    ~CHost() { End(); }

    IProtocolManager* operator->() const { return m_manager.get(); }
    IProtocolManager& operator*() const { return *m_manager; }
    const CLibrary& Library() const { return m_library; }
    CLogger& Logger() const { return *m_log.Get(); }

    // A further object, for a further connection. Throws CError where the plug-in answers none.
    CManager NewManager(void* context = nullptr) const {
        CManager manager(m_library.Entry()(&context, m_log.Get()));
        if (manager == nullptr) throw CError("GetProtocol", ERROR_NOT_ENOUGH_MEMORY);
        return manager;
    }

    // Ends this host's object and its log, as the destructor does. False where the log's writer did not end within
    // `milliseconds`. Nothing of the host is used afterwards.
    bool End(DWORD milliseconds = 30000) {
        m_manager.reset();
        const bool stopped = m_log.Stop(milliseconds);
        if (!stopped) m_library.KeepLoaded();
        return stopped;
    }

private:
    CLibrary m_library;
    CLog m_log;
    CManager m_manager;
};

}  // namespace zdvfs
