// Information, directories, names, attributes and security texts.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "DoubleState.h"

using namespace zd::test;

namespace {

// The node that a call names by path or by descriptor.
struct Target {
    NodePointer node;
    int error = 0;
};

Target ByPath(CDoubleState& state, const std::string& path) {
    const Place place = state.store.Follow(path);
    return Target{place.node, place.error != 0 ? place.error : ENOENT};
}

Target ByDescriptor(CDoubleState& state, int descriptor) {
    const OpenFile* const file = state.File(descriptor);
    return Target{file == nullptr ? nullptr : file->node, EBADF};
}

Call PathCall(const char* function, const char* path, const std::string& further = std::string()) {
    Call call = NewCall(function, Quoted(path) + further);
    call.path = PlainPath(path);
    return call;
}

Call DescriptorCall(CDoubleState& state, const char* function, int descriptor,
                    const std::string& further = std::string()) {
    Call call = NewCall(function, std::to_string(descriptor) + further);
    call.descriptor = descriptor;
    call.path = state.PathOf(descriptor);
    return call;
}

std::string Also(std::int64_t value) {
    return ", " + std::to_string(value);
}

// Runs `body` on the node that `find` answers, under the lock.
template <class Find, class Body>
int OnNode(CDoubleState& state, Call& call, Find find, Body body) {
    return static_cast<int>(RunCall(state.book, call, EResult::kNumber, [&](Call& entry, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        const Target target = find();
        return target.node == nullptr ? Failure(target.error) : body(*target.node, entry);
    }));
}

Outcome FillStat(const Node& node, ZdvfsStatRecord& record) {
    // The library fills reserved fields too.
    std::memset(&record, 0xA5, sizeof(record));
    record.attributes = node.state.attributes;
    record.mode = node.state.mode;
    record.size = node.bytes.Size();
    record.accessTime = node.state.accessTime;
    record.modificationTime = node.state.modificationTime;
    record.creationTime = node.state.creationTime;
    return Value(0);
}

Outcome CopyText(const std::string& text, char* buffer, int size, Call& call) {
    if (size < 0 || text.size() >= static_cast<std::size_t>(size)) return Failure(ERANGE);
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    call.textOut = text;
    return Value(0);
}

Outcome DsidText(const Node& node, char* buffer, int size, int* flag, Call& call) {
    const std::string& text = node.state.dsidText ? *node.state.dsidText : node.state.sddl;
    const Outcome outcome = CopyText(text, buffer, size, call);
    if (outcome.value == 0) *flag = call.flagOut = node.state.dsidFlag.value_or(text.empty() ? 1 : 0);
    return outcome;
}

ZdvfsDirectory* OpenStream(const char* function, const char* path, const std::string& further) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall(function, path, further);
    ZdvfsDirectory* opened = nullptr;
    RunCall(state.book, call, EResult::kPointer, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        const Target target = ByPath(state, path);
        const int error = target.node == nullptr ? target.error : target.node->state.directory ? 0 : ENOTDIR;
        if (error != 0) return Outcome{0, "null", error, LastErrorFor(error)};
        auto stream = std::make_unique<ZdvfsDirectory>();
        stream->number = static_cast<int>(state.streams.size()) + 1;
        stream->path = call.path;
        stream->names = target.node->listing;
        if (stream->names.empty()) {
            stream->names = {".", ".."};
            for (const auto& entry : target.node->entries) stream->names.push_back(entry.first);
        }
        opened = stream.get();
        state.streams.push_back(std::move(stream));
        return Outcome{reinterpret_cast<std::intptr_t>(opened), "dir" + std::to_string(opened->number), 0, 0};
    });
    return opened;
}

Call StreamCall(CDoubleState& state, const char* function, const ZdvfsDirectory* directory) {
    const std::lock_guard<std::mutex> held(state.lock);
    Call call = NewCall(function, directory == nullptr ? "null" : "unknown");
    for (const auto& stream : state.streams) {
        if (stream.get() != directory) continue;
        call.arguments = "dir" + std::to_string(stream->number);
        call.path = stream->path;
    }
    return call;
}

}  // namespace

