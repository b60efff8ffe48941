#include "protocol/MountedPools.h"

#include <new>
#include <vector>

#include "base/StorageOwners.h"
#include "base/Undo.h"
#include "protocol/ProtocolState.h"

namespace zd {
namespace {

constexpr int kLongestName = 259;  // bytes behind the path's slash
constexpr int kLengthOfValue = 4;

std::vector<std::wstring> MountedNames() {
    CProtocolState& state = ProtocolState();
    const CAutoCriticalSection held(state.m_mountsLock);
    std::vector<std::wstring> names;
    for (const auto& [name, connections] : state.m_mountedNames) names.push_back(name);
    return names;
}

DWORD SendToPool(const std::wstring& name, DWORD request, va_list arguments, DWORD before) {
    char path[1 + kLongestName + 1] = "/";
    if (::wcstoutf8_buf(name.c_str(), path + 1, kLongestName + 1) <= 0) return before;
    CUniqueDescriptor root(::ZdvfsOpen(path, 0, 0));
    if (!root) return before;
    ::ZdvfsVIoctl(root.Get(), static_cast<int>(request), arguments);
    return static_cast<DWORD>(::ZdvfsClose(root.Release()));
}

void SendArguments(DWORD request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    SendToPools(request, arguments);
    va_end(arguments);
}

}  // namespace

void RegisterMount(const std::wstring& name, ZdvfsMountBlock& block) {
    CProtocolState& state = ProtocolState();
    const CAutoCriticalSection held(state.m_mountsLock);
    state.m_mountBlocks.insert(&block);
    CUndo leave([&]() ZD_REQUIRES(state.m_mountsLock) { state.m_mountBlocks.erase(&block); });
    ++state.m_mountedNames[name];
    leave.Keep();
}

void UnregisterMount(const std::wstring& name, ZdvfsMountBlock& block) noexcept {
    CProtocolState& state = ProtocolState();
    const CAutoCriticalSection held(state.m_mountsLock);
    state.m_mountBlocks.erase(&block);
    const auto found = state.m_mountedNames.find(name);
    if (found != state.m_mountedNames.end() && --found->second == 0) state.m_mountedNames.erase(found);
}

void SetLogLevelOfMounts(ZdvfsMountBlock& own, DWORD level) noexcept {
    CProtocolState& state = ProtocolState();
    const CAutoCriticalSection held(state.m_mountsLock);
    own.logLevel = level;
    for (ZdvfsMountBlock* const block : state.m_mountBlocks) block->logLevel = level;
}

DWORD SendToPools(DWORD request, va_list arguments) noexcept {
    try {
        DWORD result = kNotRequested;
        for (const std::wstring& name : MountedNames()) result = SendToPool(name, request, arguments, result);
        return result;
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return kNotRequested;
    }
}

void SendValueToPools(DWORD request, std::uint32_t value) noexcept {
    SendArguments(request, static_cast<int>(value), kLengthOfValue);
}

}  // namespace zd
