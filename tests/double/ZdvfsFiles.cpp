// Mounting, open files and their data, control requests.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "DoubleState.h"

using namespace zd::test;

namespace {

std::string Join(std::initializer_list<std::string> parts) {
    std::string joined;
    for (const std::string& part : parts) joined += (joined.empty() ? "" : ", ") + part;
    return joined;
}

std::string Number(std::int64_t value) {
    return std::to_string(value);
}

void Keep(Call& call, const void* bytes, std::uint64_t length) {
    const auto* first = static_cast<const std::uint8_t*>(bytes);
    if (first != nullptr) call.data.assign(first, first + std::min<std::uint64_t>(length, 8192));
}

std::string BlockText(const ZdvfsMountBlock& block) {
    return "block{flags=" + Hex(block.flags) + ", level=" + Number(block.logLevel) +
           ", pool=" + Quoted(block.poolName) + ", sync=" + Number(block.syncFileCount) +
           ", file=" + Quoted(block.configurationFile) + ", second=" + Quoted(block.secondName) +
           ", third=" + Quoted(block.thirdName) + ", kind=" + Quoted(block.agentKind) + "}";
}

Outcome Open(CDoubleState& state, Call& call, const char* path, int flags, int mode) {
    const std::lock_guard<std::mutex> held(state.lock);
    Place place = state.store.Follow(path);
    if (place.error != 0) return Failure(place.error);
    if (place.node == nullptr) {
        if ((flags & kZdvfsCreate) == 0) return Failure(ENOENT);
        place.node = NewNode(false);
        place.node->state.attributes = static_cast<std::uint16_t>(mode);
        place.parent->entries.emplace_back(place.leaf, place.node);
    } else if ((flags & kZdvfsCreate) != 0 && (flags & kZdvfsExclusive) != 0) {
        return Failure(EEXIST);
    } else if (place.node->state.directory && (flags != 0 || (!place.isPoolRoot && place.parent != nullptr))) {
        return Failure(EISDIR);
    } else if ((flags & kZdvfsTruncate) != 0) {
        place.node->bytes.Resize(0);
    }
    const int descriptor = state.nextDescriptor++;
    call.descriptor = descriptor;
    state.files[descriptor] = OpenFile{place.node, OpenDescriptor{descriptor, call.path, flags, 0}};
    return Value(descriptor);
}

bool MayRead(const OpenFile& file) {
    return (file.shown.flags & kZdvfsWriteOnly) == 0;
}
bool MayWrite(const OpenFile& file) {
    return (file.shown.flags & (kZdvfsWriteOnly | kZdvfsReadWrite)) != 0;
}

Outcome Append(CDoubleState& state, int target, int source, std::int64_t sourceOffset, std::int64_t length) {
    const std::lock_guard<std::mutex> held(state.lock);
    OpenFile* const to = state.File(target);
    OpenFile* const from = state.File(source);
    if (to == nullptr || from == nullptr || !MayWrite(*to) || !MayRead(*from)) return Failure(EBADF);
    if (length < 0 || sourceOffset < 0) return Failure(EINVAL);
    std::vector<char> piece(65536);
    std::int64_t done = 0;
    while (done < length) {
        const std::int64_t wanted = std::min<std::int64_t>(length - done, 65536);
        const std::int64_t got = from->node->bytes.Read(piece.data(), wanted, sourceOffset + done);
        if (got == 0) break;
        to->node->bytes.Write(piece.data(), got, to->shown.position);
        to->shown.position += got;
        done += got;
    }
    return Value(done);
}

std::int64_t Capped(std::int64_t length, std::int64_t cap) {
    return cap < 0 ? length : std::min(length, cap);
}

int Ioctl(const char* function, int descriptor, int request, va_list arguments) {
    CDoubleState& state = CDoubleState::Get();
    Call call =
        NewCall(function, Join({Number(descriptor), Number(request)}) + state.IoctlArguments(request, arguments));
    call.descriptor = descriptor;
    call.path = state.PathOf(descriptor);
    return static_cast<int>(RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        return state.File(descriptor) == nullptr ? Failure(EBADF) : Value(0);
    }));
}

}  // namespace

int ZdvfsMountV1(const char* version, void* block, uint32_t blockSize) {
    CDoubleState& state = CDoubleState::Get();
    const auto* const words = static_cast<const ZdvfsMountBlock*>(block);
    const bool whole = words != nullptr && blockSize == sizeof(ZdvfsMountBlock);
    Call call = NewCall("ZdvfsMountV1", Join({Quoted(version), whole ? BlockText(*words) : "ptr", Number(blockSize)}));
    if (whole) {
        call.path = PlainPath(words->poolName);
        Keep(call, block, blockSize);
    }
    return static_cast<int>(RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        if (!whole || words->poolName == nullptr || call.path.empty()) return Failure(EINVAL);
        const std::lock_guard<std::mutex> held(state.lock);
        state.store.Put(call.path, true);
        ++state.store.mounts[call.path];
        state.mountBlocks[call.path] = block;
        return Value(0);
    }));
}

int ZdvfsUmount(const char* poolName) {
    CDoubleState& state = CDoubleState::Get();
    Call call = NewCall("ZdvfsUmount", Quoted(poolName));
    call.path = PlainPath(poolName);
    return static_cast<int>(RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        const auto found = state.store.mounts.find(call.path);
        if (found == state.store.mounts.end()) return Failure(EINVAL);
        if (--found->second == 0) {
            state.store.mounts.erase(found);
            state.mountBlocks.erase(call.path);
        }
        return Value(0);
    }));
}

