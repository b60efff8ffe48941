// Reading a stretch of a remote file piece by piece.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "text/Failure.h"
#include "transfer/RemoteFile.h"
#include "transfer/Transfer.h"

namespace zd::host {

// Reads the bytes from `begin` up to `end` and gives each piece to `take` (data, size). Throws CFailure where the file
// ends before `end`: data that should be there is missing.
template <class Take>
void ReadRange(CRemoteFile& file, std::int64_t begin, std::int64_t end, Take&& take) {
    std::vector<char> piece(static_cast<std::size_t>(std::clamp<std::int64_t>(end - begin, 0, kPieceSize)));
    for (std::int64_t at = begin; at < end;) {
        const auto wanted = static_cast<DWORD>(std::min<std::int64_t>(end - at, kPieceSize));
        const DWORD got = file.Read(at, piece.data(), wanted);
        if (got == 0) ThrowFailure("ZdReadFile (data ends early)", ERROR_HANDLE_EOF, file.Name());
        take(static_cast<const void*>(piece.data()), got);
        at += got;
    }
}

}  // namespace zd::host
