// Control requests that pass through to the storage. Neither operation writes lines of its own.
#include <algorithm>
#include <new>
#include <string>
#include <vector>

#include "base/Errors.h"
#include "base/StorageOwners.h"
#include "hul.h"
#include "protocol/ProcessState.h"
#include "protocol/ProtocolManager.h"

namespace zd {
namespace {

constexpr DWORD kNoResult = 0xFFFFFFFF;
constexpr int kLongestName = 259;  // bytes behind the path's slash

// On this platform an argument list is one pointer.
va_list ArgumentList(std::uint64_t argument) noexcept {
    static_assert(sizeof(va_list) == sizeof argument);
    return reinterpret_cast<va_list>(argument);
}

std::vector<std::wstring> MountedNames() {
    CProcessState& state = ProcessState();
    const CAutoCriticalSection held(state.m_settingsLock);
    std::vector<std::wstring> names;
    for (const auto& [name, connections] : state.m_mountedNames) names.push_back(name);
    return names;
}

DWORD SendToPool(const std::wstring& name, DWORD request, std::uint64_t argument, DWORD before) {
    char path[1 + kLongestName + 1] = "/";
    if (::wcstoutf8_buf(name.c_str(), path + 1, kLongestName + 1) <= 0) return before;
    CUniqueDescriptor root(::ZdvfsOpen(path, 0, 0));
    if (!root) return before;
    ::ZdvfsVIoctl(root.Get(), static_cast<int>(request), ArgumentList(argument));
    return static_cast<DWORD>(::ZdvfsClose(root.Release()));
}

}  // namespace

DWORD CProtocolManager::ZdHandleIoctl(Handle handle, DWORD request, std::uint64_t argument) {
    if (handle == 0) return kNoResult;
    try {
        const CWordRef word = FindWord(handle);
        const CAutoCriticalSection held(word->Lock());
        const std::int32_t fragment = std::min(word->m_lastWritten, word->FragmentCount() - 1);
        return static_cast<DWORD>(::ZdvfsVIoctl(static_cast<int>(word->Descriptor(fragment)), static_cast<int>(request),
                                                ArgumentList(argument)));
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return kNoResult;
    }
}

DWORD CProtocolManager::ZdPathIoctl(DWORD request, std::uint64_t argument) {
    try {
        DWORD result = kNoResult;
        for (const std::wstring& name : MountedNames()) result = SendToPool(name, request, argument, result);
        return result;
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return kNoResult;
    }
}

}  // namespace zd
