#include "Pool.h"

#include <sddl.h>

#include <algorithm>
#include <cwchar>

#include "ErrorTable.h"
#include "Metadata.h"
#include "NameCodec.h"

namespace zd::engine {
namespace {

constexpr DWORD kMutexAccess = SYNCHRONIZE | MUTEX_MODIFY_STATE;
constexpr char kMarkerFile[] = "QBX_ZD_MARKER";

std::wstring FinalPath(HANDLE handle) {
    std::wstring path(512, L'\0');
    for (;;) {
        const DWORD length = ::GetFinalPathNameByHandleW(handle, path.data(), static_cast<DWORD>(path.size()), 0);
        if (length == 0) return {};
        const bool fits = length < path.size();
        path.resize(length);
        if (fits) return path;
    }
}

// Named by the directory's identity, so that every spelling of its path means one mutex.
CUniqueHandle OpenPoolMutex(const FileIdentity& directory) {
    wchar_t name[64];
    std::swprintf(name, 64, L"Global\\ZdvfsLocalPool-%08lx-%016llx", directory.volume,
                  static_cast<unsigned long long>(directory.index));
    // Processes of other users, services above all, work on the same pool.
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:(A;;0x100001;;;WD)", SDDL_REVISION_1, &descriptor,
                                                                nullptr)) {
        FailLast();
    }
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor, FALSE};
    CUniqueHandle mutex(::CreateMutexExW(&attributes, name, 0, kMutexAccess));
    const DWORD error = ::GetLastError();
    ::LocalFree(descriptor);
    if (!mutex) Fail(error);
    return mutex;
}

void MakeMarker(const std::wstring& directory, const std::string& topLevel) {
    const bool isName = topLevel.size() <= kMaximumNameBytes && topLevel.find('/') == std::string::npos &&
                        topLevel != "." && topLevel != "..";
    const std::string onDisk = NameOnDisk(topLevel);
    if (!isName || IsHashedName(onDisk)) FailInvalid();
    const std::wstring folder = directory + L'\\' + WidenAscii(onDisk);
    EnsureDirectory(folder);
    OpenHandle(folder + L'\\' + WidenAscii(NameOnDisk(kMarkerFile)), GENERIC_WRITE, CREATE_ALWAYS);
}

void EnsurePath(const std::wstring& path) {
    if (::CreateDirectoryW(path.c_str(), nullptr) || ::GetLastError() == ERROR_ALREADY_EXISTS) return;
    const DWORD error = ::GetLastError();
    const std::size_t slash = path.rfind(L'\\');
    // Before "\\?\C:" there is nothing left to make.
    if (error != ERROR_PATH_NOT_FOUND || slash == std::wstring::npos || slash <= 6) Fail(error);
    EnsurePath(path.substr(0, slash));
    EnsureDirectory(path);
}

}  // namespace

