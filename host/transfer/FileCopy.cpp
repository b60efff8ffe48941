#include "transfer/FileCopy.h"

#include <algorithm>
#include <limits>
#include <vector>

#include "text/Failure.h"
#include "transfer/ReadRange.h"

namespace zd::host {

OpenRequest RequestToPut(const std::wstring& name, bool times) {
    const DWORD access = FILE_WRITE_DATA | (times ? FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES : 0U);
    return {name, ObjectKind::File, kZdOverwriteIf, access};
}

void CopyInto(CRemoteFile& remote, std::int64_t offset, CLocalReader& local, CTransfer& transfer) {
    // A tree can hold many small files.
    const std::uint64_t size = local.Size().value_or(kPieceSize);
    std::vector<char> piece(static_cast<std::size_t>(std::clamp<std::uint64_t>(size, 4096, kPieceSize)));
    while (const DWORD got = local.Read(piece.data(), static_cast<DWORD>(piece.size()))) {
        if (offset > std::numeric_limits<std::int64_t>::max() - static_cast<std::int64_t>(got)) {
            throw CUsageError("--offset: the data would not end below 2^63");
        }
        remote.Write(offset, piece.data(), got);
        offset += got;
        transfer.Advance(got);
    }
}

void PutFile(CLocalReader& local, CRemoteFile& remote, bool times, CTransfer& transfer) {
    CopyInto(remote, 0, local, transfer);
    if (times) {
        // The two times are set together.
        const auto access = static_cast<std::int64_t>(remote.Query().lastAccessTime);
        remote.SetBasic(access, static_cast<std::int64_t>(local.WriteTime()), /*attributes=*/0);
    }
    remote.Finish();
}

void GetFile(CRemoteFile& remote, CLocalWriter& local, bool times, CTransfer& transfer) {
    ReadRange(remote, 0, remote.Size(), [&](const void* data, DWORD size) {
        local.Write(data, size);
        transfer.Advance(size);
    });
    if (times) local.SetWriteTime(remote.Information().lastWriteTime);
    remote.Finish();
    local.Commit();
}

}  // namespace zd::host