int ZdvfsOpen(const char* path, int flags, int mode) {
    CDoubleState& state = CDoubleState::Get();
    Call call = NewCall(
        "ZdvfsOpen", Join({Quoted(path), Hex(static_cast<unsigned int>(flags)), Hex(static_cast<unsigned int>(mode))}));
    call.path = PlainPath(path);
    return static_cast<int>(RunCall(state.book, call, EResult::kNumber,
                                    [&](Call& entry, std::int64_t) { return Open(state, entry, path, flags, mode); }));
}

int ZdvfsClose(int descriptor) {
    CDoubleState& state = CDoubleState::Get();
    Call call = NewCall("ZdvfsClose", Number(descriptor));
    call.descriptor = descriptor;
    call.path = state.PathOf(descriptor);
    const auto forget = [&] {
        const std::lock_guard<std::mutex> held(state.lock);
        if (state.File(descriptor) == nullptr) return Failure(EBADF);
        state.files.erase(descriptor);
        return Value(0);
    };
    return static_cast<int>(RunGivingBack(state.book, call, forget));
}

int64_t ZdvfsPread(int descriptor, void* buffer, uint64_t length, int64_t offset) {
    CDoubleState& state = CDoubleState::Get();
    const auto wanted = static_cast<std::int64_t>(length);
    Call call = NewCall("ZdvfsPread", Join({Number(descriptor), Number(wanted), Number(offset)}));
    call.descriptor = descriptor;
    call.path = state.PathOf(descriptor);
    return RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t cap) {
        const std::lock_guard<std::mutex> held(state.lock);
        const OpenFile* const file = state.File(descriptor);
        if (file == nullptr || !MayRead(*file)) return Failure(EBADF);
        if (offset < 0 || wanted < 0) return Failure(EINVAL);
        return Value(file->node->bytes.Read(buffer, Capped(wanted, cap), offset));
    });
}

int64_t ZdvfsPwrite(int descriptor, const void* buffer, uint64_t length, int64_t offset) {
    CDoubleState& state = CDoubleState::Get();
    const auto wanted = static_cast<std::int64_t>(length);
    Call call = NewCall("ZdvfsPwrite", Join({Number(descriptor), Number(wanted), Number(offset)}));
    call.descriptor = descriptor;
    call.path = state.PathOf(descriptor);
    Keep(call, buffer, length);
    return RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t cap) {
        const std::lock_guard<std::mutex> held(state.lock);
        OpenFile* const file = state.File(descriptor);
        if (file == nullptr || !MayWrite(*file)) return Failure(EBADF);
        if (offset < 0 || wanted < 0) return Failure(EINVAL);
        file->node->bytes.Write(buffer, Capped(wanted, cap), offset);
        return Value(Capped(wanted, cap));
    });
}

int64_t ZdvfsAppend(int target, int64_t length, int64_t sourceOffset, int source, int flags) {
    CDoubleState& state = CDoubleState::Get();
    Call call = NewCall("ZdvfsAppend",
                        Join({Number(target), Number(length), Number(sourceOffset), Number(source), Number(flags)}));
    call.descriptor = target;
    call.path = state.PathOf(target);
    return RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t cap) {
        return Append(state, target, source, sourceOffset, Capped(length, cap));
    });
}

int64_t ZdvfsLseek(int descriptor, int64_t offset, int whence) {
    CDoubleState& state = CDoubleState::Get();
    Call call = NewCall("ZdvfsLseek", Join({Number(descriptor), Number(offset), Number(whence)}));
    call.descriptor = descriptor;
    call.path = state.PathOf(descriptor);
    return RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        OpenFile* const file = state.File(descriptor);
        if (file == nullptr) return Failure(EBADF);
        const std::int64_t base = whence == 0 ? 0 : whence == 1 ? file->shown.position : file->node->bytes.Size();
        if (whence < 0 || whence > 2 || base + offset < 0) return Failure(EINVAL);
        return Value(file->shown.position = base + offset);
    });
}

int ZdvfsFtruncate(int descriptor, int64_t size) {
    CDoubleState& state = CDoubleState::Get();
    Call call = NewCall("ZdvfsFtruncate", Join({Number(descriptor), Number(size)}));
    call.descriptor = descriptor;
    call.path = state.PathOf(descriptor);
    return static_cast<int>(RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        OpenFile* const file = state.File(descriptor);
        if (file == nullptr || !MayWrite(*file)) return Failure(EBADF);
        if (size < 0) return Failure(EINVAL);
        file->node->bytes.Resize(size);
        return Value(0);
    }));
}

int ZdvfsIoctl(int descriptor, int request, ...) {
    va_list arguments;
    va_start(arguments, request);
    struct Ended {  // a call may leave by an exception
        va_list& list;
        ~Ended() { va_end(list); }
    } const ended{arguments};
    return Ioctl("ZdvfsIoctl", descriptor, request, arguments);
}

int ZdvfsVIoctl(int descriptor, int request, va_list arguments) {
    return Ioctl("ZdvfsVIoctl", descriptor, request, arguments);
}