CPool::CPool(std::string name, std::wstring directory, bool durable)
    : m_name(std::move(name)),
      m_directory(std::move(directory)),
      m_engineFolder(m_directory + L'\\' + WidenAscii(kPoolFolder)),
      m_durable(durable) {
    const CUniqueHandle handle =
        OpenHandle(m_directory, FILE_READ_ATTRIBUTES, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    m_finalDirectory = FinalPath(handle.Get());
    m_mutex = OpenPoolMutex(IdentityOf(handle.Get()));
}

std::shared_ptr<CPool> CPool::Open(const std::string& name, const std::wstring& root, const Settings& settings) {
    const std::string onDisk = NameOnDisk(name);
    const std::wstring directory = root + L'\\' + WidenAscii(onDisk);
    const ObjectKind kind = KindOf(directory);
    if (kind == ObjectKind::kFile) Fail(ERROR_DIRECTORY);
    if (kind == ObjectKind::kMissing) {
        if (!settings.createPools) Fail(ERROR_FILE_NOT_FOUND);
        EnsurePath(root);
        // A pool appears whole: it is made under a name that no pool has.
        const std::wstring fresh = root + L"\\%new-" + FreshName();
        try {
            EnsureDirectory(fresh);
            EnsureDirectory(fresh + L'\\' + WidenAscii(kPoolFolder));
            Metadata metadata;
            metadata.creationTime = CurrentSeconds();
            if (IsHashedName(onDisk)) metadata.longName = name;
            const std::wstring sidecar = fresh + L'\\' + WidenAscii(kPoolFolder) + L"\\root";
            ReplaceFile(sidecar, sidecar + L".new", FormatMetadata(metadata), settings.durableMetadata);
            if (!settings.topLevel.empty()) MakeMarker(fresh, settings.topLevel);
            MoveNew(fresh, directory);
        } catch (const EngineError&) {
            RemoveTree(fresh);
            // Another process may have made the pool in the meantime.
            if (KindOf(directory) != ObjectKind::kDirectory) throw;
        }
    }
    auto pool = std::make_shared<CPool>(name, directory, settings.durableMetadata);
    if (IsHashedName(onDisk)) {
        const auto metadata = ParseMetadata(ReadWholeFile(pool->RootSidecar()).value_or(""));
        if (!metadata || metadata->longName != name) Fail(ERROR_FILE_NOT_FOUND);
    }
    pool->ClearLeftovers();
    return pool;
}

void CPool::ClearLeftovers() const {
    const CPoolLock lock(this);
    EnsureDirectory(m_engineFolder);
    for (const wchar_t* folder : {L"\\tmp", L"\\trash"}) {
        EnsureDirectory(m_engineFolder + folder);
        // What is still open in some process goes when it is closed, or at a later mount.
        for (const std::wstring& name : NamesIn(m_engineFolder + folder)) {
            RemoveTree(m_engineFolder + folder + L'\\' + name);
        }
    }
}

std::wstring CPool::FreshName() {
    static std::atomic<std::uint32_t> counter{0};
    FILETIME now;
    ::GetSystemTimeAsFileTime(&now);
    wchar_t name[64];
    std::swprintf(name, 64, L"%08lx%08lx-%lx-%x", now.dwHighDateTime, now.dwLowDateTime, ::GetCurrentProcessId(),
                  counter.fetch_add(1, std::memory_order_relaxed));
    return name;
}

void CPool::AddBlock(const ZdvfsMountBlock* block) {
    const std::lock_guard lock(m_blocksLock);
    m_blocks.push_back({block, block->poolName});
}

void CPool::RemoveBlock(const char* poolName) {
    const std::lock_guard lock(m_blocksLock);
    const auto found =
        std::find_if(m_blocks.begin(), m_blocks.end(), [&](const Block& entry) { return entry.poolName == poolName; });
    if (found != m_blocks.end()) {
        m_blocks.erase(found);
    } else {
        // One of the blocks is about to go away and nothing tells which: none may be touched again.
        m_blocks.clear();
    }
}

void CPool::Log(std::uint32_t level, const std::string& message) const noexcept {
    try {
        const std::lock_guard lock(m_blocksLock);
        if (m_blocks.empty()) return;
        const ZdvfsMountBlock* block = m_blocks.front().block;
        // The owner changes the word whenever it likes.
        const auto logLevel = *static_cast<const volatile std::uint32_t*>(&block->logLevel);
        if (!block->logCallback || level > logLevel) return;
        // Names in it must not make up lines.
        block->logCallback(level, ("zdvfs: " + Escape(message, IsShownText) + "\n").c_str());
    } catch (...) {
        // A log line never decides about the call that writes it.
    }
}

CPoolLock::CPoolLock(const CPool* pool) {
    if (!pool) return;
    const DWORD result = ::WaitForSingleObject(pool->m_mutex.Get(), INFINITE);
    // An owner that died left complete files only, so its mutex is taken over as it is.
    if (result != WAIT_OBJECT_0 && result != WAIT_ABANDONED) FailLast();
    m_mutex = pool->m_mutex.Get();
}

CPoolLock::~CPoolLock() {
    if (!m_mutex) return;
    const DWORD lastError = ::GetLastError();
    ::ReleaseMutex(m_mutex);
    ::SetLastError(lastError);
}

}  // namespace zd::engine
