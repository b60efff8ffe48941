#include "DoubleState.h"

#include <algorithm>

namespace zd::test {

CDoubleState::CDoubleState() {
    volume.blockSize = 4096;
    volume.totalBlocks = 1000000;
    volume.availableBlocks = 600000;
    for (const int request : {kZdvfsIoctlSetSegmentSize, kZdvfsIoctlSetEncryption, kZdvfsIoctlSetCompression,
                              kZdvfsIoctlTaskTime, kZdvfsIoctlSyncFileCount, kZdvfsIoctlSetStreamSegmentSize}) {
        ioctlShapes[request] = "ii";
    }
    ioctlShapes[kZdvfsIoctlSetStorageLocality] = "pisii";
}

CDoubleState& CDoubleState::Get() {
    // Never destroyed: the plug-in's threads may still call while the process ends.
    static CDoubleState* const state = new CDoubleState();
    return *state;
}

OpenFile* CDoubleState::File(int descriptor) {
    const auto found = files.find(descriptor);
    if (found != files.end()) return &found->second;
    if (descriptor >= 0) ++badUses;
    return nullptr;
}

ZdvfsDirectory* CDoubleState::Stream(const ZdvfsDirectory* directory) {
    const auto found = std::find_if(streams.begin(), streams.end(),
                                    [directory](const auto& stream) { return stream.get() == directory; });
    if (found != streams.end() && (*found)->open) return found->get();
    ++badUses;
    return nullptr;
}

std::string CDoubleState::PathOf(int descriptor) {
    const std::lock_guard<std::mutex> held(lock);
    const auto found = files.find(descriptor);
    return found == files.end() ? std::string() : found->second.shown.path;
}

std::string CDoubleState::IoctlArguments(int request, va_list arguments) {
    const std::lock_guard<std::mutex> held(lock);
    const auto shape = ioctlShapes.find(request);
    std::string text;
    if (shape == ioctlShapes.end()) return text;
    for (const char kind : shape->second) {
        text += ", ";
        switch (kind) {
            case 'i':
                text += std::to_string(va_arg(arguments, int));
                break;
            case 'u':
                text += Hex(va_arg(arguments, unsigned int));
                break;
            case 'l':
                text += std::to_string(va_arg(arguments, long long));
                break;
            case 's':
                text += Quoted(va_arg(arguments, const char*));
                break;
            default:
                text += va_arg(arguments, const void*) == nullptr ? "null" : "ptr";
                break;
        }
    }
    return text;
}

namespace {

class CDoubleControl final : public IDoubleControl {
public:
    void Add(const Rule& rule) override { m_state.book.Add(rule); }
    void ClearRules() override { m_state.book.ClearRules(); }
    std::vector<Call> Calls() override { return m_state.book.Calls(); }
    void ClearCalls() override { m_state.book.ClearCalls(); }
    std::size_t Count(const std::string& function) override { return m_state.book.Count(function); }
    void MirrorTo(const std::wstring& file) override { m_state.book.MirrorTo(file); }

    void MakeFile(const std::string& path, const std::string& content, std::int64_t size) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        const NodePointer node = m_state.store.Put(path, false);
        node->bytes.Write(content.data(), static_cast<std::int64_t>(content.size()), 0);
        if (size >= 0) node->bytes.Resize(size);
    }

    void MakeDirectory(const std::string& path) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        m_state.store.Put(path, true);
    }

    void Remove(const std::string& path) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        const Place place = m_state.store.Follow(path, true);
        if (place.parent != nullptr) place.parent->Erase(place.leaf);
    }

    bool Exists(const std::string& path) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        return Find(path) != nullptr;
    }

    NodeState State(const std::string& path) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        const NodePointer node = Find(path);
        if (node == nullptr) return NodeState();
        NodeState state = node->state;
        state.size = node->bytes.Size();
        return state;
    }

    bool SetState(const std::string& path, const NodeState& state) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        const NodePointer node = Find(path);
        if (node == nullptr) return false;
        const bool directory = node->state.directory;
        node->state = state;
        node->state.directory = directory;
        return true;
    }

    std::string Bytes(const std::string& path, std::int64_t offset, std::int64_t length) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        const NodePointer node = Find(path);
        if (node == nullptr) return std::string();
        const std::int64_t rest = std::max<std::int64_t>(0, node->bytes.Size() - offset);
        std::string bytes(static_cast<std::size_t>(length < 0 ? rest : std::min(rest, length)), '\0');
        node->bytes.Read(bytes.data(), static_cast<std::int64_t>(bytes.size()), offset);
        return bytes;
    }

    std::vector<std::string> Names(const std::string& directory) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        std::vector<std::string> names;
        if (const NodePointer node = Find(directory)) {
            for (const auto& entry : node->entries) names.push_back(entry.first);
        }
        return names;
    }

    void SetListing(const std::string& directory, const std::vector<std::string>& names) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        m_state.store.Put(directory, true)->listing = names;
    }

    std::vector<OpenDescriptor> OpenDescriptors() override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        std::vector<OpenDescriptor> open;
        for (const auto& file : m_state.files) open.push_back(file.second.shown);
        return open;
    }

    std::vector<std::string> OpenStreams() override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        std::vector<std::string> paths;
        for (const auto& stream : m_state.streams) {
            if (stream->open) paths.push_back(stream->path);
        }
        return paths;
    }

    int BadDescriptorUses() override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        return m_state.badUses;
    }

    void SetNextDescriptor(int number) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        m_state.nextDescriptor = number;
    }

    std::map<std::string, int> Mounts() override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        return m_state.store.mounts;
    }

    void* MountBlock(const std::string& pool) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        const auto found = m_state.mountBlocks.find(pool);
        return found == m_state.mountBlocks.end() ? nullptr : found->second;
    }

    void SetVolume(const ZdvfsVolumeRecord& record) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        m_state.volume = record;
    }

    void SetIoctlShape(int request, const std::string& shape) override {
        const std::lock_guard<std::mutex> held(m_state.lock);
        m_state.ioctlShapes[request] = shape;
    }

    ICallBook* Book() override { return &m_state.book; }

private:
    NodePointer Find(const std::string& path) const { return m_state.store.Follow(path, true).node; }

    CDoubleState& m_state = CDoubleState::Get();
};

}  // namespace

}  // namespace zd::test

extern "C" __declspec(dllexport) zd::test::IDoubleControl* DoubleControl() {
    static zd::test::CDoubleControl* const control = new zd::test::CDoubleControl();
    return control;
}
