// One file's data from here to the storage or back.
#pragma once

#include <cstdint>
#include <string>

#include "transfer/LocalFile.h"
#include "transfer/RemoteFile.h"
#include "transfer/Transfer.h"

namespace zd::host {

// How a file is opened that is to be made or overwritten; `times` where its times are to be set too.
OpenRequest RequestToPut(const std::wstring& name, bool times);

// Copies what is left of `local` into `remote` from `offset` on. Throws CFailure; CUsageError where the data would not
// end below 2^63.
void CopyInto(CRemoteFile& remote, std::int64_t offset, CLocalReader& local, CTransfer& transfer);

// Copies all of `local` into `remote`, which RequestToPut has opened, and ends the handle. With `times` the file gets
// the local one's time of the last write. Throws CFailure.
void PutFile(CLocalReader& local, CRemoteFile& remote, bool times, CTransfer& transfer);

// Copies all of `remote` into `local`, ends the handle and gives the local file its name. With `times` it gets the
// remote one's time of the last write. Throws CFailure; no local file has changed then.
void GetFile(CRemoteFile& remote, CLocalWriter& local, bool times, CTransfer& transfer);

}  // namespace zd::host
