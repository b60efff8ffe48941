#include <windows.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "text/Failure.h"
#include "text/Interrupt.h"
#include "text/Text.h"
#include "transfer/EntryNames.h"
#include "transfer/LocalFile.h"
#include "transfer/RemoteFile.h"
#include "transfer/RemoteName.h"
#include "transfer/Tree.h"

namespace zd::host {

namespace {

// Deeper than trees are, and far from the end of the stack.
constexpr std::size_t kDeepest = 128;
constexpr char kTooDeep[] = "it stands more than 128 directories deep";

// Where the path of the top is empty, the entry stands right below it.
std::wstring Joined(const std::wstring& path, const std::wstring& name) {
    return path.empty() ? name : path + L"\\" + name;
}

// What tells one local directory from all others.
using Identity = BY_HANDLE_FILE_INFORMATION;

bool Same(const Identity& left, const Identity& right) {
    // Indexes are those of one volume, and volumes can share a serial number; hence the time.
    return left.nFileIndexHigh == right.nFileIndexHigh && left.nFileIndexLow == right.nFileIndexLow &&
           left.dwVolumeSerialNumber == right.dwVolumeSerialNumber &&
           ::CompareFileTime(&left.ftLastWriteTime, &right.ftLastWriteTime) == 0;
}

Identity IdentityOf(const std::wstring& path) {
    const HANDLE handle =
        ::CreateFileW(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (handle == INVALID_HANDLE_VALUE) ThrowFailure("opening the local directory", ::GetLastError(), path);
    Identity identity{};
    const BOOL done = ::GetFileInformationByHandle(handle, &identity);
    const DWORD code = ::GetLastError();
    ::CloseHandle(handle);
    if (done == FALSE) ThrowFailure("asking for the local directory", code, path);
    return identity;
}

// What a local directory holds, in an order that does not change.
std::vector<WIN32_FIND_DATAW> ListLocal(const std::wstring& path) {
    struct FindCloser {
        void operator()(HANDLE search) const { ::FindClose(search); }
    };
    std::vector<WIN32_FIND_DATAW> entries;
    WIN32_FIND_DATAW data{};
    const HANDLE search = ::FindFirstFileW((path + L"\\*").c_str(), &data);
    if (search == INVALID_HANDLE_VALUE) {
        if (::GetLastError() == ERROR_FILE_NOT_FOUND) return entries;
        ThrowFailure("listing the local directory", ::GetLastError(), path);
    }
    const std::unique_ptr<void, FindCloser> owner(search);
    do {
        if (!IsDots(data.cFileName)) entries.push_back(data);
    } while (::FindNextFileW(search, &data) != FALSE);
    if (::GetLastError() != ERROR_NO_MORE_FILES) {
        ThrowFailure("listing the local directory", ::GetLastError(), path);
    }
    std::sort(entries.begin(), entries.end(), [](const WIN32_FIND_DATAW& left, const WIN32_FIND_DATAW& right) {
        const int order = ::CompareStringOrdinal(left.cFileName, -1, right.cFileName, -1, /*bIgnoreCase=*/TRUE);
        return order != CSTR_EQUAL ? order == CSTR_LESS_THAN : std::wcscmp(left.cFileName, right.cFileName) < 0;
    });
    return entries;
}

class CLocalScan {
public:
    CLocalScan(std::wstring top, const TreeFailure& fail) : m_top(std::move(top)), m_fail(fail) {}

    std::vector<TreeEntry> Scan() {
        m_above.push_back(IdentityOf(m_top));
        if ((m_above.back().dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            throw CFailure("-r copies a directory, and this is a file: " + ToUtf8(m_top));
        }
        ScanDirectory(L"");
        return std::move(m_entries);
    }

private:
    std::wstring Whole(const std::wstring& path) const { return Below(m_top, path); }

    void ScanDirectory(const std::wstring& path) {
        CheckInterrupted();
        std::wstring before;
        for (const WIN32_FIND_DATAW& data : ListLocal(path.empty() ? m_top : Whole(path))) {
            const std::wstring name = data.cFileName;
            std::string why = WhyNotRemote(name);
            if (!before.empty() && SameRemoteName(before, name)) {
                why = "the name differs from another one there in case only, and the pool would show but one of them";
            }
            before = name;
            if (!why.empty()) {
                m_fail(Joined(path, name), why);
            } else {
                Add(Joined(path, name), data);
            }
        }
    }

    void Add(std::wstring path, const WIN32_FIND_DATAW& data) {
        if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            const std::uint64_t size = std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
            m_entries.push_back({std::move(path), /*directory=*/false, size});
            return;
        }
        const std::size_t depth = m_above.size();
        try {
            const Identity identity = IdentityOf(Whole(path));
            if (m_above.size() > kDeepest) return m_fail(path, kTooDeep);
            for (const Identity& above : m_above) {
                if (Same(above, identity)) return m_fail(path, "it leads back to a directory above it");
            }
            m_entries.push_back({path, /*directory=*/true, 0});
            m_above.push_back(identity);
            ScanDirectory(path);
        } catch (const CFatalFailure&) {
            throw;
        } catch (const CFailure& failure) {
            m_fail(path, failure.what());
        }
        m_above.resize(depth);
    }

    std::wstring m_top;
    const TreeFailure& m_fail;
    std::vector<Identity> m_above;  // of the directories from the top down
    std::vector<TreeEntry> m_entries;
};

class CRemoteScan {
public:
    CRemoteScan(IProtocolManager& manager, std::wstring top, const TreeFailure& fail)
        : m_manager(manager), m_top(std::move(top)), m_fail(fail) {}

    std::vector<TreeEntry> Scan() {
        ScanDirectory(L"", 0);
        return std::move(m_entries);
    }

private:
    void ScanDirectory(const std::wstring& path, std::size_t depth) {
        CheckInterrupted();
        for (const DirectoryEntry& entry : ListDirectory(m_manager, path.empty() ? m_top : Below(m_top, path))) {
            const std::wstring name = NameOf(entry);
            if (IsDots(name)) continue;
            std::wstring below = Joined(path, name);
            std::string why = WhyNotLocal(name);
            if (IsDirectory(entry) && depth == kDeepest) why = kTooDeep;
            if (!why.empty()) {
                m_fail(below, why);
                continue;
            }
            m_entries.push_back({below, IsDirectory(entry), IsDirectory(entry) ? 0 : entry.size});
            if (IsDirectory(entry)) Enter(below, depth + 1);
        }
    }

    void Enter(const std::wstring& path, std::size_t depth) {
        try {
            ScanDirectory(path, depth);
        } catch (const CFatalFailure&) {
            throw;
        } catch (const CFailure& failure) {
            m_fail(path, failure.what());
        }
    }

    IProtocolManager& m_manager;
    std::wstring m_top;
    const TreeFailure& m_fail;
    std::vector<TreeEntry> m_entries;
};

}  // namespace

std::vector<TreeEntry> ScanLocalTree(const std::wstring& top, const TreeFailure& fail) {
    return CLocalScan(top, fail).Scan();
}

std::vector<TreeEntry> ScanRemoteTree(IProtocolManager& manager, const std::wstring& top, const TreeFailure& fail) {
    if (!IsDirectory(QueryPath(manager, top))) {
        throw CFailure("-r copies a directory, and this is a file: " + ToUtf8(top));
    }
    return CRemoteScan(manager, top, fail).Scan();
}

}  // namespace zd::host
