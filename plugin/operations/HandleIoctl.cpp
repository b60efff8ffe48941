#include <algorithm>
#include <cstdarg>
#include <new>

#include "protocol/MountedPools.h"
#include "protocol/ProtocolManager.h"

namespace zd {

// A control request that passes through to the storage. No lines of its own.
DWORD CProtocolManager::ZdHandleIoctl(Handle handle, DWORD request, std::uint64_t argument) {
    if (handle == 0) return kNotRequested;
    try {
        const CHandleRef record = m_files.FindHandle(handle);
        const CAutoCriticalSection held(record->Lock());
        const std::int32_t fragment = std::min(record->m_lastWritten, record->FragmentCount() - 1);
        return static_cast<DWORD>(::ZdvfsVIoctl(static_cast<int>(record->Descriptor(fragment)),
                                                static_cast<int>(request), ArgumentList(argument)));
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return kNotRequested;
    }
}

}  // namespace zd