int ZdvfsStat(const char* path, ZdvfsStatRecord* record) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsStat", path);
    return OnNode(
        state, call, [&] { return ByPath(state, path); },
        [&](const Node& node, Call&) { return FillStat(node, *record); });
}

int ZdvfsFstat(int descriptor, ZdvfsStatRecord* record) {
    CDoubleState& state = CDoubleState::Get();
    Call call = DescriptorCall(state, "ZdvfsFstat", descriptor);
    return OnNode(
        state, call, [&] { return ByDescriptor(state, descriptor); },
        [&](const Node& node, Call&) { return FillStat(node, *record); });
}

int ZdvfsStatvfs(const char* path, ZdvfsVolumeRecord* record) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsStatvfs", path);
    return OnNode(
        state, call, [&] { return ByPath(state, path); },
        [&](const Node&, Call&) { return *record = state.volume, Value(0); });
}

ZdvfsDirectory* ZdvfsOpendir(const char* path) {
    return OpenStream("ZdvfsOpendir", path, std::string());
}

ZdvfsDirectory* ZdvfsOpendirForList(const char* path, int refresh) {
    return OpenStream("ZdvfsOpendirForList", path, Also(refresh));
}

ZdvfsDirectoryRecord* ZdvfsReaddir(ZdvfsDirectory* directory) {
    CDoubleState& state = CDoubleState::Get();
    Call call = StreamCall(state, "ZdvfsReaddir", directory);
    ZdvfsDirectoryRecord* record = nullptr;
    RunCall(state.book, call, EResult::kPointer, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        ZdvfsDirectory* const stream = state.Stream(directory);
        if (stream == nullptr) return Outcome{0, "null", EBADF, LastErrorFor(EBADF)};
        // What the last call answered is void now.
        std::memset(&stream->record, 0xA5, sizeof(stream->record));
        if (stream->next == stream->names.size()) return Outcome{0, "null", 0, 0};
        const std::string& name = stream->names[stream->next++];
        const std::size_t length = std::min(name.size(), sizeof(stream->record.name) - 1);
        stream->record.id = stream->next;
        std::memcpy(stream->record.name, name.data(), length);
        stream->record.name[length] = '\0';
        record = &stream->record;
        return Outcome{1, Quoted(record->name), 0, 0};
    });
    return record;
}

int ZdvfsClosedir(ZdvfsDirectory* directory) {
    CDoubleState& state = CDoubleState::Get();
    Call call = StreamCall(state, "ZdvfsClosedir", directory);
    const auto forget = [&] {
        const std::lock_guard<std::mutex> held(state.lock);
        ZdvfsDirectory* const stream = state.Stream(directory);
        if (stream == nullptr) return Failure(EBADF);
        stream->open = false;
        return Value(0);
    };
    return static_cast<int>(RunGivingBack(state.book, call, forget));
}

int ZdvfsMkdir(const char* path, int mode) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsMkdir", path, ", " + Hex(static_cast<unsigned int>(mode)));
    return static_cast<int>(RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        const Place place = state.store.Follow(path);
        if (place.error != 0) return Failure(place.error);
        if (place.node != nullptr) return Failure(EEXIST);
        const NodePointer node = NewNode(true);
        node->state.attributes = static_cast<std::uint16_t>(mode);
        place.parent->entries.emplace_back(place.leaf, node);
        return Value(0);
    }));
}

int ZdvfsUnlink(const char* path) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsUnlink", path);
    return OnNode(
        state, call, [&] { return ByPath(state, path); },
        [&](const Node& node, Call&) {
            if (!node.entries.empty()) return Failure(ENOTEMPTY);
            const Place place = state.store.Follow(path);
            if (place.isPoolRoot || place.parent == nullptr) return Failure(EACCES);
            place.parent->Erase(place.leaf);
            return Value(0);
        });
}

