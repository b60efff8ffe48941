// What a connect puts into the block that it hands to the storage library.
#pragma once

#include <windows.h>

#include <cwchar>
#include <string>

#include "IProtocolManager.h"
#include "zdvfs.h"

namespace zd {

// A field of the host's record, which is full where it has no terminator.
template <std::size_t kWidth>
std::wstring FieldText(const wchar_t (&field)[kWidth]) {
    return std::wstring(field, ::wcsnlen(field, kWidth));
}

// The configuration file of the pool, and the flags of the agent type, which is not 0. Throws std::bad_alloc.
void FindConfiguration(ZdvfsMountBlock& block, DWORD agentType, const std::wstring& pool);

// The names and counts. Throws std::bad_alloc.
void FillMountBlock(ZdvfsMountBlock& block, DWORD agentType, const std::wstring& pool,
                    const ConnectParameters& parameters);

}  // namespace zd
