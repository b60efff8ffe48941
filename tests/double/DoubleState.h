// What the double of the storage client library keeps for the process.
#pragma once

#include <cstdarg>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "CallBook.h"
#include "FileStore.h"
#include "zdvfs.h"

// An open directory stream. Closed ones stay in memory, so that a stale pointer is recognised.
struct ZdvfsDirectory {
    int number = 0;
    bool open = true;
    std::string path;
    std::vector<std::string> names;
    std::size_t next = 0;
    ZdvfsDirectoryRecord record{};
};

namespace zd::test {

struct OpenFile {
    NodePointer node;
    OpenDescriptor shown;
};

class CDoubleState {
public:
    static CDoubleState& Get();

    CCallBook book;  // has a lock of its own

    std::mutex lock;  // guards everything below
    CFileStore store;
    std::map<int, OpenFile> files;
    int nextDescriptor = 3;
    std::vector<std::unique_ptr<ZdvfsDirectory>> streams;
    int badUses = 0;
    std::map<std::string, void*> mountBlocks;
    ZdvfsVolumeRecord volume{};
    std::map<int, std::string> ioctlShapes;

    // The open file of a descriptor, or null, which counts as a bad use. `lock` is held.
    OpenFile* File(int descriptor);
    // The same for a stream.
    ZdvfsDirectory* Stream(const ZdvfsDirectory* directory);
    // The path behind a descriptor, empty for none. Takes `lock`.
    std::string PathOf(int descriptor);
    // The arguments behind a control request, each with ", " before it. Takes `lock`.
    std::string IoctlArguments(int request, va_list arguments);

private:
    CDoubleState();
};

inline Outcome Failure(int error) {
    return Outcome{-1, std::string(), error, LastErrorFor(error)};
}
inline Outcome Value(std::int64_t value) {
    return Outcome{value, std::string(), 0, 0};
}

// Begins the entry of a call.
inline Call NewCall(const char* function, std::string arguments) {
    Call call;
    call.function = function;
    call.arguments = std::move(arguments);
    return call;
}

}  // namespace zd::test