int ZdvfsRename(const char* oldPath, const char* newPath) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsRename", oldPath, ", " + Quoted(newPath));
    return static_cast<int>(RunCall(state.book, call, EResult::kNumber, [&](Call&, std::int64_t) {
        const std::lock_guard<std::mutex> held(state.lock);
        const Place from = state.store.Follow(oldPath);
        const Place to = state.store.Follow(newPath);
        if (from.error != 0 || from.node == nullptr) return Failure(from.error != 0 ? from.error : ENOENT);
        if (to.error != 0) return Failure(to.error);
        if (to.node != nullptr) return Failure(EEXIST);
        if (from.isPoolRoot || from.parent == nullptr || to.isPoolRoot) return Failure(EACCES);
        from.parent->Erase(from.leaf);
        to.parent->entries.emplace_back(to.leaf, from.node);
        return Value(0);
    }));
}

int ZdvfsChmod(const char* path, uint32_t mode) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsChmod", path, ", " + Hex(mode));
    return OnNode(
        state, call, [&] { return ByPath(state, path); },
        [&](Node& node, Call&) {
            node.state.attributes = static_cast<std::uint16_t>(mode);
            return Value(0);
        });
}

int ZdvfsUtime(const char* path, const ZdvfsTimes* times) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsUtime", path, Also(times->access) + Also(times->modification));
    return OnNode(
        state, call, [&] { return ByPath(state, path); },
        [&](Node& node, Call&) {
            node.state.accessTime = times->access;
            node.state.modificationTime = times->modification;
            return Value(0);
        });
}

int ZdvfsGetNTAclStr(const char* path, char* buffer, int size) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsGetNTAclStr", path, Also(size));
    return OnNode(
        state, call, [&] { return ByPath(state, path); },
        [&](const Node& node, Call& entry) { return CopyText(node.state.sddl, buffer, size, entry); });
}

int ZdvfsFgetNTAclStr(int descriptor, char* buffer, int size) {
    CDoubleState& state = CDoubleState::Get();
    Call call = DescriptorCall(state, "ZdvfsFgetNTAclStr", descriptor, Also(size));
    return OnNode(
        state, call, [&] { return ByDescriptor(state, descriptor); },
        [&](const Node& node, Call& entry) { return CopyText(node.state.sddl, buffer, size, entry); });
}

int ZdvfsGetDsidNTAclStr(const char* path, char* buffer, int size, int* flag) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsGetDsidNTAclStr", path, Also(size) + Also(*flag));
    return OnNode(
        state, call, [&] { return ByPath(state, path); },
        [&](const Node& node, Call& entry) { return DsidText(node, buffer, size, flag, entry); });
}

int ZdvfsFgetDsidNTAclStr(int descriptor, char* buffer, int size, int* flag) {
    CDoubleState& state = CDoubleState::Get();
    Call call = DescriptorCall(state, "ZdvfsFgetDsidNTAclStr", descriptor, Also(size) + Also(*flag));
    return OnNode(
        state, call, [&] { return ByDescriptor(state, descriptor); },
        [&](const Node& node, Call& entry) { return DsidText(node, buffer, size, flag, entry); });
}

int ZdvfsSetNTAclStr(const char* path, const char* text) {
    CDoubleState& state = CDoubleState::Get();
    Call call = PathCall("ZdvfsSetNTAclStr", path, ", " + Quoted(text));
    return OnNode(
        state, call, [&] { return ByPath(state, path); },
        [&](Node& node, Call&) { return node.state.sddl = text, Value(0); });
}

int ZdvfsFsetNTAclStr(int descriptor, const char* text) {
    CDoubleState& state = CDoubleState::Get();
    Call call = DescriptorCall(state, "ZdvfsFsetNTAclStr", descriptor, ", " + Quoted(text));
    return OnNode(
        state, call, [&] { return ByDescriptor(state, descriptor); },
        [&](Node& node, Call&) { return node.state.sddl = text, Value(0); });
}
